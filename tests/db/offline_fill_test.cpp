// FillFromDAORecordset and OpenQueryRecordset against real SQLite files.
#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "platform/message_box.h"
#include "quorbex/clsOfflineRecordset.h"
#include "quorbex/engine.h"
#include "service/open_query.h"
#include "service/thread_state.h"
#include "support/platform_fakes.h"
#include "support/temp_dir.h"

namespace quorbex {

using namespace quorbex::internal;
namespace {

class OfflineFill : public ::testing::Test {
 protected:
  void SetUp() override {
    State() = ThreadState{};
    Locale::SetCurrent(Locale::C());
    box_ = std::make_shared<test::FakeMessageBox>();
    box_scope_ = std::make_unique<platform::MessageBoxScope>(box_);
    db_ = db::DBEngine::Default()->CreateDatabase(dir_.File("fill.db"));
    db_->Execute(
        "CREATE TABLE items (id INTEGER PRIMARY KEY AUTOINCREMENT, name VARCHAR(20), price CURRENCY, "
        "added DATETIME, active BOOLEAN)");
    db_->Execute(
        "INSERT INTO items (name, price, added, active) VALUES ('Apfel', 1.25, '2024-03-01 08:30:00', 1), "
        "('Birne', NULL, NULL, 0), ('Kiwi', 3, '2024-03-02 00:00:00', 1)");
    db_->Execute("CREATE TABLE tags (item INTEGER, tag VARCHAR(10))");
    db_->Execute("INSERT INTO tags VALUES (1, 'rot'), (3, 'grün')");
    State().current_database = db_;
    State().database_set = true;
  }

  void TearDown() override {
    db_->Close();
    State() = ThreadState{};
  }

