// clsTableManager: schema changes on the thread's current database.
#include "quorbex/clsTableManager.h"

#include <exception>

#include "platform/files.h"
#include "platform/message_box.h"
#include "platform/settings.h"
#include "quorbex/clsUpdateDB.h"
#include "quorbex/engine.h"
#include "quorbex/errors.h"
#include "schema/file_compaction.h"
#include "service/database_binding.h"
#include "service/modService.h"
#include "service/thread_state.h"
#include "value/failure.h"

namespace quorbex {

using namespace internal;

namespace {

constexpr const char* kSource = "QuorbexDataLayer.clsTableManager";
constexpr const char* kNoDatabase =
    "No Database set! You must either start the DataLayer itself or open Database first!";
constexpr const char* kMessageTitle = "Quorbex DataLayer:clsTableManager";
constexpr const char* kOpenFailed = "Fehler beim Öffnen der angegebenen Datenbank: ";
constexpr const char* kCompactInUse =
    "Die Datenbank kann nicht komprimiert werden, da sie in einem anderen Programm noch offen ist!";
constexpr const char* kCompactReopenFailed = "Konnte die Datenbank nicht erneut öffnen!";
constexpr const char* kCompactNeedsDatabase =
    "QuorbexDataLayser.clsTableManager: You must first set the DB in the Datalayer class. Then you can use "
    "this method!";

// Type code 32 asks AppendField for a counter-like Long field.
constexpr int32_t kCounterField = 32;

// The thread's database; calling a member on no database at all is the runtime's error 91.
db::Database& CurrentDatabase() {
  const auto& database = State().current_database;
  if (!database) RaiseRuntimeError(errnum::kObjectNotSet, kSource);
  return *database;
}

// The table walk of the classic table manager, kept as it was: positions 1 up to the count, names
// compared exactly (letter case included). Position 0 is never examined; the engine lists its own
// tables first, so that is never a user table. Without a match the walk asks for the position equal to
// the count, which does not exist, and the engine's "Item not found" error is the method's failure.
std::shared_ptr<db::TableDef> FindTable(db::Database& database, const std::string& name) {
  auto tables = database.TableDefs();
  for (int32_t position = 1;; ++position) {
    auto table = tables->Item(position);
    if (table->Name() == name) return table;
  }
}

// The type code of a column of a table or stored query. The name is handed to the engine as a name
// (it quotes it), so any characters are safe in it.
int32_t FieldTypeCode(const std::string& table, const std::string& field) {
  auto recordset = CurrentDatabase().OpenRecordset(table, db::dbOpenSnapshot);
  const int32_t code = recordset->Fields(field)->Type();
  recordset->Close();
  return code;
}

}  // namespace

clsTableManager::clsTableManager() {
  ThreadState& state = State();
  if (state.current_database) return;
  constexpr const char* kApp = "Quorbex DataLayer";
  constexpr const char* kSection = "Settings";
  const std::string path = platform::GetSetting(kApp, kSection, "DBPath");
  if (path.empty()) return;
  UseWorkgroup(platform::GetSetting(kApp, kSection, "Workgroup"), platform::GetSetting(kApp, kSection, "Username"),
               platform::GetSetting(kApp, kSection, "Password"));
  try {
    OpenCurrentDatabase(path);
  } catch (const std::exception& e) {
    ErrorStatus = kOpenFailed + FailureDescription(e);
  }
}

clsTableManager::~clsTableManager() {
  if (KeepDBOpen) return;
  ThreadState& state = State();
  try {
    if (state.current_database) state.current_database->Close();
  } catch (...) {
  }
  state.current_database.reset();
  state.database_set = false;
}

void clsTableManager::RequireDatabase() const {
  if (!State().database_set) throw AutomationError(40000, kSource, kNoDatabase);
}

// ---- Binding ---------------------------------------------------------------------------------------

Variant clsTableManager::SetDatabaseByPath(const std::string& DBPath) {
  try {
    OpenCurrentDatabase(DBPath);
  } catch (const std::exception& e) {
    ErrorStatus = kOpenFailed + FailureDescription(e);
  }
  return {};
}

Variant clsTableManager::SetDatabaseByPathAndWorkgroup(const std::string& DBPath, const std::string& WorkGroupPath,
                                                       const std::string& strUsername,
                                                       const std::string& strPassword) {
  try {
    UseWorkgroup(WorkGroupPath, strUsername, strPassword);
    OpenCurrentDatabase(DBPath);
  } catch (const std::exception& e) {
    ErrorStatus = kOpenFailed + FailureDescription(e);
  }
  return {};
}

bool clsTableManager::CreateDatabase(const std::string& strPathAndFileName) {
  const std::string& name = strPathAndFileName;
  // The name must end in a three-letter extension: its fourth character from the end is the point.
  if (name.size() < 4 || name[name.size() - 4] != '.') {
    ErrorStatus = "CreateDatabase: No filename stated";
    return false;
  }
  try {
    if (platform::FileExists(name)) {
      // Not created, but opened below all the same.
      ErrorStatus = "CreateDatabase: Database exists already";
    } else {
      db::DBEngine::Default()->CreateDatabase(name, db::dbLangGeneral, db::dbVersion40)->Close();
    }
  } catch (const std::exception& e) {
    ErrorStatus = "CreateDatabase: " + FailureDescription(e);
    return false;
  }
  SetDatabaseByPath(name);
  return true;
}

// ---- Tables and fields -----------------------------------------------------------------------------

bool clsTableManager::CreateTable(const std::string& strTableName) {
  try {
    db::Database& database = CurrentDatabase();
    auto table = database.CreateTableDef(strTableName);
    auto id = table->CreateField("id", db::dbLong);
    table->Fields()->Append(id);
    id->Attributes(db::dbAutoIncrField);
    database.TableDefs()->Append(table);
    return true;
  } catch (const std::exception&) {
    return false;
  }
}

bool clsTableManager::DeleteTable(const std::string& strTableName) {
  RequireDatabase();
  try {
    CurrentDatabase().TableDefs()->Delete(strTableName);
    return true;
  } catch (const std::exception& e) {
    ErrorStatus = FailureDescription(e);
    return false;
  }
}

bool clsTableManager::AppendField(const std::string& strTable, const std::string& strField, int32_t dbType) {
  RequireDatabase();
  try {
    auto table = FindTable(CurrentDatabase(), strTable);
    auto field = table->CreateField(strField, dbType == kCounterField ? db::dbLong : dbType);
    if (dbType == kCounterField) field->Attributes(db::dbVariableField);
    // Not every type has these properties; where one does not, the field is appended without it.
    try {
      field->AllowZeroLength(true);
    } catch (const std::exception&) {
    }
    try {
      field->Required(false);
    } catch (const std::exception&) {
    }
    table->Fields()->Append(field);
    return true;
  } catch (const std::exception& e) {
    ErrorStatus = FailureDescription(e);
    return false;
  }
}

bool clsTableManager::RenameField(const std::string& strTable, const std::string& strExistingField,
                                  const std::string& strNameAs) {
  RequireDatabase();
  try {
    FindTable(CurrentDatabase(), strTable)->Fields()->Item(strExistingField)->Name(strNameAs);
    return true;
  } catch (const std::exception& e) {
    ErrorStatus = FailureDescription(e);
    return false;
  }
}

bool clsTableManager::RemoveField(const std::string& strTable, const std::string& strField) {
  RequireDatabase();
  try {
    FindTable(CurrentDatabase(), strTable)->Fields()->Delete(strField);
    return true;
  } catch (const std::exception& e) {
    ErrorStatus = FailureDescription(e);
    return false;
  }
}

bool clsTableManager::SetIndex(const std::string& strTable, const std::string& strField, bool bolPrimary) {
  RequireDatabase();
  try {
    auto table = FindTable(CurrentDatabase(), strTable);
    auto index = table->CreateIndex("index" + strField);
    index->Fields()->Append(index->CreateField(strField));
    index->Primary(bolPrimary);
    table->Indexes()->Append(index);
    return true;
  } catch (const std::exception&) {
    return false;
  }
}

std::string clsTableManager::GetFieldType(const std::string& strTable, const std::string& strField) {
  RequireDatabase();
  try {
    switch (FieldTypeCode(strTable, strField)) {
      case db::dbBoolean: return "bool";
      case db::dbLong: return "zahl";
      case db::dbDate: return "datum";
      case db::dbText: return "text";
      case db::dbMemo: return "memo";
      default: return "";
    }
  } catch (const std::exception& e) {
    MessageRoutine("Fehler in der Funktion GetFieldType: \r\n" + FailureDescription(e), platform::vbOKOnly,
                   kMessageTitle);
    return "";
  }
}

int32_t clsTableManager::GetFieldTypeEnum(const std::string& strTable, const std::string& strField) {
  RequireDatabase();
  try {
    return FieldTypeCode(strTable, strField);
  } catch (const std::exception& e) {
    ErrorStatus = FailureDescription(e);
    return 0;
  }
}

std::shared_ptr<Collection<std::string>> clsTableManager::TableList() {
  RequireDatabase();
  auto names = std::make_shared<Collection<std::string>>();
  try {
    auto tables = CurrentDatabase().TableDefs();
    for (int32_t i = 0; i < tables->Count(); ++i) names->Add(tables->Item(i)->Name());
  } catch (const std::exception& e) {
    ErrorStatus = FailureDescription(e);
  }
  return names;
}

// ---- Queries and statements ------------------------------------------------------------------------

bool clsTableManager::CreateQueryDef(const std::string& strQueryName, const Variant& strQuery) {
  try {
    CurrentDatabase().CreateQueryDef(strQueryName, ToText(strQuery));
    return true;
  } catch (const std::exception&) {
    return false;
  }
}

bool clsTableManager::DeleteQueryDef(const std::string& strQueryName) {
  RequireDatabase();
  try {
    CurrentDatabase().QueryDefs()->Delete(strQueryName);
    return true;
  } catch (const std::exception&) {
    return false;
  }
}

Variant clsTableManager::DBExecute(const std::string& strQuery) {
  try {
    CurrentDatabase().Execute(strQuery);
  } catch (const std::exception& e) {
    ErrorStatus = FailureDescription(e);
  }
  return {};
}

std::shared_ptr<Collection<std::string>> clsTableManager::ListQueryFields(const std::string& strQuery) {
  RequireDatabase();
  auto entries = std::make_shared<Collection<std::string>>();
  try {
    // The field list is known once the query runs; no row needs to be read for it.
    auto recordset = CurrentDatabase().OpenRecordset(strQuery, db::dbOpenSnapshot);
    auto fields = recordset->Fields();
    for (int32_t i = 0; i < fields->Count(); ++i) {
      auto field = fields->Item(i);
      const std::string table = field->SourceTable();
      entries->Add(table.empty() ? field->Name() : table + "." + field->Name());
    }
    recordset->Close();
  } catch (const std::exception& e) {
    ErrorStatus = FailureDescription(e);
    return std::make_shared<Collection<std::string>>();
  }
  return entries;
}

// ---- Update scripts and compaction -----------------------------------------------------------------

std::shared_ptr<clsUpdateDB> clsTableManager::DBUpdate() {
  RequireDatabase();
  if (!update_runner_made_) {
    update_runner_ = std::make_shared<clsUpdateDB>();
    update_runner_->Parent(weak_from_this().lock());
    update_runner_made_ = true;
  }
  return update_runner_;
}

Variant clsTableManager::CompactDB() {
  RequireDatabase();
  ThreadState& state = State();
  auto report = [&](const std::string& text) {
    ErrorStatus = text;
    MessageRoutine(text, platform::vbExclamation, kMessageTitle);
    return Variant(false);
  };
  if (!state.current_database || !state.current_database->IsOpen()) return report(kCompactNeedsDatabase);
  if (!state.current_database->Supports(db::Feature::Compaction)) {
    // A server database stays open and reclaims its space in place.
    try {
      state.current_database->CompactInPlace();
      return Variant(true);
    } catch (const db::EngineError& e) {
      if (e.Kind() == db::ErrorKind::NotSupported) return report("COMPACTDB: This database cannot be compacted.");
      return report("COMPACTDB: " + e.Description());
    }
  }
  const std::string path = state.current_database->Name();

  // Our own connection must go first: the file is compacted only when no one has it open.
  try {
    if (state.open_recordset) state.open_recordset->Close();
  } catch (...) {
  }
  state.open_recordset.reset();
  try {
    state.current_database->Close();
  } catch (...) {
  }
  state.current_database.reset();

  FileCompaction compaction(path);
  bool compacted = false;
  std::string failure;
  try {
    if (compaction.InUse()) {
      failure = kCompactInUse;
    } else {
      compaction.WriteCompactedCopy();
      const std::string kept = UniqueSibling(path, "_orig_");
      // Someone who opened the file meanwhile could have written to the original after the copy
      // was taken; their change would be lost under the copy.
      if (compaction.InUse()) {
        compaction.DiscardCopy();
        failure = kCompactInUse;
      } else if (!compaction.KeepOriginal(kept)) {
        compaction.DiscardCopy();
        failure = "COMPACTDB: The original database could not be kept as '" + kept + "'.";
      } else if (!compaction.PutCopyInPlace()) {
        failure = "COMPACTDB: The compacted database '" + compaction.CopyPath() + "' could not be renamed to '" +
                  path + "'; the original is unchanged.";
      } else {
        renamed_original_ = kept;
        compacted = true;
      }
    }
  } catch (const db::EngineError& e) {
    compaction.DiscardCopy();
    failure = e.Kind() == db::ErrorKind::Busy ? kCompactInUse : "COMPACTDB: " + e.Description();
  } catch (const std::exception& e) {
    compaction.DiscardCopy();
    failure = "COMPACTDB: " + FailureDescription(e);
  }

  try {
    OpenCurrentDatabase(path);
  } catch (const std::exception&) {
    return report(kCompactReopenFailed);
  }
  if (!compacted) return report(failure);
  return Variant(true);
}

}  // namespace quorbex
