#include <string>
#include <vector>

#include "datalayer/datalayer_fixture.h"
#include "support/virtual_table.h"
#include "platform/guid.h"
#include "support/platform_fakes.h"

namespace quorbex::test {

using namespace quorbex::internal;
namespace {

using VirtualTable = DataLayerTest;

// A virtual table ID;Name;City with one record per row given, every field written through
// SetFieldValue and the marks cleared again, as if freshly loaded.
std::shared_ptr<DataLayer> Table(const std::vector<std::vector<Variant>>& rows, std::string fields = "ID;Name;City") {
  return MakeVirtualTable(std::move(fields), rows, "people");
}

std::vector<std::string> Names(const clsOfflineRecord& record) {
  std::vector<std::string> names;
  for (int32_t i = 1; i <= record.FieldCount(); ++i) names.push_back(record.FieldAt(i)->Description.str());
  return names;
}

TEST_F(VirtualTable, CreationSplitsAtCommaAndSemicolonAndStopsAtTheFirstEmptyName) {
  auto layer = std::make_shared<DataLayer>();
  std::string description;
  std::string fields = "ID, Name;City";
  EXPECT_TRUE(layer->CreateNewVirtualOfflineTable(description, fields));
  EXPECT_EQ(description, "SELECT * FROM Dummy");
  EXPECT_EQ(fields, "ID; Name;City");  // the caller's variable sees the replacement
  EXPECT_EQ(layer->SQLStringInUse(), "SELECT * FROM Dummy");
  EXPECT_EQ(layer->RecordCount(), 0);
  layer->AddNew();
  EXPECT_EQ(Names(*layer->GetOfflineRecordset()->Records(1)), (std::vector<std::string>{"ID", "Name", "City"}));
  EXPECT_EQ(layer->ErrorStatus(), "");

  auto cut = std::make_shared<DataLayer>();
  std::string named = "t";
  std::string gap = "id;A;;B";
  EXPECT_TRUE(cut->CreateNewVirtualOfflineTable(named, gap));
  EXPECT_EQ(named, "SELECT * FROM t");
  cut->AddNew();
  EXPECT_EQ(Names(*cut->GetOfflineRecordset()->Records(1)), (std::vector<std::string>{"id", "A"}));
}

TEST_F(VirtualTable, ATableWithoutIdIsCreatedButReportedAndFalse) {
  auto layer = std::make_shared<DataLayer>();
  std::string description = "t", fields = "Name;Identity";
  EXPECT_FALSE(layer->CreateNewVirtualOfflineTable(description, fields));
  EXPECT_EQ(layer->ErrorStatus(),
            "\r\n1) New virtual offline table created without an ID column. ID column is needed and it can cause "
            "errors if missing!");
  layer->AddNew();
  EXPECT_EQ(layer->GetOfflineRecordset()->Records(1)->FieldCount(), 2);
}

TEST_F(VirtualTable, NoFieldsOrASecondTableRaise40000) {
  auto layer = std::make_shared<DataLayer>();
  std::string description = "t", none;
  try {
    layer->CreateNewVirtualOfflineTable(description, none);
    FAIL() << "no error raised";
  } catch (const AutomationError& e) {
    EXPECT_EQ(e.Number(), 40000);
    EXPECT_EQ(e.Source(), "Quorbex DataLayer");
    EXPECT_EQ(e.Description(), "Cannot create new offline table because no fields stated!");
  }
  EXPECT_EQ(description, "t");  // nothing was done

  std::string fields = "ID";
  layer->CreateNewVirtualOfflineTable(description, fields);
  try {
    layer->CreateNewVirtualOfflineTable(description, fields);
    FAIL() << "no error raised";
  } catch (const AutomationError& e) {
    EXPECT_EQ(e.Number(), 40000);
    EXPECT_EQ(e.Description(),
              "Cannot create table if a table already exists. Use new instance of the Quorbex DataLayer");
  }
  // A loaded query counts as a table too, and neither error goes to ErrorStatus.
  auto loaded = Loaded();
  std::string other = "x";
  EXPECT_THROW(loaded->CreateNewVirtualOfflineTable(other, fields), AutomationError);
  EXPECT_EQ(loaded->ErrorStatus(), "");
}

TEST_F(VirtualTable, FieldsAreAddedRenamedAndRemovedInEveryRecord) {
  auto layer = Table({{1, "Anna", "Wien"}, {2, "Bernd", "Graz"}});
  layer->AddVirtualField("Extra");
  for (int32_t i = 1; i <= 2; ++i) {
    EXPECT_EQ(Names(*layer->GetOfflineRecordset()->Records(i)),
              (std::vector<std::string>{"ID", "Name", "City", "Extra"}));
  }
  EXPECT_EQ(layer->FieldID("extra"), 4);

  layer->RenameVirtualField("name", "Label");
  layer->MoveSpecific(2);
  EXPECT_EQ(layer->FieldValue("Label").AsString(), "Bernd");
  EXPECT_EQ(layer->FieldID("label"), 2);
  layer->RenameVirtualField("nothing", "X");
  layer->RenameVirtualField("Label", "");

  // Only the last column leaves the records; a middle one keeps its cells and loses just its name in the
  // name list, as clients of the method know it.
  layer->RemoveVirtualField("Label");
  EXPECT_EQ(Names(*layer->GetOfflineRecordset()->Records(1)), (std::vector<std::string>{"ID", "Label", "City", "Extra"}));
  EXPECT_EQ(layer->FieldValue("City").AsString(), "Graz");
  // The name list now says Extra is third, which is not the records' last field: only the name goes.
  layer->RemoveVirtualField("Extra");
  EXPECT_EQ(layer->GetOfflineRecordset()->Records(2)->FieldCount(), 4);
  // Found again through the records, now at their last position, it leaves them.
  layer->RemoveVirtualField("Extra");
  EXPECT_EQ(layer->GetOfflineRecordset()->Records(2)->FieldCount(), 3);
  layer->ErrorStatus("");
  layer->RemoveVirtualField("Extra");
  EXPECT_NE(layer->ErrorStatus().find("RemoveVirtualField: Fieldname 'Extra' not found"), std::string::npos);

  // The messages of the refused renames, after FieldID's own report of the unknown name.
  auto fresh = Table({{1, "Anna", "Wien"}});
  fresh->ErrorStatus("");
  fresh->RenameVirtualField("nothing", "X");
  fresh->RenameVirtualField("City", "");
  EXPECT_EQ(fresh->ErrorStatus(),
            "\r\n1) FieldID: Fieldname 'nothing' not found (or error: )"
            "\r\n2) RenameVirtualField: OldName 'nothing' not found"
            "\r\n3) RenameVirtualField: empty NewName is not allowed");

  // Fields declared on a table without records shape the records still to come.
  auto empty = std::make_shared<DataLayer>();
  std::string description = "t", fields = "ID;A;B";
  empty->CreateNewVirtualOfflineTable(description, fields);
  empty->AddVirtualField("C");
  empty->AddNew();
  EXPECT_EQ(Names(*empty->GetOfflineRecordset()->Records(1)), (std::vector<std::string>{"ID", "A", "B", "C"}));
}

TEST_F(VirtualTable, AutoGuidColumnIsCheckedAgainstTheFieldNamesAndFillsEmptyValues) {
  auto guids = std::make_shared<FakeGuidSource>();
  platform::GuidScope scope(guids);
  auto layer = Table({{1, "", "Wien"}, {2, Null, "Graz"}, {3, Variant(), "Linz"}, {4, "keep", "Graz"}}, "ID;Key;City");
  EXPECT_FALSE(layer->SetAutoGuidColumn("Nothing"));
  EXPECT_EQ(layer->ErrorStatus(),
            "\r\n1) Fieldname Nothing is not listed as valid fieldname. Please correct your entry.");

  layer->MoveSpecific(3);
  EXPECT_TRUE(layer->SetAutoGuidColumn("KEY", true));
  EXPECT_EQ(State().auto_guid_column, "KEY");
  EXPECT_EQ(layer->ActualPosition(), 3);  // the cursor comes back
  auto records = layer->GetOfflineRecordset();
  EXPECT_EQ(records->Records(1)->FieldAt(2)->varValue.AsString(), "00000000000000000000000000000001");
  EXPECT_TRUE(records->Records(1)->FieldAt(2)->HasChanged);
  EXPECT_TRUE(records->Records(2)->FieldAt(2)->varValue.IsNull());  // a Null is no empty value
  EXPECT_EQ(records->Records(3)->FieldAt(2)->varValue.AsString(), "00000000000000000000000000000002");
  EXPECT_EQ(records->Records(4)->FieldAt(2)->varValue.AsString(), "keep");
  EXPECT_FALSE(records->Records(4)->HasChanged);

  // New records get one without a change mark.
  layer->AddNew();
  EXPECT_EQ(layer->FieldValue("Key").AsString(), "00000000000000000000000000000003");
  EXPECT_FALSE(layer->FieldObject("Key")->HasChanged);
}

TEST_F(VirtualTable, NewGuidIsThirtyTwoUpperHexDigitsAndEmptyWhenThePlatformFails) {
  DataLayer layer;
  const std::string first = layer.NewGUID(), second = layer.NewGUID();
  EXPECT_EQ(first.size(), 32u);
  EXPECT_EQ(first.find_first_not_of("0123456789ABCDEF"), std::string::npos);
  EXPECT_NE(first, second);
  auto guids = std::make_shared<FakeGuidSource>();
  guids->SetFailing(true);
  platform::GuidScope scope(guids);
  EXPECT_EQ(layer.NewGUID(), "");
}

TEST_F(VirtualTable, FillFieldFillsEmptyTextsOrEverythingWithoutChangeMarks) {
  auto layer = Table({{1, "", "Wien"}, {2, "Bernd", ""}, {3, Variant(), "Linz"}});
  layer->FillField("name", "n/a", false);
  auto records = layer->GetOfflineRecordset();
  EXPECT_EQ(records->Records(1)->FieldAt(2)->varValue.AsString(), "n/a");
  EXPECT_EQ(records->Records(2)->FieldAt(2)->varValue.AsString(), "Bernd");
  EXPECT_EQ(records->Records(3)->FieldAt(2)->varValue.AsString(), "n/a");
  EXPECT_FALSE(records->Records(1)->FieldAt(2)->HasChanged);
  EXPECT_FALSE(layer->DataChanged());

  layer->FillField("City", 7, true);
  for (int32_t i = 1; i <= 3; ++i) EXPECT_TRUE(records->Records(i)->FieldAt(3)->varValue.SameAs(Variant(7)));

  layer->FillField("Town", 1, true);
  EXPECT_NE(layer->ErrorStatus().find("FillField: Fieldname 'Town' not reckkognized"), std::string::npos);

  // A Null cannot be read as text: the fill stops there with "Invalid use of Null".
  auto with_null = Table({{1, "", "Wien"}, {2, Null, "Graz"}, {3, "", "Linz"}});
  try {
    with_null->FillField("Name", "x", false);
    FAIL() << "no error raised";
  } catch (const AutomationError& e) {
    EXPECT_EQ(e.Number(), 94);
  }
  EXPECT_EQ(with_null->GetOfflineRecordset()->Records(1)->FieldAt(2)->varValue.AsString(), "x");
  EXPECT_EQ(with_null->GetOfflineRecordset()->Records(3)->FieldAt(2)->varValue.AsString(), "");
}

TEST_F(VirtualTable, ADeclaredTableIsLoadedBeforeItsFirstRecord) {
  auto layer = std::make_shared<DataLayer>();
  std::string description = "people";
  std::string fields = "ID;Name";
  ASSERT_TRUE(layer->CreateNewVirtualOfflineTable(description, fields));
  layer->MoveFirst();
  layer->MoveNext();
  EXPECT_EQ(layer->FieldID("Town"), 0);
  EXPECT_EQ(layer->ErrorStatus(), "\r\n1) No Records set!");

  // Loaded means nothing else may replace it, and it can be saved as it is.
  EXPECT_TRUE(layer->SaveAsXML(dir_.File("empty.xml"), "people")) << layer->ErrorStatus();
  EXPECT_FALSE(layer->LoadFromXML(dir_.File("empty.xml"), true));
  auto other = std::make_shared<clsOfflineRecordset>();
  other->Tag = "AllowAttach";
  layer->AttachOfflineRecordset(other, "SELECT * FROM x", Variant(true));
  EXPECT_NE(layer->GetOfflineRecordset(), other);
  EXPECT_EQ(layer->SQLStringInUse(), "SELECT * FROM people");
}

TEST_F(VirtualTable, TrimFieldTrimsTextsThroughSetFieldValue) {
  auto layer = Table({{1, "  Anna ", "Wien"}, {2, "Bernd", "Graz"}, {3, 42, "Linz"}});
  layer->TrimField("NAME");
  auto records = layer->GetOfflineRecordset();
  EXPECT_EQ(records->Records(1)->FieldAt(2)->varValue.AsString(), "Anna");
  EXPECT_TRUE(records->Records(1)->FieldAt(2)->HasChanged);
  // Every record is written back, so every record is marked, also where nothing was trimmed; a
  // number comes back as its text, as FieldValue reads it.
  EXPECT_TRUE(records->Records(2)->HasChanged);
  EXPECT_TRUE(records->Records(2)->FieldAt(2)->HasChanged);
  EXPECT_FALSE(records->Records(2)->FieldAt(3)->HasChanged);
  EXPECT_TRUE(records->Records(3)->FieldAt(2)->varValue.SameAs(Variant("42")));
  EXPECT_TRUE(layer->DataChanged());

  // A Null reads as the empty text, and the empty text is what is written.
  auto with_null = Table({{1, Null, "Wien"}});
  with_null->TrimField("Name");
  EXPECT_TRUE(with_null->GetOfflineRecordset()->Records(1)->FieldAt(2)->varValue.SameAs(Variant("")));
  EXPECT_TRUE(with_null->GetOfflineRecordset()->Records(1)->HasChanged);
  layer->TrimField("Town");
  EXPECT_NE(layer->ErrorStatus().find("TrimField: Fieldname 'Town' not reckognized"), std::string::npos);
}

TEST_F(VirtualTable, CopyCurrentRecordClonesValuesAndMarksAndSetsTheNewId) {
  auto layer = Table({{1, Null, "Wien"}, {2, "Bernd", "Graz"}});
  layer->MoveFirst();
  layer->FieldObject("City")->FieldStatus(true);
  layer->FieldObject("City")->lngFieldType = 10;
  layer->SetFieldValue("City", "Salzburg");
  layer->CopyCurrentRecord("ID", Variant(10));
  EXPECT_EQ(layer->RecordCount(), 3);
  EXPECT_EQ(layer->ActualPosition(), 3);
  auto copy = layer->GetOfflineRecordset()->Records(3);
  EXPECT_TRUE(copy->NewlyAdded);
  EXPECT_TRUE(copy->FieldAt(2)->varValue.IsNull());
  EXPECT_EQ(copy->FieldAt(3)->varValue.AsString(), "Salzburg");
  EXPECT_TRUE(copy->FieldAt(3)->HasChanged);
  EXPECT_TRUE(copy->FieldAt(3)->IsStatusSet());
  EXPECT_TRUE(copy->FieldAt(3)->Status());
  EXPECT_EQ(copy->FieldAt(3)->lngFieldType, 10);
  EXPECT_TRUE(copy->FieldAt(1)->varValue.SameAs(Variant(10)));

  // Without a new id the id field is emptied; the auto-GUID column is copied like every other field,
  // not left with the fresh GUID AddNew gave it.
  layer->SetAutoGuidColumn("Name");
  layer->MoveSpecific(2);
  layer->CopyCurrentRecord("ID");
  auto second = layer->GetOfflineRecordset()->Records(4);
  EXPECT_TRUE(second->FieldAt(1)->varValue.IsEmpty());
  EXPECT_EQ(second->FieldAt(2)->varValue.AsString(), "Bernd");
  EXPECT_EQ(second->FieldAt(3)->varValue.AsString(), "Graz");

  DataLayer nothing;
  nothing.CopyCurrentRecord("ID");
  EXPECT_EQ(nothing.ErrorStatus(), "\r\n1) Recordset not Loaded!");
}

TEST_F(VirtualTable, RepairRecordsBringsDriftedRecordsIntoTheModelLayout) {
  auto layer = Table({{1, "Anna", "Wien"}, {2, "Bernd", "Graz"}, {3, "Clara", "Linz"}});
  auto records = layer->GetOfflineRecordset();
  // Record 2 lost its Name and has City first; record 3 has a field of its own.
  auto second = records->Records(2);
  second->Remove(2);
  int32_t from = 2, to = 1;
  second->MoveFieldToNewPos(from, to);
  records->Records(3)->Add(1);
  records->Records(3)->FieldAt(4)->Description = "Note";

  EXPECT_FALSE(layer->RepairRecords(Variant(0)));
  EXPECT_FALSE(layer->RepairRecords(Variant("x")));
  EXPECT_FALSE(layer->RepairRecords(Variant(9)));
  EXPECT_EQ(layer->ErrorStatus().find("1) Unable to start RepareRecords method because of invalid record ID"), 2u);

  EXPECT_TRUE(layer->RepairRecords(Variant(1)));
  EXPECT_EQ(Names(*second), (std::vector<std::string>{"ID", "Name", "City"}));
  EXPECT_TRUE(second->FieldAt(2)->varValue.IsEmpty());
  EXPECT_EQ(second->FieldAt(3)->varValue.AsString(), "Graz");
  EXPECT_EQ(Names(*records->Records(3)), (std::vector<std::string>{"ID", "Name", "City", "Note"}));

  // A model with a name twice cannot say where a field belongs.
  auto doubled = Table({{1, "a", "b"}, {2, "c", "d"}}, "ID;Name;Name");
  doubled->GetOfflineRecordset()->Records(2)->Remove(3);
  doubled->ErrorStatus("");
  EXPECT_FALSE(doubled->RepairRecords(Variant(1)));
  EXPECT_EQ(doubled->ErrorStatus(),
            "\r\n1) RepareRecords not possible due to the usage of double fieldnames in the same record");
}

TEST_F(VirtualTable, CheckContainsFieldNameLooksAtTheNameListThenTheCurrentRecord) {
  auto layer = Loaded();
  EXPECT_TRUE(layer->CheckContainsFieldName("CITY"));
  EXPECT_TRUE(layer->CheckContainsFieldName(" city "));  // found in the record, trimmed
  EXPECT_FALSE(layer->CheckContainsFieldName("nothing"));

  // An attached recordset has no name list; the record alone answers, and the cursor moves to 1.
  auto records = std::make_shared<clsOfflineRecordset>();
  records->Add(1);
  records->FieldDim(1, "Name");
  records->Tag = "AllowAttach";
  auto attached = std::make_shared<DataLayer>();
  attached->AttachOfflineRecordset(records, "q", Variant(true));
  EXPECT_EQ(attached->ActualPosition(), 0);
  EXPECT_TRUE(attached->CheckContainsFieldName("NAME"));
  EXPECT_EQ(attached->ActualPosition(), 1);

  DataLayer empty;
  EXPECT_FALSE(empty.CheckContainsFieldName("id"));
  EXPECT_EQ(empty.ErrorStatus(), "");
}

}  // namespace
}  // namespace quorbex::test