  test::TempDir dir_;
  std::shared_ptr<db::Database> db_;
  std::shared_ptr<test::FakeMessageBox> box_;
  std::unique_ptr<platform::MessageBoxScope> box_scope_;
};

TEST_F(OfflineFill, CopiesRowsWithNamesTypesAndValues) {
  auto rs = OpenQueryRecordset("SELECT * FROM items ORDER BY id");
  ASSERT_TRUE(rs);
  clsOfflineRecordset offline;
  EXPECT_TRUE(offline.FillFromDAORecordset(rs, true));
  EXPECT_FALSE(rs);  // closed and cleared
  EXPECT_FALSE(offline.RecordsetIsReadOnly);
  ASSERT_EQ(offline.RecordCount(), 3);
  ASSERT_EQ(offline.RecordCollection()->Count(), 3);

  const char* names[] = {"id", "name", "price", "added", "active"};
  const int32_t types[] = {db::dbLong, db::dbText, db::dbCurrency, db::dbDate, db::dbBoolean};
  for (int32_t i = 1; i <= 3; ++i) {
    auto record = offline.Records(i);
    ASSERT_EQ(record->FieldCount(), 5);
    EXPECT_FALSE(record->HasChanged);
    EXPECT_FALSE(record->NewlyAdded);
    for (int32_t j = 1; j <= 5; ++j) {
      EXPECT_EQ(record->Fields(j)->Description, names[j - 1]);
      EXPECT_EQ(record->Fields(j)->lngFieldType, types[j - 1]);
      EXPECT_FALSE(record->Fields(j)->HasChanged);
      // One stored name per column, shared by all records.
      EXPECT_TRUE(record->Fields(j)->Description.SharesStorageWith(offline.Records(1)->Fields(j)->Description));
    }
  }
  auto first = offline.Records(1);
  EXPECT_TRUE(first->Fields(1)->varValue.SameAs(Variant(1)));
  EXPECT_TRUE(first->Fields(2)->varValue.SameAs(Variant("Apfel")));
  EXPECT_TRUE(first->Fields(3)->varValue.SameAs(Variant(Currency{12500})));
  EXPECT_TRUE(first->Fields(4)->varValue.SameAs(Variant(MakeDate({2024, 3, 1, 8, 30, 0}))));
  EXPECT_TRUE(first->Fields(5)->varValue.SameAs(Variant(true)));
  auto second = offline.Records(2);
  EXPECT_TRUE(second->Fields(3)->varValue.IsNull());  // Null stays Null in the stored value
  EXPECT_TRUE(second->Fields(3)->Value().SameAs(Variant("")));
  EXPECT_TRUE(second->Fields(5)->varValue.SameAs(Variant(false)));
}

TEST_F(OfflineFill, EmptyResultCountsAsAskedAndStillCloses) {
  auto rs = OpenQueryRecordset("SELECT * FROM items WHERE id < 0");
  ASSERT_TRUE(rs);
  auto keep = rs;
  clsOfflineRecordset offline;
  EXPECT_FALSE(offline.FillFromDAORecordset(rs, true));
  EXPECT_FALSE(rs);
  EXPECT_THROW(keep->RecordCount(), db::EngineError);  // closed
  EXPECT_EQ(offline.RecordCount(), 0);
  EXPECT_EQ(offline.RecordCollection()->Count(), 0);

  auto again = OpenQueryRecordset("SELECT * FROM items WHERE id < 0");
  clsOfflineRecordset accepted;
  EXPECT_TRUE(accepted.FillFromDAORecordset(again, false, true));
  ASSERT_TRUE(again);  // left open
  EXPECT_TRUE(again->EOF_());
  EXPECT_EQ(accepted.RecordCount(), 0);
}

TEST_F(OfflineFill, WithoutCloseTheRecordsetStaysAfterTheLastRow) {
  auto rs = OpenQueryRecordset("SELECT id, name FROM items ORDER BY id");
  auto original = rs;
  clsOfflineRecordset offline;
  EXPECT_TRUE(offline.FillFromDAORecordset(rs, false));
  ASSERT_EQ(rs, original);
  EXPECT_TRUE(rs->EOF_());
  EXPECT_EQ(rs->RecordCount(), 3);
  rs->MoveFirst();
  EXPECT_TRUE(rs->Fields("name")->Value().SameAs(Variant("Apfel")));
  EXPECT_EQ(offline.RecordCount(), 3);
}

TEST_F(OfflineFill, ReadOnlyRecordsetsAndFailuresAreReported) {
  auto joined = OpenQueryRecordset("SELECT i.id, t.tag FROM items i JOIN tags t ON t.item = i.id ORDER BY i.id");
  clsOfflineRecordset offline;
  EXPECT_TRUE(offline.FillFromDAORecordset(joined, true));
  EXPECT_TRUE(offline.RecordsetIsReadOnly);
  EXPECT_EQ(offline.RecordCount(), 2);
  EXPECT_TRUE(offline.Records(2)->Fields(2)->varValue.SameAs(Variant("grün")));

  auto snapshot = OpenQueryRecordset("SELECT * FROM items", kOpenReadOnly);
  ASSERT_TRUE(snapshot);
  EXPECT_FALSE(snapshot->Updatable());
  clsOfflineRecordset from_snapshot;
  EXPECT_TRUE(from_snapshot.FillFromDAORecordset(snapshot, true));
  EXPECT_TRUE(from_snapshot.RecordsetIsReadOnly);

  std::shared_ptr<db::Recordset> nothing;
  clsOfflineRecordset none;
  EXPECT_FALSE(none.FillFromDAORecordset(nothing, true));
  EXPECT_EQ(none.RecordCount(), 0);

  // A recordset closed behind the copy's back ends it with False.
  auto closed = OpenQueryRecordset("SELECT * FROM items");
  closed->Close();
  clsOfflineRecordset late;
  EXPECT_FALSE(late.FillFromDAORecordset(closed, true));
  EXPECT_EQ(late.RecordCount(), 0);
}

TEST_F(OfflineFill, OpenQueryOpensUpdatableOrReadOnly) {
  auto rs = OpenQueryRecordset("SELECT * FROM items WHERE id = 2");
  ASSERT_TRUE(rs);
  EXPECT_TRUE(rs->Updatable());
  rs->Edit();
  rs->Fields("name")->Value("Quitte");
  rs->Update();
  EXPECT_TRUE(OpenQueryRecordset("SELECT name FROM items WHERE id = 2")->Fields(0)->Value().SameAs(Variant("Quitte")));
  EXPECT_EQ(State().error_text, "");
  EXPECT_EQ(box_->Count(), 0u);
  EXPECT_EQ(db_->QueryDefs()->Count(), 0);  // the unnamed query definition is never stored
}

TEST_F(OfflineFill, OpenQueryFailureReportsShortAndLongTexts) {
  const std::string sql = "SELECT * FROM nowhere";
  std::string description;
  try {
    db_->OpenRecordset(sql);
  } catch (const db::EngineError& e) {
    description = e.what();
  }
  ASSERT_FALSE(description.empty());

  EXPECT_EQ(OpenQueryRecordset(sql), nullptr);
  EXPECT_EQ(State().error_text,
            "\r\n1) Datenbank-Abfragefehler. Interner Fehler: " + description + " | SQL-Abfrage: " + sql);
  ASSERT_EQ(box_->Count(), 1u);
  auto prompt = box_->Prompts()[0];
  EXPECT_EQ(prompt.text,
            "Es ist ein Datenbank-Abfragefehler entstanden. Eine Abfrage ist nicht korrekt und hat einen Fehler "
            "erzeugt.\r\n\r\nInterner Fehler: " + description + "\r\nSQL-Abfrage: " + sql);
  EXPECT_EQ(prompt.style & platform::vbCritical, platform::vbCritical);

  // With messages suppressed only the short form is collected.
  State().suppress_all_messages = true;
  EXPECT_EQ(OpenQueryRecordset("SELEC 1"), nullptr);
  EXPECT_EQ(box_->Count(), 1u);
  EXPECT_NE(State().error_text.find("\r\n2) Datenbank-Abfragefehler. Interner Fehler: "), std::string::npos);
  EXPECT_NE(State().error_text.find(" | SQL-Abfrage: SELEC 1"), std::string::npos);

  // An action statement is no query.
  EXPECT_EQ(OpenQueryRecordset("DELETE FROM items"), nullptr);
  EXPECT_EQ(State().error_count, 3);
  auto rows = db_->OpenRecordset("items");
  rows->MoveLast();
  EXPECT_EQ(rows->RecordCount(), 3);
}

TEST_F(OfflineFill, OpenQueryWithoutDatabaseSaysSo) {
  State().suppress_all_messages = true;
  State().current_database.reset();
  EXPECT_EQ(OpenQueryRecordset("SELECT 1"), nullptr);
  EXPECT_NE(State().error_text.find("Interner Fehler: No database is bound"), std::string::npos) << State().error_text;
  EXPECT_NE(State().error_text.find(" | SQL-Abfrage: SELECT 1"), std::string::npos);

  State().current_database = db_;
  db_->Close();
  EXPECT_EQ(OpenQueryRecordset("SELECT 1"), nullptr);
  EXPECT_EQ(State().error_count, 2);
  EXPECT_NE(State().error_text.find("closed"), std::string::npos);
}

}  // namespace
}  // namespace quorbex
