#include "platform/db/schema_objects.h"

#include <algorithm>

#include "platform/db/errors.h"
#include "platform/db/types.h"
#include "value/text_util.h"

namespace quorbex::db::internal {
namespace {

using quorbex::internal::SameName;

[[noreturn]] void AlreadyInDatabase() { Raise(ErrorKind::InvalidOperation, text::kAlreadyAppended); }

// ---- the fields of a table definition ------------------------------------------------------------

class TableFields : public db::Fields {
 public:
  explicit TableFields(std::shared_ptr<TableState> state) : state_(std::move(state)) {
    if (!state_->exists) return;
    for (auto& spec : state_->store->ReadColumns(state_->name)) {
      auto field = std::make_shared<ColumnField>(std::move(spec));
      field->AttachColumn(state_);
      snapshot_.push_back(std::move(field));
    }
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
    if (column->Name().empty()) Raise(ErrorKind::InvalidOperation, "A field needs a name.");
    if (state_->exists) {
      state_->store->AddColumn(state_->name, column->Spec());
      column->AttachColumn(state_);
      snapshot_.push_back(column);
    } else {
      state_->store->CheckColumn(column->Spec());  // an unknown type is refused now rather than at Append of the table
      state_->pending_fields.push_back(column);
    }
  }

  void Delete(std::string_view name) override {
    int32_t i = IndexOf(name);
    if (i < 0) RaiseItemNotFound("'" + std::string(name) + "'");
    if (state_->exists) {
      state_->store->DropColumn(state_->name, snapshot_[static_cast<size_t>(i)]->Name());
      snapshot_.erase(snapshot_.begin() + i);
    } else {
      state_->pending_fields.erase(state_->pending_fields.begin() + i);
    }
  }

 private:
  const std::vector<std::shared_ptr<ColumnField>>& List() const {
    return state_->exists ? snapshot_ : state_->pending_fields;
  }

