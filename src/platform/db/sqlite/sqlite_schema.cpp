#include "platform/db/sqlite/sqlite_schema.h"

#include "platform/db/errors.h"
#include "platform/db/savepoint.h"
#include "platform/db/sqlite/sqlite_dialect.h"
#include "platform/db/types.h"

namespace quorbex::db::internal::sqlite {
namespace {

bool IsSystemName(std::string_view name) { return name.size() > 7 && SameName(name.substr(0, 7), "sqlite_"); }

std::string TableSql(const Connection& conn, const std::string& table) {
  Stmt stmt = conn.Prepare("SELECT sql FROM sqlite_master WHERE type = 'table' AND name = ?1 COLLATE NOCASE");
  sqlite3_bind_text(stmt.get(), 1, table.c_str(), -1, SQLITE_TRANSIENT);
  if (conn.Step(stmt.get()) == SQLITE_ROW) return ColumnText(stmt.get(), 0);
  return std::string();
}

// Runs `work` inside a savepoint: all of it happens, or none.
template <class Work>
void Atomically(const Connection& conn, Work&& work) {
  InSavepoint([&](const std::string& sql) { conn.Exec(sql); }, "quorbex_schema", std::forward<Work>(work));
}

std::string IndexSql(const std::string& table, const IndexSpec& index) {
  std::string sql = index.unique ? "CREATE UNIQUE INDEX " : "CREATE INDEX ";
  sql += "\"main\"." + Quote(PhysicalIndexName(table, index.name)) + " ON " + Quote(table) + " ";
  if (index.primary) sql += std::string(kPrimaryMark) + " ";
  sql += "(";
  for (size_t i = 0; i < index.columns.size(); ++i) {
    if (i > 0) sql += ", ";
    sql += Quote(index.columns[i]);
  }
  return sql + ")";
}

}  // namespace

std::vector<SchemaStore::TableEntry> SqliteSchema::ListTables() const {
  // The catalogue itself comes first: it always exists, so position 0 is never a user table.
  std::vector<TableEntry> tables{{"sqlite_master", true}};
  Stmt stmt = conn_->Prepare(
      "SELECT name FROM sqlite_master WHERE type = 'table' "
      "ORDER BY CASE WHEN name LIKE 'sqlite\\_%' ESCAPE '\\' THEN 0 ELSE 1 END, name COLLATE NOCASE");
  while (conn_->Step(stmt.get()) == SQLITE_ROW) {
    std::string name = ColumnText(stmt.get(), 0);
    const bool system = IsSystemName(name);
    tables.push_back({std::move(name), system});
  }
  return tables;
}

std::vector<ColumnSpec> SqliteSchema::ReadColumns(const std::string& table) const {
  const std::string sql = TableSql(*conn_, table);
  Stmt stmt = conn_->Prepare("SELECT name, type, \"notnull\", pk FROM pragma_table_info(?1, 'main') ORDER BY cid");
  sqlite3_bind_text(stmt.get(), 1, table.c_str(), -1, SQLITE_TRANSIENT);
  std::vector<ColumnSpec> columns;
  int pk_columns = 0;
  size_t pk_column = 0;
  std::string pk_type;
  while (conn_->Step(stmt.get()) == SQLITE_ROW) {
    ColumnSpec spec;
    spec.name = ColumnText(stmt.get(), 0);
    std::string declared = ColumnText(stmt.get(), 1);
    spec.type = TypeCodeFromDeclared(declared);
    spec.size = SizeFromDeclared(declared);
    spec.required = sqlite3_column_int(stmt.get(), 2) != 0 || sql.find(RequiredRule(spec.name)) != std::string::npos;
    spec.allow_zero_length = sql.find(NonEmptyRule(spec.name)) == std::string::npos;
    if (sqlite3_column_int(stmt.get(), 3) > 0) {
      ++pk_columns;
      pk_column = columns.size();
      pk_type = declared;
    }
    columns.push_back(std::move(spec));
  }
  // An INTEGER PRIMARY KEY of a rowid table is numbered by SQLite: the engine's auto-increment field.
  if (pk_columns == 1 && SameName(pk_type, "INTEGER") && sql.find("WITHOUT ROWID") == std::string::npos &&
      sql.find("without rowid") == std::string::npos) {
    columns[pk_column].attributes |= dbAutoIncrField;
  }
  return columns;
}

std::vector<IndexSpec> SqliteSchema::ReadIndexes(const std::string& table) const {
  std::vector<IndexSpec> indexes;
  // The key of a rowid table lives in the table itself; it is shown as the index "PrimaryKey".
  for (const auto& column : ReadColumns(table)) {
    if ((column.attributes & dbAutoIncrField) != 0) indexes.push_back({"PrimaryKey", {column.name}, true, true, ""});
  }
  Stmt list = conn_->Prepare(
      "SELECT l.name, l.\"unique\", l.origin, m.sql FROM pragma_index_list(?1, 'main') AS l "
      "LEFT JOIN sqlite_master AS m ON m.type = 'index' AND m.name = l.name ORDER BY l.seq DESC");
  sqlite3_bind_text(list.get(), 1, table.c_str(), -1, SQLITE_TRANSIENT);
  while (conn_->Step(list.get()) == SQLITE_ROW) {
    IndexSpec index;
    index.physical = ColumnText(list.get(), 0);
    index.name = DisplayIndexName(table, index.physical);
    index.unique = sqlite3_column_int(list.get(), 1) != 0;
    const std::string origin = ColumnText(list.get(), 2);
    index.primary = origin == "pk" || ColumnText(list.get(), 3).find(kPrimaryMark) != std::string::npos;
    Stmt info = conn_->Prepare("SELECT name FROM pragma_index_info(?1, 'main') ORDER BY seqno");
    sqlite3_bind_text(info.get(), 1, index.physical.c_str(), -1, SQLITE_TRANSIENT);
    while (conn_->Step(info.get()) == SQLITE_ROW) index.columns.push_back(ColumnText(info.get(), 0));
    indexes.push_back(std::move(index));
  }
  return indexes;
}

void SqliteSchema::CheckColumn(const ColumnSpec& column) const { ColumnDefinition(column, true); }

void SqliteSchema::CreateTable(const std::string& table, const std::vector<ColumnSpec>& columns,
                               const std::vector<IndexSpec>& indexes) {
  conn_->Handle();
  const ColumnSpec* auto_key = nullptr;
  std::string definitions;
  for (const auto& column : columns) {
    if ((column.attributes & dbAutoIncrField) != 0) auto_key = &column;
    if (!definitions.empty()) definitions += ", ";
    definitions += ColumnDefinition(column, true);
  }
  // Without an auto-increment field, the first primary index becomes the table's own key.
  const IndexSpec* key = nullptr;
  if (auto_key == nullptr) {
    for (const auto& index : indexes) {
      if (index.primary) {
        key = &index;
        break;
      }
    }
  }
  if (key != nullptr) {
    std::string names;
    for (const auto& c : key->columns) {
      if (!names.empty()) names += ", ";
      names += Quote(c);
    }
    definitions += ", PRIMARY KEY (" + names + ")";
  }
  Atomically(*conn_, [&] {
    conn_->Exec("CREATE TABLE \"main\"." + Quote(table) + " (" + definitions + ")");
    for (const auto& index : indexes) {
      if (&index == key) continue;
      // The auto-increment key is the table's own key already.
      const bool is_auto_key = auto_key != nullptr && index.primary && index.columns.size() == 1 &&
                               SameName(index.columns[0], auto_key->name);
      if (!is_auto_key) conn_->Exec(IndexSql(table, index));
    }
  });
}

void SqliteSchema::DropTable(const std::string& table) { conn_->Exec("DROP TABLE \"main\"." + Quote(table)); }

void SqliteSchema::RenameTable(const std::string& table, const std::string& new_name) {
  conn_->Exec("ALTER TABLE " + Quote(table) + " RENAME TO " + Quote(new_name));
}

void SqliteSchema::AddColumn(const std::string& table, const ColumnSpec& column) {
  conn_->Exec("ALTER TABLE " + Quote(table) + " ADD COLUMN " + ColumnDefinition(column, false));
}

void SqliteSchema::DropColumn(const std::string& table, const std::string& column) {
  conn_->Exec("ALTER TABLE " + Quote(table) + " DROP COLUMN " + Quote(column));
}

void SqliteSchema::RenameColumn(const std::string& table, const std::string& column, const std::string& new_name) {
  conn_->Exec("ALTER TABLE " + Quote(table) + " RENAME COLUMN " + Quote(column) + " TO " + Quote(new_name));
}

void SqliteSchema::CreateIndex(const std::string& table, IndexSpec& index) {
  conn_->Exec(IndexSql(table, index));
  index.physical = PhysicalIndexName(table, index.name);
}

void SqliteSchema::DropIndex(const std::string& table, const IndexSpec& index) {
  if (index.physical.empty() || index.physical.starts_with("sqlite_autoindex_")) {
    Raise(ErrorKind::NotSupported, "The key of table '" + table + "' cannot be removed.");
  }
  conn_->Exec("DROP INDEX \"main\"." + Quote(index.physical));
}

}  // namespace quorbex::db::internal::sqlite
