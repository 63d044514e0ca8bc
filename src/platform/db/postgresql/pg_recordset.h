// Recordsets over PostgreSQL: describing a query's columns and key from the catalogue, reading its rows
// one at a time as the cursor advances, and writing rows by key.
#pragma once

#include <deque>
#include <memory>
#include <string>
#include <vector>

#include "platform/db/postgresql/pg_connection.h"
#include "platform/db/row_cache.h"

namespace quorbex::db::internal::postgresql {

// How a column's text is read.
enum class ValueKind : uint8_t { Boolean, Whole, Real, Currency, Date, Binary, Guid, Text };

class PgRows : public RowCache, public Reader {
 public:
  // `sql` has its placeholders numbered ($1, ...) and takes `params`.
  PgRows(std::shared_ptr<Connection> conn, std::string source, std::string sql, std::vector<Param> params,
         bool allow_updates);
  ~PgRows() override;
  void Drain() override;

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
  void Describe(const PGresult* described, bool allow_updates);
  void FindKey(Oid table, const std::vector<int>& base_columns);
  void Send();
  // The next row's result from the server or from what Drain kept; null at the end.
  Result NextRow();
  void Decode(const PGresult* result, int row, Variant* out) const;
  std::string Target() const;
  std::string KeyCondition(size_t first_index) const;
  void AddKeyParams(std::vector<Param>& params, const Variant* row) const;

  std::shared_ptr<Connection> conn_;
  std::string sql_;
  std::vector<Param> params_;
  std::vector<ValueKind> kinds_;
  bool reading_ = false;
  std::deque<Result> drained_;
  // Inside a transaction the result is read whole, under a savepoint (see Connection::Guarded).
  Result whole_;
  int whole_next_ = 0;
  std::string target_schema_;
};

// Opens a recordset on `sql` (placeholders "?", taking `parameters` in order), positioned on its first
// row.
std::shared_ptr<Recordset> OpenCursor(const std::shared_ptr<Connection>& conn, const std::string& source,
                                      const std::string& sql, bool allow_updates,
                                      std::span<const Variant> parameters = {});

}  // namespace quorbex::db::internal::postgresql
