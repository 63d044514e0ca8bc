// Loading a table into an offline recordset: OpenQueryRecordset + FillFromDAORecordset against a plain
// sqlite3 prepare/step loop that copies the same rows into a std::vector<Variant>.
//
// The table has 1,000,000 rows of 8 columns (integer key, two short texts, a double, a long, a date, a
// Boolean and a 30-character text), generated with a fixed seed into a temporary file. Each side runs
// twice and the faster run counts; memory is the growth of the resident set while the loaded data is
// held, divided by the number of cells (freed memory is handed back to the system between the runs).
#include <malloc.h>
#include <sqlite3.h>
#include <unistd.h>

#include <cstdio>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "bench_util.h"
#ifdef QUORBEX_BENCH_POSTGRESQL
#include "pg_baseline.h"
#endif
#include "sqlite_baseline.h"
#include "quorbex/clsOfflineRecordset.h"
#include "quorbex/engine.h"
#include "service/open_query.h"
#include "service/thread_state.h"

namespace {

using quorbex::Variant;

constexpr int kRows = 1000000;
constexpr int kColumns = 8;

std::string RandomText(std::mt19937& rng, int min_len, int max_len) {
  static const char letters[] = "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ";
  std::uniform_int_distribution<int> len(min_len, max_len), pick(0, 51);
  std::string s(static_cast<size_t>(len(rng)), ' ');
  for (char& c : s) c = letters[pick(rng)];
  return s;
}

void Check(int rc, sqlite3* db) {
  if (rc != SQLITE_OK && rc != SQLITE_DONE && rc != SQLITE_ROW) {
    std::fprintf(stderr, "sqlite: %s\n", sqlite3_errmsg(db));
    std::exit(1);
  }
}

void Generate(const std::string& path) {
  sqlite3* db = nullptr;
  Check(sqlite3_open(path.c_str(), &db), db);
  Check(sqlite3_exec(db,
                     "PRAGMA journal_mode = OFF; PRAGMA synchronous = OFF;"
                     "CREATE TABLE bench (id INTEGER PRIMARY KEY, name VARCHAR(20), city VARCHAR(20), price DOUBLE,"
                     " quantity LONG, added DATETIME, active BOOLEAN, code VARCHAR(30)); BEGIN",
                     nullptr, nullptr, nullptr),
        db);
  sqlite3_stmt* insert = nullptr;
  Check(sqlite3_prepare_v2(db, "INSERT INTO bench VALUES (?, ?, ?, ?, ?, ?, ?, ?)", -1, &insert, nullptr), db);
  std::mt19937 rng(20240531);
  static const char* cities[] = {"Wien", "Graz", "Linz", "Salzburg", "Innsbruck", "Klagenfurt", "Bregenz", "Eisenstadt"};
  std::uniform_int_distribution<int> city(0, 7), quantity(0, 100000), day(0, 3650), second(0, 86399), coin(0, 1);
  std::uniform_real_distribution<double> price(0.0, 10000.0);
  char date[32];
  for (int i = 1; i <= kRows; ++i) {
    std::string name = RandomText(rng, 5, 12), code = RandomText(rng, 30, 30);
    int d = day(rng), s = second(rng);
    std::snprintf(date, sizeof date, "%04d-%02d-%02d %02d:%02d:%02d", 2014 + d / 365, 1 + d % 365 / 31,
                  1 + d % 28, s / 3600, s / 60 % 60, s % 60);
    sqlite3_bind_int(insert, 1, i);
    sqlite3_bind_text(insert, 2, name.c_str(), -1, SQLITE_TRANSIENT);
    sqlite3_bind_text(insert, 3, cities[city(rng)], -1, SQLITE_STATIC);
    sqlite3_bind_double(insert, 4, price(rng));
    sqlite3_bind_int(insert, 5, quantity(rng));
    sqlite3_bind_text(insert, 6, date, -1, SQLITE_TRANSIENT);
    sqlite3_bind_int(insert, 7, coin(rng));
    sqlite3_bind_text(insert, 8, code.c_str(), -1, SQLITE_TRANSIENT);
    Check(sqlite3_step(insert), db);
    sqlite3_reset(insert);
  }
  sqlite3_finalize(insert);
  Check(sqlite3_exec(db, "COMMIT", nullptr, nullptr, nullptr), db);
  sqlite3_close(db);
}

// The lean baseline: every value as the variant of its stored kind.
std::unique_ptr<std::vector<Variant>> PlainLoop(const std::string& path) {
  return quorbex::bench::ReadAllWithSqlite(path, "SELECT * FROM bench");
}

// Times the library's load against `baseline` (twice each, the faster counts) and reports time and memory.
template <class Baseline>
void Compare(const std::string& name, Baseline&& baseline_run);

std::shared_ptr<quorbex::clsOfflineRecordset> LibraryLoad() {
  auto offline = std::make_shared<quorbex::clsOfflineRecordset>();
  auto rs = quorbex::internal::OpenQueryRecordset("SELECT * FROM bench");
  if (!rs || !offline->FillFromDAORecordset(rs, true) || offline->RecordCount() != kRows) {
    std::fprintf(stderr, "fill failed: %s\n", quorbex::internal::State().error_text.c_str());
    std::exit(1);
  }
  return offline;
}

template <class Baseline>
void Compare(const std::string& name, Baseline&& baseline_run) {
  using quorbex::bench::ResidentBytes;
  using quorbex::bench::Seconds;
  const double cells = static_cast<double>(kRows) * kColumns;
  double library = 1e9, baseline = 1e9, library_bytes = 0, baseline_bytes = 0;
  for (int round = 0; round < 2; ++round) {
    long long before = ResidentBytes();
    double t0 = Seconds();
    auto offline = LibraryLoad();
    double t1 = Seconds();
    library = std::min(library, t1 - t0);
    if (round == 0) library_bytes = static_cast<double>(ResidentBytes() - before) / cells;
    offline.reset();
    malloc_trim(0);

    before = ResidentBytes();
    t0 = Seconds();
    auto plain = baseline_run();
    t1 = Seconds();
    baseline = std::min(baseline, t1 - t0);
    if (round == 0) baseline_bytes = static_cast<double>(ResidentBytes() - before) / cells;
    plain.reset();
    malloc_trim(0);
  }
  quorbex::bench::Report(name, library, baseline);
  std::printf("%s memory: library %.1f bytes/cell, baseline %.1f bytes/cell, ratio %.2f\n", name.c_str(), library_bytes,
              baseline_bytes, baseline_bytes > 0 ? library_bytes / baseline_bytes : 0.0);
}

}  // namespace

