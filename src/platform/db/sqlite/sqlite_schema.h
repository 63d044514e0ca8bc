// Table definitions, their fields and indexes over SQLite's schema.
//
// A TableDef from the TableDefs collection describes a table that exists: reading its Fields or
// Indexes reads the schema at that moment, and changes (Append, Delete, renaming) are ALTER TABLE /
// CREATE INDEX statements run at once. A TableDef from CreateTableDef collects fields and indexes until
// TableDefs.Append creates the table in one CREATE TABLE.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "platform/db/sqlite/sqlite_connection.h"
#include "platform/db/sqlite/sqlite_dialect.h"

namespace quorbex::db::internal::sqlite {

class ColumnField;
class SqliteIndex;

// Shared by a table definition and every field and index that belongs to it, so that a rename of the
// table is seen by all of them.
struct TableState {
  std::shared_ptr<Connection> conn;
  std::string name;
  bool exists = false;
  bool system = false;
  std::vector<std::shared_ptr<ColumnField>> pending_fields;
  std::vector<std::shared_ptr<SqliteIndex>> pending_indexes;
};

// A field of a table definition.
class ColumnField : public Field {
 public:
  explicit ColumnField(ColumnSpec spec) : spec_(std::move(spec)) {}
  const std::string& Name() const override { return spec_.name; }
  void Name(const std::string& strName) override;
  int32_t Type() const override { return spec_.type; }
  void Type(int32_t lngType) override;
  int32_t Size() const override;
  void Size(int32_t lngSize) override;
  int32_t Attributes() const override;
  void Attributes(int32_t lngAttributes) override;
  bool AllowZeroLength() const override { return spec_.allow_zero_length; }
  void AllowZeroLength(bool bolAllow) override;
  bool Required() const override { return spec_.required; }
  void Required(bool bolRequired) override;

  const ColumnSpec& Spec() const { return spec_; }
  // Ties the field to the table that holds its column. A field that only waits in a new table
  // definition is not tied: the definition holds it, and a reference back would keep both alive.
  void AttachColumn(std::shared_ptr<TableState> table);
  bool InDatabase() const { return in_database_; }
  // Set when read from the schema: an INTEGER PRIMARY KEY counts as auto-increment.
  void SetAutoIncrement() { spec_.attributes |= dbAutoIncrField; }

 private:
  void CheckChangeable() const;
  ColumnSpec spec_;
  std::shared_ptr<TableState> table_;
  bool in_database_ = false;
};

// A field of an index: a column name.
class IndexField : public Field {
 public:
  explicit IndexField(std::string name) : name_(std::move(name)) {}
  const std::string& Name() const override { return name_; }
  void Name(const std::string& strName) override;
  int32_t Type() const override { return 0; }
  using Field::Type;
  void Freeze() { frozen_ = true; }

 private:
  std::string name_;
  bool frozen_ = false;
};

class IndexFields : public db::Fields {
 public:
  explicit IndexFields(std::shared_ptr<SqliteIndex> index) : index_(std::move(index)) {}
  int32_t Count() const override;
  std::shared_ptr<Field> Item(int32_t index) const override;
  std::shared_ptr<Field> Item(std::string_view name) const override;
  int32_t IndexOf(std::string_view name) const override;
  void Append(std::shared_ptr<Field> field) override;
  void Delete(std::string_view name) override;

 private:
  std::shared_ptr<SqliteIndex> index_;
};

class SqliteIndex : public Index, public std::enable_shared_from_this<SqliteIndex> {
 public:
  explicit SqliteIndex(std::string name) : name_(std::move(name)) {}
  const std::string& Name() const override { return name_; }
  void Name(const std::string& strName) override;
  std::shared_ptr<db::Fields> Fields() const override;
  std::shared_ptr<Field> CreateField(const std::string& Name) override;
  bool Primary() const override { return primary_; }
  void Primary(bool bolPrimary) override;
  bool Unique() const override { return unique_ || primary_; }
  void Unique(bool bolUnique) override;

  std::vector<std::shared_ptr<IndexField>>& Columns() { return columns_; }
  bool InDatabase() const { return in_database_; }
  void MarkInDatabase();
  // The CREATE INDEX statement for `table`.
  std::string CreateSql(const std::string& table) const;

 private:
  void CheckChangeable() const;
  std::string name_;
  std::vector<std::shared_ptr<IndexField>> columns_;
  bool primary_ = false;
  bool unique_ = false;
  bool in_database_ = false;
};

class SqliteTableDef : public TableDef {
 public:
  explicit SqliteTableDef(std::shared_ptr<TableState> state) : state_(std::move(state)) {}
  const std::string& Name() const override { return state_->name; }
  void Name(const std::string& strName) override;
  int32_t Attributes() const override { return state_->system ? dbSystemObject : 0; }
  std::shared_ptr<db::Fields> Fields() const override;
  std::shared_ptr<db::Indexes> Indexes() const override;
  std::shared_ptr<Field> CreateField(const std::string& Name, int32_t Type, int32_t Size) override;
  std::shared_ptr<Index> CreateIndex(const std::string& Name) override;

  const std::shared_ptr<TableState>& State() const { return state_; }

 private:
  std::shared_ptr<TableState> state_;
};

class SqliteTableDefs : public db::TableDefs {
 public:
  explicit SqliteTableDefs(std::shared_ptr<Connection> conn);
  int32_t Count() const override { return static_cast<int32_t>(tables_.size()); }
  std::shared_ptr<TableDef> Item(int32_t index) const override;
  std::shared_ptr<TableDef> Item(std::string_view name) const override;
  void Append(std::shared_ptr<TableDef> table) override;
  void Delete(std::string_view name) override;

 private:
  std::shared_ptr<Connection> conn_;
  std::vector<std::shared_ptr<SqliteTableDef>> tables_;
};

// A new table definition (not in the database yet).
std::shared_ptr<TableDef> NewTableDef(std::shared_ptr<Connection> conn, const std::string& name);

}  // namespace quorbex::db::internal::sqlite
