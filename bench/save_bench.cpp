// Writing back: a DataLayer over a 1,000,000-row table changes one field in each of 100,000 records and
// calls Save, against a baseline that runs the same 100,000 updates through one prepared UPDATE in one
// transaction. Also: GetRecordset of the whole table against a plain prepare/step copy into a
// std::vector<Variant>.
//
// Save is measured twice, with the session log on (one log entry per changed field, the file opened and
// closed for each) and off, so the cost of the log is visible on its own.
#include <sqlite3.h>
#include <unistd.h>

#include <algorithm>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "bench_util.h"
#ifdef QUORBEX_BENCH_POSTGRESQL
#include "pg_baseline.h"
#endif
#include "sqlite_baseline.h"
#include "quorbex/DataLayer.h"
#include "quorbex/engine.h"
#include "service/thread_state.h"

namespace {

using quorbex::Variant;
namespace fs = std::filesystem;

constexpr int kRows = 1000000;
constexpr int kStep = 10;  // every tenth record: 100,000 changes

void Exec(sqlite3* db, const char* sql) {
  char* message = nullptr;
  if (sqlite3_exec(db, sql, nullptr, nullptr, &message) != SQLITE_OK) {
    std::fprintf(stderr, "sqlite: %s\n", message ? message : "?");
    std::exit(1);
  }
}

void Generate(const std::string& path) {
  sqlite3* db = nullptr;
  sqlite3_open(path.c_str(), &db);
  Exec(db,
       "PRAGMA journal_mode = WAL;"
       "CREATE TABLE bench (id INTEGER PRIMARY KEY AUTOINCREMENT, name TEXT(20), city TEXT(20), price DOUBLE,"
       " quantity LONG, added DATETIME, active BIT, code TEXT(30));"
       "INSERT INTO bench (id, name, city, price, quantity, added, active, code)"
       " WITH RECURSIVE c(i) AS (SELECT 1 UNION ALL SELECT i + 1 FROM c WHERE i < 1000000)"
       " SELECT i, 'name' || (i * 7919 % 100003), 'city' || (i % 97), (i % 10007) * 1.25, i % 1000,"
       " date('2014-01-01', '+' || (i % 3650) || ' days') || ' 12:00:00', i % 2,"
       " printf('%030d', i * 31) FROM c;");
  sqlite3_close(db);
}

double BaselineLoad(const std::string& path) {
  const double start = quorbex::bench::Seconds();
  auto cells = quorbex::bench::ReadAllWithSqlite(path, "SELECT * FROM bench");
  return quorbex::bench::Seconds() - start;
}

double BaselineSave(const std::string& path) {
  const double start = quorbex::bench::Seconds();
  sqlite3* db = nullptr;
  sqlite3_open(path.c_str(), &db);
  Exec(db, "BEGIN");
  sqlite3_stmt* stmt = nullptr;
  sqlite3_prepare_v2(db, "UPDATE bench SET price = ? WHERE id = ?", -1, &stmt, nullptr);
  for (int id = 1; id <= kRows; id += kStep) {
    sqlite3_bind_double(stmt, 1, id * 0.5);
    sqlite3_bind_int(stmt, 2, id);
    sqlite3_step(stmt);
    sqlite3_reset(stmt);
  }
  sqlite3_finalize(stmt);
  Exec(db, "COMMIT");
  sqlite3_close(db);
  return quorbex::bench::Seconds() - start;
}

struct LibraryTimes {
  double load = 0, save = 0, edits = 0;  // save includes the edits (SetFieldValue on each record)
};

LibraryTimes LibraryRun(const std::string& path, const std::string& log_folder, bool with_log, double factor) {
  quorbex::internal::State() = quorbex::internal::ThreadState{};
  LibraryTimes times;
  auto layer = std::make_shared<quorbex::DataLayer>();
  layer->LogPath(log_folder);
  layer->DisableLog(!with_log);
  layer->SetDatabaseByPath(path);
  double start = quorbex::bench::Seconds();
  layer->GetRecordset("SELECT * FROM bench");
  times.load = quorbex::bench::Seconds() - start;
  if (layer->RecordCount() != kRows) {
    std::fprintf(stderr, "load failed:%s\n", layer->ErrorStatus().c_str());
    std::exit(1);
  }
  start = quorbex::bench::Seconds();
  for (int position = 1; position <= kRows; position += kStep) {
    layer->MoveSpecific(position);
    layer->SetFieldValue("price", position * factor);
  }
  const double edited = quorbex::bench::Seconds();
  if (!layer->Save()) {
    std::fprintf(stderr, "save failed:%s\n", layer->ErrorStatus().c_str());
    std::exit(1);
  }
  times.save = quorbex::bench::Seconds() - start;
  times.edits = edited - start;
  return times;
}

}  // namespace

int main() {
  const fs::path folder = fs::temp_directory_path() / ("quorbex_save_bench_" + std::to_string(::getpid()));
  fs::create_directories(folder / "logs");
  const std::string path = (folder / "bench.db").string();
  setenv("QUORBEX_SETTINGS", (folder / "settings.ini").string().c_str(), 1);
  Generate(path);
  const std::string logs = (folder / "logs").string();

  const double baseline_load = BaselineLoad(path);
  const LibraryTimes logged = LibraryRun(path, logs, true, 0.25);
  const double baseline_save = BaselineSave(path);
  const LibraryTimes quiet = LibraryRun(path, logs, false, 0.75);

  quorbex::bench::Report("GetRecordset 1,000,000 x 8", std::min(logged.load, quiet.load), baseline_load);
  quorbex::bench::Report("Save 100,000 changed records (session log on)", logged.save, baseline_save);
  quorbex::bench::Report("Save 100,000 changed records (session log off)", quiet.save, baseline_save);
  std::printf("(the 100,000 SetFieldValue calls take %.3f s of each Save figure)\n", quiet.edits);
#ifdef QUORBEX_BENCH_POSTGRESQL
  // The same on the server: the session log off, against one prepared UPDATE per row.
  if (const std::string server = quorbex::bench::BenchServer(); !server.empty()) {
    quorbex::bench::PgGenerate(server, kRows);
    double start = quorbex::bench::Seconds();
    quorbex::bench::ReadAllWithLibpq(server, "SELECT * FROM bench");
    const double pg_baseline_load = quorbex::bench::Seconds() - start;
    const LibraryTimes pg = LibraryRun(server, logs, false, 0.25);
    start = quorbex::bench::Seconds();
    quorbex::bench::SaveWithLibpq(server, kRows, kStep, 0.75);
    const double pg_baseline_save = quorbex::bench::Seconds() - start;
    quorbex::bench::Report("GetRecordset 1,000,000 x 8 (PostgreSQL)", pg.load, pg_baseline_load);
    quorbex::bench::Report("Save 100,000 changed records (PostgreSQL, session log off)", pg.save, pg_baseline_save);
    quorbex::internal::State() = quorbex::internal::ThreadState{};
    quorbex::db::DBEngine::Default()->OpenDatabase(server)->Execute("DROP TABLE bench");
  } else {
    std::printf("PostgreSQL runs skipped: no server (run under scripts/with-pg.sh)\n");
  }
#endif
  std::error_code error;
  fs::remove_all(folder, error);
  return 0;
}
