// The Jet Database over its SQLite mirror, its query definitions, and the backend that opens files.
#include "platform/db/jet/jet_database.h"

#include <algorithm>
#include <map>

#include "platform/db/errors.h"
#include "platform/db/forwarding_database.h"
#include "platform/db/jet/jet_connection.h"
#include "platform/db/jet/jet_dialect.h"
#include "platform/db/jet/jet_recordset.h"
#include "platform/db/jet/jet_schema.h"
#include "platform/db/sqlite/sqlite_connection.h"
#include "platform/db/sqlite/sqlite_database.h"
#include "platform/db/types.h"
#include "value/text_util.h"

namespace quorbex::db::internal::jet {
namespace {

using quorbex::internal::SameName;

std::string Refusal(const std::string& path) {
  return "Cannot change '" + path +
         "': Jet and ACE files are read only here. Copy it into SQLite or PostgreSQL with 'qdl migrate' and work "
         "on the copy.";
}

// ---- reading the file (in the guarded child) -------------------------------------------------------

constexpr char kImage = 'I';
constexpr char kQuery = 'Q';
constexpr char kRelation = 'R';
constexpr char kSeparator = '\x1f';

std::string Joined(const std::vector<std::string>& parts) {
  std::string out;
  for (size_t i = 0; i < parts.size(); ++i) out += (i ? std::string(1, kSeparator) : "") + parts[i];
  return out;
}

std::vector<std::string> Split(const std::string& text) {
  std::vector<std::string> out(1);
  for (char c : text) {
    if (c == kSeparator) out.emplace_back();
    else out.back() += c;
  }
  return out;
}

std::string TextOf(const Variant& v) { return v.IsString() ? v.AsString() : std::string(); }
int NumberOf(const Variant& v) { return v.IsNull() || v.IsEmpty() ? 0 : CLng(v); }

// The stored queries, rebuilt from MSysObjects (names) and MSysQueries (definitions), by name. (The
// catalogue cannot tell: reading a table leaves libmdb's catalogue holding tables only.)
std::vector<StoredQuery> ReadQueries(MdbHandle* mdb) {
  auto has_table = [&](std::string_view name) {
    for (unsigned i = 0; i < mdb->num_catalog; ++i) {
      auto* entry = static_cast<MdbCatalogEntry*>(g_ptr_array_index(mdb->catalog, i));
      if (entry->object_type == MDB_TABLE && name == entry->object_name) return true;
    }
    return false;
  };
  if (!has_table("MSysObjects") || !has_table("MSysQueries")) return {};
  std::map<int, std::string> names;
  {
    TableReader objects(mdb, "MSysObjects");
    std::map<std::string, size_t> col;
    for (size_t i = 0; i < objects.ColumnCount(); ++i) col[objects.Column(i)->name] = i;
    if (!col.count("Id") || !col.count("Name") || !col.count("Type")) return {};
    std::vector<Variant> row;
    while (objects.Next(row)) {
      if (NumberOf(row[col["Type"]]) == 5) names[NumberOf(row[col["Id"]])] = TextOf(row[col["Name"]]);
    }
  }
  std::map<int, std::vector<QueryRow>> rows;
  {
    TableReader queries(mdb, "MSysQueries");
    std::map<std::string, size_t> col;
    for (size_t i = 0; i < queries.ColumnCount(); ++i) col[queries.Column(i)->name] = i;
    for (const char* needed : {"ObjectId", "Attribute", "Flag", "Name1", "Name2", "Expression", "Order"}) {
      if (!col.count(needed)) return {};
    }
    std::vector<Variant> row;
    while (queries.Next(row)) {
      QueryRow r;
      r.attribute = NumberOf(row[col["Attribute"]]);
      r.flag = NumberOf(row[col["Flag"]]);
      r.name1 = TextOf(row[col["Name1"]]);
      r.name2 = TextOf(row[col["Name2"]]);
      r.expression = TextOf(row[col["Expression"]]);
      r.order = TextOf(row[col["Order"]]);
      rows[NumberOf(row[col["ObjectId"]])].push_back(std::move(r));
    }
  }
  std::vector<StoredQuery> out;
  for (auto& [id, name] : names) {
    auto it = rows.find(id);
    if (it == rows.end()) {
      out.push_back({name, std::string(), "its definition rows are missing"});
      continue;
    }
    out.push_back(RebuildQuery(name, std::move(it->second)));
  }
  std::sort(out.begin(), out.end(), [](const StoredQuery& a, const StoredQuery& b) { return a.name < b.name; });
  return out;
}

void CopyRows(MdbHandle* mdb, const std::string& name, sqlite::Connection& conn, Channel& channel) {
  TableReader reader(mdb, name);
  std::string sql = "INSERT INTO " + QuoteName(name) + " VALUES (";
  std::vector<int32_t> codes;
  for (size_t i = 0; i < reader.ColumnCount(); ++i) {
    sql += i ? ", ?" : "?";
    codes.push_back(TypeCode(reader.Column(i)->col_type));
  }
  sqlite::Stmt stmt = conn.Prepare(sql + ")");
  std::vector<Variant> row;
  uint64_t count = 0;
  while (reader.Next(row)) {
    for (size_t i = 0; i < row.size(); ++i) {
      Stored stored;
      try {
        stored = Encode(row[i], codes[i]);
      } catch (const EngineError&) {
        // A value outside the engine's range for its type (a date before the year 100) keeps its number.
        stored.kind = Stored::Kind::Real;
        stored.real = row[i].IsDateValue() ? row[i].AsDate().serial : CDbl(row[i]);
      }
      sqlite::Bind(conn, stmt.get(), static_cast<int>(i + 1), stored);
    }
    conn.Step(stmt.get());
    sqlite3_reset(stmt.get());
    if (++count % 64 == 0) channel.Progress();
  }
}

// Makes each query with a SQL form a view of the mirror. A query built on another query fails until
// that one exists, so the round repeats while views are still being made.
void MakeViews(std::vector<StoredQuery>& queries, sqlite::Connection& conn, Channel& channel) {
  std::map<std::string, std::string> failure;
  bool progress = true;
  std::vector<bool> made(queries.size(), false);
  while (progress) {
    progress = false;
    for (size_t i = 0; i < queries.size(); ++i) {
      if (made[i] || queries[i].sql.empty()) continue;
      const std::string view = QuoteName(queries[i].name);
      try {
        conn.Exec("CREATE VIEW \"main\"." + view + " AS " + queries[i].sql);
        try {
          conn.Prepare("SELECT * FROM \"main\"." + view);
        } catch (...) {
          conn.Exec("DROP VIEW \"main\"." + view);
          throw;
        }
        made[i] = progress = true;
      } catch (const EngineError& e) {
        failure[queries[i].name] = e.what();
      }
    }
    channel.Progress();
  }
  for (size_t i = 0; i < queries.size(); ++i) {
    if (!made[i] && !queries[i].sql.empty()) {
      queries[i].reason = "its rebuilt SQL does not run (" + failure[queries[i].name] + ")";
      queries[i].sql.clear();
    }
  }
}

void ReadFile(const std::string& path, Channel& channel) {
  MdbFile file(path);
  MdbHandle* mdb = file.Handle();
  auto mirror = sqlite::OpenMemoryDatabase(path, 0);
  const auto tables = UserTables(mdb);
  for (const auto& name : tables) {
    TableReader reader(mdb, name);
    CreateMirrorTable(*mirror.database, reader);
    channel.Progress();
  }
  for (const auto& relation : ReadRelations(mdb)) {
    auto has = [&](const std::string& t) {
      return std::any_of(tables.begin(), tables.end(), [&](const std::string& n) { return SameName(n, t); });
    };
    if (!has(relation.Table) || !has(relation.ForeignTable)) continue;
    mirror.database->CreateRelation(relation);
    channel.Send(kRelation, Joined({relation.Name, relation.Table, relation.ForeignTable,
                                    std::to_string(relation.Attributes), Joined(relation.Fields),
                                    Joined(relation.ForeignFields), std::to_string(relation.Fields.size())}));
  }
  mirror.connection->Exec("BEGIN");
  for (const auto& name : tables) {
    CopyRows(mdb, name, *mirror.connection, channel);
    channel.Progress();
  }
  mirror.connection->Exec("COMMIT");
  auto queries = ReadQueries(mdb);
  MakeViews(queries, *mirror.connection, channel);
  for (const auto& q : queries) {
    if (q.sql.empty()) channel.Send(kQuery, Joined({q.name, q.reason}));
  }
  sqlite3_int64 size = 0;
  unsigned char* image = sqlite3_serialize(mirror.connection->Handle(), "main", &size, 0);
  if (image == nullptr) throw std::bad_alloc();
  channel.Send(kImage, std::string_view(reinterpret_cast<const char*>(image), static_cast<size_t>(size)));
  sqlite3_free(image);
  mirror.connection->Close();
}

// ---- the Database over the mirror --------------------------------------------------------------------

class JetRecordset : public Recordset {
 public:
  JetRecordset(std::shared_ptr<Recordset> inner, std::string refusal)
      : inner_(std::move(inner)), refusal_(std::move(refusal)) {}
  const std::string& Name() const override { return inner_->Name(); }
  bool Updatable() const override { return false; }
  int32_t RecordCount() const override { return inner_->RecordCount(); }
  bool EOF_() const override { return inner_->EOF_(); }
  bool BOF() const override { return inner_->BOF(); }
  void MoveFirst() override { inner_->MoveFirst(); }
  void MoveLast() override { inner_->MoveLast(); }
  void MoveNext() override { inner_->MoveNext(); }
  void MovePrevious() override { inner_->MovePrevious(); }
  int32_t AbsolutePosition() const override { return inner_->AbsolutePosition(); }
  void AbsolutePosition(int32_t position) override { inner_->AbsolutePosition(position); }
  std::shared_ptr<db::Fields> Fields() const override { return inner_->Fields(); }
  void AddNew() override { Raise(ErrorKind::NotUpdatable, refusal_); }
  void Edit() override { Raise(ErrorKind::NotUpdatable, refusal_); }
  void Update() override { inner_->Update(); }
  void CancelUpdate() override { inner_->CancelUpdate(); }
  int32_t EditMode() const override { return inner_->EditMode(); }
  void Delete() override { Raise(ErrorKind::NotUpdatable, refusal_); }
  void Close() override { inner_->Close(); }
  int32_t TakeRows(const std::function<void(std::span<Variant> row)>& sink) override { return inner_->TakeRows(sink); }

