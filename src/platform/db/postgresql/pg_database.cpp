// The PostgreSQL Database, its stored queries (views), and the backend that connects.
#include "platform/db/postgresql/pg_database.h"

#include <algorithm>

#include "platform/db/errors.h"
#include "platform/db/postgresql/pg_connection.h"
#include "platform/db/postgresql/pg_dialect.h"
#include "platform/db/postgresql/pg_recordset.h"
#include "platform/db/postgresql/pg_schema.h"

namespace quorbex::db::internal::postgresql {
namespace {

// The views visible on the search path, with the text each was created from (kept as the view's
// comment, since the server keeps only its own rewriting of the query) and whether it is temporary.
constexpr const char* kViews =
    "SELECT c.relname, COALESCE(pg_catalog.obj_description(c.oid, 'pg_class'), pg_catalog.pg_get_viewdef(c.oid)), "
    "n.nspname LIKE 'pg\\_temp\\_%' FROM pg_catalog.pg_class c JOIN pg_catalog.pg_namespace n ON n.oid = c.relnamespace "
    "WHERE c.relkind = 'v' AND n.nspname NOT IN ('pg_catalog', 'information_schema') "
    "AND pg_catalog.pg_table_is_visible(c.oid)";

// The foreign keys of the tables visible on the search path, one row per pair of columns.
constexpr const char* kForeignKeys =
    "SELECT k.conname, r.relname, f.relname, k.confupdtype::text, k.confdeltype::text, ra.attname, fa.attname "
    "FROM pg_catalog.pg_constraint k JOIN pg_catalog.pg_class f ON f.oid = k.conrelid "
    "JOIN pg_catalog.pg_class r ON r.oid = k.confrelid "
    "CROSS JOIN LATERAL unnest(k.conkey, k.confkey) WITH ORDINALITY AS c(fk, rk, n) "
    "JOIN pg_catalog.pg_attribute fa ON fa.attrelid = k.conrelid AND fa.attnum = c.fk "
    "JOIN pg_catalog.pg_attribute ra ON ra.attrelid = k.confrelid AND ra.attnum = c.rk "
    "WHERE k.contype = 'f' AND pg_catalog.pg_table_is_visible(k.conrelid) ORDER BY f.relname, k.conname, c.n";

bool AllowsUpdates(int32_t type, int32_t options) {
  return (type == dbOpenDynaset || type == dbOpenTable) && (options & dbReadOnly) == 0;
}

std::string Literal(const Connection& conn, const std::string& text) {
  char* escaped = PQescapeLiteral(conn.Handle(), text.data(), text.size());
  if (escaped == nullptr) conn.Fail(nullptr);
  std::string literal(escaped);
  PQfreemem(escaped);
  return literal;
}

// Creates (or, with `replace`, redefines) a view and keeps its text as the view's comment.
void DefineView(const Connection& conn, const std::string& name, const std::string& sql, bool temporary, bool replace) {
  const std::string body(TrimStatement(sql));
  std::string statements = replace ? "DROP VIEW " + Quote(name) + "; " : std::string();
  statements += std::string(temporary ? "CREATE TEMP VIEW " : "CREATE VIEW ") + Quote(name) + " AS " + body;
  statements += "; COMMENT ON VIEW " + Quote(name) + " IS " + Literal(conn, sql);
  conn.ExecWhole(statements);
  conn.SchemaChanged();
}

class PgQueryDef : public QueryDef {
 public:
  PgQueryDef(std::shared_ptr<Connection> conn, std::string name, std::string sql, bool temporary)
      : conn_(std::move(conn)), name_(std::move(name)), sql_(std::move(sql)), temporary_(temporary) {}

  const std::string& Name() const override { return name_; }
  const std::string& SQL() const override { return sql_; }

  void SQL(const std::string& strSQL) override {
    CheckOpen();
    if (!name_.empty()) DefineView(*conn_, name_, strSQL, temporary_, true);
    sql_ = strSQL;
  }

  std::shared_ptr<Recordset> OpenRecordset(int32_t Type, int32_t Options) override {
    CheckOpen();
    if (name_.empty()) return OpenCursor(conn_, sql_, sql_, AllowsUpdates(Type, Options));
    return OpenCursor(conn_, name_, "SELECT * FROM " + Quote(name_), AllowsUpdates(Type, Options));
  }

  void Execute(int32_t /*Options*/) override {
    CheckOpen();
    if (!name_.empty()) Raise(ErrorKind::InvalidOperation, text::kSelectInExecute);
    RunAction(*conn_, sql_);
  }

  void Close() override { closed_ = true; }

