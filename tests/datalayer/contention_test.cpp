// Two processes save disjoint records into one database file at the same time, in rollback-journal
// and in WAL mode. Every competing transaction is far shorter than the busy timeout, so no save may
// fail; afterwards every save is in the file once, and nothing else is.
#include <sqlite3.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <string>

#include "datalayer/datalayer_fixture.h"

namespace quorbex::test {
namespace {

using namespace quorbex::internal;
using Contention = DataLayerTest;

constexpr int kRowsPerOwner = 20;
constexpr double kSeconds = 3.0;

struct Figures {
  int saves = 0;
  int failures = 0;
  int inserted = 0;
  int longest_ms = 0;
  char first_error[240] = {};
};

// counters(id, owner, hits): kRowsPerOwner rows for each of the owners 0 and 1.
void MakeCounters(const std::string& path, bool wal) {
  auto database = db::DBEngine::Default()->CreateDatabase(path);
  auto table = database->CreateTableDef("counters");
  auto id = table->CreateField("id", db::dbLong);
  id->Attributes(db::dbAutoIncrField);
  table->Fields()->Append(id);
  table->Fields()->Append(table->CreateField("owner", db::dbLong));
  table->Fields()->Append(table->CreateField("hits", db::dbLong));
  database->TableDefs()->Append(table);
  auto rows = database->OpenRecordset("counters");
  for (int i = 0; i < 2 * kRowsPerOwner; ++i) {
    rows->AddNew();
    rows->Fields("owner")->Value(Variant(int32_t{i % 2}));
    rows->Fields("hits")->Value(Variant(int32_t{0}));
    rows->Update();
  }
  rows->Close();
  database->Close();
  if (wal) {
    sqlite3* handle = nullptr;
    sqlite3_open(path.c_str(), &handle);
    sqlite3_exec(handle, "PRAGMA journal_mode = WAL", nullptr, nullptr, nullptr);
    sqlite3_close(handle);
  }
}

// One process: increments the hits of its owner's first rows and saves, adding a record now and then,
// until the time is up.
Figures Work(const std::string& path, int owner) {
  Figures figures;
  State() = ThreadState{};
  State().log_disabled = true;
  State().suppress_all_messages = true;
  auto layer = std::make_shared<DataLayer>();
  layer->SetDatabaseByPath(path);
  layer->GetRecordset("SELECT * FROM counters WHERE owner = " + std::to_string(owner) + " ORDER BY id");
  const auto end = std::chrono::steady_clock::now() + std::chrono::duration<double>(kSeconds);
  for (int round = 1; std::chrono::steady_clock::now() < end; ++round) {
    for (int i = 1; i <= kRowsPerOwner; ++i) {
      layer->MoveSpecific(i);
      layer->SetFieldValue("hits", Variant(CLng(layer->FieldValue("hits")) + 1));
    }
    if (round % 5 == 0) {
      layer->AddNew();
      layer->SetFieldValue("owner", Variant(int32_t{owner}));
      layer->SetFieldValue("hits", Variant(int32_t{-1}));
    }
    const auto start = std::chrono::steady_clock::now();
    const bool saved = layer->Save();
    const int ms = static_cast<int>(
        std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() - start).count());
    figures.longest_ms = std::max(figures.longest_ms, ms);
    if (saved) {
      ++figures.saves;
      if (round % 5 == 0) ++figures.inserted;
    } else {
      if (figures.failures++ == 0) {
        std::snprintf(figures.first_error, sizeof figures.first_error, "%s", layer->ErrorStatus().c_str());
      }
      break;  // the marks stay; the counts below would no longer add up
    }
  }
  return figures;
}

TEST_F(Contention, TwoProcessesSavingIntoOneFileNeverFail) {
  for (bool wal : {false, true}) {
    SCOPED_TRACE(wal ? "WAL" : "rollback journal");
    const std::string path = dir_.File(wal ? "contended-wal.db" : "contended.db");
    MakeCounters(path, wal);
    Figures figures[2];
    pid_t children[2];
    int pipes[2][2];
    for (int owner = 0; owner < 2; ++owner) {
      ASSERT_EQ(::pipe(pipes[owner]), 0);
      children[owner] = ::fork();
      ASSERT_GE(children[owner], 0);
      if (children[owner] == 0) {
        Figures mine = Work(path, owner);
        ssize_t written = ::write(pipes[owner][1], &mine, sizeof mine);
        ::_exit(written == static_cast<ssize_t>(sizeof mine) ? 0 : 1);
      }
      ::close(pipes[owner][1]);
    }
    for (int owner = 0; owner < 2; ++owner) {
      ASSERT_EQ(::read(pipes[owner][0], &figures[owner], sizeof(Figures)), static_cast<ssize_t>(sizeof(Figures)));
      ::close(pipes[owner][0]);
      int status = 0;
      ::waitpid(children[owner], &status, 0);
      EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
    }

    auto database = db::DBEngine::Default()->OpenDatabase(path);
    for (int owner = 0; owner < 2; ++owner) {
      const Figures& f = figures[owner];
      std::printf("[ figures  ] %s, process %d: %d saves, %d failed, %d records added, longest save %d ms\n",
                  wal ? "WAL" : "rollback journal", owner, f.saves, f.failures, f.inserted, f.longest_ms);
      EXPECT_EQ(f.failures, 0) << f.first_error;
      EXPECT_GT(f.saves, 10);
      const std::string own = "FROM counters WHERE owner = " + std::to_string(owner);
      auto hits = database->OpenRecordset("SELECT sum(hits), count(*) " + own + " AND hits >= 0");
      EXPECT_EQ(CLng(hits->Fields(0)->Value()), f.saves * kRowsPerOwner);
      EXPECT_EQ(CLng(hits->Fields(1)->Value()), kRowsPerOwner);
      auto added = database->OpenRecordset("SELECT count(*) " + own + " AND hits = -1");
      EXPECT_EQ(CLng(added->Fields(0)->Value()), f.inserted);
    }
    database->Close();
  }
}

}  // namespace
}  // namespace quorbex::test
