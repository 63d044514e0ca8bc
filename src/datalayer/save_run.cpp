// One run of DataLayer::Save.
//
// The loaded query's text (before a "WHERE ID" clause) becomes a temporary stored query, so every row
// is read and written through the columns of the loaded query, by position. New records are inserted
// through it when their turn comes; changed records are updated in batches (one read of their rows by
// key, then one UPDATE each), so records are still written in position order. Each UPDATE is applied
// whole or not at all; an INSERT is followed by the check that the loaded query shows the new row,
// so it runs inside a savepoint of its own that a failed check rolls back.
#include "datalayer/save_run.h"

#include <exception>
#include <optional>
#include <unordered_map>

#include "quorbex/text.h"
#include "service/clsLog.h"
#include "service/modService.h"
#include "value/failure.h"
#include "value/text_util.h"

namespace quorbex::internal {

namespace {

// How many changed records one read of their rows covers.
constexpr size_t kBatch = 256;
constexpr const char* kRecordSavepoint = "quorbex_new_record";

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

std::string Shown(const Variant& value) {
  try {
    return CStr(value);
  } catch (const AutomationError&) {
    return "Null";
  }
}

[[noreturn]] void NoRowFor(const Variant& id) {
  throw db::EngineError(db::ErrorKind::NoCurrentRecord,
                        "No record with id '" + Shown(id) + "' in the database through the loaded query.");
}

// The database column at the offline field's position; a marked field beyond the loaded query's
// columns (one added offline) has nowhere to go, and that fails the record.
std::shared_ptr<db::Field> ColumnFor(db::Recordset& rows, int32_t position, const clsOfflineField& field) {
  if (position > rows.Fields()->Count()) {
    throw db::EngineError(db::ErrorKind::ItemNotFound, "Field '" + field.Description.str() + "' (position " +
                                                           std::to_string(position) +
                                                           ") has no column in the loaded query.");
  }
  return rows.Fields(position - 1);
}

}  // namespace

SaveRun::SaveRun(DataLayer& layer, db::Database& database) : layer_(layer), database_(database) {}

std::string SaveRun::Run() {
  std::string failure;
  bool in_transaction = false;
  try {
    // A failed save leaves its stored query behind; one of the same name is ours and is replaced.
    query_name_ = TimeStampName();
    const std::string base_sql = std::string(internal::TrimStatementEnd(CStr(SelectPartBeforeWhereID(layer_.sql_))));
    // A temporary query ends with the connection, so a crash cannot leave it behind; an engine
    // without them keeps a stored one until the end of the save.
    const bool temporary = database_.Supports(db::Feature::TemporaryQueries);
    if (!temporary && !database_.Supports(db::Feature::StoredQueries)) {
      throw db::EngineError(db::ErrorKind::NotSupported, "the database keeps no stored queries");
    }
    try {
      database_.CreateQueryDef(query_name_, base_sql, temporary);
    } catch (const db::EngineError& e) {
      if (e.Kind() != db::ErrorKind::AlreadyExists) throw;
      database_.QueryDefs()->Delete(query_name_);
      database_.CreateQueryDef(query_name_, base_sql, temporary);
    }
    database_.BeginTrans();
    in_transaction = true;
    WriteRecords();
  } catch (const std::exception& e) {
    failure = internal::FailureDescription(e);
  }
  if (in_transaction) {
    // The log entries go to disk before the commit, so that every committed change has its entry
    // whenever the process ends; a commit that then fails leaves entries of changes that did not stay.
    WriteLog();
    try {
      // The records before a failing one are kept: commit what was written.
      Commit();
    } catch (const std::exception& e) {
      if (failure.empty()) failure = internal::FailureDescription(e);
    }
  }
  ClearMarks();
  if (failure.empty()) {
    try {
      database_.QueryDefs()->Delete(query_name_);
    } catch (const std::exception&) {
      // A temporary stored query ends with the connection anyway.
    }
  }
  return failure;
}

void SaveRun::WriteRecords() {
  auto& records = *layer_.recordset_;
  const int32_t count = records.RecordCount();
  for (int32_t i = 1; i <= count; ++i) {
    layer_.cursor_ = i;
    auto record = records.Records(i);
    if (!record || !record->HasChanged) continue;
    if (record->NewlyAdded) {
      UpdateBatch();
      layer_.cursor_ = i;
      Insert(i);
    } else {
      batch_.push_back(i);
      if (batch_.size() == kBatch) UpdateBatch();
    }
  }
  UpdateBatch();
  // The cursor stays on the last record the run visited.
  if (count > 0) layer_.cursor_ = count;
}

void SaveRun::Insert(int32_t position) {
  auto record_ptr = layer_.recordset_->Records(position);
  clsOfflineRecord& record = *record_ptr;
  const int32_t field_count = record.FieldCount();
  const size_t keys_mark = keys_before_.size();
  database_.Savepoint(kRecordSavepoint);
  try {
    Written written{record_ptr, {}};
    // The query's columns without its rows: a recordset reads all its rows before it inserts one.
    auto rows = database_.OpenRecordset("select * from " + database_.QuoteName(query_name_) + " WHERE 1 = 0");
    // Only the fields the client wrote, by position; the database applies its defaults to the rest.
    std::vector<std::pair<std::shared_ptr<db::Field>, const clsOfflineField*>> marked;
    for (int32_t j = 1; j <= field_count; ++j) {
      const clsOfflineField* field = record.FieldAt(j);
      if (field && field->HasChanged) marked.emplace_back(ColumnFor(*rows, j, *field), field);
    }
    rows->AddNew();
    for (auto& [column, field] : marked) column->Value(field->Value());
    rows->Update();
    // The inserted row is now the recordset's current and last row, so its "ID" is the new key: the
    // row a MoveFirst/MoveLast pair would reach, without reading the whole result.
    const Variant key = rows->Fields("ID")->Value();
    const std::string key_text = NullToText(key);
    ClaimKey(key);

    // Through SetFieldValue, so the "id" field is marked and logged like the others; no nested save
    // happens because the record is still new. What it replaces is kept for a rollback.
    if (const int32_t id_position = layer_.FindFieldInCurrentRecord("id")) {
      keys_before_.push_back({record_ptr, id_position, *record.FieldAt(id_position)});
    }
    layer_.SetFieldValue("id", key);
    written.log.push_back({"NEWRECORD ID=" + key_text, "", "", ""});
    for (int32_t j = 1; j <= field_count; ++j) {
      const clsOfflineField* field = record.FieldAt(j);
      if (!field || !field->HasChanged) continue;
      auto column = ColumnFor(*rows, j, *field);
      written.log.push_back({"UPDATE ID=" + key_text, column->Name(), NullToText(column->Value()), ToText(field->Value())});
    }
    rows->Close();

    // The new row must be one of the loaded query's rows: it is matched through the query by its key,
    // as every changed record is.
    const Variant parameters[] = {key};
    auto check = database_.OpenRecordset("Select * from " + database_.QuoteName(query_name_) + " WHERE id = ?", parameters);
    const bool shown = !check->EOF_();
    check->Close();
    if (!shown) NoRowFor(key);
    database_.ReleaseSavepoint(kRecordSavepoint);
    written_.push_back(std::move(written));
  } catch (...) {
    try {
      database_.RollbackToSavepoint(kRecordSavepoint);
      database_.ReleaseSavepoint(kRecordSavepoint);
    } catch (...) {
      // The failure being reported says more than this one.
    }
    RestoreKeys(keys_mark);
    throw;
  }
}

void SaveRun::UpdateBatch() {
  if (batch_.empty()) return;
  std::vector<Variant> ids;
  ids.reserve(batch_.size());
  std::string sql = "Select * from " + database_.QuoteName(query_name_) + " WHERE id IN (";
  for (int32_t position : batch_) {
    layer_.cursor_ = position;
    ids.push_back(layer_.FieldValue("id"));
    sql += ids.size() == 1 ? "?" : ", ?";
  }
  sql += ")";
  layer_.cursor_ = batch_.front();
  std::shared_ptr<db::Recordset> rows;
  try {
    rows = database_.OpenRecordset(sql, ids);
  } catch (const db::EngineError&) {
    if (batch_.size() == 1) throw;
    // One key the database cannot compare (a text where the key is a number) fails the whole look-up:
    // look the records up one by one, so that the records before it are written and it fails alone.
    const std::vector<int32_t> batch = std::move(batch_);
    for (int32_t position : batch) {
      batch_.assign(1, position);
      UpdateBatch();
    }
    return;
  }
  // Where each key's row stands in the result.
  std::unordered_map<std::string, int32_t> row_of;
  const int32_t id_column = rows->Fields()->IndexOf("ID");
  for (int32_t row = 0; !rows->EOF_(); ++row, rows->MoveNext()) {
    if (id_column < 0) break;
    if (auto key = KeyText(rows->Fields(id_column)->Value())) row_of.emplace(*key, row);
  }
  for (size_t k = 0; k < batch_.size(); ++k) {
    layer_.cursor_ = batch_[k];
    auto key = KeyText(ids[k]);
    auto found = key ? row_of.find(*key) : row_of.end();
    if (found == row_of.end()) NoRowFor(ids[k]);
    ClaimKey(ids[k]);
    rows->AbsolutePosition(found->second);
    written_.push_back(UpdateRow(*rows, layer_.recordset_->Records(batch_[k])));
  }
  rows->Close();
  batch_.clear();
}

SaveRun::Written SaveRun::UpdateRow(db::Recordset& rows, const std::shared_ptr<clsOfflineRecord>& record_ptr) {
  clsOfflineRecord& record = *record_ptr;
  Written written{record_ptr, {}};
  // Every marked field, matched by position in the loaded query.
  rows.Edit();
  const std::string key_text = NullToText(rows.Fields("ID")->Value());
  const int32_t field_count = record.FieldCount();
  for (int32_t j = 1; j <= field_count; ++j) {
    const clsOfflineField* field = record.FieldAt(j);
    if (!field || !field->HasChanged) continue;
    auto column = ColumnFor(rows, j, *field);
    written.log.push_back({"UPDATE ID=" + key_text, column->Name(), NullToText(column->Value()), ToText(field->Value())});
    column->Value(field->Value());
  }
  rows.Update();
  return written;
}

void SaveRun::ClaimKey(const Variant& key) {
  auto text = KeyText(key);
  if (!text) return;  // a record without a key fails where its row is looked up
  if (!keys_claimed_.insert(*text).second) {
    throw db::EngineError(db::ErrorKind::Constraint, "The id '" + Shown(key) +
                                                         "' occurs in more than one of the records being saved.");
  }
}

void SaveRun::RestoreKeys(size_t from) {
  for (size_t k = keys_before_.size(); k > from; --k) {
    KeyBefore& before = keys_before_[k - 1];
    if (clsOfflineField* field = before.record->FieldAt(before.position)) *field = std::move(before.field);
  }
  keys_before_.resize(from);
}

void SaveRun::Commit() {
  try {
    database_.CommitTrans();
  } catch (...) {
    // Nothing of this run stays in the database, so nothing of it may stay offline either: the new
    // records are new again, with the ids they had, and every record keeps its marks.
    written_.clear();
    RestoreKeys(0);
    try {
      database_.Rollback();
    } catch (...) {
      // The transaction may already be gone with the failed commit.
    }
    throw;
  }
}

void SaveRun::WriteLog() {
  if (!layer_.log_ || written_.empty()) return;
  std::vector<clsLog::Entry> log;
  for (auto& entry : written_) {
    for (auto& line : entry.log) {
      log.push_back({std::move(line.action), layer_.sql_, "", std::move(line.field_name), std::move(line.old_value),
                     std::move(line.new_value)});
    }
  }
  layer_.log_->WriteLogEntries(log, true);
}

void SaveRun::ClearMarks() {
  for (auto& entry : written_) {
    const int32_t fields = entry.record->FieldCount();
    for (int32_t j = 1; j <= fields; ++j) {
      if (auto* field = entry.record->FieldAt(j)) field->HasChanged = false;
    }
    entry.record->NewlyAdded = false;
    entry.record->HasChanged = false;
  }
}

}  // namespace quorbex::internal
