// DataLayer: writing the offline records back to the database.
//
// Save writes every marked record in one transaction. A record that fails ends the save and the
// records before it are committed, so what the database holds always matches the change marks: the
// records written have their marks cleared, the failing one and all later ones keep theirs.
#include <exception>
#include <vector>

#include "datalayer/save_run.h"
#include "quorbex/DataLayer.h"
#include "quorbex/text.h"
#include "service/clsLog.h"
#include "service/modService.h"
#include "service/thread_state.h"
#include "value/text_util.h"
#include "value/failure.h"

namespace quorbex {

using namespace internal;

namespace {

constexpr const char* kRefreshTable = "sys_quorbexdatalayer_refresh";

// The SQL text without its "--" comments (each up to the end of its line); quoted texts and names are
// left as they are.
std::string WithoutLineComments(const std::string& sql) {
  std::string out;
  out.reserve(sql.size());
  char quote = 0;
  for (size_t i = 0; i < sql.size(); ++i) {
    const char c = sql[i];
    if (quote != 0) {
      if (c == quote) quote = 0;
    } else if (c == '\'' || c == '"' || c == '`' || c == '[') {
      quote = c == '[' ? ']' : c;
    } else if (c == '-' && i + 1 < sql.size() && sql[i + 1] == '-') {
      while (i < sql.size() && sql[i] != '\n') ++i;
      if (i < sql.size()) out += '\n';
      continue;
    }
    out += c;
  }
  while (!out.empty() && IsBlank(out.back())) out.pop_back();
  return out;
}

}  // namespace

void DataLayer::WriteLog(std::string action, const std::string& query, const std::string& deleted_record,
                         const std::string& field_name, const std::string& old_value, const std::string& new_value) {
  if (!log_) return;
  log_->WriteLogEntry(action, query, deleted_record, field_name, old_value, new_value);
}

bool DataLayer::Save() {
  if (!data_changed_) return false;
  if (ReadOnly()) {
    ErrorStatus("Recordset is readonly");
    return false;
  }
  auto database = State().current_database;
  if (!database || !database->IsOpen()) {
    ErrorStatus("Save: no database is bound");
    return false;
  }
  internal::SaveRun run(*this, *database);
  std::string failure;
  try {
    if (!database->Supports(db::Feature::UpdatableRecordsets) || !database->Updatable()) {
      ErrorStatus("Save: the database '" + database->Name() + "' cannot be written to");
      return false;
    }
    failure = run.Run();
  } catch (const std::exception& e) {
    failure = internal::FailureDescription(e);
  }
  if (!failure.empty()) {
    ErrorStatus("Save: " + failure);
    return false;
  }
  if (refresh_timer_active_ && run.WroteAny()) PublishRefreshToken();
  data_changed_ = false;
  return true;
}

void DataLayer::PublishRefreshToken() {
  auto database = State().current_database;
  if (!database) return;
  try {
    if (!State().refresh_table_checked) {
      auto tables = database->TableDefs();
      bool exists = false;
      for (int32_t i = 0; i < tables->Count() && !exists; ++i) {
        exists = LCase(tables->Item(i)->Name()) == kRefreshTable;
      }
      if (!exists) {
        if (!database->Supports(db::Feature::SchemaChanges)) {
          throw db::EngineError(db::ErrorKind::NotSupported, "the database takes no new tables");
        }
        // The key makes recordsets over the table updatable; the query text can be longer than a short
        // text. Built through the table definitions, so each engine picks its own column types.
        auto table = database->CreateTableDef(kRefreshTable);
        auto id = table->CreateField("id", db::dbLong);
        id->Attributes(db::dbAutoIncrField);
        table->Fields()->Append(id);
        table->Fields()->Append(table->CreateField("Query", db::dbMemo));
        table->Fields()->Append(table->CreateField("Guid", db::dbText, 32));
        tables->Append(table);
      }
      State().refresh_table_checked = true;
    }
    const std::string query = ReplaceText(sql_, "\"", "");
    const Variant parameters[] = {Variant(query)};
    auto rows = database->OpenRecordset(std::string("Select id, Guid, query from ") + kRefreshTable + " where query = ?",
                                        parameters);
    if (rows->EOF_()) {
      rows->AddNew();
      rows->Fields("query")->Value(query);
    } else {
      rows->Edit();
    }
    rows->Fields("GUID")->Value(NewGUIDText());
    rows->Update();
    refresh_token_ = ToText(rows->Fields("GUID")->Value());
    rows->Close();
  } catch (const std::exception& e) {
    ErrorStatus("Could not create or update table sys_quorbexdatalayer_refresh! " + internal::FailureDescription(e));
  }
}

Variant DataLayer::AddNew() {
  if (!recordset_) recordset_ = std::make_shared<clsOfflineRecordset>();
  const int32_t count = recordset_->RecordCount();
  recordset_->Add(1);
  auto record = recordset_->Records(count + 1);
  if (!record) return {};
  if (count > 0) {
    auto previous = recordset_->Records(count);
    record->Add(previous ? previous->FieldCount() : 0);
  } else {
    record->Add(field_names_.Count());
    for (int32_t i = 1; i <= field_names_.Count(); ++i) {
      if (auto field = record->Fields(i)) field->Description = field_names_.Item(i);
    }
    loaded_ = true;
    empty_result_ = false;
  }
  record->NewlyAdded = true;
  cursor_ = count + 1;

  // Names come from the first record; the auto-GUID column gets a fresh GUID (without a change mark).
  auto first = recordset_->Records(1);
  const std::string guid_column = LCase(State().auto_guid_column);
  const int32_t fields = record->FieldCount();
  for (int32_t i = 1; i <= fields; ++i) {
    auto field = record->Fields(i);
    auto model = first ? first->Fields(i) : nullptr;
    if (!field || !model) continue;
    if (field.get() != model.get()) field->Description = model->Description;
    if (!guid_column.empty() && LCase(field->Description) == guid_column) field->Value(Variant(NewGUIDText()));
  }
  return {};
}

bool DataLayer::RemoveRecord(ByRef<bool> bolDeleteAlsoInDB) {
  try {
    auto record = CurrentRecord();
    if (!record) {
      ErrorStatus("RemoveRecord: no current record");
      return false;
    }
    if (*bolDeleteAlsoInDB) {
      auto database = State().current_database;
      if (!database) {
        ErrorStatus("RemoveRecord: no database is bound");
        return false;
      }
      if (!database->Supports(db::Feature::UpdatableRecordsets) || !database->Updatable()) {
        ErrorStatus("RemoveRecord: the database '" + database->Name() + "' cannot be written to");
        return false;
      }
      const Variant current_id = FieldValue("id");
      if (!IsNumeric(current_id)) {
        ErrorStatus("RemoveRecord: the id '" + ToText(current_id) + "' of the current record is not a number");
        return false;
      }
      const Variant id[] = {Variant(CLng(current_id))};
      // A line comment at the end would swallow the condition appended below.
      std::string sql = WithoutLineComments(sql_);
      const int32_t order = InStr(LCase(sql), "order");
      // The cut finds "order" anywhere, also inside a name such as "orders"; kept as clients know it.
      if (order > 0) sql = Left(sql, order > 2 ? order - 2 : 0);
      std::string suffix;
      if (InStr(LCase(sql), "where") > 1) {
        if (!sql.empty() && sql.back() == ';') sql.pop_back();
        suffix = " AND id = ?";
      } else {
        suffix = " WHERE id = ?";
      }
      sql = alternative_remove_query_.empty() ? sql + suffix : alternative_remove_query_ + " WHERE id = ?";
      auto rows = database->OpenRecordset(sql, id);
      // The statement decides which row is first: with an OR in the loaded query's condition that need
      // not be the current record's row, and deleting it would hit another record.
      const std::string shown_id = CStr(id[0]);
      if (rows->EOF_()) {
        rows->Close();
        ErrorStatus("RemoveRecord: no row with id " + shown_id + " through the statement '" + sql +
                    "'; nothing was deleted");
        return false;
      }
      const int32_t id_column = rows->Fields()->IndexOf("id");
      const Variant first_id = id_column >= 0 ? rows->Fields(id_column)->Value() : Variant(Null);
      if (!IsNumeric(first_id) || CDbl(first_id) != CDbl(id[0])) {
        rows->Close();
        ErrorStatus("RemoveRecord: the statement '" + sql + "' opens on the row with id " + ToText(first_id) +
                    ", not on the current record's id " + shown_id + "; nothing was deleted");
        return false;
      }
      rows->Delete();
      rows->Close();
    }

    std::string text;
    const int32_t fields = record->FieldCount();
    for (int32_t i = 1; i <= fields; ++i) {
      auto field = record->Fields(i);
      if (!field) continue;
      const std::string name = field->Description;
      text += std::string(10, ' ') + "<" + name + ">" + ToText(field->Anything()) + "</" + name + ">\r\n";
    }
    WriteLog(*bolDeleteAlsoInDB ? "DELETE_inDB" : "DELETE_OFFLINE",
             alternative_remove_query_.empty() ? sql_ : alternative_remove_query_, text, "", "", "");
    recordset_->Remove(cursor_);
    return true;
  } catch (const std::exception& e) {
    ErrorStatus(internal::OperationError("RemoveRecord", e));
    return false;
  }
}

void DataLayer::AlternativeSelectQueryForRemove(const std::string& value) {
  std::string text = value;
  if (!text.empty() && text.back() == ';') text.pop_back();
  alternative_remove_query_ = text;
}

}  // namespace quorbex
