// The Jet backend: Jet 3, Jet 4 and ACE files (.mdb, .accdb), read-only, through libmdb.
//
// Opening a file mirrors it whole into an in-memory SQLite database (every user table with its rows,
// keys, indexes and relationships, and the stored queries that have a SQL form as views), and every
// query then runs on the mirror with full SQL through the SQLite backend's code. The mirror is made at
// open, not table by table on first use: the views need their tables anyway, a whole Northwind file
// takes some 50 ms, and libmdb can only be trusted inside the guarded child process (jet_connection.h),
// which is started once per open instead of once per table. The price is memory: the mirror holds the
// whole file.
//
// Every write (rows, schema, stored queries, transactions, relationships) raises ReadOnly with a text
// that names `qdl migrate`, the way to a writable copy. Supports answers false to everything.
#pragma once

#include "platform/db/backend.h"

namespace quorbex::db::internal {

Backend& JetBackend();

}  // namespace quorbex::db::internal
