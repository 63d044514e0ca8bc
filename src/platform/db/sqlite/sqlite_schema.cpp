#include "platform/db/sqlite/sqlite_schema.h"

#include <algorithm>

#include "platform/db/errors.h"
#include "platform/db/types.h"

namespace quorbex::db::internal::sqlite {
namespace {

[[noreturn]] void AlreadyInDatabase() { Raise(ErrorKind::InvalidOperation, text::kAlreadyAppended); }

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
  conn.Exec("SAVEPOINT quorbex_schema");
  try {
    work();
  } catch (...) {
    try {
      conn.Exec("ROLLBACK TO quorbex_schema; RELEASE quorbex_schema");
    } catch (...) {
    }
    throw;
  }
  conn.Exec("RELEASE quorbex_schema");
}

// ---- the fields of a table definition ------------------------------------------------------------

class TableFields : public db::Fields {
 public:
  explicit TableFields(std::shared_ptr<TableState> state) : state_(std::move(state)) {
    if (state_->exists) Load();
  }

  int32_t Count() const override { return static_cast<int32_t>(List().size()); }

  std::shared_ptr<Field> Item(int32_t index) const override {
    if (index < 0 || index >= Count()) RaiseItemNotFound(index);
    return List()[static_cast<size_t>(index)];
  }

  int32_t IndexOf(std::string_view name) const override {
    const auto& list = List();
    for (size_t i = 0; i < list.size(); ++i) {
      if (SameName(list[i]->Name(), name)) return static_cast<int32_t>(i);
    }
    return -1;
  }

  std::shared_ptr<Field> Item(std::string_view name) const override {
    int32_t i = IndexOf(name);
    if (i < 0) RaiseItemNotFound("'" + std::string(name) + "'");
    return List()[static_cast<size_t>(i)];
  }

  void Append(std::shared_ptr<Field> field) override {
    auto column = std::dynamic_pointer_cast<ColumnField>(field);
    if (!column) Raise(ErrorKind::InvalidOperation, "Only a field made by this table's CreateField can be appended.");
    if (column->InDatabase()) Raise(ErrorKind::InvalidOperation, "The field is already part of a table.");
    if (IndexOf(column->Name()) >= 0) {
      Raise(ErrorKind::AlreadyExists, "Field '" + column->Name() + "' already exists in table '" + state_->name + "'.");
    }
    if (state_->exists) {
      const Connection& conn = *state_->conn;
      conn.Exec("ALTER TABLE " + Quote(state_->name) + " ADD COLUMN " + ColumnDefinition(column->Spec(), false));
      column->AttachColumn(state_);
      snapshot_.push_back(column);
    } else {
      ColumnDefinition(column->Spec(), true);  // refuses an unknown type now rather than at Append of the table
      state_->pending_fields.push_back(column);
    }
  }

  void Delete(std::string_view name) override {
    int32_t i = IndexOf(name);
    if (i < 0) RaiseItemNotFound("'" + std::string(name) + "'");
    if (state_->exists) {
      state_->conn->Exec("ALTER TABLE " + Quote(state_->name) + " DROP COLUMN " + Quote(snapshot_[static_cast<size_t>(i)]->Name()));
      snapshot_.erase(snapshot_.begin() + i);
    } else {
      state_->pending_fields.erase(state_->pending_fields.begin() + i);
    }
  }

 private:
  const std::vector<std::shared_ptr<ColumnField>>& List() const {
    return state_->exists ? snapshot_ : state_->pending_fields;
  }

  void Load() {
    const Connection& conn = *state_->conn;
    std::string sql = TableSql(conn, state_->name);
    Stmt stmt = conn.Prepare("SELECT name, type, \"notnull\", pk FROM pragma_table_info(?1, 'main') ORDER BY cid");
    sqlite3_bind_text(stmt.get(), 1, state_->name.c_str(), -1, SQLITE_TRANSIENT);
    int pk_columns = 0;
    std::shared_ptr<ColumnField> pk_column;
    std::string pk_type;
    while (conn.Step(stmt.get()) == SQLITE_ROW) {
      ColumnSpec spec;
      spec.name = ColumnText(stmt.get(), 0);
      std::string declared = ColumnText(stmt.get(), 1);
      spec.type = TypeCodeFromDeclared(declared);
      spec.size = SizeFromDeclared(declared);
      spec.required = sqlite3_column_int(stmt.get(), 2) != 0 || sql.find(RequiredRule(spec.name)) != std::string::npos;
      spec.allow_zero_length = sql.find(NonEmptyRule(spec.name)) == std::string::npos;
      auto field = std::make_shared<ColumnField>(spec);
      field->AttachColumn(state_);
      if (sqlite3_column_int(stmt.get(), 3) > 0) {
        ++pk_columns;
        pk_column = field;
        pk_type = declared;
      }
      snapshot_.push_back(std::move(field));
    }
    // An INTEGER PRIMARY KEY of a rowid table is numbered by SQLite: the engine's auto-increment field.
    if (pk_columns == 1 && SameName(pk_type, "INTEGER") && sql.find("WITHOUT ROWID") == std::string::npos &&
        sql.find("without rowid") == std::string::npos) {
      pk_column->SetAutoIncrement();
    }
  }