  std::shared_ptr<TableState> state_;
  std::vector<std::shared_ptr<ColumnField>> snapshot_;
};

// ---- the indexes of a table definition -----------------------------------------------------------

class TableIndexes : public db::Indexes {
 public:
  explicit TableIndexes(std::shared_ptr<TableState> state) : state_(std::move(state)) {
    if (!state_->exists) return;
    for (const auto& spec : state_->store->ReadIndexes(state_->name)) snapshot_.push_back({SchemaIndex::Existing(spec), spec});
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
    auto ours = std::dynamic_pointer_cast<SchemaIndex>(index);
    if (!ours) Raise(ErrorKind::InvalidOperation, "Only an index made by this table's CreateIndex can be appended.");
    if (ours->InDatabase()) Raise(ErrorKind::InvalidOperation, "The index is already part of a table.");
    if (ours->Name().empty()) Raise(ErrorKind::InvalidOperation, "An index needs a name.");
    if (ours->Columns().empty()) Raise(ErrorKind::InvalidOperation, text::kNoFieldDefined);
    if (Find(ours->Name()) >= 0) {
      Raise(ErrorKind::AlreadyExists, "Index '" + ours->Name() + "' already exists on table '" + state_->name + "'.");
    }
    if (state_->exists) {
      IndexSpec spec = ours->Spec();
      state_->store->CreateIndex(state_->name, spec);
      ours->MarkInDatabase();
      snapshot_.push_back({ours, std::move(spec)});
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
    state_->store->DropIndex(state_->name, snapshot_[static_cast<size_t>(i)].spec);
    snapshot_.erase(snapshot_.begin() + i);
  }

 private:
  struct Entry {
    std::shared_ptr<SchemaIndex> index;
    IndexSpec spec;
  };

  const std::vector<Entry>& List() const {
    if (!state_->exists) {
      pending_view_.clear();
      for (auto& index : state_->pending_indexes) pending_view_.push_back({index, IndexSpec{}});
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

  std::shared_ptr<TableState> state_;
  std::vector<Entry> snapshot_;
  mutable std::vector<Entry> pending_view_;
};

class IndexFields : public db::Fields {
 public:
  explicit IndexFields(std::shared_ptr<SchemaIndex> index) : index_(std::move(index)) {}
  int32_t Count() const override { return static_cast<int32_t>(index_->Columns().size()); }

  std::shared_ptr<Field> Item(int32_t index) const override {
    if (index < 0 || index >= Count()) RaiseItemNotFound(index);
    return index_->Columns()[static_cast<size_t>(index)];
  }

  int32_t IndexOf(std::string_view name) const override {
    const auto& columns = index_->Columns();
    for (size_t i = 0; i < columns.size(); ++i) {
      if (SameName(columns[i]->Name(), name)) return static_cast<int32_t>(i);
    }
    return -1;
  }

  std::shared_ptr<Field> Item(std::string_view name) const override {
    int32_t i = IndexOf(name);
    if (i < 0) RaiseItemNotFound("'" + std::string(name) + "'");
    return index_->Columns()[static_cast<size_t>(i)];
  }

  void Append(std::shared_ptr<Field> field) override {
    if (index_->InDatabase()) AlreadyInDatabase();
    if (!field || field->Name().empty()) Raise(ErrorKind::InvalidOperation, "An index field needs a name.");
    auto column = std::dynamic_pointer_cast<IndexField>(field);
    if (!column) column = std::make_shared<IndexField>(field->Name());
    index_->Columns().push_back(std::move(column));
  }

  void Delete(std::string_view name) override {
    if (index_->InDatabase()) AlreadyInDatabase();
    int32_t i = IndexOf(name);
    if (i < 0) RaiseItemNotFound("'" + std::string(name) + "'");
    index_->Columns().erase(index_->Columns().begin() + i);
  }

 private:
  std::shared_ptr<SchemaIndex> index_;
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
    table_->store->RenameColumn(table_->name, spec_.name, strName);
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

// ---- IndexField / SchemaIndex --------------------------------------------------------------------

void IndexField::Name(const std::string& strName) {
  if (frozen_) AlreadyInDatabase();
  name_ = strName;
}

std::shared_ptr<SchemaIndex> SchemaIndex::Existing(const IndexSpec& spec) {
  auto index = std::make_shared<SchemaIndex>(spec.name);
  for (const auto& column : spec.columns) index->columns_.push_back(std::make_shared<IndexField>(column));
  index->primary_ = spec.primary;
  index->unique_ = spec.unique;
  index->MarkInDatabase();
  return index;
}

void SchemaIndex::CheckChangeable() const {
  if (in_database_) AlreadyInDatabase();
}

void SchemaIndex::Name(const std::string& strName) {
  CheckChangeable();
  name_ = strName;
}

std::shared_ptr<db::Fields> SchemaIndex::Fields() const {
  return std::make_shared<IndexFields>(std::const_pointer_cast<SchemaIndex>(shared_from_this()));
}

std::shared_ptr<Field> SchemaIndex::CreateField(const std::string& Name) { return std::make_shared<IndexField>(Name); }

void SchemaIndex::Primary(bool bolPrimary) {
  CheckChangeable();
  primary_ = bolPrimary;
}

void SchemaIndex::Unique(bool bolUnique) {
  CheckChangeable();
  unique_ = bolUnique;
}

void SchemaIndex::MarkInDatabase() {
  in_database_ = true;
  for (auto& c : columns_) c->Freeze();
}

IndexSpec SchemaIndex::Spec() const {
  IndexSpec spec;
  spec.name = name_;
  for (const auto& c : columns_) spec.columns.push_back(c->Name());
  spec.primary = primary_;
  spec.unique = unique_ || primary_;
  return spec;
}

// ---- SchemaTableDef ------------------------------------------------------------------------------

void SchemaTableDef::Name(const std::string& strName) {
  if (strName.empty()) Raise(ErrorKind::InvalidOperation, "A table needs a name.");
  if (state_->exists) {
    if (state_->system) Raise(ErrorKind::InvalidOperation, "System tables cannot be renamed.");
    state_->store->RenameTable(state_->name, strName);
  }
  state_->name = strName;
}

std::shared_ptr<db::Fields> SchemaTableDef::Fields() const { return std::make_shared<TableFields>(state_); }

std::shared_ptr<db::Indexes> SchemaTableDef::Indexes() const { return std::make_shared<TableIndexes>(state_); }

std::shared_ptr<Field> SchemaTableDef::CreateField(const std::string& Name, int32_t Type, int32_t Size) {
  ColumnSpec spec;
  spec.name = Name;
  spec.type = Type;
  spec.size = Size;
  return std::make_shared<ColumnField>(spec);
}

std::shared_ptr<Index> SchemaTableDef::CreateIndex(const std::string& Name) { return std::make_shared<SchemaIndex>(Name); }

// ---- SchemaTableDefs -----------------------------------------------------------------------------

SchemaTableDefs::SchemaTableDefs(std::shared_ptr<SchemaStore> store) : store_(std::move(store)) {
  for (auto& entry : store_->ListTables()) {
    auto state = std::make_shared<TableState>();
    state->store = store_;
    state->name = std::move(entry.name);
    state->exists = true;
    state->system = entry.system;
    tables_.push_back(std::make_shared<SchemaTableDef>(state));
  }
}

std::shared_ptr<TableDef> SchemaTableDefs::Item(int32_t index) const {
  if (index < 0 || index >= Count()) RaiseItemNotFound(index);
  return tables_[static_cast<size_t>(index)];
}

std::shared_ptr<TableDef> SchemaTableDefs::Item(std::string_view name) const {
  for (const auto& t : tables_) {
    if (SameName(t->Name(), name)) return t;
  }
  RaiseItemNotFound("'" + std::string(name) + "'");
}

void SchemaTableDefs::Append(std::shared_ptr<TableDef> table) {
  auto ours = std::dynamic_pointer_cast<SchemaTableDef>(table);
  if (!ours || ours->State()->store != store_) {
    Raise(ErrorKind::InvalidOperation, "Only a table definition made by this database's CreateTableDef can be appended.");
  }
  auto state = ours->State();
  if (state->exists) Raise(ErrorKind::InvalidOperation, "The table definition is already part of the database.");
  if (state->name.empty()) Raise(ErrorKind::InvalidOperation, "A table needs a name.");
  if (state->pending_fields.empty()) Raise(ErrorKind::InvalidOperation, text::kNoFieldDefined);

  std::vector<ColumnSpec> columns;
  bool has_auto = false;
  for (const auto& f : state->pending_fields) {
    if ((f->Spec().attributes & dbAutoIncrField) != 0) {
      if (has_auto) Raise(ErrorKind::InvalidOperation, "A table can have only one auto-increment field.");
      has_auto = true;
    }
    columns.push_back(f->Spec());
  }
  std::vector<IndexSpec> indexes;
  for (const auto& index : state->pending_indexes) indexes.push_back(index->Spec());
  store_->CreateTable(state->name, columns, indexes);
  state->exists = true;
  for (auto& f : state->pending_fields) f->AttachColumn(state);
  for (auto& index : state->pending_indexes) index->MarkInDatabase();
  state->pending_fields.clear();
  state->pending_indexes.clear();
  tables_.push_back(ours);
}

void SchemaTableDefs::Delete(std::string_view name) {
  for (size_t i = 0; i < tables_.size(); ++i) {
    if (!SameName(tables_[i]->Name(), name)) continue;
    if (tables_[i]->State()->system) Raise(ErrorKind::InvalidOperation, "System tables cannot be deleted.");
    store_->DropTable(tables_[i]->Name());
    tables_[i]->State()->exists = false;
    tables_.erase(tables_.begin() + static_cast<std::ptrdiff_t>(i));
    return;
  }
  RaiseItemNotFound("'" + std::string(name) + "'");
}

std::shared_ptr<TableDef> NewTableDef(std::shared_ptr<SchemaStore> store, const std::string& name) {
  auto state = std::make_shared<TableState>();
  state->store = std::move(store);
  state->name = name;
  return std::make_shared<SchemaTableDef>(state);
}

}  // namespace quorbex::db::internal
