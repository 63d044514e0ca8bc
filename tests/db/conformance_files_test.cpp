// What every file-based backend does with its files: read-only and write-protected files, exclusive
// use, and compaction. Which backend opens which file is engine_dispatch_test.cpp's.
#include <gtest/gtest.h>

#include <sys/stat.h>
#include <unistd.h>

#include <string>

#include "db/conformance_fixture.h"

namespace quorbex::db::test {
namespace {

using EngineFiles = EngineConformance;

TEST_P(EngineFiles, ReadOnlyWriteProtectedAndExclusiveFilesKeepWritersOut) {
  if (!ctx_->FileBased()) GTEST_SKIP() << "databases of this backend are not files";
  REQUIRE_WRITABLE();
  auto engine = DBEngine::Default();
  // Read-only: opened so, or write-protected on disk.
  auto db = PeopleDatabase(1);
  std::string path = db->Name();
  db->Close();
  auto reader = engine->OpenDatabase(path, false, true);
  EXPECT_FALSE(reader->Updatable());
  EXPECT_EQ(ErrorOf([&] { reader->Execute("DELETE FROM people"); }).Kind(), ErrorKind::ReadOnly);
  reader->Close();
  if (::geteuid() != 0) {  // the superuser may write anything
    ::chmod(path.c_str(), 0444);
    auto protected_db = engine->OpenDatabase(path);
    EXPECT_FALSE(protected_db->Updatable());
    EXPECT_EQ(ErrorOf([&] { protected_db->Execute("DELETE FROM people"); }).Kind(), ErrorKind::ReadOnly);
    protected_db->Close();
    ::chmod(path.c_str(), 0644);
  }

  // Exclusive use keeps other connections out.
  DBEngine::Default()->BusyTimeout(100);
  auto exclusive = engine->OpenDatabase(path, true);
  EXPECT_EQ(ErrorOf([&] { engine->OpenDatabase(path)->OpenRecordset("people"); }).Kind(), ErrorKind::Busy);
  exclusive->Close();
  EXPECT_EQ(CountRows(*engine->OpenDatabase(path), "people"), 1);
}

TEST_P(EngineFiles, CompactionShrinksAFileAfterDeletes) {
  if (!ctx_->FileBased()) GTEST_SKIP() << "databases of this backend are not files";
  REQUIRE_WRITABLE(Feature::Compaction);
  auto db = PeopleDatabase(0);
  db->BeginTrans();
  for (int i = 0; i < 2000; ++i) {
    db->Execute("INSERT INTO people (name, city) VALUES ('" + std::to_string(i) + "', '" + std::string(400, 'x') + "')");
  }
  db->CommitTrans();
  db->Execute("DELETE FROM people WHERE id > 10");
  std::string path = db->Name();
  db->Close();
  long long before = ctx_->SizeOf(path);

  std::string compacted = ctx_->NewPath("compacted.db");
  auto engine = DBEngine::Default();
  engine->CompactDatabase(path, compacted);
  long long after = ctx_->SizeOf(compacted);
  EXPECT_LT(after * 4, before) << before << " -> " << after;
  EXPECT_EQ(CountRows(*engine->OpenDatabase(compacted), "people"), 10);

  EXPECT_EQ(ErrorOf([&] { engine->CompactDatabase(path, compacted); }).Kind(), ErrorKind::AlreadyExists);
  EXPECT_EQ(ErrorOf([&] { engine->CompactDatabase(ctx_->NewPath("none.db"), ctx_->NewPath("x.db")); }).Kind(),
            ErrorKind::FileNotFound);

  // In use: another connection holds a lock.
  engine->BusyTimeout(100);
  auto user = engine->OpenDatabase(path);
  user->BeginTrans();
  user->Execute("DELETE FROM people WHERE id = 1");
  std::string blocked = ctx_->NewPath("blocked.db");
  EXPECT_EQ(ErrorOf([&] { engine->CompactDatabase(path, blocked); }).Kind(), ErrorKind::Busy);
  EXPECT_EQ(ctx_->SizeOf(blocked), -1);  // nothing left behind
  user->Rollback();
  engine->CompactDatabase(path, blocked);
  EXPECT_EQ(CountRows(*engine->OpenDatabase(blocked), "people"), 10);
}

INSTANTIATE_TEST_SUITE_P(Backends, EngineFiles, ::testing::ValuesIn(AllContexts()), ContextTestName);

}  // namespace
}  // namespace quorbex::db::test
