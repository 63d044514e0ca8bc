#include "platform/db/postgresql/pg_schema.h"

#include <algorithm>

#include "platform/db/errors.h"
#include "platform/db/postgresql/pg_dialect.h"

namespace quorbex::db::internal::postgresql {
namespace {

// Every catalogue query of this backend is one of these (see docs/postgresql-catalogue.md).
constexpr const char* kRelationColumns =
    "SELECT n.nspname, c.relname, c.relkind::text, a.attnum, a.attname, a.atttypid, a.atttypmod, a.attnotnull, "
    "(a.attidentity IN ('a', 'd') OR COALESCE(pg_catalog.pg_get_expr(d.adbin, d.adrelid) LIKE 'nextval(%', false)), "
    "EXISTS (SELECT 1 FROM pg_catalog.pg_constraint k WHERE k.conrelid = c.oid AND k.contype = 'c' "
    "AND k.conkey[1] = a.attnum AND k.conname LIKE 'qdl\\_byte\\_%'), "
    "EXISTS (SELECT 1 FROM pg_catalog.pg_constraint k WHERE k.conrelid = c.oid AND k.contype = 'c' "
    "AND k.conkey[1] = a.attnum AND k.conname LIKE 'qdl\\_required\\_%'), "
    "EXISTS (SELECT 1 FROM pg_catalog.pg_constraint k WHERE k.conrelid = c.oid AND k.contype = 'c' "
    "AND k.conkey[1] = a.attnum AND k.conname LIKE 'qdl\\_nonempty\\_%') "
    "FROM pg_catalog.pg_class c JOIN pg_catalog.pg_namespace n ON n.oid = c.relnamespace "
    "LEFT JOIN pg_catalog.pg_attribute a ON a.attrelid = c.oid AND a.attnum > 0 AND NOT a.attisdropped "
    "LEFT JOIN pg_catalog.pg_attrdef d ON d.adrelid = a.attrelid AND d.adnum = a.attnum "
    "WHERE c.oid = $1 ORDER BY a.attnum";
constexpr const char* kUniqueKeys =
    "SELECT x.indkey::text FROM pg_catalog.pg_index x WHERE x.indrelid = $1 AND x.indisunique "
    "AND x.indpred IS NULL AND x.indexprs IS NULL ORDER BY x.indisprimary DESC, x.indexrelid";
constexpr const char* kIndexIsPrimary = "SELECT indisprimary FROM pg_catalog.pg_index WHERE indexrelid = $1";
constexpr const char* kViewDefinition = "SELECT pg_catalog.pg_get_viewdef($1::oid)";
constexpr const char* kViewText =
    "SELECT COALESCE(pg_catalog.obj_description($1::oid, 'pg_class'), pg_catalog.pg_get_viewdef($1::oid))";
constexpr const char* kRelationNamed =
    "SELECT c.oid, c.relkind::text FROM pg_catalog.pg_class c "
    "WHERE lower(c.relname) = lower($1) AND pg_catalog.pg_table_is_visible(c.oid) "
    "ORDER BY (c.relname = $1) DESC";
constexpr const char* kUserTables =
    "SELECT c.relname FROM pg_catalog.pg_class c JOIN pg_catalog.pg_namespace n ON n.oid = c.relnamespace "
    "WHERE c.relkind IN ('r', 'p') AND n.nspname NOT IN ('pg_catalog', 'information_schema') "
    "AND n.nspname NOT LIKE 'pg\\_toast%' AND pg_catalog.pg_table_is_visible(c.oid)";
constexpr const char* kIndexes =
    "SELECT i.relname, x.indisprimary, x.indisunique, "
    "COALESCE(pg_catalog.obj_description(i.oid, 'pg_class'), ''), COALESCE(a.attname, '') "
    "FROM pg_catalog.pg_index x JOIN pg_catalog.pg_class i ON i.oid = x.indexrelid "
    "CROSS JOIN LATERAL unnest(x.indkey::int2[]) WITH ORDINALITY AS k(attnum, n) "
    "LEFT JOIN pg_catalog.pg_attribute a ON a.attrelid = x.indrelid AND a.attnum = k.attnum "
    "WHERE x.indrelid = $1 ORDER BY i.relname, k.n";

constexpr Oid kBool = 16, kBytea = 17, kName = 19, kInt8 = 20, kInt2 = 21, kInt4 = 23, kText = 25, kFloat4 = 700,
              kFloat8 = 701, kBpchar = 1042, kVarchar = 1043, kDate = 1082, kTime = 1083, kTimestamp = 1114,
              kTimestampTz = 1184, kNumeric = 1700, kUuid = 2950;

std::vector<Param> OidParam(Oid oid) {
  Param p;
  p.null = false;
  p.bytes = std::to_string(oid);
  return {p};
}

std::vector<Param> TextParam(const std::string& text) {
  Param p;
  p.null = false;
  p.bytes = text;
  return {p};
}

bool IsTrue(const PGresult* r, int row, int column) { return PQgetvalue(r, row, column)[0] == 't'; }

// Attribute numbers of an int2vector's text ("1 3").
std::vector<int> AttributeNumbers(const std::string& text) {
  std::vector<int> numbers;
  size_t i = 0;
  while (i < text.size()) {
    size_t j = text.find(' ', i);
    if (j == std::string::npos) j = text.size();
    if (j > i) numbers.push_back(std::stoi(text.substr(i, j - i)));
    i = j + 1;
  }
  return numbers;
}

std::shared_ptr<const TableFacts> ReadFacts(const Connection& conn, Oid oid) {
  auto facts = std::make_shared<TableFacts>();
  Result columns = conn.Run(kRelationColumns, OidParam(oid));
  const PGresult* r = columns.get();
  if (PQntuples(r) == 0) Raise(ErrorKind::NoSuchObject, "The table or view " + std::to_string(oid) + " no longer exists.");
  facts->schema = TextAt(r, 0, 0);
  facts->name = TextAt(r, 0, 1);
  facts->kind = PQgetvalue(r, 0, 2)[0];
  for (int i = 0; i < PQntuples(r); ++i) {
    if (PQgetisnull(r, i, 3)) continue;
    const int attnum = std::stoi(TextAt(r, i, 3));
    ColumnFacts& c = facts->columns[attnum];
    c.name = TextAt(r, i, 4);
    c.type = static_cast<Oid>(std::stoul(TextAt(r, i, 5)));
    c.modifier = std::stoi(TextAt(r, i, 6));
    c.not_null = IsTrue(r, i, 7);
    c.auto_increment = IsTrue(r, i, 8);
    c.byte = IsTrue(r, i, 9);
    c.required_rule = IsTrue(r, i, 10);
    c.non_empty_rule = IsTrue(r, i, 11);
    facts->order.push_back(attnum);
  }
  if (facts->kind == 'v') {
    // A view's columns say only that they come from the view; its definition, read as a subquery,
    // tells which table column each one is.
    Result definition = conn.Run(kViewDefinition, OidParam(oid));
    const std::string body(TrimStatement(TextAt(definition.get(), 0, 0)));
    Result described = conn.Describe("SELECT * FROM (" + body + ") AS quorbex_view");
    for (int j = 0; j < PQnfields(described.get()); ++j) {
      const Oid table = PQftable(described.get(), j);
      const int column = PQftablecol(described.get(), j);
      if (table == InvalidOid || column <= 0) continue;
      auto inner = FactsOf(conn, table);
      if (inner->kind == 'v') {
        auto it = inner->origins.find(column);
        if (it != inner->origins.end()) facts->origins[j + 1] = it->second;
      } else {
        facts->origins[j + 1] = {table, column};
      }
    }
  } else {
    Result keys = conn.Run(kUniqueKeys, OidParam(oid));
    for (int i = 0; i < PQntuples(keys.get()); ++i) facts->keys.push_back(AttributeNumbers(TextAt(keys.get(), i, 0)));
  }
  return facts;
}

}  // namespace

std::shared_ptr<const TableFacts> FactsOf(const Connection& conn, Oid oid) {
  const std::string memo = "facts:" + std::to_string(oid);
  if (auto known = std::static_pointer_cast<const TableFacts>(conn.Recall(memo))) return known;
  auto facts = ReadFacts(conn, oid);
  conn.Remember(memo, facts);
  return facts;
}

Oid RelationNamed(const Connection& conn, const std::string& name, const char* kinds) {
  Result found = conn.Run(kRelationNamed, TextParam(name));
  for (int i = 0; i < PQntuples(found.get()); ++i) {
    if (std::string_view(kinds).find(PQgetvalue(found.get(), i, 1)[0]) != std::string_view::npos) {
      return static_cast<Oid>(std::stoul(TextAt(found.get(), i, 0)));
    }
  }
  return InvalidOid;
}

std::optional<std::string> ViewDefinition(const Connection& conn, const std::string& name) {
  const Oid oid = RelationNamed(conn, name, "v");
  if (oid == InvalidOid) return std::nullopt;
  // The text the view was created from where the engine made it, else the server's own rewriting.
  Result definition = conn.Run(kViewText, OidParam(oid));
  return std::string(TrimStatement(TextAt(definition.get(), 0, 0)));
}

int32_t TypeCodeOf(Oid type, int modifier, bool byte, bool from_table) {
  switch (type) {
    case kBool: return 1;
    case kInt2: return byte ? 2 : 3;
    case kInt4:
    case kInt8: return 4;
    case kFloat4: return 6;
    case kFloat8: return 7;
    case kNumeric: return modifier == ((19 << 16) | 4) + 4 ? 5 : 7;
    case kDate:
    case kTime:
    case kTimestamp:
    case kTimestampTz: return 8;
    case kVarchar:
    case kBpchar:
    case kName: return 10;
    case kText: return from_table ? 12 : 10;
    case kBytea: return 11;
    case kUuid: return 15;
    default: return 0;
  }
}

int32_t SizeOf(Oid type, int modifier) {
  return (type == kVarchar || type == kBpchar) && modifier > 4 ? modifier - 4 : 0;
}

// ---- PgSchema ------------------------------------------------------------------------------------

std::vector<SchemaStore::TableEntry> PgSchema::ListTables() const {
  // The server's table catalogue comes first, so position 0 is never a user table.
  std::vector<TableEntry> tables{{"pg_class", true}};
  Result result = conn_->Exec(kUserTables);
  std::vector<std::string> names;
  for (int i = 0; i < PQntuples(result.get()); ++i) names.push_back(TextAt(result.get(), i, 0));
  std::sort(names.begin(), names.end(), NameBefore);
  for (auto& name : names) tables.push_back({std::move(name), false});
  return tables;
}

std::vector<ColumnSpec> PgSchema::ReadColumns(const std::string& table) const {
  const Oid oid = RelationNamed(*conn_, table);
  if (oid == InvalidOid) RaiseItemNotFound("'" + table + "'");
  auto facts = FactsOf(*conn_, oid);
  std::vector<ColumnSpec> columns;
  for (int attnum : facts->order) {
    const ColumnFacts& c = facts->columns.at(attnum);
    ColumnSpec spec;
    spec.name = c.name;
    spec.type = TypeCodeOf(c.type, c.modifier, c.byte, true);
    spec.size = SizeOf(c.type, c.modifier);
    spec.required = c.not_null || c.required_rule;
    spec.allow_zero_length = !c.non_empty_rule;
    if (c.auto_increment) spec.attributes |= dbAutoIncrField;
    columns.push_back(std::move(spec));
  }
  return columns;
}

std::vector<IndexSpec> PgSchema::ReadIndexes(const std::string& table) const {
  const Oid oid = RelationNamed(*conn_, table);
  if (oid == InvalidOid) RaiseItemNotFound("'" + table + "'");
  Result result = conn_->Run(kIndexes, OidParam(oid));
  const PGresult* r = result.get();
  std::vector<IndexSpec> indexes;
  for (int i = 0; i < PQntuples(r); ++i) {
    const std::string physical = TextAt(r, i, 0);
    if (indexes.empty() || indexes.back().physical != physical) {
      IndexSpec index;
      index.physical = physical;
      index.name = DisplayIndexName(table, physical);
      index.primary = IsTrue(r, i, 1) || TextAt(r, i, 3) == kPrimaryComment;
      index.unique = IsTrue(r, i, 2);
      indexes.push_back(std::move(index));
    }
    indexes.back().columns.push_back(TextAt(r, i, 4));
  }
  return indexes;
}

void PgSchema::CheckColumn(const ColumnSpec& column) const { ColumnDefinition(column, true); }

void PgSchema::Change(const std::string& sql) const {
  conn_->ExecWhole(sql);
  conn_->SchemaChanged();
}

std::string PgSchema::IndexSql(const std::string& table, const IndexSpec& index) const {
  const std::string physical = Quote(PhysicalIndexName(table, index.name));
  std::string sql = std::string(index.unique || index.primary ? "CREATE UNIQUE INDEX " : "CREATE INDEX ") + physical +
                    " ON " + Quote(table) + " (";
  for (size_t i = 0; i < index.columns.size(); ++i) sql += (i > 0 ? ", " : "") + Quote(index.columns[i]);
  sql += ")";
  if (index.primary) sql += "; COMMENT ON INDEX " + physical + " IS '" + std::string(kPrimaryComment) + "'";
  return sql;
}

void PgSchema::CreateTable(const std::string& table, const std::vector<ColumnSpec>& columns,
                           const std::vector<IndexSpec>& indexes) {
  const ColumnSpec* auto_key = nullptr;
  std::string definitions;
  for (const auto& column : columns) {
    if ((column.attributes & dbAutoIncrField) != 0) auto_key = &column;
    definitions += (definitions.empty() ? "" : ", ") + ColumnDefinition(column, true);
  }
  // The auto-increment field is the table's key; without one, the first primary index becomes it.
  const IndexSpec* key = nullptr;
  if (auto_key == nullptr) {
    for (const auto& index : indexes) {
      if (index.primary) {
        key = &index;
        break;
      }
    }
  }
  if (auto_key != nullptr) {
    definitions += ", CONSTRAINT " + Quote(PhysicalIndexName(table, "PrimaryKey")) + " PRIMARY KEY (" +
                   Quote(auto_key->name) + ")";
  } else if (key != nullptr) {
    std::string names;
    for (const auto& c : key->columns) names += (names.empty() ? "" : ", ") + Quote(c);
    definitions += ", CONSTRAINT " + Quote(PhysicalIndexName(table, key->name)) + " PRIMARY KEY (" + names + ")";
  }
  std::string sql = "CREATE TABLE " + Quote(table) + " (" + definitions + ")";
  for (const auto& index : indexes) {
    if (&index == key) continue;
    const bool is_auto_key = auto_key != nullptr && index.primary && index.columns.size() == 1 &&
                             SameName(index.columns[0], auto_key->name);
    if (!is_auto_key) sql += "; " + IndexSql(table, index);
  }
  Change(sql);
}

void PgSchema::DropTable(const std::string& table) { Change("DROP TABLE " + Quote(table)); }

void PgSchema::RenameTable(const std::string& table, const std::string& new_name) {
  Change("ALTER TABLE " + Quote(table) + " RENAME TO " + Quote(new_name));
}

void PgSchema::AddColumn(const std::string& table, const ColumnSpec& column) {
  Change("ALTER TABLE " + Quote(table) + " ADD COLUMN " + ColumnDefinition(column, false));
}

void PgSchema::DropColumn(const std::string& table, const std::string& column) {
  // The server would drop the column's indexes along with it; the engine refuses instead.
  for (const auto& index : ReadIndexes(table)) {
    for (const auto& c : index.columns) {
      if (SameName(c, column)) {
        Raise(ErrorKind::InvalidOperation,
              "Cannot delete field '" + column + "': it is part of index '" + index.name + "'.");
      }
    }
  }
  Change("ALTER TABLE " + Quote(table) + " DROP COLUMN " + Quote(column));
}

void PgSchema::RenameColumn(const std::string& table, const std::string& column, const std::string& new_name) {
  Change("ALTER TABLE " + Quote(table) + " RENAME COLUMN " + Quote(column) + " TO " + Quote(new_name));
}

void PgSchema::CreateIndex(const std::string& table, IndexSpec& index) {
  Change(IndexSql(table, index));
  index.physical = PhysicalIndexName(table, index.name);
}

void PgSchema::DropIndex(const std::string& table, const IndexSpec& index) {
  const Oid oid = RelationNamed(*conn_, index.physical, "i");
  Result key = conn_->Run(kIndexIsPrimary, OidParam(oid));
  if (PQntuples(key.get()) > 0 && IsTrue(key.get(), 0, 0)) {
    Raise(ErrorKind::NotSupported, "The key of table '" + table + "' cannot be removed.");
  }
  Change("DROP INDEX " + Quote(index.physical));
}

}  // namespace quorbex::db::internal::postgresql
