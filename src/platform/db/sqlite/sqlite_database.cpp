// The SQLite Database, its query definitions, and the backend that opens, creates and compacts files.
#include <unistd.h>

#include <cstring>

#include "platform/db/sqlite/sqlite_database.h"

#include "platform/db/backend.h"
#include "platform/db/errors.h"
#include "platform/db/savepoint.h"
#include "platform/db/sqlite/sqlite_connection.h"
#include "platform/db/sqlite/sqlite_dialect.h"
#include "platform/db/sqlite/sqlite_recordset.h"
#include "platform/db/sqlite/sqlite_schema.h"

namespace quorbex::db::internal::sqlite {
namespace {

// Runs `work` inside a savepoint of the connection (schema changes that must happen whole).
template <class Work>
void InSavepoint(Connection& conn, Work&& work) {
  internal::InSavepoint([&](const std::string& sql) { conn.Exec(sql); }, "quorbex_query", std::forward<Work>(work));
}

// Marks files this library created ("QDL1"); SQLite writes the header when it is set, so a new
// database is a valid file at once.
constexpr int kApplicationId = 0x51444C31;

// Whether a text starts like a statement a recordset can be opened on (rather than being a name).
bool LooksLikeStatement(std::string_view text) {
  while (!text.empty() && (text.front() == '(' || text.front() == ' ' || text.front() == '\n' || text.front() == '\t' ||
                           text.front() == '\r')) {
    text.remove_prefix(1);
  }
  for (std::string_view word : {"SELECT", "WITH", "VALUES", "PRAGMA", "EXPLAIN"}) {
    if (text.size() >= word.size() && SameName(text.substr(0, word.size()), word)) return true;
  }
  return false;
}

bool AllowsUpdates(int32_t type, int32_t options) {
  return (type == dbOpenDynaset || type == dbOpenTable) && (options & dbReadOnly) == 0;
}

// Where a stored query lives: "main" or "temp"; empty when there is none of that name.
std::string ViewSchema(const Connection& conn, std::string_view name, std::string* actual_name = nullptr,
                       std::string* sql = nullptr) {
  Stmt stmt = conn.Prepare(
      "SELECT 'temp', name, sql FROM sqlite_temp_master WHERE type = 'view' AND name = ?1 COLLATE NOCASE "
      "UNION ALL SELECT 'main', name, sql FROM sqlite_master WHERE type = 'view' AND name = ?1 COLLATE NOCASE");
  sqlite3_bind_text(stmt.get(), 1, name.data(), static_cast<int>(name.size()), SQLITE_TRANSIENT);
  if (conn.Step(stmt.get()) != SQLITE_ROW) return std::string();
  if (actual_name) *actual_name = ColumnText(stmt.get(), 1);
  if (sql) *sql = ColumnText(stmt.get(), 2);
  return ColumnText(stmt.get(), 0);
}

bool TableOrViewExists(const Connection& conn, std::string_view name) {
  Stmt stmt = conn.Prepare(
      "SELECT 1 FROM sqlite_master WHERE type IN ('table', 'view') AND name = ?1 COLLATE NOCASE "
      "UNION ALL SELECT 1 FROM sqlite_temp_master WHERE type IN ('table', 'view') AND name = ?1 COLLATE NOCASE");
  sqlite3_bind_text(stmt.get(), 1, name.data(), static_cast<int>(name.size()), SQLITE_TRANSIENT);
  return conn.Step(stmt.get()) == SQLITE_ROW;
}

// ---- query definitions ---------------------------------------------------------------------------

class SqliteQueryDef : public QueryDef {
 public:
  // `schema` is "main" or "temp" for a stored query, empty for an unnamed one.
  SqliteQueryDef(std::shared_ptr<Connection> conn, std::string name, std::string schema, std::string sql)
      : conn_(std::move(conn)), name_(std::move(name)), schema_(std::move(schema)), sql_(std::move(sql)) {}

  const std::string& Name() const override { return name_; }
  const std::string& SQL() const override { return sql_; }

