#include "platform/db/postgresql/pg_connection.h"

#include <charconv>
#include <chrono>
#include <cstring>

#include "platform/db/errors.h"
#include "platform/db/types.h"

namespace quorbex::db::internal::postgresql {
namespace {

constexpr Oid kByteaOid = 17;
constexpr size_t kPreparedLimit = 200;

int64_t NowUs() {
  return std::chrono::duration_cast<std::chrono::microseconds>(std::chrono::steady_clock::now().time_since_epoch())
      .count();
}

std::string Field(const PGresult* result, int code) {
  const char* text = result != nullptr ? PQresultErrorField(result, code) : nullptr;
  return text != nullptr ? std::string(text) : std::string();
}

std::string Trimmed(const char* text) {
  std::string s = text != nullptr ? text : "";
  while (!s.empty() && (s.back() == '\n' || s.back() == ' ')) s.pop_back();
  return s;
}

ErrorKind KindOf(const std::string& state) {
  if (state.starts_with("23")) return ErrorKind::Constraint;
  if (state.starts_with("22")) return ErrorKind::Conversion;
  if (state == "42P01" || state == "42703" || state == "42883" || state == "42704" || state == "3F000") {
    return ErrorKind::NoSuchObject;
  }
  if (state == "42601") return ErrorKind::Syntax;
  if (state == "42P07" || state == "42710" || state == "42701" || state == "42723" || state == "42P06") {
    return ErrorKind::AlreadyExists;
  }
  if (state == "25006") return ErrorKind::ReadOnly;
  if (state == "55P03" || state == "40P01" || state == "55006") return ErrorKind::Busy;
  if (state == "0A000") return ErrorKind::NotSupported;
  return ErrorKind::General;
}

}  // namespace

void RaisePg(const PGresult* result, PGconn* pg, const std::string& name, int waited_ms) {
  std::string message = Field(result, PG_DIAG_MESSAGE_PRIMARY);
  if (message.empty()) message = Trimmed(result != nullptr ? PQresultErrorMessage(result) : nullptr);
  if (message.empty() && pg != nullptr) message = Trimmed(PQerrorMessage(pg));
  if (pg == nullptr || PQstatus(pg) == CONNECTION_BAD) {
    Raise(ErrorKind::General, "The connection to the server '" + name + "' was lost: " + message);
  }
  const std::string state = Field(result, PG_DIAG_SQLSTATE);
  const ErrorKind kind = KindOf(state);
  if (state == "55P03") RaiseBusy(name, waited_ms);
  if (state.empty()) Raise(kind, message);
  Raise(kind, message + " (SQLSTATE " + state + ")");
}

Param ToParam(const Variant& value, int32_t code) {
  const Stored stored = Encode(value, code);
  Param param;
  char buffer[64];
  switch (stored.kind) {
    case Stored::Kind::Null: return param;
    case Stored::Kind::Integer:
      if (code != 5) {
        param.bytes.assign(buffer, std::to_chars(buffer, buffer + sizeof buffer, stored.integer).ptr);
        break;
      }
      [[fallthrough]];
    case Stored::Kind::Real: {
      if (code == 5) {
        // Currency is exact to four decimals: its scaled integer written as a decimal text.
        // A Currency value keeps all its digits; the stored form went through a double.
        const int64_t scaled = value.Type() == VarType::Currency    ? value.AsCurrency().scaled
                               : stored.kind == Stored::Kind::Integer ? stored.integer * 10000
                                                                      : Currency::FromDouble(stored.real).scaled;
        const bool negative = scaled < 0;
        const uint64_t magnitude = negative ? 0 - static_cast<uint64_t>(scaled) : static_cast<uint64_t>(scaled);
        std::string digits = std::to_string(magnitude / 10000);
        std::string fraction = std::to_string(magnitude % 10000);
        param.bytes = (negative ? "-" : "") + digits + "." + std::string(4 - fraction.size(), '0') + fraction;
      } else {
        param.bytes.assign(buffer, std::to_chars(buffer, buffer + sizeof buffer, stored.real).ptr);
      }
      break;
    }
    case Stored::Kind::Text: param.bytes = stored.bytes; break;
    case Stored::Kind::Blob:
      param.bytes = stored.bytes;
      param.binary = true;
      break;
  }
  param.null = false;
  return param;
}

ParamArrays::ParamArrays(const std::vector<Param>& params) {
  for (const auto& p : params) {
    values.push_back(p.null ? nullptr : p.bytes.data());
    lengths.push_back(static_cast<int>(p.bytes.size()));
    formats.push_back(p.binary ? 1 : 0);
    types.push_back(p.binary ? kByteaOid : 0);
  }
}

// ---- Connection ----------------------------------------------------------------------------------

Connection::Connection(PGconn* pg, std::string name, bool read_only)
    : pg_(pg), name_(std::move(name)), read_only_(read_only) {}

Connection::~Connection() { Close(); }

PGconn* Connection::Handle() const {
  if (pg_ == nullptr) Raise(ErrorKind::Closed, text::kDatabaseClosed);
  return pg_;
}

bool Connection::InTransaction() const {
  const auto status = PQtransactionStatus(Handle());
  return status == PQTRANS_INTRANS || status == PQTRANS_INERROR;
}

void Connection::Fail(const PGresult* result, int waited_ms) const { RaisePg(result, pg_, name_, waited_ms); }

void Connection::Claim() const {
  Handle();
  if (reading_ != nullptr) {
    Reader* reader = reading_;
    reader->Drain();
    reading_ = nullptr;
  }
}

Result Connection::Check(PGresult* raw, int64_t started_us) const {
  Result result(raw);
  const auto status = result ? PQresultStatus(result.get()) : PGRES_FATAL_ERROR;
  if (status == PGRES_COMMAND_OK || status == PGRES_TUPLES_OK || status == PGRES_EMPTY_QUERY) return result;
  Fail(result.get(), static_cast<int>((NowUs() - started_us) / 1000));
}

Result Connection::Exec(const std::string& sql) const {
  Claim();
  const int64_t start = NowUs();
  return Check(PQexec(pg_, sql.c_str()), start);
}

Result Connection::Describe(const std::string& sql) const {
  Claim();
  const int64_t start = NowUs();
  Check(PQprepare(pg_, "", sql.c_str(), 0, nullptr), start);
  return Check(PQdescribePrepared(pg_, ""), start);
}

Result Connection::Run(const std::string& sql, const std::vector<Param>& params) const {
  Claim();
  ParamArrays p(params);
  const int64_t start = NowUs();
  return Check(PQexecParams(pg_, sql.c_str(), p.Count(), p.types.data(), p.values.data(), p.lengths.data(),
                            p.formats.data(), 0),
               start);
}

const std::string& Connection::Prepared(const std::string& sql, size_t params) const {
  if (auto it = prepared_.find(sql); it != prepared_.end()) return it->second;
  if (prepared_.size() >= kPreparedLimit) {
    Exec("DEALLOCATE ALL");
    prepared_.clear();
  }
  static uint64_t counter = 0;
  std::string name = "quorbex_" + std::to_string(++counter);
  const int64_t start = NowUs();
  Check(PQprepare(pg_, name.c_str(), sql.c_str(), static_cast<int>(params), nullptr), start);
  return prepared_.emplace(sql, std::move(name)).first->second;
}

Result Connection::Write(const std::string& sql, const std::vector<Param>& params) const {
  Claim();
  const std::string& name = Prepared(sql, params.size());
  ParamArrays p(params);
  const int64_t start = NowUs();
  if (PQtransactionStatus(pg_) != PQTRANS_INTRANS) {
    return Check(PQexecPrepared(pg_, name.c_str(), p.Count(), p.values.data(), p.lengths.data(), p.formats.data(), 0),
                 start);
  }
  // SAVEPOINT, the write and RELEASE go to the server together, in one round trip.
  if (PQenterPipelineMode(pg_) != 1) Fail(nullptr);
  bool sent = PQsendQueryParams(pg_, "SAVEPOINT quorbex_statement", 0, nullptr, nullptr, nullptr, nullptr, 0) == 1 &&
              PQsendQueryPrepared(pg_, name.c_str(), p.Count(), p.values.data(), p.lengths.data(), p.formats.data(),
                                  0) == 1 &&
              PQsendQueryParams(pg_, "RELEASE SAVEPOINT quorbex_statement", 0, nullptr, nullptr, nullptr, nullptr, 0) == 1 &&
              PQpipelineSync(pg_) == 1;
  Result written;
  Result failure;
  bool synced = !sent;
  for (int step = 0; sent && !synced && step < 8;) {
    PGresult* raw = PQgetResult(pg_);
    if (raw == nullptr) {
      ++step;  // the end of one statement's results
      if (PQstatus(pg_) == CONNECTION_BAD) break;
      continue;
    }
    Result result(raw);
    switch (PQresultStatus(raw)) {
      case PGRES_PIPELINE_SYNC: synced = true; break;
      case PGRES_FATAL_ERROR:
        if (!failure) failure = std::move(result);
        break;
      case PGRES_PIPELINE_ABORTED: break;
      default:
        if (step == 1) written = std::move(result);
        break;
    }
  }
  PQexitPipelineMode(pg_);
  if (!sent || !synced) Fail(failure.get());
  if (failure) {
    // The statement is taken back; the transaction goes on with what was written before it.
    PQclear(PQexec(pg_, "ROLLBACK TO SAVEPOINT quorbex_statement; RELEASE SAVEPOINT quorbex_statement"));
    Fail(failure.get(), static_cast<int>((NowUs() - start) / 1000));
  }
  return written;
}

Result Connection::ExecWhole(const std::string& sql) const {
  return Guarded([&] { return Exec(sql); });
}

void Connection::SendRead(Reader* reader, const std::string& sql, const std::vector<Param>& params) const {
  Claim();
  ParamArrays p(params);
  if (PQsendQueryParams(pg_, sql.c_str(), p.Count(), p.types.data(), p.values.data(), p.lengths.data(),
                        p.formats.data(), 0) != 1) {
    Fail(nullptr);
  }
  PQsetSingleRowMode(pg_);
  reading_ = reader;
}

Result Connection::NextResult() const { return Result(PQgetResult(Handle())); }

void Connection::EndRead(Reader* reader) const {
  if (reading_ != reader || pg_ == nullptr) return;
  reading_ = nullptr;
  // The rest is read and discarded, one row at a time. A cancel request would save reading it, but
  // it reaches the server on its own connection and can hit the statement that runs next.
  while (PGresult* rest = PQgetResult(pg_)) PQclear(rest);
}

std::shared_ptr<const void> Connection::Recall(const std::string& key) const {
  auto it = facts_.find(key);
  return it == facts_.end() ? nullptr : it->second;
}

void Connection::Remember(const std::string& key, std::shared_ptr<const void> facts) const {
  facts_[key] = std::move(facts);
}

void Connection::SchemaChanged() const {
  facts_.clear();
  if (!prepared_.empty() && pg_ != nullptr) {
    prepared_.clear();
    // A prepared statement keeps the result shape of the schema it was prepared on.
    PQclear(PQexec(pg_, "DEALLOCATE ALL"));
  }
}

void Connection::Register(const std::shared_ptr<Closable>& item) {
  std::erase_if(items_, [](const std::weak_ptr<Closable>& w) { return w.expired(); });
  items_.push_back(item);
}

void Connection::Close() {
  if (pg_ == nullptr) return;
  auto items = std::move(items_);
  items_.clear();
  for (auto& weak : items) {
    if (auto item = weak.lock()) item->CloseFromDatabase();
  }
  reading_ = nullptr;
  PQfinish(pg_);
  pg_ = nullptr;
}

}  // namespace quorbex::db::internal::postgresql
