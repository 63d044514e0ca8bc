#include "platform/db/sqlite/sqlite_recordset.h"

#include <algorithm>

#include "platform/db/errors.h"
#include "platform/db/query_shape.h"
#include "platform/db/sqlite/sqlite_dialect.h"
#include "quorbex/text.h"

namespace quorbex::db::internal::sqlite {
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

// The value as the column stores it; a value the column cannot hold is refused with the field's name.
Stored EncodeFor(const ResultColumn& column, const Variant& value) {
  try {
    return Encode(value, column.decode_code);
  } catch (const EngineError& e) {
    if (e.Kind() != ErrorKind::Conversion) throw;
    Raise(ErrorKind::Conversion, "Field '" + column.name + "': " + e.Description());
  }
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

// ---- Describing ----------------------------------------------------------------------------------

SqliteRows::SqliteRows(std::shared_ptr<Connection> conn, std::string source, Stmt stmt, bool allow_updates)
    : RowCache(std::move(source)), conn_(std::move(conn)), stmt_(std::move(stmt)) {
  Describe(allow_updates);
  Start();
}

void SqliteRows::Describe(bool allow_updates) {
  sqlite3_stmt* s = stmt_.get();
  const int n = sqlite3_column_count(s);
  columns_.resize(static_cast<size_t>(n));
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
    const bool variable = c.type_code == 10 || c.type_code == 11 || c.type_code == 12 || c.type_code == 15;
    c.attributes = variable ? dbVariableField : dbFixedField;
  }
  if (allow_updates && one_table && sqlite3_stmt_readonly(s) && !conn_->ReadOnly() && OneRowPerTableRow()) FindKey();
}

bool SqliteRows::OneRowPerTableRow() const {
  const char* sql = sqlite3_sql(stmt_.get());
  if (sql == nullptr) return false;
  auto views = ReadViews(*conn_);
  return ShowsOneRowPerTableRow(sql, columns_.front().table, [&](const std::string& name) -> std::optional<std::string> {
    auto it = views->find(name);
    if (it == views->end()) return std::nullopt;
    return it->second;
  });
}

void SqliteRows::FindKey() {
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

// ---- Fetching ------------------------------------------------------------------------------------

void SqliteRows::DecodeInto(Variant* out) {
  sqlite3_stmt* s = stmt_.get();
  const size_t width = columns_.size();
  for (size_t j = 0; j < width; ++j) out[j] = ReadColumn(s, static_cast<int>(j), columns_[j].decode_code);
  if (!undecided_types_.empty()) {
    std::erase_if(undecided_types_, [&](int j) {
      const int storage = sqlite3_column_type(s, j);
      if (storage == SQLITE_NULL) return false;
      columns_[static_cast<size_t>(j)].type_code = CodeOfStorage(storage);
      return true;
    });
  }
}

bool SqliteRows::FetchRow(Variant* row) {
  // A failing step resets the statement (Connection::Step), so the read is over either way.
  if (conn_->Step(stmt_.get()) == SQLITE_DONE) {
    sqlite3_reset(stmt_.get());  // ends the read transaction, so other connections may write
    return false;
  }
  if (row != nullptr) DecodeInto(row);
  return true;
}

void SqliteRows::Rewind() { sqlite3_reset(stmt_.get()); }

void SqliteRows::StopFetching() { sqlite3_reset(stmt_.get()); }

void SqliteRows::Release() { stmt_.reset(); }

// ---- Writing -------------------------------------------------------------------------------------

std::string SqliteRows::Target() const { return Quote(columns_.front().schema) + "." + Quote(columns_.front().table); }

std::string SqliteRows::ColumnList() const {
  std::string list;
  for (size_t j = 0; j < columns_.size(); ++j) {
    if (j > 0) list += ", ";
    list += Quote(columns_[j].origin);
  }
  return list;
}

std::string SqliteRows::KeyCondition() const {
  std::string sql;
  for (size_t k = 0; k < key_columns_.size(); ++k) {
    if (k > 0) sql += " AND ";
    sql += Quote(columns_[static_cast<size_t>(key_columns_[k])].origin) + " = ?";
  }
  return sql;
}

void SqliteRows::BindKey(sqlite3_stmt* stmt, int first_index, const Variant* row) const {
  for (size_t k = 0; k < key_columns_.size(); ++k) {
    const auto j = static_cast<size_t>(key_columns_[k]);
    Bind(*conn_, stmt, first_index + static_cast<int>(k), Encode(row[j], columns_[j].decode_code));
  }
}

void SqliteRows::InsertRow(std::span<const size_t> written, const std::vector<Variant>& values, Variant* row) {
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
  sql += " RETURNING " + ColumnList();
  Stmt stmt = conn_->Prepare(sql);
  for (size_t i = 0; i < written.size(); ++i) {
    const ResultColumn& c = columns_[written[i]];
    Bind(*conn_, stmt.get(), static_cast<int>(i + 1), EncodeFor(c, values[written[i]]));
  }
  if (conn_->Step(stmt.get()) != SQLITE_ROW) Raise(ErrorKind::General, "The new record was not stored.");
  for (size_t j = 0; j < columns_.size(); ++j) row[j] = ReadColumn(stmt.get(), static_cast<int>(j), columns_[j].decode_code);
  while (conn_->Step(stmt.get()) == SQLITE_ROW) {
  }
}

bool SqliteRows::UpdateRow(std::span<const size_t> written, const std::vector<Variant>& values, const Variant* row) {
  std::string sql = "UPDATE " + Target() + " SET ";
  for (size_t i = 0; i < written.size(); ++i) {
    if (i > 0) sql += ", ";
    sql += Quote(columns_[written[i]].origin) + " = ?";
  }
  sql += " WHERE " + KeyCondition();
  Stmt stmt = conn_->Prepare(sql);
  for (size_t i = 0; i < written.size(); ++i) {
    const ResultColumn& c = columns_[written[i]];
    Bind(*conn_, stmt.get(), static_cast<int>(i + 1), EncodeFor(c, values[written[i]]));
  }
  BindKey(stmt.get(), static_cast<int>(written.size() + 1), row);
  conn_->Step(stmt.get());
  return sqlite3_changes64(conn_->Handle()) != 0;
}

bool SqliteRows::DeleteRow(const Variant* row) {
  Stmt stmt = conn_->Prepare("DELETE FROM " + Target() + " WHERE " + KeyCondition());
  BindKey(stmt.get(), 1, row);
  conn_->Step(stmt.get());
  return sqlite3_changes64(conn_->Handle()) != 0;
}

bool SqliteRows::ReadRow(Variant* row) const {
  Stmt stmt = conn_->Prepare("SELECT " + ColumnList() + " FROM " + Target() + " WHERE " + KeyCondition());
  BindKey(stmt.get(), 1, row);
  if (conn_->Step(stmt.get()) != SQLITE_ROW) return false;
  for (size_t j = 0; j < columns_.size(); ++j) row[j] = ReadColumn(stmt.get(), static_cast<int>(j), columns_[j].decode_code);
  return true;
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
  auto rows = std::make_shared<SqliteRows>(conn, source, std::move(stmt), allow_updates);
  conn->Register(rows);
  return std::make_shared<CachedRecordset>(rows);
}

}  // namespace quorbex::db::internal::sqlite
