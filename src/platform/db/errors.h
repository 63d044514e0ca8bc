// Raising engine errors, and the engine's fixed texts.
//
// Every backend reports failures by throwing db::EngineError through Raise(); backends translate their
// own error codes to an ErrorKind in one place each (RaiseSqlite in sqlite/sqlite_connection.cpp) and use these
// texts where the situation is the same whatever the engine.
#pragma once

#include <string>
#include <string_view>

#include "quorbex/engine.h"

namespace quorbex::db::internal {

[[noreturn]] void Raise(ErrorKind kind, std::string description);

namespace text {
inline constexpr const char* kNoCurrentRecord = "No current record.";
inline constexpr const char* kRecordDeleted = "Record is deleted.";
inline constexpr const char* kUpdateWithoutEdit = "Update or CancelUpdate without AddNew or Edit.";
inline constexpr const char* kNotUpdatable = "Cannot update. Database or object is read-only.";
inline constexpr const char* kSelectInExecute = "Cannot execute a select query.";
inline constexpr const char* kNoFieldDefined = "No field defined--cannot append TableDef or Index.";
inline constexpr const char* kNotForThisObject = "Operation is not supported for this type of object.";
inline constexpr const char* kDatabaseClosed = "Object invalid or no longer set (the database was closed).";
inline constexpr const char* kRecordsetClosed = "Object invalid or no longer set (the recordset was closed).";
inline constexpr const char* kAlreadyAppended = "Cannot change this property of an object that is already part of the database.";
}  // namespace text

// "Item not found in this collection: <what>"
[[noreturn]] void RaiseItemNotFound(std::string_view what);
[[noreturn]] void RaiseItemNotFound(int32_t position);
// "Could not find file '<path>'."
[[noreturn]] void RaiseFileNotFound(const std::string& path);
// "Unrecognized database format '<path>'."
[[noreturn]] void RaiseNotADatabase(const std::string& path);
// "Could not use '<path>'; file already in use (locked by another connection, waited <ms> ms)."
[[noreturn]] void RaiseBusy(const std::string& path, int32_t waited_ms);
// "Data type conversion error: <detail>"
[[noreturn]] void RaiseConversion(std::string_view detail);

}  // namespace quorbex::db::internal
