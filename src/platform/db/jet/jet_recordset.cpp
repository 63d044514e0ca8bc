#include "platform/db/jet/jet_recordset.h"

#include <cstdlib>
#include <cstring>

#include "platform/db/errors.h"

namespace quorbex::db::internal::jet {
namespace {

constexpr size_t kMemoBindSize = size_t{1} << 20;  // memos are read whole up to 1 MiB
constexpr size_t kTextBindSize = size_t{1} << 12;

template <class T>
T RawAt(const unsigned char* p) {
  T value;
  std::memcpy(&value, p, sizeof value);  // Jet stores little-endian, as this machine does
  return value;
}

bool NeedsText(int jet_type) {
  switch (jet_type) {
    case MDB_BOOL:
    case MDB_TEXT:
    case MDB_MEMO:
    case MDB_OLE:
    case MDB_REPID:
    case MDB_NUMERIC: return true;
    default: return false;
  }
}

}  // namespace

int32_t TypeCode(int jet_type) {
  switch (jet_type) {
    case MDB_BOOL: return 1;
    case MDB_BYTE: return 2;
    case MDB_INT: return 3;
    case MDB_LONGINT: return 4;
    case MDB_MONEY: return 5;
    case MDB_FLOAT: return 6;
    case MDB_DOUBLE: return 7;
    case MDB_DATETIME: return 8;
    case MDB_BINARY: return 11;
    case MDB_TEXT: return 10;
    case MDB_OLE: return 11;
    case MDB_MEMO: return 12;
    case MDB_REPID: return 15;
    case MDB_NUMERIC: return 7;
    default: return 4;  // ACE attachment and multi-value columns hold a Long reference
  }
}

TableReader::TableReader(MdbHandle* mdb, const std::string& name) : mdb_(mdb) {
  std::string copy = name;
  table_ = mdb_read_table_by_name(mdb_, copy.data(), MDB_TABLE);
  if (table_ == nullptr) Raise(ErrorKind::NoSuchObject, "no such table: " + name);
  if (mdb_read_columns(table_) == nullptr) {
    mdb_free_tabledef(table_);
    table_ = nullptr;
    Raise(ErrorKind::NotADatabase, "The columns of table '" + name + "' cannot be read.");
  }
  mdb_read_indices(table_);
  // libmdb converts every text value in a fresh buffer of the bind size, and cuts a value there: memos
  // need a large one, tables without memos do with what a 255-character text takes.
  bool has_memo = false;
  for (unsigned i = 0; i < table_->num_cols; ++i) {
    has_memo |= static_cast<MdbColumn*>(g_ptr_array_index(table_->columns, i))->col_type == MDB_MEMO;
  }
  mdb_set_bind_size(mdb_, has_memo ? kMemoBindSize : kTextBindSize);
  columns_.resize(table_->num_cols);
  buffers_.resize(table_->num_cols);
  lengths_.assign(table_->num_cols, 0);
  for (unsigned i = 0; i < table_->num_cols; ++i) {
    columns_[i] = static_cast<MdbColumn*>(g_ptr_array_index(table_->columns, i));
    if (NeedsText(columns_[i]->col_type)) {
      // libmdb writes up to the bind size into every bound buffer.
      buffers_[i] = std::unique_ptr<char[]>(new char[mdb_->bind_size + 1]);  // not zeroed: libmdb writes each value
      mdb_bind_column(table_, static_cast<int>(i + 1), buffers_[i].get(), &lengths_[i]);
    }
  }
  mdb_rewind_table(table_);
}

TableReader::~TableReader() {
  if (table_ != nullptr) mdb_free_tabledef(table_);
}

bool TableReader::Next(std::vector<Variant>& values) {
  if (!mdb_fetch_row(table_)) return false;
  // A table cannot hold more rows than it says plus what a page chain adds by mistake; far more means
  // the chain loops.
  if (++rows_read_ > uint64_t{table_->num_rows} * 2 + 100000) {
    Raise(ErrorKind::NotADatabase, std::string("Table '") + table_->name + "' yields more rows than it holds.");
  }
  nulls_read_ = false;
  values.resize(columns_.size());
  for (size_t i = 0; i < columns_.size(); ++i) values[i] = Decode(i);
  return true;
}

bool TableReader::IsNull(size_t i) {
  if (!nulls_read_) {
    nulls_read_ = true;
    nulls_.assign(columns_.size(), 0);
    int start = 0;
    size_t size = 0;
    if (table_->cur_row == 0 || mdb_find_row(mdb_, static_cast<int>(table_->cur_row - 1), &start, &size) != 0) {
      return false;
    }
    std::vector<MdbField> fields(MDB_MAX_COLS);
    int n = mdb_crack_row(table_, start, size, fields.data());
    for (int f = 0; f < n && f < static_cast<int>(fields.size()); ++f) {
      int column = fields[static_cast<size_t>(f)].colnum;
      if (column >= 0 && static_cast<size_t>(column) < nulls_.size()) {
        nulls_[static_cast<size_t>(column)] = fields[static_cast<size_t>(f)].is_null;
      }
    }
  }
  return nulls_[i] != 0;
}

Variant TableReader::Decode(size_t i) {
  MdbColumn* col = columns_[i];
  const int len = col->cur_value_len;
  const unsigned char* raw = mdb_->pg_buf + col->cur_value_start;
  if (col->cur_value_start < 0 || col->cur_value_start + len > static_cast<int>(mdb_->fmt->pg_size)) {
    Raise(ErrorKind::NotADatabase, std::string("A value of column '") + col->name + "' lies outside its page.");
  }
  switch (col->col_type) {
    case MDB_BOOL: return Variant(lengths_[i] > 0 && buffers_[i][0] == '1');
    case MDB_BYTE:
      if (len < 1) return Variant(Null);
      return Variant(static_cast<uint8_t>(raw[0]));
    case MDB_INT:
      if (len < 2) return Variant(Null);
      return Variant(RawAt<int16_t>(raw));
    case MDB_LONGINT:
      if (len < 4) return Variant(Null);
      return Variant(RawAt<int32_t>(raw));
    case MDB_MONEY:
      if (len < 8) return Variant(Null);
      return Variant(Currency{RawAt<int64_t>(raw)});
    case MDB_FLOAT:
      if (len < 4) return Variant(Null);
      return Variant(RawAt<float>(raw));
    case MDB_DOUBLE:
      if (len < 8) return Variant(Null);
      return Variant(RawAt<double>(raw));
    case MDB_DATETIME:
      if (len < 8) return Variant(Null);
      return Variant(Date{RawAt<double>(raw)});
    case MDB_BINARY:
      if (len == 0 && IsNull(i)) return Variant(Null);
      return Variant(std::string(reinterpret_cast<const char*>(raw), static_cast<size_t>(len)));
    case MDB_OLE: {
      if (len == 0) return Variant(Null);
      size_t size = 0;
      void* whole = mdb_ole_read_full(mdb_, col, &size);
      if (whole == nullptr) return Variant(std::string());
      std::string bytes(static_cast<const char*>(whole), size);
      std::free(whole);
      return Variant(std::move(bytes));
    }
    case MDB_NUMERIC:
      if (len == 0) return Variant(Null);
      return Variant(std::strtod(buffers_[i].get(), nullptr));
    case MDB_TEXT:
    case MDB_MEMO:
    case MDB_REPID:
      if (lengths_[i] == 0 && (len == 0 ? IsNull(i) : false)) return Variant(Null);
      return Variant(std::string(buffers_[i].get(), static_cast<size_t>(lengths_[i])));
    default:
      if (len < 4) return Variant(Null);
      return Variant(RawAt<int32_t>(raw));
  }
}

}  // namespace quorbex::db::internal::jet
