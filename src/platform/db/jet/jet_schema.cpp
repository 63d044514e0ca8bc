#include "platform/db/jet/jet_schema.h"

#include <algorithm>
#include <map>

#include "value/text_util.h"

namespace quorbex::db::internal::jet {
namespace {

using quorbex::internal::SameName;

std::string ColumnName(const TableReader& table, int one_based) {
  if (one_based < 1 || static_cast<size_t>(one_based) > table.ColumnCount()) return std::string();
  return table.Column(static_cast<size_t>(one_based - 1))->name;
}

}  // namespace

std::vector<std::string> UserTables(MdbHandle* mdb) {
  std::vector<std::string> names;
  for (unsigned i = 0; i < mdb->num_catalog; ++i) {
    auto* entry = static_cast<MdbCatalogEntry*>(g_ptr_array_index(mdb->catalog, i));
    if (entry->object_type == MDB_TABLE && mdb_is_user_table(entry)) names.emplace_back(entry->object_name);
  }
  return names;
}

void CreateMirrorTable(Database& mirror, const TableReader& table) {
  MdbTableDef* def = table.Def();
  const bool wide_text = def->entry->mdb->f->jet_version >= MDB_VER_JET4;  // sizes in bytes of UCS-2
  // The AutoNumber column becomes the auto-increment field only when it alone is the primary key:
  // that is what an auto-increment field of the engine is.
  std::string primary_single;
  for (unsigned i = 0; i < def->num_idxs; ++i) {
    auto* index = static_cast<MdbIndex*>(g_ptr_array_index(def->indices, i));
    if (index->index_type == 1 && index->num_keys == 1) primary_single = ColumnName(table, index->key_col_num[0]);
  }
  auto target = mirror.CreateTableDef(def->name);
  bool auto_key = false;
  for (size_t i = 0; i < table.ColumnCount(); ++i) {
    MdbColumn* col = table.Column(i);
    int32_t code = TypeCode(col->col_type);
    int32_t size = col->col_type == MDB_TEXT ? (wide_text ? col->col_size / 2 : col->col_size) : 0;
    auto field = target->CreateField(col->name, code, size);
    if (col->is_long_auto && code == dbLong && SameName(primary_single, col->name)) {
      field->Attributes(dbAutoIncrField);
      auto_key = true;
    }
    target->Fields()->Append(field);
  }
  for (unsigned i = 0; i < def->num_idxs; ++i) {
    auto* index = static_cast<MdbIndex*>(g_ptr_array_index(def->indices, i));
    if (index->index_type == 2 || index->num_keys == 0) continue;
    if (index->index_type == 1 && auto_key) continue;  // the auto-increment field is the key
    auto made = target->CreateIndex(index->name);
    for (unsigned k = 0; k < index->num_keys && k < MDB_MAX_IDX_COLS; ++k) {
      made->Fields()->Append(made->CreateField(ColumnName(table, index->key_col_num[k])));
    }
    made->Primary(index->index_type == 1);
    made->Unique(index->index_type == 1 || (index->flags & MDB_IDX_UNIQUE) != 0);
    target->Indexes()->Append(made);
  }
  mirror.TableDefs()->Append(target);
}

std::vector<Relation> ReadRelations(MdbHandle* mdb) {
  bool present = false;
  for (unsigned i = 0; i < mdb->num_catalog; ++i) {
    auto* entry = static_cast<MdbCatalogEntry*>(g_ptr_array_index(mdb->catalog, i));
    if (entry->object_type == MDB_TABLE && std::string_view(entry->object_name) == "MSysRelationships") present = true;
  }
  if (!present) return {};
  TableReader reader(mdb, "MSysRelationships");
  std::map<std::string, size_t> column;
  for (size_t i = 0; i < reader.ColumnCount(); ++i) column[reader.Column(i)->name] = i;
  for (const char* needed : {"szRelationship", "szObject", "szColumn", "szReferencedObject", "szReferencedColumn",
                             "grbit", "icolumn"}) {
    if (!column.count(needed)) return {};
  }
  struct Part {
    int position;
    std::string field, foreign_field;
  };
  std::vector<Relation> relations;
  std::map<std::string, std::vector<Part>> parts;
  std::vector<Variant> row;
  while (reader.Next(row)) {
    auto text = [&](const char* name) {
      const Variant& v = row[column[name]];
      return v.IsString() ? v.AsString() : std::string();
    };
    std::string name = text("szRelationship");
    if (!parts.count(name)) {
      Relation r;
      r.Name = name;
      r.Table = text("szReferencedObject");
      r.ForeignTable = text("szObject");
      const Variant& grbit = row[column["grbit"]];
      r.Attributes = grbit.IsNull() ? 0 : CLng(grbit);
      relations.push_back(std::move(r));
    }
    const Variant& position = row[column["icolumn"]];
    parts[name].push_back({position.IsNull() ? 0 : CLng(position), text("szReferencedColumn"),
                           text("szColumn")});
  }
  for (auto& r : relations) {
    auto& list = parts[r.Name];
    std::stable_sort(list.begin(), list.end(), [](const Part& a, const Part& b) { return a.position < b.position; });
    for (const auto& p : list) {
      r.Fields.push_back(p.field);
      r.ForeignFields.push_back(p.foreign_field);
    }
  }
  std::stable_sort(relations.begin(), relations.end(),
                   [](const Relation& a, const Relation& b) { return a.ForeignTable < b.ForeignTable; });
  return relations;
}

}  // namespace quorbex::db::internal::jet
