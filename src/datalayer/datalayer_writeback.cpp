// DataLayer: writing the offline records back to the database.
//
// Save writes every marked record in one transaction. A record that fails ends the save and the
// records before it are committed, so what the database holds always matches the change marks: the
// records written have their marks cleared, the failing one and all later ones keep theirs.
#include <exception>
#include <optional>
#include <unordered_map>
#include <vector>

#include "quorbex/DataLayer.h"
#include "quorbex/text.h"
#include "service/clsLog.h"
#include "service/modService.h"
#include "service/thread_state.h"
#include "value/text_util.h"
#include "value/failure.h"

namespace quorbex {

namespace {

constexpr const char* kRefreshTable = "sys_quorbexdatalayer_refresh";

// How many changed records one read of their rows covers.
constexpr size_t kBatch = 256;

// The loaded query's text before a "WHERE ID" clause, wrapped as a subquery: it keeps the column
// positions of the loaded query and stands in for a temporary stored query, which it cannot leave
// behind in the database.
std::string RowsOf(const std::string& base_sql) { return "SELECT * FROM (" + base_sql + ") AS quorbex_q"; }

// A key as the database compares it with a number column: numbers and numeric texts by their value,
// other texts as they are. Null and Empty have no key (they match no row).
std::optional<std::string> KeyText(const Variant& id) {
  if (id.IsNull() || id.IsEmpty()) return std::nullopt;
  try {
    if (IsNumeric(id)) return CStr(Variant(CDbl(id)));
    return CStr(id);
  } catch (const AutomationError&) {
    return std::nullopt;
  }
}

[[noreturn]] void NoRowFor(const Variant& id) {
  std::string shown;
  try {
    shown = CStr(id);
  } catch (const AutomationError&) {
    shown = "Null";
  }
  throw db::EngineError(db::ErrorKind::NoCurrentRecord, "No record with id '" + shown + "' in the database.");
}

std::string StripTrailingSemicolon(const std::string& sql) { return std::string(detail::TrimStatementEnd(sql)); }

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

  const std::string base_sql = StripTrailingSemicolon(CStr(SelectPartBeforeWhereID(sql_)));
  // Marks are cleared and log entries written only once the transaction is committed, so a commit that
  // fails leaves every record marked, exactly as the database then holds none of them.
  std::vector<SavedRecord> saved;
  bool in_transaction = false;
  std::string failure;
  try {
    database->BeginTrans();
    in_transaction = true;
    // Changed records are updated in batches (one read of their rows, then one UPDATE each); a new
    // record is inserted when its turn comes, so records are written in position order throughout.
    // Each record is written by one INSERT or one UPDATE, which the database applies whole or not at
    // all, so a failing record leaves nothing behind without a savepoint of its own.
    std::vector<int32_t> batch;
    const int32_t count = RecordCount();
    for (int32_t i = 1; i <= count; ++i) {
      auto record = recordset_->Records(i);
      if (!record || !record->HasChanged) continue;
      if (record->NewlyAdded) {
        UpdateBatch(*database, base_sql, batch, saved);
        cursor_ = i;
        saved.push_back(InsertRecord(*database, base_sql, recordset_->Records(i)));
      } else {
        batch.push_back(i);
        if (batch.size() == kBatch) UpdateBatch(*database, base_sql, batch, saved);
      }
    }
    UpdateBatch(*database, base_sql, batch, saved);
  } catch (const std::exception& e) {
    failure = detail::FailureDescription(e);
  }
  // The records before a failing one are kept: commit what was written.
  if (in_transaction) {
    try {
      database->CommitTrans();
    } catch (const std::exception& e) {
      if (failure.empty()) failure = detail::FailureDescription(e);
      saved.clear();
      try {
        database->Rollback();
      } catch (...) {
      }
    }
  }
  std::vector<clsLog::Entry> log;
  for (auto& entry : saved) {
    const int32_t fields = entry.record->FieldCount();
    for (int32_t j = 1; j <= fields; ++j) {
      if (auto* field = entry.record->FieldAt(j)) field->HasChanged = false;
    }
    entry.record->NewlyAdded = false;
    entry.record->HasChanged = false;
    for (auto& line : entry.log) {
      log.push_back({std::move(line.action), sql_, "", std::move(line.field_name), std::move(line.old_value),
                     std::move(line.new_value)});
    }
  }
  // The entries of the committed records go to the session log in one write.
  if (log_) log_->WriteLogEntries(log);
  if (!failure.empty()) {
    ErrorStatus("Save: " + failure);
    return false;
  }