  void SQL(const std::string& strSQL) override {
    CheckOpen();
    if (!schema_.empty()) {
      std::string body(TrimStatement(strSQL));
      std::string create = schema_ == "temp" ? "CREATE TEMP VIEW " : "CREATE VIEW \"main\".";
      if (schema_ == "temp") create += "\"temp\".";
      InSavepoint(*conn_, [&] {
        conn_->Exec("DROP VIEW " + Quote(schema_) + "." + Quote(name_));
        conn_->Exec(create + Quote(name_) + " AS " + body);
        conn_->Prepare("SELECT * FROM " + Quote(schema_) + "." + Quote(name_));
      });
    }
    sql_ = strSQL;
  }

  std::shared_ptr<Recordset> OpenRecordset(int32_t Type, int32_t Options) override {
    CheckOpen();
    if (schema_.empty()) return OpenCursor(conn_, sql_, sql_, AllowsUpdates(Type, Options));
    return OpenCursor(conn_, name_, "SELECT * FROM " + Quote(schema_) + "." + Quote(name_), AllowsUpdates(Type, Options));
  }

  void Execute(int32_t /*Options*/) override {
    CheckOpen();
    if (!schema_.empty()) Raise(ErrorKind::InvalidOperation, text::kSelectInExecute);
    RunAction(sql_);
  }

  void Close() override { closed_ = true; }

  // Runs action statements; a SELECT is refused.
  static int64_t RunAction(const std::shared_ptr<Connection>& conn, std::string_view sql) {
    int64_t changed = 0;
    bool any = false;
    while (!sql.empty()) {
      std::string_view tail;
      Stmt stmt = conn->Prepare(sql, &tail);
      sql = tail;
      if (!stmt) continue;
      any = true;
      if (sqlite3_column_count(stmt.get()) > 0 && sqlite3_stmt_readonly(stmt.get())) {
        Raise(ErrorKind::InvalidOperation, text::kSelectInExecute);
      }
      while (conn->Step(stmt.get()) == SQLITE_ROW) {
      }
      changed = sqlite3_changes64(conn->Handle());
    }
    if (!any) Raise(ErrorKind::Syntax, "The SQL text is empty.");
    return changed;
  }

 private:
  void RunAction(const std::string& sql) { RunAction(conn_, sql); }
  void CheckOpen() const {
    if (closed_) Raise(ErrorKind::Closed, "Object invalid or no longer set (the query definition was closed).");
    conn_->Handle();
  }

  std::shared_ptr<Connection> conn_;
  std::string name_;
  std::string schema_;
  std::string sql_;
  bool closed_ = false;
};

class SqliteQueryDefs : public db::QueryDefs {
 public:
  explicit SqliteQueryDefs(std::shared_ptr<Connection> conn) : conn_(std::move(conn)) {
    Stmt stmt = conn_->Prepare(
        "SELECT 'main', name, sql FROM sqlite_master WHERE type = 'view' "
        "UNION ALL SELECT 'temp', name, sql FROM sqlite_temp_master WHERE type = 'view' "
        "ORDER BY 2 COLLATE NOCASE");
    while (conn_->Step(stmt.get()) == SQLITE_ROW) {
      queries_.push_back(std::make_shared<SqliteQueryDef>(conn_, ColumnText(stmt.get(), 1), ColumnText(stmt.get(), 0),
                                                          ViewBody(ColumnText(stmt.get(), 2))));
    }
  }

  int32_t Count() const override { return static_cast<int32_t>(queries_.size()); }

  std::shared_ptr<QueryDef> Item(int32_t index) const override {
    if (index < 0 || index >= Count()) RaiseItemNotFound(index);
    return queries_[static_cast<size_t>(index)];
  }

  std::shared_ptr<QueryDef> Item(std::string_view name) const override {
    for (const auto& q : queries_) {
      if (SameName(q->Name(), name)) return q;
    }
    RaiseItemNotFound("'" + std::string(name) + "'");
  }

  void Delete(std::string_view name) override {
    std::string actual;
    std::string schema = ViewSchema(*conn_, name, &actual);
    if (schema.empty()) RaiseItemNotFound("'" + std::string(name) + "'");
    conn_->Exec("DROP VIEW " + Quote(schema) + "." + Quote(actual));
    std::erase_if(queries_, [&](const auto& q) { return SameName(q->Name(), name); });
  }

