// A process saving a large change is killed at random moments. Whenever it dies, the database is
// intact and holds all of the save or none of it, and the session log reads up to its last complete
// entry, with an entry for every change that was committed.
#include <signal.h>
#include <sqlite3.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <filesystem>
#include <random>
#include <string>
#include <thread>

#include "datalayer/datalayer_fixture.h"
#include "support/temp_dir.h"

namespace quorbex::test {
namespace {

using namespace quorbex::internal;

constexpr int kRecords = 100000;
constexpr int kNewRecords = 50;
constexpr int kRuns = 20;
constexpr unsigned kSeed = 20261123;

// items(id, hits, label) with kRecords rows of hits 0, written directly: the test needs a big file fast.
void MakeItems(const std::string& path) {
  sqlite3* db = nullptr;
  ASSERT_EQ(sqlite3_open(path.c_str(), &db), SQLITE_OK);
  sqlite3_exec(db,
               "CREATE TABLE items (id INTEGER PRIMARY KEY AUTOINCREMENT, hits LONG, label TEXT(20));"
               "BEGIN;"
               "WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL SELECT i + 1 FROM n WHERE i < 100000) "
               "INSERT INTO items (hits, label) SELECT 0, 'item ' || i FROM n;"
               "COMMIT;",
               nullptr, nullptr, nullptr);
  sqlite3_close(db);
}

// The child: loads every item, marks each one, adds a few, tells the parent it is about to save, saves.
[[noreturn]] void SaveEverything(const std::string& path, const std::string& log_folder, int ready_fd) {
  State() = ThreadState{};
  State().suppress_all_messages = true;
  auto layer = std::make_shared<DataLayer>();
  layer->LogPath(log_folder);
  layer->SetDatabaseByPath(path);
  layer->GetRecordset("SELECT * FROM items ORDER BY id");
  for (int i = 1; i <= kRecords; ++i) {
    layer->MoveSpecific(i);
    layer->SetFieldValue("hits", Variant(int32_t{1}));
  }
  for (int i = 0; i < kNewRecords; ++i) {
    layer->AddNew();
    layer->SetFieldValue("hits", Variant(int32_t{2}));
  }
  const char ready = 'r';
  if (::write(ready_fd, &ready, 1) != 1) ::_exit(3);
  const bool saved = layer->Save();
  layer.reset();
  ::_exit(saved ? 0 : 2);
}

struct Outcome {
  bool killed = false;
  double seconds = 0;  // from "about to save" to the end of the child
};

Outcome RunChild(const std::string& path, const std::string& log_folder, double kill_after) {
  int ready[2];
  EXPECT_EQ(::pipe(ready), 0);
  pid_t child = ::fork();
  if (child == 0) {
    ::close(ready[0]);
    SaveEverything(path, log_folder, ready[1]);
  }
  ::close(ready[1]);
  char byte = 0;
  EXPECT_EQ(::read(ready[0], &byte, 1), 1);
  ::close(ready[0]);
  const auto start = std::chrono::steady_clock::now();
  Outcome outcome;
  if (kill_after >= 0) {
    std::this_thread::sleep_for(std::chrono::duration<double>(kill_after));
    outcome.killed = ::kill(child, SIGKILL) == 0;
  }
  int status = 0;
  ::waitpid(child, &status, 0);
  outcome.seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  if (WIFEXITED(status)) {
    outcome.killed = false;
    EXPECT_EQ(WEXITSTATUS(status), 0);
  }
  return outcome;
}

int64_t Scalar(sqlite3* db, const char* sql) {
  sqlite3_stmt* stmt = nullptr;
  sqlite3_prepare_v2(db, sql, -1, &stmt, nullptr);
  int64_t value = sqlite3_step(stmt) == SQLITE_ROW ? sqlite3_column_int64(stmt, 0) : -1;
  sqlite3_finalize(stmt);
  return value;
}

// Whether the file is intact and holds all of the save (true) or none of it (false).
bool CheckDatabase(const std::string& path) {
  sqlite3* db = nullptr;
  EXPECT_EQ(sqlite3_open(path.c_str(), &db), SQLITE_OK);
  sqlite3_stmt* check = nullptr;
  sqlite3_prepare_v2(db, "PRAGMA integrity_check", -1, &check, nullptr);
  EXPECT_EQ(sqlite3_step(check), SQLITE_ROW);
  EXPECT_STREQ(reinterpret_cast<const char*>(sqlite3_column_text(check, 0)), "ok");
  sqlite3_finalize(check);
  const int64_t ones = Scalar(db, "SELECT count(*) FROM items WHERE hits = 1");
  const int64_t added = Scalar(db, "SELECT count(*) FROM items WHERE hits = 2");
  const int64_t rows = Scalar(db, "SELECT count(*) FROM items");
  sqlite3_close(db);
  const bool all = ones == kRecords && added == kNewRecords && rows == kRecords + kNewRecords;
  const bool none = ones == 0 && added == 0 && rows == kRecords;
  EXPECT_TRUE(all || none) << ones << " changed, " << added << " added, " << rows << " rows";
  return all;
}

// The session log: every ACTION element up to the last complete one is whole, what follows is the
// beginning of one; returns the number of complete UPDATE entries of the field "hits".
int64_t CheckLog(const std::string& folder) {
  std::string text;
  for (const auto& entry : std::filesystem::directory_iterator(folder)) text += ReadBytes(entry.path());
  int64_t updates = 0;
  size_t at = text.find("<ACTION ");
  while (at != std::string::npos) {
    const size_t end = text.find("</ACTION>", at);
    const size_t next = text.find("<ACTION ", at + 1);
    if (end == std::string::npos || (next != std::string::npos && next < end)) {
      // Only the last entry may be cut, and only at its end.
      EXPECT_EQ(next, std::string::npos) << "an entry before the last one is incomplete";
      break;
    }
    const std::string_view element(text.data() + at, end - at);
    if (element.find("<FieldName>hits</FieldName>") != std::string_view::npos &&
        element.find("TYPE=\"UPDATE ID=") != std::string_view::npos) {
      ++updates;
    }
    at = next;
  }
  return updates;
}

TEST(CrashDuringSave, KilledAtAnyMomentLeavesAllOrNothingAndTheLogOfWhatWasCommitted) {
  TempDir dir;
  const std::string original = dir.File("items.db");
  MakeItems(original);

  // A save that is not interrupted shows how long one takes.
  const std::string calibration = dir.File("calibration.db");
  std::filesystem::copy_file(original, calibration);
  std::filesystem::create_directory(dir.File("log-calibration"));
  const Outcome whole = RunChild(calibration, dir.File("log-calibration"), -1);
  EXPECT_TRUE(CheckDatabase(calibration));
  EXPECT_EQ(CheckLog(dir.File("log-calibration")), kRecords + kNewRecords);

  std::mt19937 random(kSeed);
  std::uniform_real_distribution<double> moment(0.0, whole.seconds * 1.3);
  int all = 0, none = 0, finished = 0;
  for (int run = 0; run < kRuns; ++run) {
    SCOPED_TRACE("run " + std::to_string(run) + ", seed " + std::to_string(kSeed));
    const std::string path = dir.File("run" + std::to_string(run) + ".db");
    const std::string logs = dir.File("log" + std::to_string(run));
    std::filesystem::copy_file(original, path);
    std::filesystem::create_directory(logs);
    const Outcome outcome = RunChild(path, logs, moment(random));
    if (!outcome.killed) ++finished;
    const bool committed = CheckDatabase(path);
    (committed ? all : none) += 1;
    const int64_t logged = CheckLog(logs);
    if (committed) EXPECT_EQ(logged, kRecords + kNewRecords) << "a committed change has no log entry";
  }
  std::printf("[ figures  ] %d runs (a whole save takes %.2f s): %d all, %d none, 0 partial; %d ran to the end\n",
              kRuns, whole.seconds, all, none, finished);
}

}  // namespace
}  // namespace quorbex::test