  // Runs action statements one by one; a query among them is refused before any runs. Returns the
  // rows changed by the last one.
  static int64_t RunAction(const Connection& conn, const std::string& sql) {
    const auto statements = SplitStatements(sql);
    if (statements.empty()) Raise(ErrorKind::Syntax, "The SQL text is empty.");
    for (auto statement : statements) {
      if (IsQuery(statement)) Raise(ErrorKind::InvalidOperation, text::kSelectInExecute);
    }
    int64_t changed = 0;
    bool schema = false;
    for (auto statement : statements) {
      const std::string word = FirstKeyword(statement);
      schema = schema || word == "CREATE" || word == "ALTER" || word == "DROP" || word == "COMMENT";
      Result result = conn.ExecWhole(std::string(statement));
      const char* tuples = PQcmdTuples(result.get());
      changed = tuples[0] != '\0' ? std::stoll(tuples) : 0;
    }
    if (schema) conn.SchemaChanged();
    return changed;
  }

 private:
  void CheckOpen() const {
    if (closed_) Raise(ErrorKind::Closed, "Object invalid or no longer set (the query definition was closed).");
    conn_->Handle();
  }

  std::shared_ptr<Connection> conn_;
  std::string name_;
  std::string sql_;
  bool temporary_;
  bool closed_ = false;
};

class PgQueryDefs : public db::QueryDefs {
 public:
  explicit PgQueryDefs(std::shared_ptr<Connection> conn) : conn_(std::move(conn)) {
    Result result = conn_->Exec(kViews);
    for (int i = 0; i < PQntuples(result.get()); ++i) {
      queries_.push_back(std::make_shared<PgQueryDef>(conn_, TextAt(result.get(), i, 0), TextAt(result.get(), i, 1),
                                                      PQgetvalue(result.get(), i, 2)[0] == 't'));
    }
    std::sort(queries_.begin(), queries_.end(), [](const auto& a, const auto& b) { return NameBefore(a->Name(), b->Name()); });
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
    auto it = std::find_if(queries_.begin(), queries_.end(), [&](const auto& q) { return SameName(q->Name(), name); });
    std::string actual;
    if (it != queries_.end()) {
      actual = (*it)->Name();
    } else if (RelationNamed(*conn_, std::string(name), "v") != InvalidOid) {
      actual = std::string(name);  // made after this list was read
    } else {
      RaiseItemNotFound("'" + std::string(name) + "'");
    }
    conn_->Exec("DROP VIEW " + Quote(actual));
    conn_->SchemaChanged();
    if (it != queries_.end()) queries_.erase(it);
  }

 private:
  std::shared_ptr<Connection> conn_;
  std::vector<std::shared_ptr<PgQueryDef>> queries_;
};

class PgDatabase : public Database {
 public:
  explicit PgDatabase(std::shared_ptr<Connection> conn)
      : conn_(std::move(conn)), schema_(std::make_shared<PgSchema>(conn_)) {}

  const std::string& Name() const override { return conn_->Name(); }
  bool IsOpen() const override { return conn_->IsOpen(); }
  bool Updatable() const override { return !conn_->ReadOnly(); }
  void Close() override { conn_->Close(); }
  bool Supports(Feature feature) const override {
    switch (feature) {
      case Feature::UpdatableRecordsets:
      case Feature::SchemaChanges:
      case Feature::StoredQueries:
      case Feature::TemporaryQueries:
      case Feature::Transactions: return true;
      case Feature::Compaction: return false;  // a server reclaims space in place (CompactInPlace)
    }
    return false;
  }

  void CompactInPlace() override { conn_->Exec("VACUUM"); }

  void Execute(const std::string& Query, int32_t /*Options*/) override {
    records_affected_ = 0;
    records_affected_ = PgQueryDef::RunAction(*conn_, Query);
  }

  void Execute(const std::string& Query, std::span<const Variant> Parameters, int32_t /*Options*/) override {
    records_affected_ = 0;
    const auto statements = SplitStatements(Query);
    if (statements.empty()) Raise(ErrorKind::Syntax, "The SQL text is empty.");
    if (statements.size() > 1) Raise(ErrorKind::Syntax, "Only one statement can take parameters.");
    if (IsQuery(statements[0])) Raise(ErrorKind::InvalidOperation, text::kSelectInExecute);
    int count = 0;
    const std::string numbered = NumberPlaceholders(statements[0], &count);
    if (static_cast<size_t>(count) != Parameters.size()) {
      Raise(ErrorKind::InvalidOperation, "The statement has " + std::to_string(count) + " parameters, " +
                                             std::to_string(Parameters.size()) + " values were given.");
    }
    std::vector<Param> params;
    for (const auto& p : Parameters) params.push_back(ToParam(p, 0));
    Result result = conn_->Guarded([&] { return conn_->Run(numbered, params); });
    const char* tuples = PQcmdTuples(result.get());
    records_affected_ = tuples[0] != '\0' ? std::stoll(tuples) : 0;
  }