  std::shared_ptr<TableState> state_;
  std::vector<std::shared_ptr<ColumnField>> snapshot_;
};

// ---- the indexes of a table definition -----------------------------------------------------------

class TableIndexes : public db::Indexes {
 public:
  explicit TableIndexes(std::shared_ptr<TableState> state) : state_(std::move(state)) {
    if (state_->exists) Load();
  }

  int32_t Count() const override { return static_cast<int32_t>(List().size()); }

  std::shared_ptr<Index> Item(int32_t index) const override {
    if (index < 0 || index >= Count()) RaiseItemNotFound(index);
    return List()[static_cast<size_t>(index)].index;
  }

  std::shared_ptr<Index> Item(std::string_view name) const override {
    int32_t i = Find(name);
    if (i < 0) RaiseItemNotFound("'" + std::string(name) + "'");
    return List()[static_cast<size_t>(i)].index;
  }

  void Append(std::shared_ptr<Index> index) override {
    auto ours = std::dynamic_pointer_cast<SqliteIndex>(index);
    if (!ours) Raise(ErrorKind::InvalidOperation, "Only an index made by this table's CreateIndex can be appended.");
    if (ours->InDatabase()) Raise(ErrorKind::InvalidOperation, "The index is already part of a table.");
    if (ours->Name().empty()) Raise(ErrorKind::InvalidOperation, "An index needs a name.");
    if (ours->Columns().empty()) Raise(ErrorKind::InvalidOperation, text::kNoFieldDefined);
    if (Find(ours->Name()) >= 0) {
      Raise(ErrorKind::AlreadyExists, "Index '" + ours->Name() + "' already exists on table '" + state_->name + "'.");
    }
    if (state_->exists) {
      state_->conn->Exec(ours->CreateSql(state_->name));
      ours->MarkInDatabase();
      snapshot_.push_back({ours, PhysicalIndexName(state_->name, ours->Name())});
    } else {
      state_->pending_indexes.push_back(ours);
    }
  }

  void Delete(std::string_view name) override {
    int32_t i = Find(name);
    if (i < 0) RaiseItemNotFound("'" + std::string(name) + "'");
    if (!state_->exists) {
      state_->pending_indexes.erase(state_->pending_indexes.begin() + i);
      return;
    }
    const Entry& entry = snapshot_[static_cast<size_t>(i)];
    if (entry.physical.empty() || entry.physical.starts_with("sqlite_autoindex_")) {
      Raise(ErrorKind::NotSupported, "The key of table '" + state_->name + "' cannot be removed.");
    }
    state_->conn->Exec("DROP INDEX \"main\"." + Quote(entry.physical));
    snapshot_.erase(snapshot_.begin() + i);
  }

 private:
  struct Entry {
    std::shared_ptr<SqliteIndex> index;
    std::string physical;  // empty for the key of a rowid table, which has no index of its own
  };

  const std::vector<Entry>& List() const {
    if (!state_->exists) {
      pending_view_.clear();
      for (auto& index : state_->pending_indexes) pending_view_.push_back({index, std::string()});
      return pending_view_;
    }
    return snapshot_;
  }

  int32_t Find(std::string_view name) const {
    const auto& list = List();
    for (size_t i = 0; i < list.size(); ++i) {
      if (SameName(list[i].index->Name(), name)) return static_cast<int32_t>(i);
    }
    return -1;
  }