int main() {
  using quorbex::bench::ResidentBytes;
  using quorbex::bench::Seconds;
  char folder[] = "/tmp/quorbex_fill_XXXXXX";
  if (::mkdtemp(folder) == nullptr) return 1;
  const std::string path = std::string(folder) + "/fill.sqlite";
  Generate(path);

  quorbex::internal::State().suppress_all_messages = true;
  quorbex::internal::State().current_database = quorbex::db::DBEngine::Default()->OpenDatabase(path);
  PlainLoop(path);  // warm the file into the page cache
  malloc_trim(0);

  Compare("fill 1000000x8", [&] { return PlainLoop(path); });
  quorbex::internal::State().current_database->Close();
  quorbex::internal::State().current_database.reset();
  ::unlink(path.c_str());
  ::rmdir(folder);

#ifdef QUORBEX_BENCH_POSTGRESQL
  // The same table on the server, read in single-row mode on both sides.
  if (const std::string server = quorbex::bench::BenchServer(); !server.empty()) {
    quorbex::bench::PgGenerate(server, kRows);
    quorbex::internal::State().current_database = quorbex::db::DBEngine::Default()->OpenDatabase(server);
    Compare("fill 1000000x8 (PostgreSQL)", [&] { return quorbex::bench::ReadAllWithLibpq(server, "SELECT * FROM bench"); });
    quorbex::internal::State().current_database->Execute("DROP TABLE bench");
    quorbex::internal::State().current_database->Close();
    quorbex::internal::State().current_database.reset();
  } else {
    std::printf("fill 1000000x8 (PostgreSQL): skipped, no server (run under scripts/with-pg.sh)\n");
  }
#endif
  return 0;
}
