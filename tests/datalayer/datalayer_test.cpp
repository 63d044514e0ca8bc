#include <cmath>
#include <functional>
#include <iterator>
#include <string>
#include <utility>
#include <vector>

#include "datalayer/datalayer_fixture.h"
#include "support/forwarding_database.h"
#include "support/temp_dir.h"

namespace quorbex::test {

using namespace quorbex::internal;
namespace {

using DataLayerCore = DataLayerTest;
// Saving and removing records, on every writable backend.
using DataLayerSave = DataLayerPerBackend;

TEST_F(DataLayerCore, ErrorStatusNumbersEntriesAndClearsOnEmptyText) {
  DataLayer layer;
  layer.ErrorStatus("");
  layer.ErrorStatus("A");
  layer.ErrorStatus("B");
  EXPECT_EQ(layer.ErrorStatus(), "\r\n1) A\r\n2) B");
  layer.ErrorStatus("");
  layer.ErrorStatus("C");
  EXPECT_EQ(layer.ErrorStatus(), "\r\n1) C");
}

TEST_F(DataLayerCore, TwoObjectsOnAThreadShareBindingAndErrorText) {
  auto first = Bound();
  auto second = std::make_shared<DataLayer>();
  second->GetRecordset("SELECT * FROM customers");
  EXPECT_EQ(second->RecordCount(), 3);
  first->ErrorStatus("seen by both");
  EXPECT_EQ(second->ErrorStatus(), "\r\n1) seen by both");
  first->bolCloseDBOnExit = true;
  first.reset();
  EXPECT_FALSE(State().current_database);
}

TEST_F(DataLayerCore, OpeningFailuresKeepThePreviousBinding) {
  auto layer = Bound();
  auto bound = State().current_database;
  layer->SetDatabaseByPath(dir_.File("missing.db"));
  EXPECT_EQ(State().current_database, bound);
  EXPECT_NE(layer->ErrorStatus().find("1) Fehler beim Öffnen der angegebenen Datenbank: "), std::string::npos);
  EXPECT_NE(layer->ErrorStatus().find("missing.db"), std::string::npos);
}

TEST_F(DataLayerCore, StandardPathIsStoredAndAMissingFileRaises4000) {
  DataLayer layer;
  try {
    layer.SetStandardDBPathFile(dir_.File("nothing.db"));
    FAIL() << "no error raised";
  } catch (const AutomationError& e) {
    EXPECT_EQ(e.Number(), 4000);
    EXPECT_EQ(e.Description(), "Standard DBpath is invalid");
    EXPECT_EQ(e.Source(), "Quorbex Data Layer");
  }
  EXPECT_EQ(settings_->Get("Quorbex DataLayer", "Settings", "DBPath", ""), dir_.File("nothing.db"));

  // A load with no database bound opens the one the settings name.
  layer.SetStandardDBPathFile(db_path_);
  auto other = std::make_shared<DataLayer>();
  other->GetRecordset("SELECT * FROM customers");
  EXPECT_EQ(other->RecordCount(), 3);
  EXPECT_FALSE(State().database_set);
}

TEST_F(DataLayerCore, LoadingWithoutAnyDatabaseShowsTheInternalErrorMessage) {
  DataLayer layer;
  EXPECT_FALSE(layer.GetRecordset("SELECT 1"));
  ASSERT_EQ(box_->Count(), 1u);
  EXPECT_EQ(box_->Prompts()[0].title, "Interner Fehler");
  EXPECT_NE(box_->Prompts()[0].text.find("\r\n\r\nUse Property SetDatabase"), std::string::npos);
  layer.SuppressAllMessages(true);
  layer.GetRecordset("SELECT 1");
  EXPECT_EQ(box_->Count(), 1u);
  EXPECT_NE(layer.ErrorStatus().find("1) Interner Fehler, die Datenbank wurde nicht gesetzt."), std::string::npos);
}

TEST_F(DataLayerCore, GetRecordsetReturnsFalseAndLoadsOnlyOnce) {
  auto layer = Bound();
  EXPECT_FALSE(layer->GetRecordset("SELECT * FROM customers ORDER BY id"));
  EXPECT_EQ(layer->RecordCount(), 3);
  EXPECT_EQ(layer->ActualPosition(), 1);
  EXPECT_EQ(layer->ErrorStatus(), "");
  layer->GetRecordset("SELECT * FROM customers WHERE id = 1");
  EXPECT_EQ(layer->RecordCount(), 3);
  EXPECT_EQ(layer->SQLStringInUse(), "SELECT * FROM customers ORDER BY id");
  EXPECT_EQ(layer->ErrorStatus(), "");
}

TEST_F(DataLayerCore, GetRecordsetRefusesInsertAndUpdateByTheirFirstSixLetters) {
  auto layer = Bound();
  layer->GetRecordset("insert into customers (name) values ('x')");
  EXPECT_EQ(layer->ErrorStatus(), "\r\n1) UPDATE or INSERT Statements are not allowed for the Method GetRecordset");
  layer->GetRecordset("Update customers set name = 'x'");
  EXPECT_EQ(layer->RecordCount(), 0);
  EXPECT_EQ(DbValue("SELECT COUNT(*) FROM customers WHERE name = 'x'").AsLong(), 0);
}

TEST_F(DataLayerCore, QueryFailuresAreReportedAndLeaveNothingLoaded) {
  auto layer = Bound();
  layer->SuppressAllMessages(true);
  bool realtime = true;
  layer->GetRecordset("SELEC * FRM customers", realtime);
  EXPECT_FALSE(realtime);
  EXPECT_EQ(layer->RecordCount(), 0);
  EXPECT_NE(layer->ErrorStatus().find("Datenbank-Abfragefehler. Interner Fehler: "), std::string::npos);
  EXPECT_NE(layer->ErrorStatus().find("SQL-Abfrage: SELEC * FRM customers"), std::string::npos);

  auto missing = std::make_shared<DataLayer>();
  missing->GetRecordset("SELECT * FROM nowhere");
  EXPECT_NE(missing->ErrorStatus().find("nowhere"), std::string::npos);
  EXPECT_EQ(missing->RecordCount(), 0);
}

TEST_F(DataLayerCore, AnEmptyResultIsNotLoadedAndDropsNotLoadedMessages) {
  auto layer = Loaded("SELECT * FROM customers WHERE id = 99");
  EXPECT_EQ(layer->RecordCount(), 0);
  layer->MoveNext();
  layer->FieldValue("name");
  EXPECT_EQ(layer->ErrorStatus(), "");
  // Not loaded, so a later load is still accepted.
  layer->GetRecordset("SELECT * FROM customers");
  EXPECT_EQ(layer->RecordCount(), 3);

  DataLayer never;
  never.MoveFirst();
  EXPECT_EQ(never.ErrorStatus(), "\r\n1) Recordset not Loaded!");
}

TEST_F(DataLayerCore, CursorMovesOneStepAndClampsAtBothEnds) {
  auto layer = Loaded();
  // Each move, then where the cursor stands and which record it reads.
  const std::vector<std::pair<std::function<void()>, int32_t>> steps = {
      {[&] { layer->MovePrevious(); }, 1}, {[&] { layer->MoveNext(); }, 2},
      {[&] { layer->MoveNext(); }, 3},     {[&] { layer->MoveNext(); }, 3},
      {[&] { layer->MovePrevious(); }, 2}, {[&] { layer->MovePrevious(); }, 1},
      {[&] { layer->MoveLast(); }, 3},     {[&] { layer->MoveFirst(); }, 1},
      {[&] { layer->MoveSpecific(2); }, 2}, {[&] { layer->MoveSpecific(0); }, 1},
      {[&] { layer->MoveSpecific(-7); }, 1}, {[&] { layer->MoveSpecific(3); }, 3},
      {[&] { layer->MoveSpecific(4); }, 3}, {[&] { layer->MoveSpecific(99); }, 3},
  };
  const char* names[] = {"", "Anna", "Bernd", "Clara"};
  for (size_t i = 0; i < steps.size(); ++i) {
    steps[i].first();
    EXPECT_EQ(layer->ActualPosition(), steps[i].second) << "step " << i;
    EXPECT_EQ(layer->FieldValue("name").AsString(), names[steps[i].second]) << "step " << i;
  }
  EXPECT_EQ(layer->ErrorStatus(), "");

  // With no records MoveSpecific has nothing to clamp to: the cursor ends at 0.
  DataLayer empty;
  empty.MoveSpecific(5);
  EXPECT_EQ(empty.ActualPosition(), 0);
  for (auto move : {&DataLayer::MoveFirst, &DataLayer::MoveLast, &DataLayer::MoveNext, &DataLayer::MovePrevious}) {
    (empty.*move)();
    EXPECT_EQ(empty.ActualPosition(), 0);
  }
  EXPECT_EQ(empty.ErrorStatus(), "\r\n1) Recordset not Loaded!\r\n2) Recordset not Loaded!"
                                 "\r\n3) Recordset not Loaded!\r\n4) Recordset not Loaded!");
}

TEST_F(DataLayerCore, FieldLookupRulesDifferBetweenFieldIDAndValueAccess) {
  auto layer = Loaded();
  EXPECT_EQ(layer->FieldID("NAME"), 2);
  EXPECT_EQ(layer->FieldValue(" Name ").AsString(), "Anna");
  EXPECT_EQ(layer->FieldValue("", 3).AsString(), "Wien");
  EXPECT_EQ(layer->FieldValue("nothing").IsEmpty(), true);
  EXPECT_EQ(layer->ErrorStatus(), "");
  EXPECT_EQ(layer->FieldID("nothing"), 0);
  EXPECT_EQ(layer->ErrorStatus(), "\r\n1) FieldID: Fieldname 'nothing' not found (or error: )");
  // Blanks around a field's own name do not count either.
  layer->FieldObject("city")->Description = "  city  ";
  EXPECT_EQ(layer->FieldValue("CITY").AsString(), "Wien");
  EXPECT_EQ(layer->FieldObject("city ")->Description, "  city  ");
  // Null reads as the empty text; varValue keeps it.
  layer->MoveLast();
  EXPECT_EQ(layer->FieldValue("balance").AsString(), "");
  EXPECT_TRUE(layer->FieldObject("balance")->varValue.IsNull());
  // With every record gone only the query's own names are found.
  bool offline = false;
  for (int32_t left = layer->RecordCount(); left > 0; --left) {
    layer->MoveFirst();
    ASSERT_TRUE(layer->RemoveRecord(offline));
  }
  layer->ErrorStatus("");
  EXPECT_EQ(layer->FieldID("name"), 2);
  EXPECT_EQ(layer->FieldID("nothing"), 0);
  EXPECT_EQ(layer->ErrorStatus(), "\r\n1) No Records set!");
}

TEST_F(DataLayerCore, SetFieldValueMarksFieldRecordAndObject) {
  auto layer = Loaded();
  layer->MoveSpecific(2);
  layer->SetFieldValue("city", "Salzburg");
  auto record = layer->GetOfflineRecordset()->Records(2);
  EXPECT_TRUE(record->HasChanged);
  EXPECT_TRUE(layer->FieldObject("city")->HasChanged);
  EXPECT_FALSE(layer->FieldObject("name")->HasChanged);
  EXPECT_TRUE(layer->DataChanged());
  layer->SetFieldValue("town", "x");
  EXPECT_EQ(layer->ErrorStatus(), "\r\n1) Could not save any value because the name town was not rekognized");
  EXPECT_EQ(layer->FieldValueConvertedYesNo("active").AsString(), "Nein");
  layer->MoveFirst();
  EXPECT_EQ(layer->FieldValueConvertedYesNo("active").AsString(), "Ja");
  EXPECT_EQ(layer->FieldValueConvertedYesNo("name").AsString(), "Anna");
}

TEST_F(DataLayerCore, AttachChecksItsFourConditionsInOrder) {
  auto layer = std::make_shared<DataLayer>();
  auto records = std::make_shared<clsOfflineRecordset>();
  records->Add(2);
  records->FieldDim(1, "name");
  records->Tag = "allowattach";
  layer->AttachOfflineRecordset(records, "q", Variant(false));
  layer->AttachOfflineRecordset(records, "", Variant(true));
  layer->AttachOfflineRecordset(records, "q", Variant(true));
  EXPECT_EQ(layer->ErrorStatus(),
            "\r\n1) Attach OfflineRecordSet: If you are not sure, nothing will be done!"
            "\r\n2) Attach OfflineRecordSet: Query Must be handed over!"
            "\r\n3) Attach OfflineRecordSet: This OfflineRecordSet ist not allowed for attachement! "
            ".Tag=\"AllowAttach\"");
  records->Tag = "AllowAttach";
  layer->AttachOfflineRecordset(records, "q", Variant(true));
  EXPECT_EQ(layer->GetOfflineRecordset(), records);
  EXPECT_TRUE(layer->ReadOnly());
  EXPECT_EQ(layer->ActualPosition(), 0);
  layer->AttachOfflineRecordset(records, "q", Variant(true));
  EXPECT_NE(layer->ErrorStatus().find("4) Attach OfflineRecordSet: Recordset already loaded"), std::string::npos);
}

TEST_P(DataLayerSave, SaveWritesOnlyMarkedFieldsAndClearsTheMarks) {
  auto layer = Loaded();
  EXPECT_FALSE(layer->Save());  // nothing changed
  layer->MoveSpecific(2);
  layer->SetFieldValue("city", "Salzburg");
  layer->SetFieldValue("balance", 99.25);
  EXPECT_TRUE(layer->Save());
  EXPECT_FALSE(layer->DataChanged());
  EXPECT_FALSE(layer->GetOfflineRecordset()->Records(2)->HasChanged);
  EXPECT_FALSE(layer->FieldObject("city")->HasChanged);
  EXPECT_FALSE(layer->FieldObject("balance")->HasChanged);
  EXPECT_EQ(DbValue("SELECT city FROM customers WHERE id = 2").AsString(), "Salzburg");
  EXPECT_DOUBLE_EQ(CDbl(DbValue("SELECT balance FROM customers WHERE id = 2")), 99.25);
  EXPECT_EQ(DbValue("SELECT city FROM customers WHERE id = 1").AsString(), "Wien");
}

TEST_P(DataLayerSave, NewRecordsAreInsertedWithTheirWrittenFieldsAndGetTheirKey) {
  auto layer = Loaded();
  layer->AddNew();
  EXPECT_FALSE(layer->Save());  // a new record without writes is not saved
  EXPECT_EQ(layer->ActualPosition(), 4);
  layer->SetFieldValue("name", "Dora");
  layer->SetFieldValue("city", "Bregenz");
  layer->FieldObject("active")->Value(Variant(false));  // a value, but not marked as written
  EXPECT_TRUE(layer->Save());
  EXPECT_EQ(CLng(layer->FieldValue("id")), 4);
  EXPECT_FALSE(layer->GetOfflineRecordset()->Records(4)->NewlyAdded);
  EXPECT_EQ(DbValue("SELECT city FROM customers WHERE id = 4").AsString(), "Bregenz");
  // The column nobody wrote got the database's default.
  EXPECT_TRUE(DbValue("SELECT active FROM customers WHERE id = 4").IsNull());
  // A new record nobody wrote stays out of a save that writes another record.
  layer->AddNew();
  layer->MoveFirst();
  layer->SetFieldValue("city", "Melk");
  EXPECT_TRUE(layer->Save());
  EXPECT_EQ(DbValue("SELECT COUNT(*) FROM customers").AsLong(), 4);
  EXPECT_TRUE(layer->GetOfflineRecordset()->Records(5)->NewlyAdded);
}

TEST_P(DataLayerSave, AFailingRecordEndsTheSaveAndKeepsItsMarks) {
  auto layer = Loaded();
  layer->MoveSpecific(1);
  layer->SetFieldValue("city", "first");
  layer->MoveSpecific(2);
  layer->SetFieldValue("id", "1 OR 1=1");
  layer->SetFieldValue("city", "second");
  layer->MoveSpecific(3);
  layer->SetFieldValue("city", "third");
  EXPECT_FALSE(layer->Save());
  EXPECT_TRUE(layer->DataChanged());
  auto records = layer->GetOfflineRecordset();
  EXPECT_FALSE(records->Records(1)->HasChanged);
  EXPECT_TRUE(records->Records(2)->HasChanged);
  EXPECT_TRUE(records->Records(3)->HasChanged);
  EXPECT_EQ(DbValue("SELECT city FROM customers WHERE id = 1").AsString(), "first");
  EXPECT_EQ(DbValue("SELECT COUNT(*) FROM customers WHERE city IN ('second', 'third')").AsLong(), 0);
  EXPECT_NE(layer->ErrorStatus().find("Save: "), std::string::npos);

  // A key with no row fails the same way.
  auto other = Loaded();
  other->MoveSpecific(3);
  other->SetFieldValue("id", 77);
  other->SetFieldValue("city", "nowhere");
  EXPECT_FALSE(other->Save());
  EXPECT_TRUE(other->GetOfflineRecordset()->Records(3)->HasChanged);
}

TEST_P(DataLayerSave, SaveVisitsEveryRecordAndLeavesTheCursorOnTheLast) {
  auto layer = Loaded();
  layer->MoveSpecific(1);
  layer->SetFieldValue("city", "Krems");
  EXPECT_TRUE(layer->Save());
  EXPECT_EQ(layer->ActualPosition(), 3);

  // DataChanged with no record marked still walks every record.
  layer->MoveFirst();
  layer->SetFieldValue("", "x", 3);
  layer->GetOfflineRecordset()->Records(1)->HasChanged = false;
  EXPECT_TRUE(layer->Save());
  EXPECT_EQ(layer->ActualPosition(), 3);

  // A failing record keeps the cursor on itself.
  layer->MoveSpecific(2);
  layer->SetFieldValue("id", 99);
  EXPECT_FALSE(layer->Save());
  EXPECT_EQ(layer->ActualPosition(), 2);
}

TEST_P(DataLayerSave, ANewRecordTheLoadedQueryDoesNotShowFailsTheSave) {
  auto layer = Loaded("SELECT * FROM customers WHERE city = 'Wien'");
  layer->AddNew();
  layer->SetFieldValue("name", "Egon");
  layer->SetFieldValue("city", "Graz");
  EXPECT_FALSE(layer->Save());
  EXPECT_TRUE(layer->DataChanged());
  auto record = layer->GetOfflineRecordset()->Records(2);
  EXPECT_TRUE(record->HasChanged);
  EXPECT_TRUE(record->NewlyAdded);
  EXPECT_TRUE(record->FieldAt(3)->HasChanged);
  // The insert was taken back, and the key it read back with it: the record is new again.
  EXPECT_EQ(CLng(DbValue("SELECT COUNT(*) FROM customers")), 3);
  EXPECT_TRUE(record->FieldAt(1)->varValue.IsEmpty());
  EXPECT_FALSE(record->FieldAt(1)->HasChanged);
  EXPECT_NE(layer->ErrorStatus().find("No record with id '4'"), std::string::npos) << layer->ErrorStatus();

  // A marked field with no column in the loaded query fails a new record as it fails an update.
  auto wider = Loaded("SELECT id, name FROM customers ORDER BY id");
  wider->AddVirtualField("note");
  wider->AddNew();
  wider->SetFieldValue("name", "Fritz");
  wider->SetFieldValue("note", "offline only");
  EXPECT_FALSE(wider->Save());
  EXPECT_TRUE(wider->GetOfflineRecordset()->Records(4)->NewlyAdded);
  EXPECT_TRUE(wider->GetOfflineRecordset()->Records(4)->FieldAt(2)->HasChanged);
  EXPECT_NE(wider->ErrorStatus().find("Field 'note' (position 3) has no column in the loaded query"),
            std::string::npos)
      << wider->ErrorStatus();
  EXPECT_EQ(CLng(DbValue("SELECT COUNT(*) FROM customers")), 3);
}

// Fails the commit, as a commit fails when another connection holds the file too long.
class CommitFails : public ForwardingDatabase {
 public:
  using ForwardingDatabase::ForwardingDatabase;
  void CommitTrans() override { throw db::EngineError(db::ErrorKind::Busy, "database is locked"); }
};

TEST_P(DataLayerSave, AFailedCommitTakesBackKeysAndKeepsEveryMark) {
  auto layer = Bound();
  auto failing = std::make_shared<CommitFails>(State().current_database);
  layer->SetDatabase(std::static_pointer_cast<db::Database>(failing));
  layer->GetRecordset("SELECT * FROM customers ORDER BY id");
  layer->MoveSpecific(1);
  layer->SetFieldValue("city", "Krems");
  layer->AddNew();
  layer->SetFieldValue("name", "Dora");
  EXPECT_FALSE(layer->Save());
  EXPECT_NE(layer->ErrorStatus().find("Save: database is locked"), std::string::npos) << layer->ErrorStatus();
  auto records = layer->GetOfflineRecordset();
  EXPECT_TRUE(records->Records(1)->HasChanged);
  EXPECT_TRUE(records->Records(4)->NewlyAdded);
  EXPECT_TRUE(records->Records(4)->FieldAt(1)->varValue.IsEmpty());  // no key from the rolled-back insert
  EXPECT_EQ(CLng(DbValue("SELECT COUNT(*) FROM customers")), 3);
  EXPECT_EQ(DbValue("SELECT city FROM customers WHERE id = 1").AsString(), "Wien");

  // Another client takes the key the rolled-back insert had read; the retry inserts afresh, and
  // removing the unsaved record touches nobody's row.
  {
    auto other = db::DBEngine::Default()->OpenDatabase(db_path_);
    other->Execute("INSERT INTO customers (name) VALUES ('Other')");
    other->Close();
  }
  bool in_db = true;
  layer->MoveSpecific(4);
  auto retry = Bound();
  retry->GetRecordset("SELECT * FROM customers ORDER BY id");
  retry->AddNew();
  retry->SetFieldValue("name", "Dora");
  EXPECT_TRUE(retry->Save()) << retry->ErrorStatus();
  // A server's key counter does not roll back; either way the retry takes the key after Other's.
  const int32_t other_id = CLng(DbValue("SELECT id FROM customers WHERE name = 'Other'"));
  EXPECT_GE(other_id, 4);
  EXPECT_EQ(CLng(retry->FieldValue("id")), other_id + 1);
  EXPECT_FALSE(layer->RemoveRecord(in_db));
  EXPECT_EQ(CLng(DbValue("SELECT COUNT(*) FROM customers WHERE name = 'Other'")), 1);
}

TEST_P(DataLayerSave, TwoRecordsWithOneKeyFailAtTheSecond) {
  auto layer = Loaded();
  layer->MoveSpecific(1);
  layer->SetFieldValue("city", "first");
  layer->MoveSpecific(3);
  layer->FieldObject("id")->Value(Variant(1));
  layer->SetFieldValue("city", "second");
  EXPECT_FALSE(layer->Save());
  EXPECT_NE(layer->ErrorStatus().find("The id '1' occurs in more than one of the records being saved"),
            std::string::npos)
      << layer->ErrorStatus();
  EXPECT_FALSE(layer->GetOfflineRecordset()->Records(1)->HasChanged);
  EXPECT_TRUE(layer->GetOfflineRecordset()->Records(3)->HasChanged);
  EXPECT_EQ(DbValue("SELECT city FROM customers WHERE id = 1").AsString(), "first");
  EXPECT_EQ(layer->ActualPosition(), 3);
}

TEST_P(DataLayerSave, ATableJoinedWithItselfIsReadOnly) {
  auto layer = Loaded("SELECT c.id, c.name, d.city FROM customers c JOIN customers d ON d.id = c.id + 1");
  EXPECT_TRUE(layer->ReadOnly());
  layer->SetFieldValue("city", "EDITED");
  EXPECT_FALSE(layer->Save());
  EXPECT_EQ(DbValue("SELECT COUNT(*) FROM customers WHERE city = 'EDITED'").AsLong(), 0);
}

TEST_F(DataLayerCore, FailedInsertsAndCommitsReturnFalseAndKeepEveryMark) {
  {
    auto database = db::DBEngine::Default()->OpenDatabase(db_path_);
    database->Execute(
        "CREATE TABLE orders (id INTEGER PRIMARY KEY AUTOINCREMENT, customer INTEGER REFERENCES customers(id) "
        "DEFERRABLE INITIALLY DEFERRED, amount INTEGER CHECK (amount >= 0))");
    database->Execute("INSERT INTO orders (customer, amount) VALUES (1, 5), (2, 7)");
    database->Close();
  }
  auto layer = Loaded("SELECT * FROM orders ORDER BY id");
  State().current_database->Execute("PRAGMA foreign_keys = ON");
  auto records = layer->GetOfflineRecordset();

  // An insert the database refuses.
  layer->AddNew();
  layer->SetFieldValue("amount", -1);
  EXPECT_FALSE(layer->Save());
  EXPECT_NE(layer->ErrorStatus().find("1) Save: "), std::string::npos);
  EXPECT_TRUE(layer->DataChanged());
  EXPECT_TRUE(records->Records(3)->NewlyAdded);
  EXPECT_TRUE(records->Records(3)->HasChanged);
  EXPECT_TRUE(layer->FieldObject("amount")->HasChanged);
  EXPECT_EQ(DbValue("SELECT COUNT(*) FROM orders").AsLong(), 2);
  bool offline = false;
  EXPECT_TRUE(layer->RemoveRecord(offline));

  // A commit the database refuses (the deferred key check): nothing was written, so nothing is unmarked,
  // not even the record that was fine on its own.
  layer->ErrorStatus("");
  layer->MoveSpecific(1);
  layer->SetFieldValue("amount", 50);
  layer->MoveSpecific(2);
  layer->SetFieldValue("customer", 99);
  EXPECT_FALSE(layer->Save());
  EXPECT_NE(layer->ErrorStatus().find("1) Save: "), std::string::npos);
  EXPECT_TRUE(layer->DataChanged());
  for (int32_t i : {1, 2}) EXPECT_TRUE(records->Records(i)->HasChanged) << i;
  layer->MoveSpecific(1);
  EXPECT_TRUE(layer->FieldObject("amount")->HasChanged);
  EXPECT_EQ(DbValue("SELECT amount FROM orders WHERE id = 1").AsLong(), 5);
  EXPECT_EQ(DbValue("SELECT customer FROM orders WHERE id = 2").AsLong(), 2);

  // Once the bad value is mended the same marks carry both records.
  layer->MoveSpecific(2);
  layer->SetFieldValue("customer", 3);
  EXPECT_TRUE(layer->Save());
  EXPECT_FALSE(layer->DataChanged());
  EXPECT_EQ(DbValue("SELECT amount FROM orders WHERE id = 1").AsLong(), 50);
  EXPECT_EQ(DbValue("SELECT customer FROM orders WHERE id = 2").AsLong(), 3);

  // Without an open database nothing can be written.
  layer->SetFieldValue("amount", 60);
  State().current_database->Close();
  EXPECT_FALSE(layer->Save());
  EXPECT_TRUE(layer->DataChanged());
  EXPECT_TRUE(records->Records(2)->HasChanged);
  EXPECT_NE(layer->ErrorStatus().find("Save: no database is bound"), std::string::npos);
}

TEST_F(DataLayerCore, AFailedRemoveReturnsFalseAndKeepsTheRecord) {
  auto layer = Loaded();
  bool in_db = true;
  layer->MoveSpecific(2);
  layer->FieldObject("id")->Value(77);  // no such row
  EXPECT_FALSE(layer->RemoveRecord(in_db));
  layer->MoveSpecific(3);
  layer->FieldObject("id")->Value("three");  // no number
  EXPECT_FALSE(layer->RemoveRecord(in_db));
  EXPECT_EQ(layer->RecordCount(), 3);
  EXPECT_EQ(layer->ActualPosition(), 3);
  EXPECT_EQ(DbValue("SELECT COUNT(*) FROM customers").AsLong(), 3);
  const std::string errors = layer->ErrorStatus();
  EXPECT_EQ(errors.find("\r\n1) RemoveRecord: "), 0u) << errors;
  EXPECT_NE(errors.find("\r\n2) RemoveRecord: "), std::string::npos) << errors;

  DataLayer empty;
  bool offline = false;
  EXPECT_FALSE(empty.RemoveRecord(offline));
  EXPECT_EQ(empty.RecordCount(), 0);
}

TEST_P(DataLayerSave, RealtimeSaveWritesEachFieldAtOnce) {
  auto layer = Bound();
  bool realtime = true;
  layer->GetRecordset("SELECT * FROM customers ORDER BY id", realtime);
  layer->SetFieldValue("city", "Krems");
  EXPECT_FALSE(layer->DataChanged());
  EXPECT_EQ(DbValue("SELECT city FROM customers WHERE id = 1").AsString(), "Krems");
  layer->SetFieldValue("", "Steyr", 3);  // by position: no save
  EXPECT_TRUE(layer->DataChanged());
  // A new record waits for the next Save, even when written by name.
  ASSERT_TRUE(layer->Save());
  layer->AddNew();
  layer->SetFieldValue("name", "Dora");
  EXPECT_TRUE(layer->DataChanged());
  EXPECT_EQ(DbValue("SELECT COUNT(*) FROM customers").AsLong(), 3);
  ASSERT_TRUE(layer->Save());
  EXPECT_EQ(DbValue("SELECT name FROM customers WHERE id = 4").AsString(), "Dora");
}

TEST_F(DataLayerCore, ReadingAFieldPutsACursorAtZeroOnTheFirstRecord) {
  auto records = std::make_shared<clsOfflineRecordset>();
  records->Add(2);
  records->FieldDim(1, "name");
  records->Records(1)->Fields(1)->Value("first");
  records->Records(2)->Fields(1)->Value("second");
  records->Tag = "AllowAttach";
  const std::vector<std::pair<std::function<void(DataLayer&)>, std::string>> reads = {
      {[](DataLayer& layer) { EXPECT_EQ(layer.FieldID("name"), 1); }, "FieldID"},
      {[](DataLayer& layer) { EXPECT_EQ(layer.FieldValue("name").AsString(), "first"); }, "FieldValue"},
      {[](DataLayer& layer) { EXPECT_EQ(CStr(layer.FieldObject("NAME")->Value()), "first"); }, "FieldObject"},
  };
  for (const auto& [read, what] : reads) {
    DataLayer layer;
    layer.AttachOfflineRecordset(records, "q", Variant(true));
    ASSERT_EQ(layer.ActualPosition(), 0) << what;
    read(layer);
    EXPECT_EQ(layer.ActualPosition(), 1) << what;
  }
  EXPECT_EQ(DataLayer().ErrorStatus(), "");
}

TEST_P(DataLayerSave, RemoveRecordDeletesThroughTheLoadedQueryAndLogs) {
  auto layer = Loaded("SELECT * FROM customers WHERE active = TRUE ORDER BY name;");
  layer->MoveSpecific(2);  // Clara, id 3
  bool in_db = true;
  EXPECT_TRUE(layer->RemoveRecord(in_db));
  EXPECT_EQ(layer->RecordCount(), 1);
  EXPECT_EQ(DbValue("SELECT COUNT(*) FROM customers WHERE id = 3").AsLong(), 0);
  bool offline_only = false;
  layer->MoveFirst();
  EXPECT_TRUE(layer->RemoveRecord(offline_only));
  EXPECT_EQ(DbValue("SELECT COUNT(*) FROM customers").AsLong(), 2);
  layer.reset();
  auto files = LogFiles();
  ASSERT_EQ(files.size(), 1u);
  const std::string log = ReadBytes(files[0]);
  EXPECT_NE(log.find("<ACTION TYPE=\"DELETE_inDB\">"), std::string::npos);
  EXPECT_NE(log.find("<ACTION TYPE=\"DELETE_OFFLINE\">"), std::string::npos);
  EXPECT_NE(log.find("          <name>Clara</name>\r\n"), std::string::npos);
}

TEST_P(DataLayerSave, RemoveRecordNeverDeletesAnotherRow) {
  // "... OR city = 'Linz' AND id = 3" opens on Anna (id 1) first: that row must stay.
  auto layer = Loaded("SELECT * FROM customers WHERE city = 'Wien' OR city = 'Linz'");
  layer->MoveSpecific(2);  // Clara, id 3
  bool in_db = true;
  EXPECT_FALSE(layer->RemoveRecord(in_db));
  EXPECT_NE(layer->ErrorStatus().find("opens on the row with id 1, not on the current record's id 3; nothing was "
                                      "deleted"),
            std::string::npos)
      << layer->ErrorStatus();
  EXPECT_EQ(DbValue("SELECT COUNT(*) FROM customers").AsLong(), 3);
  EXPECT_EQ(layer->RecordCount(), 2);

  // A key with no row, and a key that is no number, delete nothing and say so.
  auto plain = Loaded();
  plain->ErrorStatus("");
  plain->FieldObject("id")->Value(Variant(77));
  EXPECT_FALSE(plain->RemoveRecord(in_db));
  EXPECT_NE(plain->ErrorStatus().find("no row with id 77 through the statement"), std::string::npos)
      << plain->ErrorStatus();
  plain->FieldObject("id")->Value(Variant("abc"));
  EXPECT_FALSE(plain->RemoveRecord(in_db));
  EXPECT_NE(plain->ErrorStatus().find("the id 'abc' of the current record is not a number"), std::string::npos);
  EXPECT_EQ(DbValue("SELECT COUNT(*) FROM customers").AsLong(), 3);
  EXPECT_EQ(plain->RecordCount(), 3);
}

TEST_P(DataLayerSave, AQueryEndingInALineCommentSavesAndRemoves) {
  auto layer = Loaded("SELECT * FROM customers WHERE city <> 'Graz' -- everyone but Graz");
  layer->MoveSpecific(2);  // Clara, id 3
  layer->SetFieldValue("city", "Steyr");
  EXPECT_TRUE(layer->Save()) << layer->ErrorStatus();
  EXPECT_EQ(DbValue("SELECT city FROM customers WHERE id = 3").AsString(), "Steyr");
  bool in_db = true;
  EXPECT_TRUE(layer->RemoveRecord(in_db)) << layer->ErrorStatus();
  EXPECT_EQ(DbValue("SELECT COUNT(*) FROM customers WHERE id = 3").AsLong(), 0);
  EXPECT_EQ(DbValue("SELECT COUNT(*) FROM customers").AsLong(), 2);
}

TEST_P(DataLayerSave, AValueTheColumnCannotHoldFailsItsRecordByName) {
  auto layer = Loaded();
  layer->MoveSpecific(1);
  layer->SetFieldValue("balance", Variant(std::nan("")));
  EXPECT_FALSE(layer->Save());
  EXPECT_NE(layer->ErrorStatus().find("Field 'balance': Data type conversion error: the number NaN cannot be stored "
                                      "as Double."),
            std::string::npos)
      << layer->ErrorStatus();
  EXPECT_DOUBLE_EQ(CDbl(DbValue("SELECT balance FROM customers WHERE id = 1")), 10.5);
  EXPECT_TRUE(layer->GetOfflineRecordset()->Records(1)->HasChanged);

  layer->SetFieldValue("balance", Variant(1.0));
  layer->SetFieldValue("since", Variant(Date{std::nan("")}));
  EXPECT_FALSE(layer->Save());
  EXPECT_NE(layer->ErrorStatus().find("Field 'since': Data type conversion error: the date NaN cannot be stored as "
                                      "Date."),
            std::string::npos)
      << layer->ErrorStatus();
}

INSTANTIATE_TEST_SUITE_P(Backends, DataLayerSave, ::testing::ValuesIn(db::test::WritableContexts()),
                         db::test::ContextTestName);

TEST_F(DataLayerCore, RemoveRecordBuildsItsDeleteFromTheLoadedOrAlternativeQuery) {
  struct Case {
    const char* sql;
    const char* alternative;
    int32_t position;
    bool removed;
    const char* left;  // ids left in customers, then in archive
  };
  const Case cases[] = {
      {"SELECT * FROM customers WHERE active = 1;", "", 2, true, "1,2|1,2,3"},
      {"SELECT * FROM customers ORDER BY name DESC", "", 1, true, "1,2|1,2,3"},
      {"SELECT * FROM customers WHERE city <> 'x' ORDER BY name;", "", 2, true, "1,3|1,2,3"},
      {"SELECT * FROM customers ORDER BY id", "SELECT * FROM archive;", 2, true, "1,2,3|1,3"},
      // The cut before "order" also takes the character in front of it, whatever it is.
      {"SELECT * FROM customers WHERE id IN (1, 2, 3)ORDER BY id", "", 1, false, "1,2,3|1,2,3"},
  };
  for (size_t i = 0; i < std::size(cases); ++i) {
    const Case& c = cases[i];
    const std::string path = dir_.File("remove" + std::to_string(i) + ".db");
    {
      auto database = db::DBEngine::Default()->CreateDatabase(path);
      MakeShop(*database);
      database->Execute("CREATE TABLE archive (id INTEGER PRIMARY KEY, name TEXT(50))");
      database->Execute("INSERT INTO archive SELECT id, name FROM customers");
      database->Close();
    }
    auto layer = std::make_shared<DataLayer>();
    layer->SetDatabaseByPath(path);
    layer->GetRecordset(c.sql);
    if (*c.alternative) layer->AlternativeSelectQueryForRemove(c.alternative);
    layer->MoveSpecific(c.position);
    const int32_t before = layer->RecordCount();
    bool in_db = true;
    EXPECT_EQ(layer->RemoveRecord(in_db), c.removed) << c.sql;
    EXPECT_EQ(layer->RecordCount(), before - (c.removed ? 1 : 0)) << c.sql;
    State().current_database->Close();
    auto database = db::DBEngine::Default()->OpenDatabase(path);
    std::string left;
    for (const char* table : {"customers", "archive"}) {
      auto rows = database->OpenRecordset(std::string("SELECT id FROM ") + table + " ORDER BY id");
      std::string ids;
      for (; !rows->EOF_(); rows->MoveNext()) ids += (ids.empty() ? "" : ",") + CStr(rows->Fields(0)->Value());
      rows->Close();
      left += (left.empty() ? "" : "|") + ids;
    }
    database->Close();
    EXPECT_EQ(left, c.left) << c.sql;
  }
}

TEST_F(DataLayerCore, TheLogRecordsEachSavedFieldInWindows1252) {
  auto layer = Loaded();
  layer->Username("tester");
  layer->MoveFirst();
  layer->SetFieldValue("city", "<Wörth & \"Co\"> €");
  layer->SetFieldValue("name", "Ānna");  // A with macron: not in the code page
  ASSERT_TRUE(layer->Save());
  layer.reset();
  auto files = LogFiles();
  ASSERT_EQ(files.size(), 1u);
  const std::string log = ReadBytes(files[0]);
  EXPECT_NE(log.find("<ACTION TYPE=\"UPDATE ID=1\">"), std::string::npos);
  EXPECT_NE(log.find("   <FieldName>city</FieldName>\r\n   <OldValue>Wien</OldValue>\r\n"
                     "   <NewValue><W\xF6rth & \"Co\"> \x80</NewValue>"),
            std::string::npos);
  EXPECT_NE(log.find("<NewValue>?nna</NewValue>"), std::string::npos);
  EXPECT_NE(log.find("<DECLAREDUSERNAME>tester</DECLAREDUSERNAME>"), std::string::npos);
}

TEST_F(DataLayerCore, AnUnwritableLogFolderDoesNotDisturbTheCaller) {
  State().log_path = dir_.File("no/such/folder");
  auto layer = std::make_shared<DataLayer>();
  State().log_path = dir_.File("no/such/folder");
  layer->SetDatabaseByPath(db_path_);
  layer->GetRecordset("SELECT * FROM customers");
  layer->SetFieldValue("city", "Ybbs");
  EXPECT_TRUE(layer->Save());
  EXPECT_EQ(DbValue("SELECT city FROM customers WHERE id = 1").AsString(), "Ybbs");
  // The caller can still learn that nothing is being logged, and why.
  EXPECT_FALSE(layer->SessionLogWriting());
  EXPECT_NE(layer->SessionLogError().find("no/such/folder"), std::string::npos) << layer->SessionLogError();
  EXPECT_NE(layer->SessionLogError().find("cannot be written"), std::string::npos);

  // Once the folder is there the next entries are written, and the log says so.
  std::filesystem::create_directories(dir_.File("no/such/folder"));
  auto logged = Loaded();
  logged->SetFieldValue("city", "Enns");
  EXPECT_TRUE(logged->Save());
  EXPECT_TRUE(logged->SessionLogWriting()) << logged->SessionLogError();
  EXPECT_EQ(logged->SessionLogError(), "");
  logged->DisableLog(true);
  EXPECT_FALSE(logged->SessionLogWriting());
  EXPECT_EQ(logged->SessionLogError(), "The session log is switched off.");
}

TEST_F(DataLayerCore, AReadOnlyDatabaseRefusesTheSave) {
  auto layer = Loaded();
  layer->CloseDBConnection();
  EXPECT_TRUE(layer->ReadOnly());
  layer->SetFieldValue("city", "x");
  EXPECT_FALSE(layer->Save());
  EXPECT_EQ(layer->ErrorStatus(), "\r\n1) Recordset is readonly");

  // A database opened read-only gives read-only recordsets.
  State() = ThreadState{};
  auto reader = std::make_shared<DataLayer>();
  std::shared_ptr<db::Database> read_only = db::DBEngine::Default()->OpenDatabase(db_path_, false, true);
  reader->SetDatabase(read_only);
  reader->GetRecordset("SELECT * FROM customers");
  EXPECT_TRUE(reader->ReadOnly());
  reader->SetFieldValue("city", "y");
  EXPECT_FALSE(reader->Save());
  EXPECT_TRUE(reader->DataChanged());
}

}  // namespace
}  // namespace quorbex::test