  void Load() {
    const Connection& conn = *state_->conn;
    const std::string& table = state_->name;
    // The key of a rowid table lives in the table itself; it is shown as the index "PrimaryKey".
    {
      TableFields fields(state_);
      for (int32_t i = 0; i < fields.Count(); ++i) {
        auto f = fields.Item(i);
        if ((f->Attributes() & dbAutoIncrField) != 0) {
          auto key = std::make_shared<SqliteIndex>("PrimaryKey");
          key->Columns().push_back(std::make_shared<IndexField>(f->Name()));
          key->Primary(true);
          key->MarkInDatabase();
          snapshot_.push_back({key, std::string()});
        }
      }
    }
    Stmt list = conn.Prepare(
        "SELECT l.name, l.\"unique\", l.origin, m.sql FROM pragma_index_list(?1, 'main') AS l "
        "LEFT JOIN sqlite_master AS m ON m.type = 'index' AND m.name = l.name ORDER BY l.seq DESC");
    sqlite3_bind_text(list.get(), 1, table.c_str(), -1, SQLITE_TRANSIENT);
    while (conn.Step(list.get()) == SQLITE_ROW) {
      std::string physical = ColumnText(list.get(), 0);
      auto index = std::make_shared<SqliteIndex>(DisplayIndexName(table, physical));
      bool unique = sqlite3_column_int(list.get(), 1) != 0;
      std::string origin = ColumnText(list.get(), 2);
      std::string sql = ColumnText(list.get(), 3);
      index->Unique(unique);
      index->Primary(origin == "pk" || sql.find(kPrimaryMark) != std::string::npos);
      Stmt info = conn.Prepare("SELECT name FROM pragma_index_info(?1, 'main') ORDER BY seqno");
      sqlite3_bind_text(info.get(), 1, physical.c_str(), -1, SQLITE_TRANSIENT);
      while (conn.Step(info.get()) == SQLITE_ROW) {
        index->Columns().push_back(std::make_shared<IndexField>(ColumnText(info.get(), 0)));
      }
      index->MarkInDatabase();
      snapshot_.push_back({index, physical});
    }
  }

  std::shared_ptr<TableState> state_;
  std::vector<Entry> snapshot_;
  mutable std::vector<Entry> pending_view_;
};

}  // namespace

// ---- ColumnField ---------------------------------------------------------------------------------

void ColumnField::AttachColumn(std::shared_ptr<TableState> table) {
  table_ = std::move(table);
  in_database_ = true;
}

void ColumnField::CheckChangeable() const {
  if (in_database_) AlreadyInDatabase();
}

void ColumnField::Name(const std::string& strName) {
  if (strName.empty()) Raise(ErrorKind::InvalidOperation, "A field needs a name.");
  if (in_database_ && table_) {
    if (table_->system) Raise(ErrorKind::InvalidOperation, "The fields of a system table cannot be renamed.");
    table_->conn->Exec("ALTER TABLE " + Quote(table_->name) + " RENAME COLUMN " + Quote(spec_.name) + " TO " +
                       Quote(strName));
  }
  spec_.name = strName;
}

void ColumnField::Type(int32_t lngType) {
  CheckChangeable();
  spec_.type = lngType;
}

int32_t ColumnField::Size() const {
  if (IsTextCode(spec_.type) && spec_.type != 12) return spec_.size > 0 ? spec_.size : 255;
  return spec_.size;
}

void ColumnField::Size(int32_t lngSize) {
  CheckChangeable();
  spec_.size = lngSize;
}

int32_t ColumnField::Attributes() const {
  if (!in_database_) return spec_.attributes;
  bool variable = IsTextCode(spec_.type) || spec_.type == 11;
  return (spec_.attributes & dbAutoIncrField) | (variable ? dbVariableField : dbFixedField);
}

void ColumnField::Attributes(int32_t lngAttributes) {
  CheckChangeable();
  spec_.attributes = lngAttributes;
}

void ColumnField::AllowZeroLength(bool bolAllow) {
  CheckChangeable();
  spec_.allow_zero_length = bolAllow;
}

void ColumnField::Required(bool bolRequired) {
  CheckChangeable();
  spec_.required = bolRequired;
}

// ---- IndexField / IndexFields / SqliteIndex -------------------------------------------------------

void IndexField::Name(const std::string& strName) {
  if (frozen_) AlreadyInDatabase();
  name_ = strName;
}

int32_t IndexFields::Count() const { return static_cast<int32_t>(index_->Columns().size()); }

std::shared_ptr<Field> IndexFields::Item(int32_t index) const {
  if (index < 0 || index >= Count()) RaiseItemNotFound(index);
  return index_->Columns()[static_cast<size_t>(index)];
}

int32_t IndexFields::IndexOf(std::string_view name) const {
  const auto& columns = index_->Columns();
  for (size_t i = 0; i < columns.size(); ++i) {
    if (SameName(columns[i]->Name(), name)) return static_cast<int32_t>(i);
  }
  return -1;
}

