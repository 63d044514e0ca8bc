// Recordsets over SQLite: describing a statement's columns and key, stepping it, and writing rows.
#pragma once

#include <memory>
#include <string>
#include <unordered_map>
#include <unordered_set>
#include <vector>

#include "platform/db/row_cache.h"
#include "platform/db/sqlite/sqlite_connection.h"

namespace quorbex::db::internal::sqlite {

// The rows of one SQLite statement: describes its columns and key, steps the statement as the cursor
// moves, and writes rows as single INSERT / UPDATE / DELETE statements by key. Everything else a
// recordset does lives in RowCache.
class SqliteRows : public RowCache {
 public:
  SqliteRows(std::shared_ptr<Connection> conn, std::string source, Stmt stmt, bool allow_updates);

 protected:
  bool FetchRow(Variant* row) override;
  void Rewind() override;
  void StopFetching() override;
  void InsertRow(std::span<const size_t> written, const std::vector<Variant>& values, Variant* row) override;
  bool UpdateRow(std::span<const size_t> written, const std::vector<Variant>& values, const Variant* row) override;
  bool DeleteRow(const Variant* row) override;
  bool ReadRow(Variant* row) const override;
  void Release() override;

 private:
  void Describe(bool allow_updates);
  // Whether each result row stands for one row of the base table (no self-join, nothing folded).
  bool OneRowPerTableRow() const;
  void FindKey();
  void DecodeInto(Variant* out);
  std::string Target() const;
  std::string ColumnList() const;
  std::string KeyCondition() const;
  void BindKey(sqlite3_stmt* stmt, int first_index, const Variant* row) const;

  std::shared_ptr<Connection> conn_;
  Stmt stmt_;
  std::vector<int> undecided_types_;  // expression columns whose type is still unknown
};

// Prepares `sql`, binds `parameters` to its placeholders in order, and opens a recordset on it
// (positioned on the first row).
std::shared_ptr<Recordset> OpenCursor(const std::shared_ptr<Connection>& conn, const std::string& source,
                                      const std::string& sql, bool allow_updates,
                                      std::span<const Variant> parameters = {});

}  // namespace quorbex::db::internal::sqlite
