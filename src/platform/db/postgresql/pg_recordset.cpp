#include "platform/db/postgresql/pg_recordset.h"

#include <algorithm>
#include <charconv>
#include <cstdlib>

#include "platform/db/errors.h"
#include "platform/db/postgresql/pg_dialect.h"
#include "platform/db/postgresql/pg_schema.h"
#include "platform/db/query_shape.h"
#include "platform/db/types.h"

namespace quorbex::db::internal::postgresql {
namespace {

ValueKind KindOf(Oid type, int32_t code) {
  switch (type) {
    case 16: return ValueKind::Boolean;
    case 20:
    case 21:
    case 23:
    case 26: return ValueKind::Whole;
    case 700:
    case 701: return ValueKind::Real;
    case 1700: return code == 5 ? ValueKind::Currency : ValueKind::Real;
    case 17: return ValueKind::Binary;
    case 2950: return ValueKind::Guid;
    default: return code == 8 ? ValueKind::Date : ValueKind::Text;
  }
}

int HexDigit(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return 0;
}

// A numeric(19,4) text ("-12345.6789") as its exact count of ten-thousandths.
int64_t ScaledCurrency(std::string_view text) {
  const bool negative = !text.empty() && text.front() == '-';
  if (negative) text.remove_prefix(1);
  int64_t whole = 0, fraction = 0;
  const size_t dot = text.find('.');
  std::from_chars(text.data(), text.data() + std::min(dot, text.size()), whole);
  if (dot != std::string_view::npos) {
    std::string digits(text.substr(dot + 1, 4));
    digits.resize(4, '0');
    std::from_chars(digits.data(), digits.data() + 4, fraction);
  }
  const int64_t scaled = whole * 10000 + fraction;
  return negative ? -scaled : scaled;
}

bool IsActionKeyword(const std::string& word) {
  static const char* const kActions[] = {"INSERT", "UPDATE",  "DELETE",  "MERGE",   "CREATE", "DROP",    "ALTER",
                                         "TRUNCATE", "GRANT", "REVOKE",  "COPY",    "VACUUM", "ANALYZE", "CALL",
                                         "DO",     "BEGIN",   "COMMIT",  "ROLLBACK", "SET",   "LOCK",    "COMMENT",
                                         "REINDEX", "CLUSTER", "SAVEPOINT", "RELEASE", "REFRESH", "DISCARD"};
  return std::find(std::begin(kActions), std::end(kActions), word) != std::end(kActions);
}

}  // namespace

// ---- Describing ----------------------------------------------------------------------------------

PgRows::PgRows(std::shared_ptr<Connection> conn, std::string source, std::string sql, std::vector<Param> params,
               bool allow_updates)
    : RowCache(std::move(source)), conn_(std::move(conn)), sql_(std::move(sql)), params_(std::move(params)) {
  Result described = conn_->Guarded([&] { return conn_->Describe(sql_); });
  if (PQnfields(described.get()) == 0) {
    Raise(ErrorKind::InvalidOperation, "Cannot open a recordset on an action query: '" + Source() + "'.");
  }
  Describe(described.get(), allow_updates);
  Send();
  Start();
}

PgRows::~PgRows() { StopFetching(); }

void PgRows::Describe(const PGresult* described, bool allow_updates) {
  const int n = PQnfields(described);
  columns_.resize(static_cast<size_t>(n));
  kinds_.resize(static_cast<size_t>(n));
  std::vector<int> base_columns(static_cast<size_t>(n), 0);
  Oid base_table = InvalidOid;
  bool one_table = true;
  for (int j = 0; j < n; ++j) {
    ResultColumn& c = columns_[static_cast<size_t>(j)];
    c.name = PQfname(described, j);
    const Oid type = PQftype(described, j);
    const int modifier = PQfmod(described, j);
    // Where the column comes from: a table column, through any views it is read by.
    std::pair<Oid, int> origin{PQftable(described, j), PQftablecol(described, j)};
    if (origin.first != InvalidOid && origin.second > 0) {
      auto facts = FactsOf(*conn_, origin.first);
      if (facts->kind == 'v') {
        auto it = facts->origins.find(origin.second);
        origin = it == facts->origins.end() ? std::pair<Oid, int>{InvalidOid, 0} : it->second;
      }
    } else {
      origin = {InvalidOid, 0};
    }
    const ColumnFacts* base = nullptr;
    std::shared_ptr<const TableFacts> table;
    if (origin.first != InvalidOid) {
      table = FactsOf(*conn_, origin.first);
      auto it = table->columns.find(origin.second);
      if (it != table->columns.end()) base = &it->second;
    }
    c.type_code = TypeCodeOf(type, modifier, base != nullptr && base->byte, base != nullptr);
    c.decode_code = c.type_code;
    c.size = SizeOf(type, modifier);
    if (c.size == 0 && c.type_code == 10) c.size = 255;
    kinds_[static_cast<size_t>(j)] = KindOf(type, c.type_code);
    const bool variable = c.type_code == 10 || c.type_code == 11 || c.type_code == 12 || c.type_code == 15;
    c.attributes = variable ? dbVariableField : dbFixedField;
    if (base != nullptr) {
      c.schema = table->schema;
      c.table = table->name;
      c.origin = base->name;
      if (base->auto_increment) c.attributes |= dbAutoIncrField;
      base_columns[static_cast<size_t>(j)] = origin.second;
      if (j == 0) base_table = origin.first;
      if (origin.first != base_table) one_table = false;
    } else {
      one_table = false;
    }
  }
  if (!allow_updates || !one_table || n == 0 || conn_->ReadOnly()) return;
  const bool one_row_each = ShowsOneRowPerTableRow(sql_, columns_.front().table, [&](const std::string& name) {
    return ViewDefinition(*conn_, name);
  });
  if (one_row_each) FindKey(base_table, base_columns);
}

void PgRows::FindKey(Oid table, const std::vector<int>& base_columns) {
  auto facts = FactsOf(*conn_, table);
  for (const auto& key : facts->keys) {
    std::vector<int> positions;
    for (int attnum : key) {
      auto it = std::find(base_columns.begin(), base_columns.end(), attnum);
      if (it == base_columns.end()) break;
      positions.push_back(static_cast<int>(it - base_columns.begin()));
    }
    if (!key.empty() && positions.size() == key.size()) {
      key_columns_ = std::move(positions);
      updatable_ = true;
      break;
    }
  }
  if (updatable_) {
    for (auto& c : columns_) c.attributes |= dbUpdatableField;
  }
}

// ---- Reading -------------------------------------------------------------------------------------

void PgRows::Send() {
  whole_.reset();
  whole_next_ = 0;
  // A failed statement ends a transaction on the server, and a streamed read can fail halfway. The
  // reads inside a transaction (the look-ups of a save) are small: they are read whole, guarded.
  if (conn_->InTransaction()) {
    whole_ = conn_->Guarded([&] { return conn_->Run(sql_, params_); });
    return;
  }
  conn_->SendRead(this, sql_, params_);
  reading_ = true;
}

void PgRows::Drain() {
  while (reading_) {
    Result result = conn_->NextResult();
    if (!result) {
      reading_ = false;
      break;
    }
    drained_.push_back(std::move(result));
  }
}

Result PgRows::NextRow() {
  auto pull = [&]() -> Result {
    if (!drained_.empty()) {
      Result result = std::move(drained_.front());
      drained_.pop_front();
      return result;
    }
    if (!reading_) return nullptr;
    Result result = conn_->NextResult();
    if (!result) {
      reading_ = false;
      conn_->ReadDone(this);
    }
    return result;
  };
  while (Result result = pull()) {
    switch (PQresultStatus(result.get())) {
      case PGRES_SINGLE_TUPLE: return result;
      case PGRES_TUPLES_OK:
      case PGRES_COMMAND_OK: continue;  // the end of the rows
      default:
        while (pull()) {
        }
        conn_->Fail(result.get());
    }
  }
  return nullptr;
}

void PgRows::Decode(const PGresult* result, int row, Variant* out) const {
  const size_t width = columns_.size();
  for (size_t j = 0; j < width; ++j) {
    const int column = static_cast<int>(j);
    if (PQgetisnull(result, row, column)) {
      out[j] = Variant(Null);
      continue;
    }
    const char* p = PQgetvalue(result, row, column);
    const auto length = static_cast<size_t>(PQgetlength(result, row, column));
    const std::string_view text(p, length);
    const int32_t code = columns_[j].decode_code;
    switch (kinds_[j]) {
      case ValueKind::Boolean: out[j] = DecodeInteger(p[0] == 't' ? 1 : 0, code); break;
      case ValueKind::Whole: {
        int64_t value = 0;
        std::from_chars(p, p + length, value);
        out[j] = DecodeInteger(value, code);
        break;
      }
      case ValueKind::Real: out[j] = DecodeReal(std::strtod(p, nullptr), code); break;
      case ValueKind::Currency: out[j] = Variant(Currency{ScaledCurrency(text)}); break;
      case ValueKind::Date: {
        // A time zone offset after the seconds (timestamptz) is not part of the engine's dates.
        std::string_view date = text;
        if (date.size() > 19) {
          const size_t zone = date.find_first_of("+-", 19);
          if (zone != std::string_view::npos) date = date.substr(0, zone);
        }
        out[j] = DecodeText(date, code);
        break;
      }
      case ValueKind::Binary: {
        std::string bytes;
        if (length >= 2 && p[0] == '\\' && p[1] == 'x') {
          bytes.resize((length - 2) / 2);
          for (size_t k = 0; k < bytes.size(); ++k) {
            bytes[k] = static_cast<char>(HexDigit(p[2 + 2 * k]) * 16 + HexDigit(p[3 + 2 * k]));
          }
        } else {
          bytes.assign(text);
        }
        out[j] = DecodeBlob(bytes, code);
        break;
      }
      case ValueKind::Guid: out[j] = Variant("{" + quorbex::internal::UpperAscii(text) + "}"); break;
      case ValueKind::Text: out[j] = DecodeText(text, code); break;
    }
  }
}

bool PgRows::FetchRow(Variant* row) {
  if (whole_) {
    if (whole_next_ >= PQntuples(whole_.get())) return false;
    if (row != nullptr) Decode(whole_.get(), whole_next_, row);
    ++whole_next_;
    return true;
  }
  Result result = NextRow();
  if (!result) return false;
  if (row != nullptr) Decode(result.get(), 0, row);
  return true;
}

void PgRows::Rewind() {
  StopFetching();
  Send();
}

void PgRows::StopFetching() {
  drained_.clear();
  if (reading_) conn_->EndRead(this);
  reading_ = false;
}

void PgRows::Release() { StopFetching(); }

// ---- Writing -------------------------------------------------------------------------------------

std::string PgRows::Target() const { return Quote(columns_.front().schema) + "." + Quote(columns_.front().table); }

std::string PgRows::KeyCondition(size_t first_index) const {
  std::string sql;
  for (size_t k = 0; k < key_columns_.size(); ++k) {
    if (k > 0) sql += " AND ";
    sql += Quote(columns_[static_cast<size_t>(key_columns_[k])].origin) + " = $" + std::to_string(first_index + k);
  }
  return sql;
}

void PgRows::AddKeyParams(std::vector<Param>& params, const Variant* row) const {
  for (int j : key_columns_) params.push_back(ToParam(row[j], columns_[static_cast<size_t>(j)].decode_code));
}

namespace {

// The value as the column stores it; a value the column cannot hold is refused with the field's name.
Param ParamFor(const ResultColumn& column, const Variant& value) {
  try {
    return ToParam(value, column.decode_code);
  } catch (const EngineError& e) {
    if (e.Kind() != ErrorKind::Conversion) throw;
    Raise(ErrorKind::Conversion, "Field '" + column.name + "': " + e.Description());
  }
}

}  // namespace

void PgRows::InsertRow(std::span<const size_t> written, const std::vector<Variant>& values, Variant* row) {
  std::string sql = "INSERT INTO " + Target();
  std::vector<Param> params;
  if (written.empty()) {
    sql += " DEFAULT VALUES";
  } else {
    std::string names, marks;
    for (size_t i = 0; i < written.size(); ++i) {
      names += (i > 0 ? ", " : "") + Quote(columns_[written[i]].origin);
      marks += (i > 0 ? ", $" : "$") + std::to_string(i + 1);
      params.push_back(ParamFor(columns_[written[i]], values[written[i]]));
    }
    sql += " (" + names + ") VALUES (" + marks + ")";
  }
  sql += " RETURNING ";
  for (size_t j = 0; j < columns_.size(); ++j) sql += (j > 0 ? ", " : "") + Quote(columns_[j].origin);
  Result result = conn_->Write(sql, params);
  if (!result || PQntuples(result.get()) != 1) Raise(ErrorKind::General, "The new record was not stored.");
  Decode(result.get(), 0, row);
  // An auto-increment key written by the caller (a copied table) moves the server's counter past it,
  // which the server does not do by itself; otherwise the next new row would take a key in use.
  for (size_t i = 0; i < written.size(); ++i) {
    const ResultColumn& c = columns_[written[i]];
    if ((c.attributes & dbAutoIncrField) == 0 || params[i].null) continue;
    std::vector<Param> counter(3);
    counter[0] = {false, false, Target()};
    counter[1] = {false, false, c.origin};
    counter[2] = params[i];
    conn_->Guarded([&] {
      return conn_->Run(
          "SELECT pg_catalog.setval(q.s, $3::bigint) FROM (SELECT pg_catalog.pg_get_serial_sequence($1, $2)::regclass AS s) "
          "AS q WHERE q.s IS NOT NULL AND $3::bigint > COALESCE(pg_catalog.pg_sequence_last_value(q.s), 0)",
          counter);
    });
  }
}

bool PgRows::UpdateRow(std::span<const size_t> written, const std::vector<Variant>& values, const Variant* row) {
  std::string sql = "UPDATE " + Target() + " SET ";
  std::vector<Param> params;
  for (size_t i = 0; i < written.size(); ++i) {
    sql += (i > 0 ? ", " : "") + Quote(columns_[written[i]].origin) + " = $" + std::to_string(i + 1);
    params.push_back(ParamFor(columns_[written[i]], values[written[i]]));
  }
  sql += " WHERE " + KeyCondition(written.size() + 1);
  AddKeyParams(params, row);
  Result result = conn_->Write(sql, params);
  return result && std::string_view(PQcmdTuples(result.get())) != "0";
}

bool PgRows::DeleteRow(const Variant* row) {
  std::vector<Param> params;
  AddKeyParams(params, row);
  Result result = conn_->Write("DELETE FROM " + Target() + " WHERE " + KeyCondition(1), params);
  return result && std::string_view(PQcmdTuples(result.get())) != "0";
}

bool PgRows::ReadRow(Variant* row) const {
  std::string sql = "SELECT ";
  for (size_t j = 0; j < columns_.size(); ++j) sql += (j > 0 ? ", " : "") + Quote(columns_[j].origin);
  sql += " FROM " + Target() + " WHERE " + KeyCondition(1);
  std::vector<Param> params;
  AddKeyParams(params, row);
  Result result = conn_->Run(sql, params);
  if (PQntuples(result.get()) != 1) return false;
  Decode(result.get(), 0, row);
  return true;
}

std::shared_ptr<Recordset> OpenCursor(const std::shared_ptr<Connection>& conn, const std::string& source,
                                      const std::string& sql, bool allow_updates,
                                      std::span<const Variant> parameters) {
  const auto statements = SplitStatements(sql);
  if (statements.empty()) Raise(ErrorKind::Syntax, "The SQL text is empty.");
  if (statements.size() > 1) {
    Raise(ErrorKind::Syntax, "Characters found after end of SQL statement: '" + std::string(statements[1]) + "'.");
  }
  // A recordset only reads: an action statement is refused before the server sees it.
  if (IsActionKeyword(FirstKeyword(statements[0]))) {
    Raise(ErrorKind::InvalidOperation, "Cannot open a recordset on an action query: '" + std::string(statements[0]) + "'.");
  }
  int count = 0;
  std::string numbered = NumberPlaceholders(statements[0], &count);
  if (static_cast<size_t>(count) != parameters.size()) {
    Raise(ErrorKind::InvalidOperation, "The query has " + std::to_string(count) + " parameters, " +
                                           std::to_string(parameters.size()) + " values were given.");
  }
  std::vector<Param> params;
  for (const auto& p : parameters) params.push_back(ToParam(p, 0));
  auto rows = std::make_shared<PgRows>(conn, source, std::move(numbered), std::move(params), allow_updates);
  conn->Register(rows);
  return std::make_shared<CachedRecordset>(rows);
}

}  // namespace quorbex::db::internal::postgresql
