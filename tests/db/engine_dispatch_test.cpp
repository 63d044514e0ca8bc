// Which engine opens which file: DBEngine asks the backends of its list, each by a file's first bytes,
// and a new database is made by the embedded default. Not per backend, so not in the conformance suite.
#include <gtest/gtest.h>

#include <sys/stat.h>

#include <fstream>
#include <string>

#include "db/conformance_fixture.h"  // ErrorOf
#include "quorbex/engine.h"
#include "support/temp_dir.h"

namespace quorbex::db::test {
namespace {

TEST(EngineDispatch, OpeningReportsMissingForeignAndUnbuiltFormats) {
  quorbex::test::TempDir dir;
  auto engine = DBEngine::Default();
  std::string missing = dir.File("missing.db");
  auto not_found = ErrorOf([&] { engine->OpenDatabase(missing); });
  EXPECT_EQ(not_found.Kind(), ErrorKind::FileNotFound);
  EXPECT_EQ(not_found.Description(), "Could not find file '" + missing + "'.");

  std::string text = dir.File("notes.txt");
  std::ofstream(text) << "just some text, long enough to look like a header of something";
  auto foreign = ErrorOf([&] { engine->OpenDatabase(text); });
  EXPECT_EQ(foreign.Kind(), ErrorKind::NotADatabase);
  EXPECT_EQ(foreign.Description(), "Unrecognized database format '" + text + "'.");
  std::string empty = dir.File("empty.db");
  std::ofstream(empty).flush();
  EXPECT_EQ(ErrorOf([&] { engine->OpenDatabase(empty); }).Kind(), ErrorKind::NotADatabase);
  EXPECT_EQ(ErrorOf([&] { engine->OpenDatabase(dir.File("")); }).Kind(), ErrorKind::NotADatabase);

  std::string jet = dir.File("old.mdb");
  std::ofstream(jet, std::ios::binary) << std::string("\0\x01\0\0Standard Jet DB\0", 20) << std::string(200, '\0');
  auto unsupported = ErrorOf([&] { engine->OpenDatabase(jet); });
#ifdef QUORBEX_WITH_JET
  // The Jet backend takes the file by its signature and finds nothing behind it.
  EXPECT_EQ(unsupported.Kind(), ErrorKind::NotADatabase);
  EXPECT_NE(unsupported.Description().find(jet), std::string::npos);
#else
  EXPECT_EQ(unsupported.Kind(), ErrorKind::NotSupported);
  EXPECT_NE(unsupported.Description().find("not supported yet"), std::string::npos);
  EXPECT_EQ(ErrorOf([&] { engine->OpenDatabase(std::string(QUORBEX_SHARED_DATA) + "/ASampleDatabase.accdb"); }).Kind(),
            ErrorKind::NotSupported);
#endif
}

TEST(EngineDispatch, OnlyRegularFilesAreOpened) {
  // Reading a FIFO would wait for a writer forever; a device or a socket is no database either.
  quorbex::test::TempDir dir;
  auto engine = DBEngine::Default();
  std::string fifo = dir.File("pipe.db");
  ASSERT_EQ(::mkfifo(fifo.c_str(), 0600), 0);
  auto refused = ErrorOf([&] { engine->OpenDatabase(fifo); });
  EXPECT_EQ(refused.Kind(), ErrorKind::NotADatabase);
  EXPECT_EQ(refused.Description(), "'" + fifo + "' is a FIFO, not a database file.");
  EXPECT_EQ(ErrorOf([&] { engine->CompactDatabase(fifo, dir.File("copy.db")); }).Kind(), ErrorKind::NotADatabase);
  auto device = ErrorOf([&] { engine->OpenDatabase("/dev/null"); });
  EXPECT_EQ(device.Description(), "'/dev/null' is a device, not a database file.");
}

TEST(EngineDispatch, ANewDatabaseIsSqliteWhateverItsExtension) {
  quorbex::test::TempDir dir;
  auto engine = DBEngine::Default();
  // A new database is a SQLite file whatever its extension; an existing file is not overwritten.
  std::string created = dir.File("new.mdb");
  engine->CreateDatabase(created, dbLangGeneral, dbVersion40)->Close();
  EXPECT_EQ(quorbex::test::ReadBytes(created).substr(0, 16), std::string("SQLite format 3\0", 16));
  EXPECT_EQ(ErrorOf([&] { engine->CreateDatabase(created); }).Kind(), ErrorKind::AlreadyExists);
  EXPECT_TRUE(engine->OpenDatabase(created)->IsOpen());
  EXPECT_EQ(ErrorOf([&] { engine->CreateDatabase(dir.File("no/such/folder.db")); }).Kind(), ErrorKind::General);
}

}  // namespace
}  // namespace quorbex::db::test