 private:
  std::shared_ptr<Connection> conn_;
  std::vector<std::shared_ptr<SqliteQueryDef>> queries_;
};

// ---- Database ------------------------------------------------------------------------------------

class SqliteDatabase : public Database {
 public:
  // The connection outlives this object while recordsets opened on it are in use, as the classic
  // engine keeps a database alive for its recordsets; Close ends them all.
  explicit SqliteDatabase(std::shared_ptr<Connection> conn)
      : conn_(std::move(conn)), schema_(std::make_shared<SqliteSchema>(conn_)) {}

  const std::string& Name() const override { return conn_->Path(); }
  bool IsOpen() const override { return conn_->IsOpen(); }
  bool Updatable() const override { return !conn_->ReadOnly(); }
  void Close() override { conn_->Close(); }
  bool Supports(Feature feature) const override {
    switch (feature) {
      case Feature::UpdatableRecordsets:
      case Feature::SchemaChanges:
      case Feature::StoredQueries:
      case Feature::TemporaryQueries:
      case Feature::Compaction:
      case Feature::Transactions: return true;
    }
    return false;
  }

  void Execute(const std::string& Query, int32_t /*Options*/) override {
    records_affected_ = 0;
    records_affected_ = SqliteQueryDef::RunAction(conn_, Query);
  }

  void Execute(const std::string& Query, std::span<const Variant> Parameters, int32_t /*Options*/) override {
    records_affected_ = 0;
    std::string_view tail;
    Stmt stmt = conn_->Prepare(Query, &tail);
    if (!stmt) Raise(ErrorKind::Syntax, "The SQL text is empty.");
    if (!TrimStatement(tail).empty()) Raise(ErrorKind::Syntax, "Only one statement can take parameters.");
    if (sqlite3_column_count(stmt.get()) > 0 && sqlite3_stmt_readonly(stmt.get())) {
      Raise(ErrorKind::InvalidOperation, text::kSelectInExecute);
    }
    if (static_cast<int>(Parameters.size()) != sqlite3_bind_parameter_count(stmt.get())) {
      Raise(ErrorKind::InvalidOperation, "The statement has " + std::to_string(sqlite3_bind_parameter_count(stmt.get())) +
                                             " parameters, " + std::to_string(Parameters.size()) + " values were given.");
    }
    for (size_t i = 0; i < Parameters.size(); ++i) Bind(*conn_, stmt.get(), static_cast<int>(i + 1), Encode(Parameters[i], 0));
    while (conn_->Step(stmt.get()) == SQLITE_ROW) {
    }
    records_affected_ = sqlite3_changes64(conn_->Handle());
  }

  int32_t RecordsAffected() const override { return static_cast<int32_t>(records_affected_); }

  std::shared_ptr<Recordset> OpenRecordset(const std::string& Name, int32_t Type, int32_t Options) override {
    std::string_view source = TrimStatement(Name);
    // A table or query name, bare or bracketed, or spelled exactly as it is (quotes, ";" and all).
    const std::string name = IsBareName(source) ? Unbracket(source) : std::string(source);
    if (TableOrViewExists(*conn_, name)) {
      return OpenCursor(conn_, Name, "SELECT * FROM " + Quote(name), AllowsUpdates(Type, Options));
    }
    try {
      return OpenCursor(conn_, Name, Name, AllowsUpdates(Type, Options));
    } catch (const EngineError& e) {
      if (e.Kind() != ErrorKind::Syntax || source.empty() || LooksLikeStatement(source)) throw;
      Raise(ErrorKind::Syntax, "'" + Name + "' is neither a table or query of the database nor a SQL statement (" +
                                   e.Description() + ").");
    }
  }

  std::shared_ptr<Recordset> OpenRecordset(const std::string& Name, std::span<const Variant> Parameters, int32_t Type,
                                           int32_t Options) override {
    return OpenCursor(conn_, Name, Name, AllowsUpdates(Type, Options), Parameters);
  }

