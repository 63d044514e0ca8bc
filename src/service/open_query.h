// OpenQueryRecordset: opens a query on the thread's current database.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "quorbex/engine.h"

namespace quorbex::internal {

// Open options of OpenQueryRecordset.
inline constexpr int32_t kOpenUpdatable = 0;  // a dynaset: updatable where the engine's rules allow
inline constexpr int32_t kOpenReadOnly = 1;   // a snapshot: never updatable

// Opens a recordset for `strSQL` on State().current_database through a temporary, unnamed query
// definition. `optionFlag` 0 opens a dynaset (updatable when every column comes from one table with its
// key), any other value a read-only snapshot.
//
// On success: the open recordset, positioned on its first row. On failure (no database bound, a
// closed database, a bad SQL text, a lock): an empty pointer; the short form "Datenbank-Abfragefehler.
// Interner Fehler: " + description + " | SQL-Abfrage: " + SQL is appended to the thread's error channel
// (AppendErrorStatus), and, unless messages are suppressed, the long form "Es ist ein
// Datenbank-Abfragefehler entstanden. Eine Abfrage ist nicht korrekt und hat einen Fehler erzeugt."
// CRLF CRLF "Interner Fehler: " + description + CRLF + "SQL-Abfrage: " + SQL is shown in a message box
// (critical icon, OK button). Never throws.
std::shared_ptr<db::Recordset> OpenQueryRecordset(const std::string& strSQL, int32_t optionFlag = kOpenUpdatable);

}  // namespace quorbex::internal