std::shared_ptr<Field> IndexFields::Item(std::string_view name) const {
  int32_t i = IndexOf(name);
  if (i < 0) RaiseItemNotFound("'" + std::string(name) + "'");
  return index_->Columns()[static_cast<size_t>(i)];
}

void IndexFields::Append(std::shared_ptr<Field> field) {
  if (index_->InDatabase()) AlreadyInDatabase();
  if (!field || field->Name().empty()) Raise(ErrorKind::InvalidOperation, "An index field needs a name.");
  auto column = std::dynamic_pointer_cast<IndexField>(field);
  if (!column) column = std::make_shared<IndexField>(field->Name());
  index_->Columns().push_back(std::move(column));
}

void IndexFields::Delete(std::string_view name) {
  if (index_->InDatabase()) AlreadyInDatabase();
  int32_t i = IndexOf(name);
  if (i < 0) RaiseItemNotFound("'" + std::string(name) + "'");
  index_->Columns().erase(index_->Columns().begin() + i);
}

void SqliteIndex::CheckChangeable() const {
  if (in_database_) AlreadyInDatabase();
}

void SqliteIndex::Name(const std::string& strName) {
  CheckChangeable();
  name_ = strName;
}

std::shared_ptr<db::Fields> SqliteIndex::Fields() const {
  return std::make_shared<IndexFields>(std::const_pointer_cast<SqliteIndex>(shared_from_this()));
}

std::shared_ptr<Field> SqliteIndex::CreateField(const std::string& Name) { return std::make_shared<IndexField>(Name); }

void SqliteIndex::Primary(bool bolPrimary) {
  CheckChangeable();
  primary_ = bolPrimary;
}

void SqliteIndex::Unique(bool bolUnique) {
  CheckChangeable();
  unique_ = bolUnique;
}

void SqliteIndex::MarkInDatabase() {
  in_database_ = true;
  for (auto& c : columns_) c->Freeze();
}

std::string SqliteIndex::CreateSql(const std::string& table) const {
  std::string sql = (unique_ || primary_) ? "CREATE UNIQUE INDEX " : "CREATE INDEX ";
  sql += "\"main\"." + Quote(PhysicalIndexName(table, name_)) + " ON " + Quote(table) + " ";
  if (primary_) sql += std::string(kPrimaryMark) + " ";
  sql += "(";
  for (size_t i = 0; i < columns_.size(); ++i) {
    if (i > 0) sql += ", ";
    sql += Quote(columns_[i]->Name());
  }
  return sql + ")";
}

// ---- SqliteTableDef ------------------------------------------------------------------------------

void SqliteTableDef::Name(const std::string& strName) {
  if (strName.empty()) Raise(ErrorKind::InvalidOperation, "A table needs a name.");
  if (state_->exists) {
    if (state_->system) Raise(ErrorKind::InvalidOperation, "System tables cannot be renamed.");
    state_->conn->Exec("ALTER TABLE " + Quote(state_->name) + " RENAME TO " + Quote(strName));
  }
  state_->name = strName;
}

std::shared_ptr<db::Fields> SqliteTableDef::Fields() const { return std::make_shared<TableFields>(state_); }

std::shared_ptr<db::Indexes> SqliteTableDef::Indexes() const { return std::make_shared<TableIndexes>(state_); }

std::shared_ptr<Field> SqliteTableDef::CreateField(const std::string& Name, int32_t Type, int32_t Size) {
  ColumnSpec spec;
  spec.name = Name;
  spec.type = Type;
  spec.size = Size;
  return std::make_shared<ColumnField>(spec);
}

std::shared_ptr<Index> SqliteTableDef::CreateIndex(const std::string& Name) { return std::make_shared<SqliteIndex>(Name); }

// ---- SqliteTableDefs -----------------------------------------------------------------------------

SqliteTableDefs::SqliteTableDefs(std::shared_ptr<Connection> conn) : conn_(std::move(conn)) {
  // The catalogue itself comes first: it always exists, so position 0 is never a user table.
  auto master = std::make_shared<TableState>();
  master->conn = conn_;
  master->name = "sqlite_master";
  master->exists = true;
  master->system = true;
  tables_.push_back(std::make_shared<SqliteTableDef>(master));
  Stmt stmt = conn_->Prepare(
      "SELECT name FROM sqlite_master WHERE type = 'table' "
      "ORDER BY CASE WHEN name LIKE 'sqlite\\_%' ESCAPE '\\' THEN 0 ELSE 1 END, name COLLATE NOCASE");
  while (conn_->Step(stmt.get()) == SQLITE_ROW) {
    auto state = std::make_shared<TableState>();
    state->conn = conn_;
    state->name = ColumnText(stmt.get(), 0);
    state->exists = true;
    state->system = IsSystemName(state->name);
    tables_.push_back(std::make_shared<SqliteTableDef>(state));
  }
}

