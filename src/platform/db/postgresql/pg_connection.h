// One connection to a PostgreSQL server, shared by a Database and everything opened on it, plus the
// small helpers every source of this backend uses (results, parameters, error translation).
//
// A connection runs one statement at a time. A recordset reads its rows as the cursor advances (single-
// row mode, so a large result never sits in memory twice); when something else needs the connection
// meanwhile, the reading recordset first takes the rest of its rows (Reader::Drain).
//
// Thread safety: a connection belongs to the thread that opened it.
#pragma once

#include <libpq-fe.h>

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "platform/db/row_cache.h"
#include "quorbex/engine.h"

namespace quorbex::db::internal::postgresql {

struct ResultDeleter {
  void operator()(PGresult* result) const { PQclear(result); }
};
using Result = std::unique_ptr<PGresult, ResultDeleter>;

// A parameter as it travels: as text, except binary data, which goes as raw bytes.
struct Param {
  bool null = true;
  bool binary = false;
  std::string bytes;
};
// `value` as a parameter for a column of type `code` (0: as it is). Currency travels as its exact
// decimal text. Raises Conversion when the value cannot become the type.
Param ToParam(const Variant& value, int32_t code);

// A read in progress, which must end before anything else runs on the connection.
class Reader {
 public:
  virtual ~Reader() = default;
  // Takes every row the server still has for this read.
  virtual void Drain() = 0;
};

// Turns a failed result into the engine's error: the server's message with its SQLSTATE, the kind from
// the SQLSTATE's class; a lost connection says so. `waited_ms` is how long the call waited (named in
// the Busy text of a lock that was not released in time).
[[noreturn]] void RaisePg(const PGresult* result, PGconn* pg, const std::string& name, int waited_ms);

class Connection {
 public:
  Connection(PGconn* pg, std::string name, bool read_only);
  ~Connection();
  Connection(const Connection&) = delete;
  Connection& operator=(const Connection&) = delete;

  // The handle; raises Closed once the connection was closed.
  PGconn* Handle() const;
  // The connection string without its password.
  const std::string& Name() const { return name_; }
  bool IsOpen() const { return pg_ != nullptr; }
  bool ReadOnly() const { return read_only_; }
  // True inside BEGIN ... COMMIT (also when a statement of it failed).
  bool InTransaction() const;

  // Parses `sql` without running it (the unnamed statement) and describes its parameters and columns.
  Result Describe(const std::string& sql) const;
  // Runs statements without parameters (the simple protocol, so several may be given); returns the
  // last result.
  Result Exec(const std::string& sql) const;
  // Runs one statement with parameters ($1, $2, ... in the text).
  Result Run(const std::string& sql, const std::vector<Param>& params) const;
  // Runs a statement that writes one row, prepared once per text and connection. Inside a
  // transaction it happens whole or not at all, and the transaction goes on either way: a failed
  // statement would otherwise end the transaction and take the rows written before it along.
  Result Write(const std::string& sql, const std::vector<Param>& params) const;
  // Runs `work` (statements on this connection) inside a savepoint when a transaction is running, so
  // that its failure leaves the transaction going (see Write).
  template <class Work>
  Result Guarded(Work&& work) const {
    if (!InTransaction()) return work();
    Exec("SAVEPOINT quorbex_statement");
    try {
      Result result = work();
      Exec("RELEASE SAVEPOINT quorbex_statement");
      return result;
    } catch (...) {
      PQclear(PQexec(pg_, "ROLLBACK TO SAVEPOINT quorbex_statement; RELEASE SAVEPOINT quorbex_statement"));
      throw;
    }
  }
  // Runs statements all or nothing: inside a savepoint when a transaction is running (see Write), else
  // as one implicit transaction.
  Result ExecWhole(const std::string& sql) const;

  // Starts a read of `sql` in single-row mode; `reader` is drained before anything else runs.
  void SendRead(Reader* reader, const std::string& sql, const std::vector<Param>& params) const;
  // The read's next result (one row, the closing zero-row result, or null at its end).
  Result NextResult() const;
  // Ends the read of `reader`, discarding what the server still sends.
  void EndRead(Reader* reader) const;
  // The read of `reader` came to its end.
  void ReadDone(Reader* reader) const {
    if (reading_ == reader) reading_ = nullptr;
  }

  // Facts read from the catalogue (a table's key, a view's base columns), kept until this connection
  // changes the schema. Another connection's change to a table keeps its facts only as long as the
  // table keeps its identity, which a drop and re-create does not.
  std::shared_ptr<const void> Recall(const std::string& key) const;
  void Remember(const std::string& key, std::shared_ptr<const void> facts) const;
  // Forgets the facts and the prepared statements: called after every change of the schema.
  void SchemaChanged() const;

  void Register(const std::shared_ptr<Closable>& item);
  // Ends every registered item, then the connection.
  void Close();

  [[noreturn]] void Fail(const PGresult* result, int waited_ms = 0) const;

 private:
  // Lets a read in progress finish, so that the connection is free.
  void Claim() const;
  Result Check(PGresult* result, int64_t started_us) const;
  // The name of the prepared statement for `sql`, preparing it on first use.
  const std::string& Prepared(const std::string& sql, size_t params) const;

  PGconn* pg_;
  std::string name_;
  bool read_only_;
  mutable Reader* reading_ = nullptr;
  mutable std::unordered_map<std::string, std::string> prepared_;
  mutable std::unordered_map<std::string, std::shared_ptr<const void>> facts_;
  std::vector<std::weak_ptr<Closable>> items_;
};

// Row `row`, column `column` of a result as text ("" for NULL).
inline std::string TextAt(const PGresult* result, int row, int column) {
  return std::string(PQgetvalue(result, row, column), static_cast<size_t>(PQgetlength(result, row, column)));
}

// The values of a parameter list as libpq takes them.
struct ParamArrays {
  explicit ParamArrays(const std::vector<Param>& params);
  std::vector<const char*> values;
  std::vector<int> lengths;
  std::vector<int> formats;
  std::vector<Oid> types;
  int Count() const { return static_cast<int>(values.size()); }
};

}  // namespace quorbex::db::internal::postgresql