  std::shared_ptr<QueryDef> CreateQueryDef(const std::string& Name, const std::string& SQLText, bool temporary) override {
    conn_->Handle();
    if (Name.empty()) return std::make_shared<SqliteQueryDef>(conn_, std::string(), std::string(), SQLText);
    std::string body(TrimStatement(SQLText));
    if (body.empty()) Raise(ErrorKind::Syntax, "A stored query needs a SQL text.");
    if (!ViewSchema(*conn_, Name).empty() || TableOrViewExists(*conn_, Name)) {
      Raise(ErrorKind::AlreadyExists, "Object '" + Name + "' already exists.");
    }
    std::string schema = temporary ? "temp" : "main";
    // SQLite checks a view's names only when it is used: prepare it once so that a query naming a
    // missing table or column is refused now, as the classic engine does.
    InSavepoint(*conn_, [&] {
      conn_->Exec((temporary ? "CREATE TEMP VIEW \"temp\"." : "CREATE VIEW \"main\".") + Quote(Name) + " AS " + body);
      conn_->Prepare("SELECT * FROM " + Quote(schema) + "." + Quote(Name));
    });
    return std::make_shared<SqliteQueryDef>(conn_, Name, schema, SQLText);
  }

  std::shared_ptr<db::QueryDefs> QueryDefs() override { return std::make_shared<SqliteQueryDefs>(conn_); }
  std::shared_ptr<db::TableDefs> TableDefs() override { return std::make_shared<SchemaTableDefs>(schema_); }
  std::shared_ptr<TableDef> CreateTableDef(const std::string& Name) override {
    conn_->Handle();
    return NewTableDef(schema_, Name);
  }

  std::vector<Relation> Relations() override {
    std::vector<Relation> out;
    Stmt stmt = conn_->Prepare(
        "SELECT m.name, f.id, f.\"table\", f.\"from\", f.\"to\", f.on_update, f.on_delete "
        "FROM sqlite_master AS m, pragma_foreign_key_list(m.name) AS f WHERE m.type = 'table' "
        "ORDER BY m.name COLLATE NOCASE, f.id, f.seq");
    int64_t last_id = -1;
    std::string last_table;
    while (conn_->Step(stmt.get()) == SQLITE_ROW) {
      std::string table = ColumnText(stmt.get(), 0);
      int64_t id = sqlite3_column_int64(stmt.get(), 1);
      if (out.empty() || id != last_id || table != last_table) {
        Relation r;
        r.ForeignTable = table;
        r.Table = ColumnText(stmt.get(), 2);
        // SQLite keeps no name for a foreign key: the relationship is named after its two tables.
        r.Name = r.Table + r.ForeignTable;
        if (ColumnText(stmt.get(), 5) == "CASCADE") r.Attributes |= dbRelationUpdateCascade;
        if (ColumnText(stmt.get(), 6) == "CASCADE") r.Attributes |= dbRelationDeleteCascade;
        out.push_back(std::move(r));
        last_id = id;
        last_table = table;
      }
      out.back().ForeignFields.push_back(ColumnText(stmt.get(), 3));
      out.back().Fields.push_back(ColumnText(stmt.get(), 4));
    }
    return out;
  }

