// The server's catalogue: what a table or view is made of (facts shared by recordsets and table
// definitions), and the schema store behind the shared table-definition objects (schema_objects.h).
// Every catalogue query is listed in docs/postgresql-catalogue.md; keep the two in step.
#pragma once

#include <libpq-fe.h>

#include <memory>
#include <string>
#include <unordered_map>
#include <vector>

#include "platform/db/postgresql/pg_connection.h"
#include "platform/db/schema_objects.h"

namespace quorbex::db::internal::postgresql {

// One column of a table or view as the catalogue describes it.
struct ColumnFacts {
  std::string name;
  Oid type = 0;
  int modifier = -1;
  bool not_null = false;
  bool auto_increment = false;  // an identity column, or one numbered by a sequence
  bool byte = false;            // a smallint with the Byte range rule
  bool required_rule = false;
  bool non_empty_rule = false;
};

struct TableFacts {
  std::string schema;
  std::string name;
  char kind = 'r';  // pg_class.relkind: 'r' table, 'p' partitioned table, 'v' view, ...
  std::unordered_map<int, ColumnFacts> columns;  // by attribute number
  std::vector<int> order;                        // attribute numbers in column order
  // Full unique keys as attribute numbers, the primary key first.
  std::vector<std::vector<int>> keys;
  // Views: where each column comes from, (table, attribute number); absent for an expression.
  std::unordered_map<int, std::pair<Oid, int>> origins;
};

// The facts of the relation `oid`, read once and kept by the connection (Connection::Recall).
std::shared_ptr<const TableFacts> FactsOf(const Connection& conn, Oid oid);
// The relation a name stands for (a table or view visible on the search path; letter case ignored
// where no name matches exactly); 0 when there is none.
Oid RelationNamed(const Connection& conn, const std::string& name, const char* kinds = "rpvmf");
// The SELECT text of the view `name` (case ignored), or nothing when it is not a view.
std::optional<std::string> ViewDefinition(const Connection& conn, const std::string& name);

// The engine's type code of a column of server type `type` (with its modifier). `from_table` tells a
// table's text column (Memo) from a computed text (Text); `byte` marks a Byte column.
int32_t TypeCodeOf(Oid type, int modifier, bool byte, bool from_table);
// The declared size of a varchar column; 0 for other types.
int32_t SizeOf(Oid type, int modifier);

class PgSchema : public SchemaStore {
 public:
  explicit PgSchema(std::shared_ptr<Connection> conn) : conn_(std::move(conn)) {}
  std::vector<TableEntry> ListTables() const override;
  std::vector<ColumnSpec> ReadColumns(const std::string& table) const override;
  std::vector<IndexSpec> ReadIndexes(const std::string& table) const override;
  void CheckColumn(const ColumnSpec& column) const override;
  void CreateTable(const std::string& table, const std::vector<ColumnSpec>& columns,
                   const std::vector<IndexSpec>& indexes) override;
  void DropTable(const std::string& table) override;
  void RenameTable(const std::string& table, const std::string& new_name) override;
  void AddColumn(const std::string& table, const ColumnSpec& column) override;
  void DropColumn(const std::string& table, const std::string& column) override;
  void RenameColumn(const std::string& table, const std::string& column, const std::string& new_name) override;
  void CreateIndex(const std::string& table, IndexSpec& index) override;
  void DropIndex(const std::string& table, const IndexSpec& index) override;

 private:
  // Runs schema statements whole (inside a savepoint) and forgets what the connection knew.
  void Change(const std::string& sql) const;
  std::string IndexSql(const std::string& table, const IndexSpec& index) const;
  std::shared_ptr<Connection> conn_;
};

}  // namespace quorbex::db::internal::postgresql
