// The rows of one Jet table as libmdb reads them, each value decoded exactly: the Jet side of every
// recordset of this backend (recordsets themselves run on the SQLite mirror, see jet_database.h).
//
// libmdb hands out values as texts, and some texts lose data: dates before 1899-12-30 or after about
// 4637 come out as "1900-01-00", a binary value stops at its first zero byte, an OLE value is only its
// 12-byte header. So numbers, currency, dates and binaries are decoded from the raw bytes of the data
// page, OLE values are read whole, and only texts, memos and GUIDs use libmdb's (UTF-8) text form.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "platform/db/jet/jet_connection.h"
#include "quorbex/variant.h"

namespace quorbex::db::internal::jet {

// The engine's type code for a Jet column type (Jet's own codes: 1 Boolean ... 12 Memo, 15 GUID;
// OLE becomes 11, Binary 11, Numeric 7 (Double), an ACE attachment or multi-value column 4).
int32_t TypeCode(int jet_type);

class TableReader {
 public:
  // Opens the table `name` (a table, not a form or query of that name); raises NoSuchObject.
  TableReader(MdbHandle* mdb, const std::string& name);
  ~TableReader();
  TableReader(const TableReader&) = delete;
  TableReader& operator=(const TableReader&) = delete;

  MdbTableDef* Def() const { return table_; }
  size_t ColumnCount() const { return columns_.size(); }
  MdbColumn* Column(size_t i) const { return columns_[i]; }
  // The row count the table's definition states.
  uint32_t StatedRows() const { return table_->num_rows; }

  // Reads the next row into `values` (one Variant per column, Null where the row holds none); false
  // after the last row. Raises NotADatabase when the table yields more rows than it can hold (a
  // damaged page chain that loops).
  bool Next(std::vector<Variant>& values);

 private:
  Variant Decode(size_t i);
  bool IsNull(size_t i);

  MdbHandle* mdb_;
  MdbTableDef* table_ = nullptr;
  std::vector<MdbColumn*> columns_;
  std::vector<std::unique_ptr<char[]>> buffers_;  // bind buffers (bind size each), texts and OLE only
  std::vector<int> lengths_;
  std::vector<unsigned char> nulls_;  // per column, filled when a row's null flags are needed
  bool nulls_read_ = false;
  uint64_t rows_read_ = 0;
};

}  // namespace quorbex::db::internal::jet
