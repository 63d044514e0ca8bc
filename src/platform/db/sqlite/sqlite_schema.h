// The SQLite schema behind the shared table-definition objects (schema_objects.h): the catalogue from
// sqlite_master and the table pragmas, changes as CREATE / ALTER / DROP statements.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "platform/db/schema_objects.h"
#include "platform/db/sqlite/sqlite_connection.h"

namespace quorbex::db::internal::sqlite {

class SqliteSchema : public SchemaStore {
 public:
  explicit SqliteSchema(std::shared_ptr<Connection> conn) : conn_(std::move(conn)) {}
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
  std::shared_ptr<Connection> conn_;
};

}  // namespace quorbex::db::internal::sqlite