 private:
  std::shared_ptr<Recordset> inner_;
  std::string refusal_;
};

// A stored query: a view of the mirror, or one of the file that has no SQL form (`reason`).
class JetQueryDef : public QueryDef {
 public:
  JetQueryDef(std::shared_ptr<QueryDef> view, std::string name, std::string reason, std::string refusal)
      : view_(std::move(view)), name_(std::move(name)), reason_(std::move(reason)), refusal_(std::move(refusal)) {}
  const std::string& Name() const override { return view_ ? view_->Name() : name_; }
  const std::string& SQL() const override { return view_ ? view_->SQL() : empty_; }
  void SQL(const std::string&) override { Raise(ErrorKind::ReadOnly, refusal_); }
  std::shared_ptr<Recordset> OpenRecordset(int32_t Type, int32_t Options) override {
    if (!view_) Refuse();
    return std::make_shared<JetRecordset>(view_->OpenRecordset(Type, Options), refusal_);
  }
  void Execute(int32_t Options) override {
    if (!view_) Refuse();
    view_->Execute(Options);
  }
  void Close() override {
    if (view_) view_->Close();
  }
  std::string Unavailable() const override { return reason_; }

 private:
  [[noreturn]] void Refuse() const {
    Raise(ErrorKind::NotSupported, "The query '" + name_ + "' cannot be run here: " + reason_ + ".");
  }
  std::shared_ptr<QueryDef> view_;
  std::string name_;
  std::string reason_;
  std::string refusal_;
  std::string empty_;
};

class JetQueryDefs : public db::QueryDefs {
 public:
  JetQueryDefs(const std::shared_ptr<db::QueryDefs>& views, const std::vector<StoredQuery>& unavailable,
               const std::string& refusal)
      : refusal_(refusal) {
    for (int32_t i = 0; i < views->Count(); ++i) {
      items_.push_back(std::make_shared<JetQueryDef>(views->Item(i), std::string(), std::string(), refusal));
    }
    for (const auto& q : unavailable) items_.push_back(std::make_shared<JetQueryDef>(nullptr, q.name, q.reason, refusal));
    std::stable_sort(items_.begin(), items_.end(), [](const auto& a, const auto& b) {
      return quorbex::internal::UpperAscii(a->Name()) < quorbex::internal::UpperAscii(b->Name());
    });
  }
  int32_t Count() const override { return static_cast<int32_t>(items_.size()); }
  std::shared_ptr<QueryDef> Item(int32_t index) const override {
    if (index < 0 || index >= Count()) RaiseItemNotFound(index);
    return items_[static_cast<size_t>(index)];
  }
  std::shared_ptr<QueryDef> Item(std::string_view name) const override {
    for (const auto& q : items_) {
      if (SameName(q->Name(), name)) return q;
    }
    RaiseItemNotFound("'" + std::string(name) + "'");
  }
  void Delete(std::string_view) override { Raise(ErrorKind::ReadOnly, refusal_); }