std::shared_ptr<TableDef> SqliteTableDefs::Item(int32_t index) const {
  if (index < 0 || index >= Count()) RaiseItemNotFound(index);
  return tables_[static_cast<size_t>(index)];
}

std::shared_ptr<TableDef> SqliteTableDefs::Item(std::string_view name) const {
  for (const auto& t : tables_) {
    if (SameName(t->Name(), name)) return t;
  }
  RaiseItemNotFound("'" + std::string(name) + "'");
}

void SqliteTableDefs::Append(std::shared_ptr<TableDef> table) {
  auto ours = std::dynamic_pointer_cast<SqliteTableDef>(table);
  if (!ours || ours->State()->conn != conn_) {
    Raise(ErrorKind::InvalidOperation, "Only a table definition made by this database's CreateTableDef can be appended.");
  }
  auto state = ours->State();
  if (state->exists) Raise(ErrorKind::InvalidOperation, "The table definition is already part of the database.");
  if (state->name.empty()) Raise(ErrorKind::InvalidOperation, "A table needs a name.");
  if (state->pending_fields.empty()) Raise(ErrorKind::InvalidOperation, text::kNoFieldDefined);

  bool has_auto = false;
  std::string columns;
  for (const auto& f : state->pending_fields) {
    if ((f->Spec().attributes & dbAutoIncrField) != 0) {
      if (has_auto) Raise(ErrorKind::InvalidOperation, "A table can have only one auto-increment field.");
      has_auto = true;
    }
    if (!columns.empty()) columns += ", ";
    columns += ColumnDefinition(f->Spec(), true);
  }
  // Without an auto-increment field, the first primary index becomes the table's own key.
  std::shared_ptr<SqliteIndex> key;
  if (!has_auto) {
    for (const auto& index : state->pending_indexes) {
      if (index->Primary()) {
        key = index;
        break;
      }
    }
  }
  if (key) {
    std::string names;
    for (const auto& c : key->Columns()) {
      if (!names.empty()) names += ", ";
      names += Quote(c->Name());
    }
    columns += ", PRIMARY KEY (" + names + ")";
  }
  Atomically(*conn_, [&] {
    conn_->Exec("CREATE TABLE \"main\"." + Quote(state->name) + " (" + columns + ")");
    for (const auto& index : state->pending_indexes) {
      if (index == key) continue;
      bool is_auto_key = false;
      if (has_auto && index->Primary() && index->Columns().size() == 1) {
        for (const auto& f : state->pending_fields) {
          if ((f->Spec().attributes & dbAutoIncrField) != 0 && SameName(f->Name(), index->Columns()[0]->Name())) {
            is_auto_key = true;
          }
        }
      }
      if (!is_auto_key) conn_->Exec(index->CreateSql(state->name));
    }
  });
  state->exists = true;
  for (auto& f : state->pending_fields) f->AttachColumn(state);
  for (auto& index : state->pending_indexes) index->MarkInDatabase();
  state->pending_fields.clear();
  state->pending_indexes.clear();
  tables_.push_back(ours);
}

void SqliteTableDefs::Delete(std::string_view name) {
  for (size_t i = 0; i < tables_.size(); ++i) {
    if (!SameName(tables_[i]->Name(), name)) continue;
    if (tables_[i]->State()->system) Raise(ErrorKind::InvalidOperation, "System tables cannot be deleted.");
    conn_->Exec("DROP TABLE \"main\"." + Quote(tables_[i]->Name()));
    tables_[i]->State()->exists = false;
    tables_.erase(tables_.begin() + static_cast<std::ptrdiff_t>(i));
    return;
  }
  RaiseItemNotFound("'" + std::string(name) + "'");
}

std::shared_ptr<TableDef> NewTableDef(std::shared_ptr<Connection> conn, const std::string& name) {
  auto state = std::make_shared<TableState>();
  state->conn = std::move(conn);
  state->name = name;
  return std::make_shared<SqliteTableDef>(state);
}

}  // namespace quorbex::db::internal::sqlite