  int32_t RecordsAffected() const override { return static_cast<int32_t>(records_affected_); }

  std::vector<Relation> Relations() override {
    Result result = conn_->Exec(kForeignKeys);
    const PGresult* r = result.get();
    std::vector<Relation> out;
    for (int i = 0; i < PQntuples(r); ++i) {
      if (out.empty() || out.back().Name != TextAt(r, i, 0) || out.back().ForeignTable != TextAt(r, i, 2)) {
        Relation relation;
        relation.Name = TextAt(r, i, 0);
        relation.Table = TextAt(r, i, 1);
        relation.ForeignTable = TextAt(r, i, 2);
        if (TextAt(r, i, 3) == "c") relation.Attributes |= dbRelationUpdateCascade;
        if (TextAt(r, i, 4) == "c") relation.Attributes |= dbRelationDeleteCascade;
        out.push_back(std::move(relation));
      }
      out.back().Fields.push_back(TextAt(r, i, 5));
      out.back().ForeignFields.push_back(TextAt(r, i, 6));
    }
    return out;
  }

  // The rows already there are not checked (NOT VALID); new and changed rows are.
  void CreateRelation(const Relation& relation) override {
    if (relation.Fields.empty() || relation.Fields.size() != relation.ForeignFields.size()) {
      Raise(ErrorKind::InvalidOperation, "The relationship '" + relation.Name + "' needs pairs of fields.");
    }
    if (RelationNamed(*conn_, relation.Table, "rp") == InvalidOid) RaiseItemNotFound("'" + relation.Table + "'");
    if (RelationNamed(*conn_, relation.ForeignTable, "rp") == InvalidOid) RaiseItemNotFound("'" + relation.ForeignTable + "'");
    if ((relation.Attributes & dbRelationDontEnforce) != 0) return;  // a relationship the server would not keep
    auto list = [](const std::vector<std::string>& names) {
      std::string out;
      for (const auto& n : names) out += (out.empty() ? "" : ", ") + Quote(n);
      return out;
    };
    std::string sql = "ALTER TABLE " + Quote(relation.ForeignTable) + " ADD CONSTRAINT " + Quote(relation.Name) +
                      " FOREIGN KEY (" + list(relation.ForeignFields) + ") REFERENCES " + Quote(relation.Table) + " (" +
                      list(relation.Fields) + ")";
    if (relation.Attributes & dbRelationUpdateCascade) sql += " ON UPDATE CASCADE";
    if (relation.Attributes & dbRelationDeleteCascade) sql += " ON DELETE CASCADE";
    conn_->ExecWhole(sql + " NOT VALID");
    conn_->SchemaChanged();
  }

  std::shared_ptr<Recordset> OpenRecordset(const std::string& Name, int32_t Type, int32_t Options) override {
    std::string_view source = TrimStatement(Name);
    // A table or query name, bare or bracketed, or spelled exactly as it is (blanks, quotes and all).
    if (IsBareName(source) || !IsQuery(source)) {
      const std::string name = IsBareName(source) ? Unbracket(source) : std::string(source);
      const Oid oid = RelationNamed(*conn_, name);
      if (oid != InvalidOid) {
        auto facts = FactsOf(*conn_, oid);
        return OpenCursor(conn_, Name, "SELECT * FROM " + Quote(facts->schema) + "." + Quote(facts->name),
                          AllowsUpdates(Type, Options));
      }
    }
    return OpenCursor(conn_, Name, Name, AllowsUpdates(Type, Options));
  }

  std::shared_ptr<Recordset> OpenRecordset(const std::string& Name, std::span<const Variant> Parameters, int32_t Type,
                                           int32_t Options) override {
    return OpenCursor(conn_, Name, Name, AllowsUpdates(Type, Options), Parameters);
  }

  std::shared_ptr<QueryDef> CreateQueryDef(const std::string& Name, const std::string& SQLText, bool temporary) override {
    conn_->Handle();
    if (Name.empty()) return std::make_shared<PgQueryDef>(conn_, std::string(), SQLText, false);
    if (TrimStatement(SQLText).empty()) Raise(ErrorKind::Syntax, "A stored query needs a SQL text.");
    if (RelationNamed(*conn_, Name) != InvalidOid) Raise(ErrorKind::AlreadyExists, "Object '" + Name + "' already exists.");
    DefineView(*conn_, Name, SQLText, temporary, false);
    return std::make_shared<PgQueryDef>(conn_, Name, SQLText, temporary);
  }

