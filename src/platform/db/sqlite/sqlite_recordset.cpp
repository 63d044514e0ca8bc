#include "platform/db/sqlite/sqlite_recordset.h"

#include <algorithm>

#include "platform/db/errors.h"
#include "platform/db/query_shape.h"
#include "platform/db/sqlite/sqlite_dialect.h"
#include "quorbex/text.h"

namespace quorbex::db::sqlite {
namespace {

const char* Text(const char* p) { return p ? p : ""; }

int32_t CodeOfStorage(int storage) {
  switch (storage) {
    case SQLITE_INTEGER: return 4;
    case SQLITE_FLOAT: return 7;
    case SQLITE_BLOB: return 11;
    default: return 10;
  }
}

// The base table's key as column names: its primary key, or else its first full unique index.
struct TableKey {
  std::vector<std::vector<std::string>> candidates;  // in order of preference
  std::string rowid_alias;                           // the INTEGER PRIMARY KEY column, if any
};

TableKey ReadKey(const Connection& conn, const std::string& schema, const std::string& table) {
  TableKey key;
  std::vector<std::pair<int, std::string>> pk;
  std::string pk_type;
  {
    Stmt stmt = conn.Prepare("SELECT name, pk, type FROM pragma_table_info(?1, ?2) WHERE pk > 0");
    sqlite3_bind_text(stmt.get(), 1, table.c_str(), -1, SQLITE_TRANSIENT);
    sqlite3_bind_text(stmt.get(), 2, schema.c_str(), -1, SQLITE_TRANSIENT);
    while (conn.Step(stmt.get()) == SQLITE_ROW) {
      pk.emplace_back(sqlite3_column_int(stmt.get(), 1), ColumnText(stmt.get(), 0));
      pk_type = ColumnText(stmt.get(), 2);
    }
  }
  std::sort(pk.begin(), pk.end());
  bool has_pk_index = false;
  std::vector<std::string> unique_indexes;
  {
    Stmt stmt = conn.Prepare("SELECT name, origin FROM pragma_index_list(?1, ?2) WHERE \"unique\" = 1 AND partial = 0");
    sqlite3_bind_text(stmt.get(), 1, table.c_str(), -1, SQLITE_TRANSIENT);
    sqlite3_bind_text(stmt.get(), 2, schema.c_str(), -1, SQLITE_TRANSIENT);
    while (conn.Step(stmt.get()) == SQLITE_ROW) {
      if (ColumnText(stmt.get(), 1) == "pk") has_pk_index = true;
      unique_indexes.push_back(ColumnText(stmt.get(), 0));
    }
  }
  if (!pk.empty()) {
    std::vector<std::string> names;
    for (auto& [order, name] : pk) names.push_back(name);
    if (pk.size() == 1 && SameName(pk_type, "INTEGER") && !has_pk_index) key.rowid_alias = names.front();
    key.candidates.push_back(std::move(names));
  }
  for (const auto& index : unique_indexes) {
    Stmt stmt = conn.Prepare("SELECT name FROM pragma_index_info(?1, ?2) ORDER BY seqno");
    sqlite3_bind_text(stmt.get(), 1, index.c_str(), -1, SQLITE_TRANSIENT);
    sqlite3_bind_text(stmt.get(), 2, schema.c_str(), -1, SQLITE_TRANSIENT);
    std::vector<std::string> names;
    bool expression = false;
    while (conn.Step(stmt.get()) == SQLITE_ROW) {
      if (sqlite3_column_type(stmt.get(), 0) == SQLITE_NULL) expression = true;
      names.push_back(ColumnText(stmt.get(), 0));
    }
    if (!expression && !names.empty()) key.candidates.push_back(std::move(names));
  }
  return key;
}

using ViewTexts = std::unordered_map<std::string, std::string>;

// The CREATE VIEW texts of the connection's views (main and temp), by lower-cased name.
std::shared_ptr<const ViewTexts> ReadViews(const Connection& conn) {
  const int64_t version = conn.SchemaVersion("main");
  const std::string memo = "views:" + std::to_string(conn.SchemaVersion("temp"));
  if (auto known = std::static_pointer_cast<const ViewTexts>(conn.Recall(memo, version))) return known;
  auto views = std::make_shared<ViewTexts>();
  for (const char* catalogue : {"sqlite_temp_schema", "main.sqlite_schema"}) {
    Stmt stmt = conn.Prepare(std::string("SELECT lower(name), sql FROM ") + catalogue + " WHERE type = 'view'");
    while (conn.Step(stmt.get()) == SQLITE_ROW) views->emplace(ColumnText(stmt.get(), 0), ColumnText(stmt.get(), 1));
  }
  conn.Remember(memo, version, views);
  return views;
}

}  // namespace

// ---- Cursor --------------------------------------------------------------------------------------

Cursor::Cursor(std::shared_ptr<Connection> conn, std::string source, Stmt stmt, bool allow_updates)
    : conn_(std::move(conn)), source_(std::move(source)), stmt_(std::move(stmt)) {
  Describe(allow_updates);
  pos_ = 0;
  Fetch();
}

void Cursor::Describe(bool allow_updates) {
  sqlite3_stmt* s = stmt_.get();
  int n = sqlite3_column_count(s);
  columns_.resize(static_cast<size_t>(n));
  width_ = columns_.size();
  bool one_table = n > 0;
  for (int j = 0; j < n; ++j) {
    ResultColumn& c = columns_[static_cast<size_t>(j)];
    c.name = Text(sqlite3_column_name(s, j));
    const char* decl = sqlite3_column_decltype(s, j);
    c.decode_code = decl ? TypeCodeFromDeclared(decl) : 0;
    c.type_code = c.decode_code;
    c.size = decl ? SizeFromDeclared(decl) : 0;
    if (c.size == 0 && c.type_code == 10) c.size = 255;
    if (c.type_code == 0) undecided_types_.push_back(j);
    c.schema = Text(sqlite3_column_database_name(s, j));
    c.table = Text(sqlite3_column_table_name(s, j));
    c.origin = Text(sqlite3_column_origin_name(s, j));
    if (c.table.empty() || c.origin.empty()) {
      one_table = false;
    } else if (j > 0 && (!SameName(c.table, columns_[0].table) || c.schema != columns_[0].schema)) {
      one_table = false;
    }
    bool variable = c.type_code == 10 || c.type_code == 11 || c.type_code == 12 || c.type_code == 15;
    c.attributes = variable ? dbVariableField : dbFixedField;
  }
  if (allow_updates && one_table && sqlite3_stmt_readonly(s) && !conn_->ReadOnly() && OneRowPerTableRow()) FindKey();
}

bool Cursor::OneRowPerTableRow() const {
  const char* sql = sqlite3_sql(stmt_.get());
  if (sql == nullptr) return false;
  auto views = ReadViews(*conn_);
  return ShowsOneRowPerTableRow(sql, columns_.front().table, [&](const std::string& name) -> std::optional<std::string> {
    auto it = views->find(name);
    if (it == views->end()) return std::nullopt;
    return it->second;
  });
}

void Cursor::FindKey() {
  const ResultColumn& first = columns_.front();
  // Reading a table's key takes two schema queries; a save opens the same table once per record.
  const int64_t version = conn_->SchemaVersion(first.schema);
  const std::string memo = "key:" + first.schema + "." + first.table;
  auto known = std::static_pointer_cast<const TableKey>(conn_->Recall(memo, version));
  if (!known) {
    known = std::make_shared<const TableKey>(ReadKey(*conn_, first.schema, first.table));
    conn_->Remember(memo, version, known);
  }
  const TableKey& key = *known;
  for (auto& j : key.candidates) {
    std::vector<int> positions;
    for (const auto& name : j) {
      auto it = std::find_if(columns_.begin(), columns_.end(),
                             [&](const ResultColumn& c) { return SameName(c.origin, name); });
      if (it == columns_.end()) break;
      positions.push_back(static_cast<int>(it - columns_.begin()));
    }
    if (positions.size() == j.size()) {
      key_columns_ = std::move(positions);
      updatable_ = true;
      break;
    }
  }
  for (auto& c : columns_) {
    if (!key.rowid_alias.empty() && SameName(c.origin, key.rowid_alias)) c.attributes |= dbAutoIncrField;
    if (updatable_) c.attributes |= dbUpdatableField;
  }
}

void Cursor::CheckOpen() const {
  if (closed_) Raise(ErrorKind::Closed, text::kRecordsetClosed);
}

void Cursor::DecodeInto(Variant* out) {
  sqlite3_stmt* s = stmt_.get();
  for (size_t j = 0; j < width_; ++j) out[j] = ReadColumn(s, static_cast<int>(j), columns_[j].decode_code);
  if (!undecided_types_.empty()) {
    std::erase_if(undecided_types_, [&](int j) {
      int storage = sqlite3_column_type(s, j);
      if (storage == SQLITE_NULL) return false;
      columns_[static_cast<size_t>(j)].type_code = CodeOfStorage(storage);
      return true;
    });
  }
}

bool Cursor::Fetch() {
  if (done_) return false;
  int rc;
  try {
    rc = conn_->Step(stmt_.get());
  } catch (...) {
    done_ = true;  // the statement was reset; stepping again would start over
    throw;
  }
  if (rc == SQLITE_DONE) {
    done_ = true;
    sqlite3_reset(stmt_.get());  // ends the read transaction, so other connections may write
    return false;
  }
  if (width_ == 0) {
    ++rows_without_columns_;
    return true;
  }
  size_t at = rows_.size();
  rows_.resize(at + width_);
  DecodeInto(&rows_[at]);
  return true;
}

void Cursor::FetchAll() {
  while (Fetch()) {
  }
}

void Cursor::Restart() {
  sqlite3_reset(stmt_.get());
  rows_.clear();
  stale_rows_.clear();
  rows_without_columns_ = 0;
  done_ = false;
  released_ = false;
  taken_ = 0;
  on_deleted_ = false;
  pos_ = 0;
  Fetch();
}

int32_t Cursor::RecordCount() const {
  CheckOpen();
  if (released_) return taken_;
  return static_cast<int32_t>(std::min<int64_t>(Rows(), INT32_MAX));
}

bool Cursor::Eof() const {
  CheckOpen();
  if (released_) return true;
  return done_ && pos_ >= Rows();
}

bool Cursor::Bof() const {
  CheckOpen();
  if (released_) return taken_ == 0;
  return pos_ < 0 || (done_ && Rows() == 0);
}

int64_t Cursor::CurrentRow() const {
  CheckOpen();
  if (released_ || pos_ < 0 || pos_ >= Rows()) Raise(ErrorKind::NoCurrentRecord, text::kNoCurrentRecord);
  if (on_deleted_) Raise(ErrorKind::NoCurrentRecord, text::kRecordDeleted);
  return pos_;
}

void Cursor::MoveFirst() {
  CheckOpen();
  CancelUpdate();
  if (released_) Restart();
  on_deleted_ = false;
  if (Rows() == 0) Fetch();
  if (Rows() == 0) {
    pos_ = 0;
    Raise(ErrorKind::NoCurrentRecord, text::kNoCurrentRecord);
  }
  pos_ = 0;
}

void Cursor::MoveLast() {
  CheckOpen();
  CancelUpdate();
  if (released_) Restart();
  FetchAll();
  on_deleted_ = false;
  if (Rows() == 0) {
    pos_ = 0;
    Raise(ErrorKind::NoCurrentRecord, text::kNoCurrentRecord);
  }
  pos_ = Rows() - 1;
}

int32_t Cursor::AbsolutePosition() const {
  CheckOpen();
  if (released_ || on_deleted_ || pos_ < 0 || pos_ >= Rows()) return -1;
  return static_cast<int32_t>(pos_);
}

void Cursor::AbsolutePosition(int32_t position) {
  CheckOpen();
  CancelUpdate();
  if (released_) Restart();
  while (Rows() <= position && Fetch()) {
  }
  if (position < 0 || position >= Rows()) Raise(ErrorKind::NoCurrentRecord, text::kNoCurrentRecord);
  on_deleted_ = false;
  pos_ = position;
}

void Cursor::MoveNext() {
  CheckOpen();
  CancelUpdate();
  if (released_) Raise(ErrorKind::NoCurrentRecord, text::kNoCurrentRecord);
  if (on_deleted_) {
    on_deleted_ = false;  // the next row has moved up into the deleted one's place
  } else {
    if (Eof()) Raise(ErrorKind::NoCurrentRecord, text::kNoCurrentRecord);
    ++pos_;
  }
  if (pos_ >= Rows()) Fetch();
}

void Cursor::MovePrevious() {
  CheckOpen();
  CancelUpdate();
  if (released_) {
    Restart();
    FetchAll();
    pos_ = Rows();
  }
  if (on_deleted_) {
    on_deleted_ = false;
    --pos_;
    return;
  }
  if (Bof()) Raise(ErrorKind::NoCurrentRecord, text::kNoCurrentRecord);
  --pos_;
}

Variant Cursor::Value(int column) const {
  CheckOpen();
  if (column < 0 || static_cast<size_t>(column) >= width_) RaiseItemNotFound(column);
  if (edit_mode_ != dbEditNone) return buffer_[static_cast<size_t>(column)];
  int64_t row = CurrentRow();
  RefreshRow(row);
  return rows_[static_cast<size_t>(row) * width_ + static_cast<size_t>(column)];
}

void Cursor::SetValue(int column, const Variant& value) {
  CheckOpen();
  if (column < 0 || static_cast<size_t>(column) >= width_) RaiseItemNotFound(column);
  if (edit_mode_ == dbEditNone) Raise(ErrorKind::InvalidOperation, text::kUpdateWithoutEdit);
  buffer_[static_cast<size_t>(column)] = value;
  dirty_[static_cast<size_t>(column)] = true;
}

void Cursor::AddNew() {
  CheckOpen();
  if (!updatable_) Raise(ErrorKind::NotUpdatable, text::kNotUpdatable);
  CancelUpdate();
  buffer_.assign(width_, Variant(Null));
  dirty_.assign(width_, false);
  edit_mode_ = dbEditAdd;
}

void Cursor::Edit() {
  CheckOpen();
  if (!updatable_) Raise(ErrorKind::NotUpdatable, text::kNotUpdatable);
  int64_t row = CurrentRow();
  CancelUpdate();
  RefreshRow(row);
  auto first = rows_.begin() + static_cast<std::ptrdiff_t>(static_cast<size_t>(row) * width_);
  buffer_.assign(first, first + static_cast<std::ptrdiff_t>(width_));
  dirty_.assign(width_, false);
  edit_mode_ = dbEditInProgress;
}

void Cursor::CancelUpdate() {
  edit_mode_ = dbEditNone;
  buffer_.clear();
  dirty_.clear();
}

void Cursor::Update() {
  CheckOpen();
  if (edit_mode_ == dbEditNone) Raise(ErrorKind::InvalidOperation, text::kUpdateWithoutEdit);
  // The statement is read to its end first: SQLite leaves it open what a running read sees of a
  // write on the same connection, and a new row belongs after all existing ones.
  FetchAll();
  if (edit_mode_ == dbEditAdd) {
    Insert();
  } else {
    WriteBack();
  }
  CancelUpdate();
}

std::string Cursor::Target() const {
  return Quote(columns_.front().schema) + "." + Quote(columns_.front().table);
}

std::string Cursor::ReturningList() const {
  std::string list;
  for (size_t j = 0; j < width_; ++j) {
    if (j > 0) list += ", ";
    list += Quote(columns_[j].origin);
  }
  return list;
}

void Cursor::Insert() {
  // Each base column once: when two result columns name the same one, the later value wins.
  std::vector<size_t> written;
  for (size_t j = 0; j < width_; ++j) {
    if (!dirty_[j]) continue;
    std::erase_if(written, [&](size_t k) { return SameName(columns_[k].origin, columns_[j].origin); });
    written.push_back(j);
  }
  std::string sql = "INSERT INTO " + Target();
  if (written.empty()) {
    sql += " DEFAULT VALUES";
  } else {
    std::string names, marks;
    for (size_t i = 0; i < written.size(); ++i) {
      if (i > 0) {
        names += ", ";
        marks += ", ";
      }
      names += Quote(columns_[written[i]].origin);
      marks += "?";
    }
    sql += " (" + names + ") VALUES (" + marks + ")";
  }
  sql += " RETURNING " + ReturningList();
  Stmt stmt = conn_->Prepare(sql);
  for (size_t i = 0; i < written.size(); ++i) {
    const ResultColumn& c = columns_[written[i]];
    Bind(*conn_, stmt.get(), static_cast<int>(i + 1), Encode(buffer_[written[i]], c.decode_code));
  }
  if (conn_->Step(stmt.get()) != SQLITE_ROW) Raise(ErrorKind::General, "The new record was not stored.");
  std::vector<Variant> row(width_);
  for (size_t j = 0; j < width_; ++j) row[j] = ReadColumn(stmt.get(), static_cast<int>(j), columns_[j].decode_code);
  while (conn_->Step(stmt.get()) == SQLITE_ROW) {
  }
  for (auto& v : row) rows_.push_back(std::move(v));
  pos_ = Rows() - 1;
  on_deleted_ = false;
}

void Cursor::BindKey(sqlite3_stmt* stmt, int first_index, int64_t row) const {
  for (size_t k = 0; k < key_columns_.size(); ++k) {
    auto j = static_cast<size_t>(key_columns_[k]);
    const Variant& value = rows_[static_cast<size_t>(row) * width_ + j];
    Bind(*conn_, stmt, first_index + static_cast<int>(k), Encode(value, columns_[j].decode_code));
  }
}

void Cursor::WriteBack() {
  int64_t row = CurrentRow();
  std::vector<size_t> written;
  for (size_t j = 0; j < width_; ++j) {
    if (!dirty_[j]) continue;
    std::erase_if(written, [&](size_t k) { return SameName(columns_[k].origin, columns_[j].origin); });
    written.push_back(j);
  }
  if (written.empty()) return;
  std::string sql = "UPDATE " + Target() + " SET ";
  for (size_t i = 0; i < written.size(); ++i) {
    if (i > 0) sql += ", ";
    sql += Quote(columns_[written[i]].origin) + " = ?";
  }
  sql += " WHERE ";
  for (size_t k = 0; k < key_columns_.size(); ++k) {
    if (k > 0) sql += " AND ";
    sql += Quote(columns_[static_cast<size_t>(key_columns_[k])].origin) + " = ?";
  }
  Stmt stmt = conn_->Prepare(sql);
  for (size_t i = 0; i < written.size(); ++i) {
    const ResultColumn& c = columns_[written[i]];
    Bind(*conn_, stmt.get(), static_cast<int>(i + 1), Encode(buffer_[written[i]], c.decode_code));
  }
  BindKey(stmt.get(), static_cast<int>(written.size() + 1), row);
  conn_->Step(stmt.get());
  if (sqlite3_changes64(conn_->Handle()) == 0) Raise(ErrorKind::NoCurrentRecord, text::kRecordDeleted);
  // The row now holds what the database made of the values (a column's type may convert them). Rather
  // than read it back at once (RETURNING costs a temporary table per statement, and a save never looks
  // at the row again), the written values stand in and the row is read again when it is next used.
  Variant* target = &rows_[static_cast<size_t>(row) * width_];
  for (size_t j : written) target[j] = buffer_[j];
  stale_rows_.insert(row);
}

void Cursor::RefreshRow(int64_t row) const {
  if (stale_rows_.erase(row) == 0) return;
  std::string sql = "SELECT " + ReturningList() + " FROM " + Target() + " WHERE ";
  for (size_t k = 0; k < key_columns_.size(); ++k) {
    if (k > 0) sql += " AND ";
    sql += Quote(columns_[static_cast<size_t>(key_columns_[k])].origin) + " = ?";
  }
  Stmt stmt = conn_->Prepare(sql);
  BindKey(stmt.get(), 1, row);
  if (conn_->Step(stmt.get()) != SQLITE_ROW) return;  // gone meanwhile: keep what was written
  Variant* target = &rows_[static_cast<size_t>(row) * width_];
  for (size_t j = 0; j < width_; ++j) target[j] = ReadColumn(stmt.get(), static_cast<int>(j), columns_[j].decode_code);
}

void Cursor::RefreshAll() const {
  while (!stale_rows_.empty()) RefreshRow(*stale_rows_.begin());
}

void Cursor::Delete() {
  CheckOpen();
  if (!updatable_) Raise(ErrorKind::NotUpdatable, text::kNotUpdatable);
  CurrentRow();
  CancelUpdate();
  FetchAll();
  RefreshAll();  // positions shift below: settle every row first
  int64_t row = CurrentRow();
  std::string sql = "DELETE FROM " + Target() + " WHERE ";
  for (size_t k = 0; k < key_columns_.size(); ++k) {
    if (k > 0) sql += " AND ";
    sql += Quote(columns_[static_cast<size_t>(key_columns_[k])].origin) + " = ?";
  }
  Stmt stmt = conn_->Prepare(sql);
  BindKey(stmt.get(), 1, row);
  conn_->Step(stmt.get());
  if (sqlite3_changes(conn_->Handle()) == 0) Raise(ErrorKind::NoCurrentRecord, text::kRecordDeleted);
  auto first = rows_.begin() + static_cast<std::ptrdiff_t>(static_cast<size_t>(row) * width_);
  rows_.erase(first, first + static_cast<std::ptrdiff_t>(width_));
  on_deleted_ = true;
}

void Cursor::Close() {
  if (closed_) return;
  closed_ = true;
  CancelUpdate();
  stmt_.reset();
  std::vector<Variant>().swap(rows_);
  stale_rows_.clear();
}

int32_t Cursor::TakeRows(const std::function<void(std::span<Variant>)>& sink) {
  CheckOpen();
  CancelUpdate();
  if (released_) Restart();
  RefreshAll();
  int64_t count = 0;
  auto finish = [&] {
    std::vector<Variant>().swap(rows_);
    rows_without_columns_ = 0;
    if (!done_) {
      sqlite3_reset(stmt_.get());
      done_ = true;
    }
    released_ = true;
    on_deleted_ = false;
    taken_ = static_cast<int32_t>(std::min<int64_t>(count, INT32_MAX));
  };
  try {
    std::vector<Variant> row(width_);
    const int64_t cached = Rows();
    for (int64_t r = 0; r < cached; ++r) {
      Variant* src = width_ ? &rows_[static_cast<size_t>(r) * width_] : nullptr;
      for (size_t j = 0; j < width_; ++j) row[j] = std::move(src[j]);
      sink(std::span<Variant>(row));
      ++count;
    }
    std::vector<Variant>().swap(rows_);  // what was handed over is gone; free it before reading on
    sqlite3_stmt* s = stmt_.get();
    while (!done_) {
      int rc;
      try {
        rc = conn_->Step(s);
      } catch (...) {
        done_ = true;
        throw;
      }
      if (rc == SQLITE_DONE) {
        done_ = true;
        sqlite3_reset(s);
        break;
      }
      DecodeInto(row.data());
      sink(std::span<Variant>(row));
      ++count;
    }
  } catch (...) {
    finish();
    throw;
  }
  finish();
  return taken_;
}

// ---- Fields and recordset ------------------------------------------------------------------------

int32_t RecordsetField::Type() const {
  int32_t code = Column().type_code;
  return code == 0 ? 10 : code;
}

int32_t RecordsetField::Attributes() const { return Column().attributes; }

RecordsetFields::RecordsetFields(std::shared_ptr<Cursor> cursor) {
  const auto& columns = cursor->Columns();
  for (size_t j = 0; j < columns.size(); ++j) {
    fields_.push_back(std::make_shared<RecordsetField>(cursor, static_cast<int>(j)));
    by_name_.try_emplace(LCase(columns[j].name), static_cast<int32_t>(j));
  }
}

std::shared_ptr<Field> RecordsetFields::Item(int32_t index) const {
  if (index < 0 || index >= Count()) RaiseItemNotFound(index);
  return fields_[static_cast<size_t>(index)];
}

int32_t RecordsetFields::IndexOf(std::string_view name) const {
  for (size_t j = 0; j < fields_.size(); ++j) {
    if (fields_[j]->Name() == name) return static_cast<int32_t>(j);
  }
  auto it = by_name_.find(LCase(name));
  return it == by_name_.end() ? -1 : it->second;
}

std::shared_ptr<Field> RecordsetFields::Item(std::string_view name) const {
  int32_t j = IndexOf(name);
  if (j < 0) RaiseItemNotFound("'" + std::string(name) + "'");
  return fields_[static_cast<size_t>(j)];
}

SqliteRecordset::SqliteRecordset(std::shared_ptr<Cursor> cursor)
    : cursor_(std::move(cursor)), fields_(std::make_shared<RecordsetFields>(cursor_)) {}

bool SqliteRecordset::Updatable() const {
  cursor_->CheckOpen();
  return cursor_->Updatable();
}

int32_t SqliteRecordset::RecordCount() const { return cursor_->RecordCount(); }
bool SqliteRecordset::EOF_() const { return cursor_->Eof(); }
bool SqliteRecordset::BOF() const { return cursor_->Bof(); }

std::shared_ptr<db::Fields> SqliteRecordset::Fields() const {
  cursor_->CheckOpen();
  return fields_;
}

int32_t SqliteRecordset::EditMode() const {
  cursor_->CheckOpen();
  return cursor_->EditMode();
}

std::shared_ptr<Recordset> OpenCursor(const std::shared_ptr<Connection>& conn, const std::string& source,
                                      const std::string& sql, bool allow_updates,
                                      std::span<const Variant> parameters) {
  std::string_view tail;
  Stmt stmt = conn->Prepare(sql, &tail);
  if (!stmt) Raise(ErrorKind::Syntax, "The SQL text is empty.");
  if (conn->Prepare(tail)) {
    Raise(ErrorKind::Syntax, "Characters found after end of SQL statement: '" + std::string(TrimStatement(tail)) + "'.");
  }
  // A recordset only reads: an action statement would run as soon as the first row is fetched.
  if (sqlite3_column_count(stmt.get()) == 0 || !sqlite3_stmt_readonly(stmt.get())) {
    Raise(ErrorKind::InvalidOperation, "Cannot open a recordset on an action query: '" + std::string(TrimStatement(sql)) + "'.");
  }
  if (static_cast<int>(parameters.size()) != sqlite3_bind_parameter_count(stmt.get())) {
    Raise(ErrorKind::InvalidOperation, "The query has " + std::to_string(sqlite3_bind_parameter_count(stmt.get())) +
                                           " parameters, " + std::to_string(parameters.size()) + " values were given.");
  }
  for (size_t i = 0; i < parameters.size(); ++i) {
    Bind(*conn, stmt.get(), static_cast<int>(i + 1), Encode(parameters[i], 0));
  }
  auto cursor = std::make_shared<Cursor>(conn, source, std::move(stmt), allow_updates);
  conn->Register(cursor);
  return std::make_shared<SqliteRecordset>(cursor);
}

}  // namespace quorbex::db::sqlite