 private:
  std::vector<std::shared_ptr<JetQueryDef>> items_;
  std::string refusal_;
};

class JetDatabase : public ForwardingDatabase {
 public:
  JetDatabase(std::shared_ptr<Database> mirror, std::vector<StoredQuery> unavailable, std::vector<Relation> relations)
      : ForwardingDatabase(std::move(mirror)),
        unavailable_(std::move(unavailable)),
        relations_(std::move(relations)),
        refusal_(Refusal(Target().Name())) {}

  bool Updatable() const override { return false; }
  bool Supports(Feature) const override { return false; }
  void Execute(const std::string&, int32_t) override { Refuse(); }
  void Execute(const std::string&, std::span<const Variant>, int32_t) override { Refuse(); }
  int32_t RecordsAffected() const override { return 0; }
  std::shared_ptr<Recordset> OpenRecordset(const std::string& name, int32_t type, int32_t options) override {
    return std::make_shared<JetRecordset>(Target().OpenRecordset(name, type, options), refusal_);
  }
  std::shared_ptr<Recordset> OpenRecordset(const std::string& name, std::span<const Variant> parameters, int32_t type,
                                           int32_t options) override {
    return std::make_shared<JetRecordset>(Target().OpenRecordset(name, parameters, type, options), refusal_);
  }
  std::shared_ptr<QueryDef> CreateQueryDef(const std::string& name, const std::string& sql, bool temporary) override {
    if (!name.empty()) Refuse();
    return Target().CreateQueryDef(name, sql, temporary);
  }
  std::shared_ptr<db::QueryDefs> QueryDefs() override {
    return std::make_shared<JetQueryDefs>(Target().QueryDefs(), unavailable_, refusal_);
  }
  std::vector<Relation> Relations() override {
    Target().TableDefs();  // raises Closed once the database was closed
    return relations_;
  }
  void CreateRelation(const Relation&) override { Refuse(); }
  void BeginTrans() override { Refuse(); }
  void CommitTrans() override { Refuse(); }
  void Rollback() override { Refuse(); }
  void Savepoint(const std::string&) override { Refuse(); }
  void ReleaseSavepoint(const std::string&) override { Refuse(); }
  void RollbackToSavepoint(const std::string&) override { Refuse(); }