  std::shared_ptr<db::QueryDefs> QueryDefs() override { return std::make_shared<PgQueryDefs>(conn_); }
  std::shared_ptr<db::TableDefs> TableDefs() override { return std::make_shared<SchemaTableDefs>(schema_); }
  std::shared_ptr<TableDef> CreateTableDef(const std::string& Name) override {
    conn_->Handle();
    return NewTableDef(schema_, Name);
  }

  void BeginTrans() override {
    if (conn_->InTransaction()) Raise(ErrorKind::InvalidOperation, "A transaction is already running.");
    conn_->Exec("BEGIN");
  }
  void CommitTrans() override {
    if (!conn_->InTransaction()) Raise(ErrorKind::InvalidOperation, "No transaction is running.");
    // A transaction in which a statement failed ends in a rollback, whatever COMMIT says.
    if (PQtransactionStatus(conn_->Handle()) == PQTRANS_INERROR) {
      conn_->Exec("ROLLBACK");
      Raise(ErrorKind::General, "The transaction was rolled back: a statement in it failed.");
    }
    conn_->Exec("COMMIT");
  }
  void Rollback() override {
    if (!conn_->InTransaction()) Raise(ErrorKind::InvalidOperation, "No transaction is running.");
    conn_->Exec("ROLLBACK");
  }
  void Savepoint(const std::string& name) override { conn_->Exec("SAVEPOINT " + Quote(name)); }
  void ReleaseSavepoint(const std::string& name) override { conn_->Exec("RELEASE SAVEPOINT " + Quote(name)); }
  void RollbackToSavepoint(const std::string& name) override { conn_->Exec("ROLLBACK TO SAVEPOINT " + Quote(name)); }

 private:
  std::shared_ptr<Connection> conn_;
  std::shared_ptr<PgSchema> schema_;
  int64_t records_affected_ = 0;
};

class Postgresql : public Backend {
 public:
  const char* Name() const override { return "PostgreSQL"; }
  bool TakesConnectionString(std::string_view name) const override { return IsConnectionString(name); }
  bool Recognizes(std::string_view) const override { return false; }

  std::shared_ptr<Database> Open(const std::string& path, const OpenOptions& options) override {
    // Earlier entries give way to what the connection string itself says.
    std::vector<const char*> keys, values;
    auto add = [&](const char* key, const std::string& value) {
      if (value.empty()) return;
      keys.push_back(key);
      values.push_back(value.c_str());
    };
    const std::string timeout = "10";
    add("connect_timeout", timeout);
    add("user", options.user);
    add("password", options.password);
    add("dbname", path);
    const std::string encoding = "UTF8", application = "quorbex";
    add("client_encoding", encoding);
    add("fallback_application_name", application);
    keys.push_back(nullptr);
    values.push_back(nullptr);
    PGconn* pg = PQconnectdbParams(keys.data(), values.data(), 1);
    const std::string name = WithoutPassword(path);
    if (pg == nullptr) throw std::bad_alloc();
    if (PQstatus(pg) != CONNECTION_OK) {
      std::string message = PQerrorMessage(pg);
      while (!message.empty() && (message.back() == '\n' || message.back() == ' ')) message.pop_back();
      PQfinish(pg);
      Raise(ErrorKind::General, "Could not connect to '" + name + "': " + message);
    }
    // The server's notices (what a DROP ... CASCADE took along, ...) are not errors; the engine keeps quiet.
    PQsetNoticeProcessor(pg, [](void*, const char*) {}, nullptr);
    auto conn = std::make_shared<Connection>(pg, name, options.read_only);
    // How long a statement waits for another connection's lock is the engine's busy timeout.
    std::string settings = "SET lock_timeout = " + std::to_string(std::max(1, options.busy_timeout_ms)) +
                           "; SET DateStyle = ISO; SET bytea_output = hex";
    if (options.read_only) settings += "; SET default_transaction_read_only = on";
    conn->Exec(settings);
    return std::make_shared<PgDatabase>(conn);
  }

  std::shared_ptr<Database> Create(const std::string& path, const OpenOptions&) override {
    Raise(ErrorKind::NotSupported,
          "Creating a database on a server is not supported: create it with the server's tools, then open '" +
              WithoutPassword(path) + "'.");
  }

  void Compact(const std::string& source, const std::string&, const OpenOptions&) override {
    Raise(ErrorKind::NotSupported, "Compacting into a new file is not supported for server databases ('" +
                                       WithoutPassword(source) + "'); the server reclaims space in place.");
  }
};

}  // namespace
}  // namespace quorbex::db::internal::postgresql

namespace quorbex::db::internal {

Backend& PostgresqlBackend() {
  static postgresql::Postgresql backend;
  return backend;
}

}  // namespace quorbex::db::internal
