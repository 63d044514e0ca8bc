// Table definitions, their fields and indexes: the objects every backend hands out, over a SchemaStore
// that reads and changes the backend's own schema.
//
// A TableDef from the TableDefs collection describes a table that exists: reading its Fields or Indexes
// reads the schema at that moment, and changes (Append, Delete, renaming) go to the store at once. A
// TableDef from CreateTableDef collects fields and indexes until TableDefs.Append creates the table
// with all of them in one step.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "quorbex/engine.h"

namespace quorbex::db::internal {

// A column as a table definition describes it.
struct ColumnSpec {
  std::string name;
  int32_t type = 10;
  int32_t size = 0;  // texts: 0 means 255
  int32_t attributes = 0;
  bool allow_zero_length = true;
  bool required = false;
};

// An index as the store reads or creates it.
struct IndexSpec {
  std::string name;  // as the engine shows it
  std::vector<std::string> columns;
  bool primary = false;
  bool unique = false;
  std::string physical;  // the backend's own name for it; empty when the index has none of its own
};

// What a backend does with its schema. Every call raises EngineError on failure (Closed once the
// database was closed).
class SchemaStore {
 public:
  virtual ~SchemaStore() = default;
  struct TableEntry {
    std::string name;
    bool system = false;
  };
  // The tables, the engine's own first (at least one), then the user's in alphabetical order.
  virtual std::vector<TableEntry> ListTables() const = 0;
  // The columns of a table in order; an auto-increment key has dbAutoIncrField in its attributes.
  virtual std::vector<ColumnSpec> ReadColumns(const std::string& table) const = 0;
  virtual std::vector<IndexSpec> ReadIndexes(const std::string& table) const = 0;
  // Refuses a column the backend cannot create (an unknown type code) before its table exists.
  virtual void CheckColumn(const ColumnSpec& column) const = 0;
  // Creates a table with its columns and indexes, all or nothing. Without an auto-increment field, the
  // first primary index becomes the table's key.
  virtual void CreateTable(const std::string& table, const std::vector<ColumnSpec>& columns,
                           const std::vector<IndexSpec>& indexes) = 0;
  virtual void DropTable(const std::string& table) = 0;
  virtual void RenameTable(const std::string& table, const std::string& new_name) = 0;
  virtual void AddColumn(const std::string& table, const ColumnSpec& column) = 0;
  virtual void DropColumn(const std::string& table, const std::string& column) = 0;
  virtual void RenameColumn(const std::string& table, const std::string& column, const std::string& new_name) = 0;
  // Creates the index on an existing table and fills in its physical name.
  virtual void CreateIndex(const std::string& table, IndexSpec& index) = 0;
  virtual void DropIndex(const std::string& table, const IndexSpec& index) = 0;
};

class ColumnField;
class SchemaIndex;

// Shared by a table definition and every field and index that belongs to it, so that a rename of the
// table is seen by all of them.
struct TableState {
  std::shared_ptr<SchemaStore> store;
  std::string name;
  bool exists = false;
  bool system = false;
  std::vector<std::shared_ptr<ColumnField>> pending_fields;
  std::vector<std::shared_ptr<SchemaIndex>> pending_indexes;
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

class SchemaIndex : public Index, public std::enable_shared_from_this<SchemaIndex> {
 public:
  explicit SchemaIndex(std::string name) : name_(std::move(name)) {}
  // An index read from the database.
  static std::shared_ptr<SchemaIndex> Existing(const IndexSpec& spec);
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
  // What the store needs to create it.
  IndexSpec Spec() const;

 private:
  void CheckChangeable() const;
  std::string name_;
  std::vector<std::shared_ptr<IndexField>> columns_;
  bool primary_ = false;
  bool unique_ = false;
  bool in_database_ = false;
};

class SchemaTableDef : public TableDef {
 public:
  explicit SchemaTableDef(std::shared_ptr<TableState> state) : state_(std::move(state)) {}
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

class SchemaTableDefs : public db::TableDefs {
 public:
  explicit SchemaTableDefs(std::shared_ptr<SchemaStore> store);
  int32_t Count() const override { return static_cast<int32_t>(tables_.size()); }
  std::shared_ptr<TableDef> Item(int32_t index) const override;
  std::shared_ptr<TableDef> Item(std::string_view name) const override;
  void Append(std::shared_ptr<TableDef> table) override;
  void Delete(std::string_view name) override;

 private:
  std::shared_ptr<SchemaStore> store_;
  std::vector<std::shared_ptr<SchemaTableDef>> tables_;
};

// A new table definition (not in the database yet).
std::shared_ptr<TableDef> NewTableDef(std::shared_ptr<SchemaStore> store, const std::string& name);

}  // namespace quorbex::db::internal
