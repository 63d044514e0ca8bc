#include <memory>
#include <string>
#include <vector>

#include "datalayer/datalayer_fixture.h"
#include "support/virtual_table.h"
#include "quorbex/clsFilter.h"

namespace quorbex::test {

using namespace quorbex::internal;
namespace {

using Filters = DataLayerTest;

// A virtual table with one record per row, the values stored straight into the fields and the change
// marks cleared, as if freshly loaded.
std::shared_ptr<DataLayer> Table(const std::vector<std::vector<Variant>>& rows, std::string fields = "ID;Name;Amount") {
  auto layer = MakeVirtualTable(std::move(fields), rows);
  for (int32_t i = 1; i <= layer->RecordCount(); ++i) layer->GetOfflineRecordset()->Records(i)->NewlyAdded = false;
  layer->MoveFirst();
  return layer;
}

// One column of every record, as text joined by commas ("<null>" for Null).
std::string Column(DataLayer& layer, int32_t column = 1) {
  std::string text;
  auto rs = layer.GetOfflineRecordset();
  for (int32_t i = 1; rs && i <= rs->RecordCount(); ++i) {
    const Variant& value = rs->Records(i)->FieldAt(column)->varValue;
    text += (i > 1 ? "," : "") + (value.IsNull() ? std::string("<null>") : CStr(value));
  }
  return text;
}

std::shared_ptr<DataLayer> Amounts() {
  return Table({{1, "a", 50}, {2, "b", 100}, {3, "c", 150}, {4, "d", 100}, {5, "e", Null}});
}

TEST_F(Filters, KeepWhatTheMirroredOperatorDoesNotName) {
  auto layer = Amounts();
  const std::vector<std::pair<std::string, std::string>> expected = {
      {">", "2,3,4"}, {">=", "3"}, {"<", "1,2,4,5"}, {"<=", "1,5"}, {"=", "2,4"}, {"<>", "1,3,5"}, {"like", "1,2,3,4,5"}};
  for (const auto& [op, ids] : expected) {
    layer->MoveLast();
    layer->Filter("Amount", op, 100, false);
    EXPECT_EQ(Column(*layer), ids) << op;  // a Null reads "", which is less than any text of a number
    EXPECT_EQ(layer->ActualPosition(), 1) << op;
  }
  layer->DeleteFilter();
  EXPECT_EQ(Column(*layer), "1,2,3,4,5");
  EXPECT_EQ(layer->ErrorStatus(), "");
}

TEST_F(Filters, WildcardsMatchEndsStartsAndMiddlesInAnyCase) {
  auto layer = Table({{1, "Anderson", 0}, {2, "JOHNSON", 0}, {3, "Bob", 0}, {4, "annabelle", 0}, {5, "Hanna", 0}});
  layer->Filter("Name", "=", "*SON", false);
  EXPECT_EQ(Column(*layer), "1,2");
  layer->Filter("Name", "=", "an*", false);
  EXPECT_EQ(Column(*layer), "1,4");
  layer->Filter("Name", "=", "*nN*", false);
  EXPECT_EQ(Column(*layer), "4,5");
  layer->Filter("Name", "<>", "*son", false);
  EXPECT_EQ(Column(*layer), "3,4,5");
}

TEST_F(Filters, StackAndUndoAsOne) {
  auto layer = Amounts();
  auto& list = State().filter_list;
  layer->Filter("Amount", ">", 60, false);
  EXPECT_EQ(Column(*layer), "2,3,4");
  layer->Filter("ID", "<", 3, true);  // narrows: "<" keeps what is not greater
  EXPECT_EQ(Column(*layer), "2,3");
  layer->Filter("Name", "=", "a", false);  // starts over from all records
  EXPECT_EQ(Column(*layer), "1");
  layer->Filter("ID", ">", 0, true, true);  // replayed filters are not listed again
  layer->DeleteFilter();
  EXPECT_EQ(Column(*layer), "1,2,3,4,5");
  layer->DeleteFilter();  // nothing active: nothing happens
  EXPECT_EQ(Column(*layer), "1,2,3,4,5");

  ASSERT_EQ(list->Count(), 3);
  const clsFilter& second = *list->Item(2);
  EXPECT_EQ(second.strFieldname, "ID");
  EXPECT_EQ(second.strOperator, "<");  // as passed, not mirrored
  EXPECT_TRUE(Equals(second.varCompareValue, Variant(3)));
  EXPECT_TRUE(second.bolAdditionalFilter);
  EXPECT_FALSE(list->Item(1)->bolAdditionalFilter);
}

TEST_F(Filters, DeleteFilterBringsBackTheRecordsAsTheyWereBeforeTheFirstFilter) {
  auto layer = Amounts();
  auto rs = layer->GetOfflineRecordset();
  layer->MoveSpecific(2);
  layer->SetFieldValue("Name", "changed before");
  rs->Records(5)->NewlyAdded = true;
  rs->Records(4)->FieldAt(2)->FieldStatus(true);
  rs->Records(4)->FieldAt(3)->lngFieldType = 4;
  rs->RecordsetIsReadOnly = true;

  layer->Filter("Amount", ">=", 100, false);
  layer->Filter("Name", "=", "c", true);
  ASSERT_EQ(Column(*layer), "3");
  layer->SetFieldValue("Name", "changed while filtered");
  EXPECT_EQ(layer->GetOfflineRecordset(), rs);  // the filter works on the recordset itself
  layer->DeleteFilter();

  auto restored = layer->GetOfflineRecordset();
  ASSERT_NE(restored, rs);
  EXPECT_EQ(Column(*layer, 2), "a,changed before,c,d,e");
  EXPECT_EQ(restored->RecordCount(), 5);
  EXPECT_TRUE(restored->Records(2)->HasChanged);
  EXPECT_TRUE(restored->Records(2)->FieldAt(2)->HasChanged);
  EXPECT_FALSE(restored->Records(2)->FieldAt(1)->HasChanged);
  EXPECT_FALSE(restored->Records(3)->HasChanged);
  EXPECT_TRUE(restored->Records(5)->NewlyAdded);
  EXPECT_TRUE(restored->Records(5)->FieldAt(3)->varValue.IsNull());
  EXPECT_TRUE(restored->Records(4)->FieldAt(2)->IsStatusSet());
  EXPECT_EQ(restored->Records(4)->FieldAt(3)->lngFieldType, 4);
  EXPECT_EQ(restored->Records(4)->FieldAt(3)->Description, "Amount");
  EXPECT_TRUE(restored->RecordsetIsReadOnly);
  // A full copy: nothing is shared with the filtered records.
  EXPECT_NE(restored->Records(3), rs->Records(1));
}

TEST_F(Filters, DeleteFilterIgnoresWhatHappensToRecordsAndFieldsWhileFiltered) {
  auto layer = Table({{1, "a", 50}, {2, "b", 100}, {3, "c", 150}, {4, "d", 100}, {5, "e", Null}, {6, "f", 1}});
  auto rs = layer->GetOfflineRecordset();
  auto held_kept = rs->Records(3);                  // kept by the filter below, held by the client
  auto held_removed_field = rs->Records(1)->Fields(2);  // record 1 is removed; the client holds a field
  int32_t from = 3, to = 9;
  EXPECT_THROW(rs->Records(5)->MoveFieldToNewPos(from, to), AutomationError);  // 2 fields, counter 3
  rs.reset();

  layer->Filter("ID", ">", 2, false);  // keeps 2 to 6
  ASSERT_EQ(Column(*layer), "2,3,4,5,6");
  held_kept->FieldAt(2)->varValue = "kept, edited";
  held_removed_field->varValue = "removed, edited";
  auto filtered = layer->GetOfflineRecordset();
  filtered->Records(1)->FieldAt(2)->Description = "Renamed";  // record 2, held by nobody afterwards
  filtered->Records(1)->FieldAt(2)->FieldStatus(true);
  filtered->Records(1)->FieldAt(2)->HasChanged = true;
  filtered->Records(1)->HasChanged = true;
  filtered->Records(5)->Remove(3);  // record 6 loses a field
  auto held_filtered_out = filtered->Records(3);  // record 4, which an additional filter then removes
  filtered.reset();
  layer->Filter("ID", "<>", 4, true);
  held_filtered_out->FieldAt(2)->varValue = "out, edited";
  layer->DeleteFilter();

  auto restored = layer->GetOfflineRecordset();
  EXPECT_EQ(Column(*layer, 2), "a,b,c,d,e,f");
  EXPECT_NE(restored->Records(3), held_kept);
  EXPECT_EQ(CStr(held_kept->FieldAt(2)->varValue), "kept, edited");
  EXPECT_NE(restored->Records(1)->Fields(2), held_removed_field);
  const clsOfflineField& name = *restored->Records(2)->FieldAt(2);
  EXPECT_EQ(name.Description, "Name");
  EXPECT_FALSE(name.IsStatusSet());
  EXPECT_FALSE(name.HasChanged);
  EXPECT_FALSE(restored->Records(2)->HasChanged);
  EXPECT_EQ(restored->Records(6)->FieldCount(), 3);
  EXPECT_NE(restored->Records(4), held_filtered_out);
  // Every record comes back as a deep copy makes it: its field counter counts its fields.
  for (int32_t i = 1; i <= 6; ++i) {
    EXPECT_EQ(restored->Records(i)->FieldCounter(), restored->Records(i)->FieldCount()) << i;
  }
  EXPECT_EQ(restored->Records(5)->FieldCount(), 2);

  // A field marked while filtered comes back unmarked beside one marked before.
  auto marks = Table({{1, "a", 50}, {2, "b", 100}});
  marks->MoveSpecific(2);
  marks->SetFieldValue("Name", "B");
  marks->Filter("ID", ">", 2, false);
  marks->SetFieldValue("Amount", 7);
  marks->DeleteFilter();
  marks->MoveSpecific(2);
  EXPECT_TRUE(marks->FieldObject("Name")->HasChanged);
  EXPECT_FALSE(marks->FieldObject("Amount")->HasChanged);
  EXPECT_EQ(CLng(marks->FieldValue("Amount")), 100);
}

TEST_F(Filters, OddStartsAndFailuresChangeNothingOrLeaveSilently) {
  // An additional filter with none active removes without a copy; DeleteFilter then installs no
  // recordset at all.
  auto layer = Amounts();
  layer->Filter("Amount", "=", 100, true);
  EXPECT_EQ(Column(*layer), "2,4");
  layer->DeleteFilter();
  EXPECT_EQ(layer->GetOfflineRecordset(), nullptr);
  EXPECT_EQ(layer->RecordCount(), 0);
  layer->MoveFirst();
  EXPECT_TRUE(IsEmpty(layer->FieldValue("Name")));

  // An unknown field removes nothing but is reported; a lone "*" fails inside and leaves silently.
  // (A second object keeps the first alive: ending one would drop the thread's filter list.)
  auto first = layer;
  layer = Amounts();
  layer->Filter("Nope", "=", 1, false);
  EXPECT_EQ(Column(*layer), "1,2,3,4,5");
  EXPECT_EQ(layer->ErrorStatus(), "\r\n1) FieldID: Fieldname 'Nope' not found (or error: )");
  layer->Filter("Name", "=", "*", false);
  EXPECT_EQ(Column(*layer), "1,2,3,4,5");
  EXPECT_EQ(State().error_count, 1);
  layer->DeleteFilter();
  EXPECT_EQ(Column(*layer), "1,2,3,4,5");

  // A record without the field fails its test: the walk from the last record down has removed the
  // matches behind it, the rest stays, and the filter does not become active. Both the first filter
  // (which copies as it tests) and an additional one (which does not) end so.
  for (bool additional : {false, true}) {
    auto broken = Amounts();
    broken->GetOfflineRecordset()->Records(3)->Remove(3);
    broken->Filter("Amount", "=", 100, additional, true);
    EXPECT_EQ(Column(*broken), "1,2,3,4") << additional;
    broken->DeleteFilter();
    EXPECT_EQ(Column(*broken), "1,2,3,4") << additional;
  }

  // Once another DataLayer of the thread has ended, the shared filter list is gone: Filter gives up,
  // unless it is told not to list the filter.
  { auto other = std::make_shared<DataLayer>(); }
  EXPECT_EQ(State().filter_list, nullptr);
  layer->Filter("Amount", "=", 100, false);
  EXPECT_EQ(Column(*layer), "1,2,3,4,5");
  layer->Filter("Amount", "=", 100, false, true);
  EXPECT_EQ(Column(*layer), "2,4");
}

TEST_F(Filters, RemoveOfflineRecordsIfRemovesForGoodWithoutMirroring) {
  auto layer = Amounts();
  layer->MoveLast();
  layer->RemoveOfflineRecordsIf("Amount", ">", 99);
  EXPECT_EQ(Column(*layer), "1,5");
  EXPECT_EQ(layer->ActualPosition(), 2);  // the cursor stays within the records
  layer->DeleteFilter();
  EXPECT_EQ(Column(*layer), "1,5");

  layer->RemoveOfflineRecordsIf("Name", "=", "*");
  EXPECT_EQ(Column(*layer), "1,5");
  EXPECT_EQ(layer->ErrorStatus(), "\r\n1) DataLayer.RemoveRecordsIF: Invalid procedure call or argument");
  layer->RemoveOfflineRecordsIf("Unknown", "=", "a");
  EXPECT_EQ(Column(*layer), "1,5");
}

TEST_F(Filters, FindRecordMovesToTheFirstExactMatch) {
  auto layer = Table({{1, "Graz", 5}, {2, "Wien", Null}, {3, "Wien", 5}, {4, "wien", 7}});
  EXPECT_TRUE(layer->FindRecord("Name", "Wien"));
  EXPECT_EQ(layer->ActualPosition(), 2);
  EXPECT_TRUE(layer->FindRecord("name", "wien"));  // the name is matched loosely, the value exactly
  EXPECT_EQ(layer->ActualPosition(), 4);
  EXPECT_TRUE(layer->FindRecord("Amount", 7.0));
  EXPECT_EQ(layer->ActualPosition(), 4);
  layer->MoveLast();
  EXPECT_FALSE(layer->FindRecord("Name", "Linz"));
  EXPECT_EQ(layer->ActualPosition(), 1);
  EXPECT_FALSE(layer->FindRecord("Amount", Null));
  EXPECT_EQ(layer->ErrorStatus(), "");

  // On the database records too.
  auto loaded = Loaded();
  EXPECT_TRUE(loaded->FindRecord("city", "Linz"));
  EXPECT_EQ(loaded->ActualPosition(), 3);
}

TEST_F(Filters, FullTextSearchTakesEveryWordButTheLast) {
  auto layer = Table({{1, "Anna Berger", "Wien"}, {2, "Bernd", "Graz"}, {3, "Clara", "Linz an der Donau"},
                      {4, "Dora", Null}, {5, "ÖZTÜRK", "Bern"}},
                     "ID;Name;City");
  auto positions = [](const std::shared_ptr<Collection<Variant>>& hits) {
    std::string text;
    for (const Variant& hit : *hits) text += (text.empty() ? "" : ",") + CStr(hit);
    return text;
  };
  EXPECT_EQ(positions(layer->FullTextSearch("BER")), "1,2,5");          // one word: searched whole
  EXPECT_EQ(positions(layer->FullTextSearch("graz linz")), "2");        // two words: only the first
  EXPECT_EQ(positions(layer->FullTextSearch("graz dora linz")), "2,4");  // three: the first two
  EXPECT_EQ(positions(layer->FullTextSearch("öztürk")), "5");
  EXPECT_EQ(positions(layer->FullTextSearch("1")), "");  // the ID column is not searched
  EXPECT_EQ(positions(layer->FullTextSearch("")), "");
  EXPECT_EQ(positions(layer->FullTextSearch("an")), "1,3");

  // Limited to fields (blanks ignored, unknown names reported and searched nowhere).
  EXPECT_EQ(positions(layer->FullTextSearch("an", "City")), "3");
  EXPECT_EQ(positions(layer->FullTextSearch("an", "Name; City")), "1,3");
  EXPECT_EQ(positions(layer->FullTextSearch("1", "I D")), "1");
  EXPECT_EQ(positions(layer->FullTextSearch("bern", "ID;ID;ID;ID;ID;ID;ID;ID;ID;City;Name")), "5");  // ten names
  EXPECT_EQ(layer->ErrorStatus(), "");
  EXPECT_EQ(positions(layer->FullTextSearch("an", "Street")), "");
  EXPECT_EQ(layer->ErrorStatus(), "\r\n1) FieldID: Fieldname 'Street' not found (or error: )");

  // Hit lines: the named fields joined by ";", a Null as nothing; the cursor stays where it was.
  layer->MoveSpecific(2);
  auto lines = layer->FullTextSearch("d", "", "Name;City");
  ASSERT_EQ(lines->Count(), 3);
  EXPECT_EQ(CStr(lines->Item(1)), "Bernd;Graz");
  EXPECT_EQ(CStr(lines->Item(2)), "Clara;Linz an der Donau");
  EXPECT_EQ(CStr(lines->Item(3)), "Dora;");
  EXPECT_EQ(layer->ActualPosition(), 2);
}

TEST_F(Filters, FullTextSearchLeavesOutTheAutoGuidColumn) {
  auto layer = Table({{1, "x", "abc"}, {2, "abc", "y"}}, "ID;Name;Code");
  EXPECT_TRUE(layer->SetAutoGuidColumn("code"));
  EXPECT_EQ(layer->FullTextSearch("abc")->Count(), 1);
  EXPECT_EQ(layer->FullTextSearch("abc", "Code")->Count(), 1);
}

TEST_F(Filters, RemoveMultipleEntriesKeepsTheFirstOfEachValueInSortOrder) {
  auto layer = Table({{1, "x", 3}, {2, "y", 1}, {3, "z", 3}, {4, "w", 2}});
  layer->MoveLast();
  layer->RemoveMultipleEntries("Amount");
  EXPECT_EQ(Column(*layer, 3), "1,2,3");
  EXPECT_EQ(Column(*layer, 1), "2,4,1");
  EXPECT_EQ(layer->RecordCount(), 3);
  EXPECT_EQ(layer->ActualPosition(), 3);

  // Nulls never equal anything; texts compare exactly, after the text sort put equal keys together.
  layer = Table({{1, "b", Null}, {2, "B", Null}, {3, "b", 1}, {4, "a", 1}, {5, "", 1}, {6, "", 1}});
  layer->RemoveMultipleEntries("Name");
  EXPECT_EQ(Column(*layer, 1), "5,4,1,2,3");
  layer->RemoveMultipleEntries("Amount");
  EXPECT_EQ(Column(*layer, 1), "1,2,5");
}

TEST_F(Filters, SortByFieldNames) {
  auto layer = Table({{1, "b", 10}, {2, "A", 9}, {3, "a", 100}, {4, "b", 1}});
  bool asc = false, desc = false;
  layer->SortRecordset("Name", asc, desc);
  EXPECT_TRUE(asc);
  EXPECT_EQ(Column(*layer), "2,3,1,4");
  layer->SortRecordsetNextInside("Name", "Amount", true, true);
  EXPECT_EQ(Column(*layer), "3,2,4,1");  // the amounts in text order inside A/a and b
  layer->SortRecordset("Amount", false, true, true);
  EXPECT_EQ(Column(*layer), "3,1,2,4");
  EXPECT_EQ(layer->ErrorStatus(), "");

  asc = true;
  desc = true;
  layer->SortRecordset("Street", asc, desc);
  EXPECT_FALSE(desc);
  EXPECT_EQ(Column(*layer), "3,1,2,4");
  EXPECT_EQ(layer->ErrorStatus(), "\r\n1) FieldID: Fieldname 'Street' not found (or error: )");

  // Not loaded: reported, nothing else happens.
  auto empty = std::make_shared<DataLayer>();
  empty->SortRecordset("Name", true, false);
  empty->SortRecordsetNextInside("Name", "City", true, false);
  EXPECT_EQ(State().error_count, 4);  // "Recordset not Loaded!" from each FieldID
}

}  // namespace
}  // namespace quorbex::test