 private:
  [[noreturn]] void Refuse() const { Raise(ErrorKind::ReadOnly, refusal_); }

  std::vector<StoredQuery> unavailable_;
  std::vector<Relation> relations_;
  std::string refusal_;
};

// ---- backend -------------------------------------------------------------------------------------------

class Jet : public Backend {
 public:
  const char* Name() const override { return "Jet"; }
  bool Recognizes(std::string_view header) const override {
    if (header.size() < 19) return false;
    std::string_view tag = header.substr(4, 15);
    return tag == "Standard Jet DB" || tag == "Standard ACE DB";
  }

  std::shared_ptr<Database> Open(const std::string& path, const OpenOptions& options) override {
    auto records = ReadGuarded(path, [&](Channel& channel) { ReadFile(path, channel); });
    std::string_view image;
    std::vector<StoredQuery> unavailable;
    std::vector<Relation> relations;
    for (const auto& r : records) {
      if (r.tag == kImage) image = r.payload;
      if (r.tag == kQuery) {
        auto parts = Split(r.payload);
        if (parts.size() == 2) unavailable.push_back({parts[0], std::string(), parts[1]});
      }
      if (r.tag == kRelation) {
        auto parts = Split(r.payload);
        size_t n = parts.size() >= 7 ? std::stoul(parts.back()) : 0;
        if (n == 0 || parts.size() != 5 + 2 * n) continue;
        Relation rel;
        rel.Name = parts[0];
        rel.Table = parts[1];
        rel.ForeignTable = parts[2];
        rel.Attributes = std::stoi(parts[3]);
        rel.Fields.assign(parts.begin() + 4, parts.begin() + 4 + static_cast<std::ptrdiff_t>(n));
        rel.ForeignFields.assign(parts.begin() + 4 + static_cast<std::ptrdiff_t>(n), parts.end() - 1);
        relations.push_back(std::move(rel));
      }
    }
    if (image.empty()) RaiseDamaged(path, "the reading gave no tables");
    auto mirror = sqlite::OpenMemoryDatabase(path, options.busy_timeout_ms, image);
    mirror.connection->RefuseWrites(Refusal(path));
    return std::make_shared<JetDatabase>(mirror.database, std::move(unavailable), std::move(relations));
  }

  std::shared_ptr<Database> Create(const std::string& path, const OpenOptions&) override {
    Raise(ErrorKind::NotSupported, "Jet and ACE files are not created here ('" + path + "').");
  }

  void Compact(const std::string& source, const std::string&, const OpenOptions&) override {
    Raise(ErrorKind::NotSupported, "Jet and ACE files are not compacted here ('" + source +
                                       "'); copy it into SQLite with 'qdl migrate' instead.");
  }
};

}  // namespace
}  // namespace quorbex::db::internal::jet

namespace quorbex::db::internal {

Backend& JetBackend() {
  static jet::Jet backend;
  return backend;
}

}  // namespace quorbex::db::internal