  if (refresh_timer_active_ && !saved.empty()) PublishRefreshToken();
  data_changed_ = false;
  return true;
}

DataLayer::SavedRecord DataLayer::InsertRecord(db::Database& database, const std::string& base_sql,
                                               const std::shared_ptr<clsOfflineRecord>& record_ptr) {
  clsOfflineRecord& record = *record_ptr;
  SavedRecord saved{record_ptr, {}};
  const int32_t field_count = record.FieldCount();
  // Only the fields the client wrote, by position; the database applies its defaults to the rest.
  auto rows = database.OpenRecordset(RowsOf(base_sql));
  const int32_t columns = rows->Fields()->Count();
  rows->AddNew();
  for (int32_t j = 1; j <= field_count && j <= columns; ++j) {
    auto* field = record.FieldAt(j);
    if (field && field->HasChanged) rows->Fields(j - 1)->Value(field->Value());
  }
  rows->Update();
  // The inserted row is now the recordset's current and last row, so its "ID" is the new key: the
  // same row a MoveFirst/MoveLast pair would reach, without reading the whole result.
  const Variant key = rows->Fields("ID")->Value();
  const std::string key_text = NullToText(key);
  // Through SetFieldValue, so the "id" field is marked and logged like the others; no nested save
  // happens because the record is still new.
  SetFieldValue("id", key);
  saved.log.push_back({"NEWRECORD ID=" + key_text, "", "", ""});
  for (int32_t j = 1; j <= field_count && j <= columns; ++j) {
    auto* field = record.FieldAt(j);
    if (!field || !field->HasChanged) continue;
    auto column = rows->Fields(j - 1);
    saved.log.push_back({"UPDATE ID=" + key_text, column->Name(), NullToText(column->Value()), ToText(field->Value())});
  }
  rows->Close();
  return saved;
}

void DataLayer::UpdateBatch(db::Database& database, const std::string& base_sql, std::vector<int32_t>& batch,
                            std::vector<SavedRecord>& saved) {
  if (batch.empty()) return;
  std::vector<Variant> ids;
  ids.reserve(batch.size());
  std::string sql = RowsOf(base_sql) + " WHERE id IN (";
  for (int32_t position : batch) {
    cursor_ = position;
    ids.push_back(FieldValue("id"));
    sql += ids.size() == 1 ? "?" : ", ?";
  }
  sql += ")";
  auto rows = database.OpenRecordset(sql, ids);
  // Where each key's row stands in the result.
  std::unordered_map<std::string, int32_t> row_of;
  const int32_t id_column = rows->Fields()->IndexOf("ID");
  for (int32_t row = 0; !rows->EOF_(); ++row, rows->MoveNext()) {
    if (id_column < 0) break;
    if (auto key = KeyText(rows->Fields(id_column)->Value())) row_of.emplace(*key, row);
  }
  for (size_t k = 0; k < batch.size(); ++k) {
    cursor_ = batch[k];
    auto key = KeyText(ids[k]);
    auto found = key ? row_of.find(*key) : row_of.end();
    if (found == row_of.end()) NoRowFor(ids[k]);
    rows->AbsolutePosition(found->second);
    auto record = recordset_->Records(batch[k]);
    saved.push_back(UpdateRow(*rows, record));
  }
  rows->Close();
  batch.clear();
}

DataLayer::SavedRecord DataLayer::UpdateRow(db::Recordset& rows, const std::shared_ptr<clsOfflineRecord>& record_ptr) {
  clsOfflineRecord& record = *record_ptr;
  SavedRecord saved{record_ptr, {}};
  // Every marked field, matched by position in the loaded query.
  rows.Edit();
  const std::string key_text = NullToText(rows.Fields("ID")->Value());
  const int32_t field_count = record.FieldCount();
  for (int32_t j = 1; j <= field_count; ++j) {
    auto* field = record.FieldAt(j);
    if (!field || !field->HasChanged) continue;
    auto column = rows.Fields(j - 1);
    saved.log.push_back({"UPDATE ID=" + key_text, column->Name(), NullToText(column->Value()), ToText(field->Value())});
    column->Value(field->Value());
  }
  rows.Update();
  return saved;
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
        // The key makes recordsets over the table updatable; the query text can be longer than a short text.
        database->Execute(std::string("CREATE TABLE ") + kRefreshTable +
                          " (id INTEGER PRIMARY KEY AUTOINCREMENT, Query MEMO, Guid TEXT(32))");
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
    ErrorStatus("Could not create or update table sys_quorbexdatalayer_refresh! " + detail::FailureDescription(e));
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
      const Variant id[] = {Variant(CLng(FieldValue("id")))};
      std::string sql = sql_;
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
    ErrorStatus(detail::OperationError("RemoveRecord", e));
    return false;
  }
}

void DataLayer::AlternativeSelectQueryForRemove(const std::string& value) {
  std::string text = value;
  if (!text.empty() && text.back() == ';') text.pop_back();
  alternative_remove_query_ = text;
}

}  // namespace quorbex
