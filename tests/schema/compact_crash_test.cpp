// Kills `qdl compact` at random moments and checks each time that a complete database stands under the
// original name.
#include <gtest/gtest.h>
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

#include "quorbex/engine.h"
#include "support/temp_dir.h"

namespace quorbex::test {
namespace {

namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;

constexpr int kKeptRows = 1000;

void MakeDatabase(const std::string& path) {
  auto database = db::DBEngine::Default()->CreateDatabase(path);
  database->Execute("CREATE TABLE notes (id INTEGER PRIMARY KEY, text TEXT)");
  database->BeginTrans();
  for (int i = 1; i <= 40000; ++i) {
    database->Execute("INSERT INTO notes (text) VALUES ('" + std::string(300, static_cast<char>('a' + i % 26)) + "')");
  }
  database->CommitTrans();
  database->Execute("DELETE FROM notes WHERE id > " + std::to_string(kKeptRows));
  database->Close();
}

// "ok" with the row count when SQLite opens the file and finds it intact, else what went wrong.
std::string Verdict(const std::string& path) {
  if (!fs::exists(path)) return "no file under the original name";
  sqlite3* db = nullptr;
  if (sqlite3_open_v2(path.c_str(), &db, SQLITE_OPEN_READONLY, nullptr) != SQLITE_OK) {
    sqlite3_close(db);
    return "cannot open";
  }
  std::string verdict = "no answer";
  sqlite3_stmt* stmt = nullptr;
  if (sqlite3_prepare_v2(db, "PRAGMA integrity_check", -1, &stmt, nullptr) == SQLITE_OK && sqlite3_step(stmt) == SQLITE_ROW) {
    verdict = reinterpret_cast<const char*>(sqlite3_column_text(stmt, 0));
  }
  sqlite3_finalize(stmt);
  if (sqlite3_prepare_v2(db, "SELECT count(*) FROM notes", -1, &stmt, nullptr) == SQLITE_OK && sqlite3_step(stmt) == SQLITE_ROW) {
    verdict += " " + std::to_string(sqlite3_column_int(stmt, 0));
  }
  sqlite3_finalize(stmt);
  sqlite3_close(db);
  return verdict;
}

pid_t StartCompact(const std::string& path) {
  pid_t child = fork();
  if (child == 0) {
    freopen("/dev/null", "w", stdout);
    freopen("/dev/null", "w", stderr);
    execl(QDL_PATH, "qdl", "compact", path.c_str(), static_cast<char*>(nullptr));
    _exit(127);
  }
  return child;
}

TEST(CompactionCrash, AKillAtAnyMomentLeavesACompleteDatabaseUnderTheName) {
  TempDir dir;
  const std::string pristine = dir.File("pristine.db");
  MakeDatabase(pristine);
  const std::string expected = "ok " + std::to_string(kKeptRows);

  // One run to completion tells how long a run takes.
  const std::string timed = dir.File("timed/shop.db");
  fs::create_directories(dir.File("timed"));
  fs::copy_file(pristine, timed);
  const auto start = Clock::now();
  int status = 0;
  waitpid(StartCompact(timed), &status, 0);
  const auto full_run = Clock::now() - start;
  ASSERT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << "qdl compact failed on its own";
  ASSERT_EQ(Verdict(timed), expected);
  ASSERT_LT(fs::file_size(timed), fs::file_size(pristine) / 4);

  // Kill moments are spread over the first part of a run (the machine may be faster at times than when
  // it was measured); runs go on until 20 were really cut off.
  std::mt19937 random(20261123);
  const long long span = std::chrono::duration_cast<std::chrono::microseconds>(full_run).count() * 6 / 10;
  std::uniform_int_distribution<long long> moment(0, span);
  int interrupted = 0, run = 0;
  for (; interrupted < 20 && run < 100; ++run) {
    const std::string folder = dir.File("run" + std::to_string(run));
    const std::string path = folder + "/shop.db";
    fs::create_directories(folder);
    fs::copy_file(pristine, path);
    const pid_t child = StartCompact(path);
    std::this_thread::sleep_for(std::chrono::microseconds(moment(random)));
    kill(child, SIGKILL);
    waitpid(child, &status, 0);
    if (WIFSIGNALED(status)) ++interrupted;
    EXPECT_EQ(Verdict(path), expected) << "run " << run;
    fs::remove_all(folder);
  }
  std::printf("%d of %d runs cut off; a full run took %lld ms\n", interrupted, run,
              static_cast<long long>(std::chrono::duration_cast<std::chrono::milliseconds>(full_run).count()));
  EXPECT_EQ(interrupted, 20) << "too few runs were cut off for the test to prove anything";
}

}  // namespace
}  // namespace quorbex::test
