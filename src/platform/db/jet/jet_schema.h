// The catalogue of a Jet file (user tables, columns, indexes, relationships) and the same tables made
// in the SQLite mirror.
#pragma once

#include <string>
#include <vector>

#include "platform/db/jet/jet_recordset.h"
#include "quorbex/engine.h"

namespace quorbex::db::internal::jet {

// The user tables, in catalogue order (system tables, forms, queries and linked tables left out).
std::vector<std::string> UserTables(MdbHandle* mdb);

// Creates the table `table` describes in `mirror` through the engine interface: its columns with the
// engine's type codes of their Jet types (texts with their length), the AutoNumber key as the
// auto-increment field, the primary key, and the other indexes with their unique flag. The indexes
// that only mark the foreign end of a relationship (no key columns of their own) are left out: the
// relationship itself becomes a foreign key (ReadRelations, Database::CreateRelation).
void CreateMirrorTable(Database& mirror, const TableReader& table);

// The relationships stored in MSysRelationships, with their names and attributes (cascades, not
// enforced), fields in key order. Empty when the file has no such table.
std::vector<Relation> ReadRelations(MdbHandle* mdb);

}  // namespace quorbex::db::internal::jet