  // SQLite adds a foreign key only with its table, so the table is made again with the key: a copy
  // under a passing name takes the rows, replaces the table and gets its indexes back, all in one
  // savepoint.
  void CreateRelation(const Relation& relation) override {
    if (relation.Fields.empty() || relation.Fields.size() != relation.ForeignFields.size()) {
      Raise(ErrorKind::InvalidOperation, "The relationship '" + relation.Name + "' needs pairs of fields.");
    }
    if (!TableOrViewExists(*conn_, relation.Table)) RaiseItemNotFound("'" + relation.Table + "'");
    Stmt stmt = conn_->Prepare("SELECT name, sql FROM sqlite_master WHERE type = 'table' AND name = ?1 COLLATE NOCASE");
    sqlite3_bind_text(stmt.get(), 1, relation.ForeignTable.c_str(), -1, SQLITE_TRANSIENT);
    if (conn_->Step(stmt.get()) != SQLITE_ROW) RaiseItemNotFound("'" + relation.ForeignTable + "'");
    const std::string table = ColumnText(stmt.get(), 0);
    const std::string sql = ColumnText(stmt.get(), 1);
    stmt.reset();
    size_t open = sql.find(Quote(table) + " (");
    open = open == std::string::npos ? sql.find('(') : open + Quote(table).size() + 1;
    const size_t close = sql.rfind(')');
    if (open == std::string::npos || close == std::string::npos || close < open) {
      Raise(ErrorKind::General, "Cannot read the definition of table '" + table + "'.");
    }
    auto list = [](const std::vector<std::string>& names) {
      std::string out;
      for (const auto& n : names) out += (out.empty() ? "" : ", ") + Quote(n);
      return out;
    };
    std::string key = ", CONSTRAINT " + Quote(relation.Name) + " FOREIGN KEY (" + list(relation.ForeignFields) +
                      ") REFERENCES " + Quote(relation.Table) + " (" + list(relation.Fields) + ")";
    if (relation.Attributes & dbRelationUpdateCascade) key += " ON UPDATE CASCADE";
    if (relation.Attributes & dbRelationDeleteCascade) key += " ON DELETE CASCADE";
    const std::string passing = "quorbex_rebuild_" + table;
    std::string rebuilt = "CREATE TABLE \"main\"." + Quote(passing) + " " + sql.substr(open, close - open) + key + sql.substr(close);
    std::vector<std::string> indexes;
    Stmt idx = conn_->Prepare("SELECT sql FROM sqlite_master WHERE type = 'index' AND tbl_name = ?1 AND sql IS NOT NULL");
    sqlite3_bind_text(idx.get(), 1, table.c_str(), -1, SQLITE_TRANSIENT);
    while (conn_->Step(idx.get()) == SQLITE_ROW) indexes.push_back(ColumnText(idx.get(), 0));
    idx.reset();
    InSavepoint(*conn_, [&] {
      conn_->Exec(rebuilt);
      conn_->Exec("INSERT INTO \"main\"." + Quote(passing) + " SELECT * FROM \"main\"." + Quote(table));
      conn_->Exec("DROP TABLE \"main\"." + Quote(table));
      conn_->Exec("ALTER TABLE \"main\"." + Quote(passing) + " RENAME TO " + Quote(table));
      for (const auto& index : indexes) conn_->Exec(index);
    });
  }

  void BeginTrans() override {
    if (sqlite3_get_autocommit(conn_->Handle()) == 0) {
      Raise(ErrorKind::InvalidOperation, "A transaction is already running.");
    }
    // A transaction is begun to write: taking the write lock now lets the busy timeout apply while
    // another connection writes, where a read transaction upgraded later would fail at once.
    conn_->Exec("BEGIN IMMEDIATE");
  }
  void CommitTrans() override {
    if (sqlite3_get_autocommit(conn_->Handle()) != 0) Raise(ErrorKind::InvalidOperation, "No transaction is running.");
    conn_->Exec("COMMIT");
  }
  void Rollback() override {
    if (sqlite3_get_autocommit(conn_->Handle()) != 0) Raise(ErrorKind::InvalidOperation, "No transaction is running.");
    conn_->Exec("ROLLBACK");
  }
  void Savepoint(const std::string& name) override { conn_->Exec("SAVEPOINT " + Quote(name)); }
  void ReleaseSavepoint(const std::string& name) override { conn_->Exec("RELEASE SAVEPOINT " + Quote(name)); }
  void RollbackToSavepoint(const std::string& name) override { conn_->Exec("ROLLBACK TO SAVEPOINT " + Quote(name)); }