namespace quorbex::test {
namespace {

// A DataLayer whose refresh timer is on, as RefreshTimer(True) leaves it.
class TimedLayer : public DataLayer {
 public:
  TimedLayer() { SetRefreshTimerActive(true); }
};

TEST_F(DataLayerCore, ASaveWithTheRefreshTimerOnPublishesANewToken) {
  auto layer = std::make_shared<TimedLayer>();
  layer->SetDatabaseByPath(db_path_);
  layer->GetRecordset("SELECT * FROM customers WHERE city = \"Wien\"");
  layer->SetFieldValue("balance", 1);
  ASSERT_TRUE(layer->Save());
  const std::string first = layer->RefreshToken();
  EXPECT_EQ(first.size(), 32u);
  EXPECT_EQ(DbValue("SELECT Guid FROM sys_quorbexdatalayer_refresh WHERE Query = 'SELECT * FROM customers WHERE city = Wien'")
                .AsString(),
            first);
  layer->SetFieldValue("balance", 2);
  ASSERT_TRUE(layer->Save());
  EXPECT_NE(layer->RefreshToken(), first);
  EXPECT_EQ(CLng(DbValue("SELECT COUNT(*) FROM sys_quorbexdatalayer_refresh")), 1);
}

}  // namespace
}  // namespace quorbex::test