 private:
  std::shared_ptr<Connection> conn_;
  std::shared_ptr<SqliteSchema> schema_;
  int64_t records_affected_ = 0;
};

// ---- backend -------------------------------------------------------------------------------------

std::shared_ptr<Connection> Connect(const std::string& path, int flags, int busy_ms) {
  sqlite3* db = nullptr;
  int rc = sqlite3_open_v2(path.c_str(), &db, flags | SQLITE_OPEN_NOMUTEX, nullptr);
  if (rc != SQLITE_OK) {
    std::string message = db ? sqlite3_errmsg(db) : sqlite3_errstr(rc);
    sqlite3_close_v2(db);
    RaiseSqlite(rc, message, path, busy_ms);
  }
  sqlite3_extended_result_codes(db, 1);
  // In schema statements a double-quoted name is a name, never a text: otherwise an index "on" a
  // column that does not exist silently indexes the constant text instead. Queries keep reading
  // "text" as a text where no column has that name, as the classic SQL dialect writes texts.
  sqlite3_db_config(db, SQLITE_DBCONFIG_DQS_DDL, 0, nullptr);
  // Savepoints keep a statement journal per write; in memory it costs no file writes. Large sorts use
  // memory too, which an in-process library working on in-memory tables can afford.
  sqlite3_exec(db, "PRAGMA temp_store = MEMORY", nullptr, nullptr, nullptr);
  auto conn = std::make_shared<Connection>(db, path, busy_ms);
  conn->WaitWhenBusy();
  return conn;
}

class Sqlite : public Backend {
 public:
  const char* Name() const override { return "SQLite"; }
  bool CreatesFiles() const override { return true; }

  bool Recognizes(std::string_view header) const override {
    return header.size() >= 16 && header.substr(0, 16) == std::string_view("SQLite format 3\0", 16);
  }

  std::shared_ptr<Database> Open(const std::string& path, const OpenOptions& options) override {
    int flags = options.read_only ? SQLITE_OPEN_READONLY : SQLITE_OPEN_READWRITE;
    auto conn = Connect(path, flags, options.busy_timeout_ms);
    // Reading the catalogue now turns a damaged file into an error here rather than at the first query.
    conn->Exec("SELECT count(*) FROM sqlite_master");
    if (options.exclusive) conn->Exec("PRAGMA locking_mode = EXCLUSIVE; BEGIN EXCLUSIVE; COMMIT");
    return std::make_shared<SqliteDatabase>(conn);
  }

  std::shared_ptr<Database> Create(const std::string& path, const OpenOptions& options) override {
    auto conn = Connect(path, SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE, options.busy_timeout_ms);
    try {
      conn->Exec("PRAGMA application_id = " + std::to_string(kApplicationId));
    } catch (...) {
      conn->Close();
      ::unlink(path.c_str());
      throw;
    }
    return std::make_shared<SqliteDatabase>(conn);
  }

  void Compact(const std::string& source, const std::string& destination, const OpenOptions& options) override {
    auto conn = Connect(source, SQLITE_OPEN_READWRITE, options.busy_timeout_ms);
    conn->Exec("SELECT count(*) FROM sqlite_master");
    // "In use" means another connection holds a lock: an exclusive transaction waits for it up to the
    // busy timeout and then gives up.
    if (!conn->ReadOnly()) conn->Exec("BEGIN EXCLUSIVE; COMMIT");
    Stmt stmt = conn->Prepare("VACUUM INTO ?1");
    sqlite3_bind_text(stmt.get(), 1, destination.c_str(), -1, SQLITE_TRANSIENT);
    try {
      conn->Step(stmt.get());
    } catch (...) {
      ::unlink(destination.c_str());  // it did not exist before; leave no half-written copy
      throw;
    }
  }
};

}  // namespace

MemoryDatabase OpenMemoryDatabase(const std::string& label, int busy_ms, std::string_view image) {
  auto conn = Connect(":memory:", SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE, busy_ms);
  conn->SetPath(label);
  if (!image.empty()) {
    auto* copy = static_cast<unsigned char*>(sqlite3_malloc64(image.size()));
    if (copy == nullptr) throw std::bad_alloc();
    std::memcpy(copy, image.data(), image.size());
    int rc = sqlite3_deserialize(conn->Handle(), "main", copy, static_cast<sqlite3_int64>(image.size()),
                                 static_cast<sqlite3_int64>(image.size()),
                                 SQLITE_DESERIALIZE_FREEONCLOSE | SQLITE_DESERIALIZE_RESIZEABLE);
    if (rc != SQLITE_OK) conn->Fail(rc);
  }
  return {std::make_shared<SqliteDatabase>(conn), conn};
}

}  // namespace quorbex::db::internal::sqlite

namespace quorbex::db::internal {

Backend& SqliteBackend() {
  static sqlite::Sqlite backend;
  return backend;
}

}  // namespace quorbex::db::internal
