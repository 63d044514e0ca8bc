#include "quorbex/clsExtract.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "datalayer/datalayer_fixture.h"
#include "platform/environment.h"
#include "platform/files.h"
#include "platform/message_box.h"
#include "platform/text_viewer.h"
#include "quorbex/DataLayer.h"
#include "quorbex/clsAnalyzer.h"
#include "quorbex/clsExtractManager.h"
#include "service/modService.h"
#include "service/thread_state.h"
#include "support/error_of.h"
#include "support/fake_list_control.h"
#include "support/platform_fakes.h"
#include "support/temp_dir.h"
#include "support/virtual_table.h"

namespace quorbex {

using namespace quorbex::internal;
namespace {

using test::ErrorOf;

// A fresh thread state, the C locale, settings in memory and a recording message box, for one test.
struct Surroundings {
  Surroundings() {
    State() = ThreadState{};
    State().log_disabled = true;
    Locale::SetCurrent(Locale::C());
  }
  ~Surroundings() { State() = ThreadState{}; }

  std::shared_ptr<test::MemorySettingsStore> settings = std::make_shared<test::MemorySettingsStore>();
  platform::SettingsScope settings_scope{settings};
  std::shared_ptr<test::FakeMessageBox> box = std::make_shared<test::FakeMessageBox>();
  platform::MessageBoxScope box_scope{box};
};

// ID, Name, City, Qty: six records, Qty 1 to 9.
std::shared_ptr<DataLayer> Shop() {
  auto layer = test::MakeVirtualTable("ID;Name;City;Qty", {{1, "Anna", "Wien", 3},
                                                          {2, "Bernd", "Graz", 7},
                                                          {3, "Clara", "Wien", 9},
                                                          {4, "Dora", "Linz", 1},
                                                          {5, "Emil", "Wien", 6},
                                                          {6, "Fritz", "Graz", 5}});
  layer->ErrorStatus("");
  return layer;
}

// The values of one field over all records of an extract or a DataLayer, by position; the cursor ends
// on the last record.
template <class Records>
std::vector<std::string> Column(Records& records, const std::string& field) {
  std::vector<std::string> values;
  for (int32_t i = 1; i <= records.RecordCount(); ++i) {
    records.MoveSpecific(i);
    values.push_back(CStr(records.FieldValue(field)));
  }
  return values;
}

using Texts = std::vector<std::string>;

// ---- The manager -------------------------------------------------------------------------------------

TEST(clsExtractManager, HandlesCountKeptExtractsOnlyAndAreNeverReused) {
  Surroundings s;
  auto empty = test::MakeVirtualTable("ID;Qty", {});
  EXPECT_EQ(empty->Extract()->ExtractRecords("NoSuchField", "=", 1), 0);  // no records: not even a check

  auto layer = Shop();
  auto extracts = layer->Extract();
  EXPECT_EQ(extracts, layer->Extract());
  EXPECT_EQ(extracts->ParentDL(), layer);

  EXPECT_EQ(extracts->ExtractRecords("Qty", ">", 5), 1);
  EXPECT_EQ(extracts->ExtractRecords("Qty", ">", 100), 0);  // empty: takes no number
  EXPECT_EQ(extracts->ExtractRecords("City", "=", "Wien"), 2);
  EXPECT_EQ(extracts->ExtractRecords("City", "=", "Graz"), 3);
  EXPECT_EQ(Column(*extracts->Extracts(1), "Name"), (Texts{"Bernd", "Clara", "Emil"}));
  EXPECT_EQ(extracts->Extracts(3)->ObjectHandle, 3);
  EXPECT_EQ(extracts->Extracts(3)->Parent(), extracts);
  EXPECT_EQ(extracts->Extracts(4), nullptr);

  // Extracts takes handles, not positions: after the first is gone, 1 names nothing and 3 is the last.
  EXPECT_EQ(ErrorOf([&] { extracts->DestroyExtract(3); }), 0);  // the last one: no error
  EXPECT_EQ(ErrorOf([&] { extracts->DestroyExtract(1); }), 9);
  EXPECT_EQ(extracts->Extracts(1), nullptr);
  EXPECT_EQ(extracts->Extracts(3), nullptr);
  ASSERT_NE(extracts->Extracts(2), nullptr);
  EXPECT_EQ(extracts->Extracts(2)->ObjectHandle, 2);
  EXPECT_EQ(ErrorOf([&] { extracts->DestroyExtract(42); }), 0);

  EXPECT_EQ(extracts->ExtractRecords("Qty", "<", 5), 4);
  extracts->DestroyExtract(999);
  EXPECT_EQ(extracts->Extracts(2), nullptr);
  EXPECT_EQ(extracts->Extracts(4), nullptr);
  EXPECT_EQ(extracts->ExtractRecords("Qty", "<", 5), 5);  // the counter goes on after 999
}

TEST(clsExtractManager, UnknownFieldRaises4000AndTakesNoHandle) {
  Surroundings s;
  auto layer = Shop();
  auto extracts = layer->Extract();
  const auto error = [&](const std::string& name) {
    try {
      extracts->ExtractRecords(name, "=", 1);
    } catch (const AutomationError& e) {
      return std::to_string(e.Number()) + " " + e.Source() + ": " + e.Description();
    }
    return std::string("no error");
  };
  EXPECT_EQ(error("Nope"), "4000 Quorbex DataLayer: Quorbex DataLayer: Cannot find fieldname 'Nope' in Extract");
  EXPECT_EQ(error("*Nope*"), "4000 Quorbex DataLayer: Quorbex DataLayer: Cannot find fieldname '*Nope*' in Extract");
  // The check drops the asterisks, the match does not: a starred name passes and matches nothing.
  EXPECT_EQ(extracts->ExtractRecords("*Qty*", ">", 0), 0);
  EXPECT_EQ(extracts->ExtractRecords("Qty", ">", 0), 1);
  EXPECT_EQ(extracts->ExtractRecords("qty", ">", 0), 2);  // names match as FieldID matches them
}

TEST(clsExtractManager, ExtractSharesTheParentsRecords) {
  Surroundings s;
  auto layer = Shop();
  auto extracts = layer->Extract();
  auto wien = extracts->Extracts(extracts->ExtractRecords("City", "=", "Wien"));
  ASSERT_NE(wien, nullptr);
  EXPECT_FALSE(layer->DataChanged());
  wien->MoveSpecific(2);
  wien->SetFieldValue("Qty", 90);
  EXPECT_TRUE(layer->DataChanged());
  layer->MoveSpecific(3);  // Clara is the second Viennese
  EXPECT_EQ(layer->FieldValue("Qty").AsLong(), 90);
  auto record = layer->GetOfflineRecordset()->Records(3);
  EXPECT_TRUE(record->HasChanged);
  EXPECT_TRUE(record->Fields(4)->HasChanged);
  EXPECT_FALSE(layer->GetOfflineRecordset()->Records(1)->HasChanged);

  // A value written by the parent is seen through the extract.
  layer->MoveSpecific(5);
  layer->SetFieldValue("Name", "Emilia");
  wien->MoveLast();
  EXPECT_EQ(wien->FieldValue("Name").AsString(), "Emilia");

  // A destroyed extract keeps its records but cannot reach the DataLayer any more.
  extracts->DestroyExtract(999);
  EXPECT_EQ(wien->Parent(), nullptr);
  EXPECT_EQ(wien->RecordCount(), 3);
  EXPECT_EQ(wien->FieldValue("Name").AsString(), "Emilia");
  EXPECT_EQ(ErrorOf([&] { wien->CalcSum("Qty"); }), 91);
  EXPECT_EQ(ErrorOf([&] { wien->SetFieldValue("Qty", 1); }), 91);
}

// ---- Cursor and fields -------------------------------------------------------------------------------

TEST(clsExtract, CursorStopsAtTheEndsAndMoveSpecificFallsBackToOne) {
  Surroundings s;
  auto layer = Shop();
  auto extract = layer->Extract()->Extracts(layer->Extract()->ExtractRecords("City", "=", "Wien"));
  EXPECT_EQ(extract->ActualPosition(), 1);
  extract->MovePrevious();
  EXPECT_EQ(extract->ActualPosition(), 1);
  extract->MoveLast();
  extract->MoveNext();
  EXPECT_EQ(extract->ActualPosition(), 3);
  for (const int32_t beyond : {4, 0}) {
    extract->MoveSpecific(2);
    extract->MoveSpecific(beyond);
    EXPECT_EQ(extract->ActualPosition(), 1);
  }
  // A negative position is kept, and reading there fails.
  extract->MoveSpecific(-2);
  EXPECT_EQ(extract->ActualPosition(), -2);
  EXPECT_EQ(ErrorOf([&] { extract->FieldValue("Name"); }), 9);
  EXPECT_EQ(ErrorOf([&] { extract->RemoveRecord(); }), 9);
  EXPECT_EQ(extract->RecordCount(), 3);
}

TEST(clsExtract, FieldValueMatchesLooselySetFieldValueExactly) {
  Surroundings s;
  auto layer = Shop();
  auto extract = layer->Extract()->Extracts(layer->Extract()->ExtractRecords("ID", "=", 2));
  EXPECT_EQ(extract->FieldValue(" name ").AsString(), "Bernd");
  EXPECT_EQ(extract->FieldValue("NAME").AsString(), "Bernd");
  EXPECT_TRUE(extract->FieldValue("Nope").IsEmpty());
  EXPECT_EQ(layer->ErrorStatus(), "");  // no report for an unknown name

  extract->SetFieldValue(" name ", "Ben");
  EXPECT_EQ(layer->ErrorStatus(), "\r\n1) Could not save any value because the name  name  was not rekognized");
  extract->SetFieldValue("name", "Ben");
  EXPECT_EQ(extract->FieldValue("Name").AsString(), "Bernd");
  EXPECT_FALSE(layer->DataChanged());
  extract->SetFieldValue("Name", Variant(Null));
  EXPECT_EQ(extract->FieldValue("Name").AsString(), "");  // Null reads as ""
  EXPECT_TRUE(layer->GetOfflineRecordset()->Records(2)->Fields(2)->varValue.IsNull());
}

TEST(clsExtract, FindRecordComparesExactlyAndNeverMatchesAMissingField) {
  Surroundings s;
  auto layer = Shop();
  auto extract = layer->Extract()->Extracts(layer->Extract()->ExtractRecords("Qty", ">", 4));
  ASSERT_EQ(Column(*extract, "Name"), (Texts{"Bernd", "Clara", "Emil", "Fritz"}));
  EXPECT_TRUE(extract->FindRecord("City", "Wien"));
  EXPECT_EQ(extract->ActualPosition(), 2);
  EXPECT_TRUE(extract->FindRecord("qty", 5));
  EXPECT_EQ(extract->ActualPosition(), 4);
  EXPECT_FALSE(extract->FindRecord("City", "wien"));  // case counts
  EXPECT_EQ(extract->ActualPosition(), 1);
  extract->MoveLast();
  EXPECT_FALSE(extract->FindRecord("Nope", ""));  // an absent field does not read as ""
  EXPECT_EQ(extract->ActualPosition(), 1);
  EXPECT_FALSE(extract->FindRecord("Name", "Anna"));  // in the parent, not in the extract
}

// ---- Whole columns -----------------------------------------------------------------------------------

TEST(clsExtract, FillFieldWritesTheSubsetWithoutMarks) {
  Surroundings s;
  auto layer = test::MakeVirtualTable("ID;City;Note", {{1, "Wien", ""}, {2, "Graz", ""}, {3, "Wien", "keep"},
                                                        {4, "Wien", Variant(Null)}});
  layer->ErrorStatus("");
  auto extracts = layer->Extract();
  auto wien = extracts->Extracts(extracts->ExtractRecords("City", "=", "Wien"));
  wien->MoveLast();
  wien->RemoveRecord();  // the Null is not part of the first fill ...
  wien->FillField("Note", "new", false);
  EXPECT_EQ(Column(*layer, "Note"), (Texts{"new", "", "keep", ""}));
  EXPECT_FALSE(layer->DataChanged());
  for (int32_t i = 1; i <= 4; ++i) EXPECT_FALSE(layer->GetOfflineRecordset()->Records(i)->HasChanged);

  wien->FillField("Note", "all", true);
  EXPECT_EQ(Column(*layer, "Note"), (Texts{"all", "", "all", ""}));
  wien->FillField("Nope", "x", true);
  EXPECT_NE(layer->ErrorStatus().find("\r\n2) FillField: Fieldname 'Nope' not reckkognized"), std::string::npos);

  // ... which the next extract holds: a Null cannot be read as text.
  auto nulls = extracts->Extracts(extracts->ExtractRecords("ID", "=", 4));
  EXPECT_EQ(ErrorOf([&] { nulls->FillField("Note", "x", false); }), 94);
}

TEST(clsExtract, SumsSkipNonNumbersButTheAverageCountsEveryRecord) {
  Surroundings s;
  auto layer = test::MakeVirtualTable("ID;Kind;Value", {{1, "a", 2}, {2, "a", "x"}, {3, "a", "4"},
                                                          {4, "b", 100}, {5, "a", Variant(Null)}});
  auto extracts = layer->Extract();
  auto a = extracts->Extracts(extracts->ExtractRecords("Kind", "=", "a"));
  EXPECT_DOUBLE_EQ(a->CalcSum("Value"), 6.0);
  EXPECT_DOUBLE_EQ(a->CalcAverage("Value"), 1.5);  // 6 / 4
  a->MoveLast();
  a->RemoveRecord();
  EXPECT_DOUBLE_EQ(a->CalcAverage("value"), 2.0);  // 2, "x", "4": 6 / 3
  EXPECT_DOUBLE_EQ(a->CalcSum("Nope"), 0.0);
  a->SubductRecords("Kind", "=", "a");
  EXPECT_EQ(a->RecordCount(), 0);
  EXPECT_DOUBLE_EQ(a->CalcAverage("Value"), 0.0);
}

// The removal as the scan-and-restart it replaces: remove the first match, scan again from the top.
std::vector<std::string> SubductByRestart(std::vector<std::pair<std::string, Variant>> rows, const std::string& op,
                                          const Variant& value) {
  bool removed = true;
  while (removed) {
    removed = false;
    for (size_t i = 0; i < rows.size(); ++i) {
      const Variant& v = rows[i].second.IsNull() ? Variant(std::string()) : rows[i].second;
      const auto order = Compare(v, value);
      bool match = false;
      if (order) {
        match = (op == "=" && *order == 0) || (op == ">" && *order > 0) || (op == "<" && *order < 0) ||
                (op == "<>" && *order != 0);
      }
      if (match) {
        rows.erase(rows.begin() + static_cast<std::ptrdiff_t>(i));
        removed = true;
        break;
      }
    }
  }
  std::vector<std::string> ids;
  for (const auto& row : rows) ids.push_back(row.first);
  return ids;
}

TEST(clsExtract, SubductRecordsRemovesWhatTheRestartingScanRemoves) {
  Surroundings s;
  auto layer = Shop();
  auto extracts = layer->Extract();
  auto all = extracts->Extracts(extracts->ExtractRecords("ID", ">", 0));
  all->MoveLast();
  all->SubductRecords("qty", ">", 5);
  EXPECT_EQ(all->ActualPosition(), 1);
  EXPECT_EQ(Column(*all, "Qty"), (Texts{"3", "1", "5"}));
  EXPECT_EQ(layer->RecordCount(), 6);  // the parent keeps its records
  all->SubductRecords("Qty", ">=", 0);  // not one of the four operators: nothing
  all->SubductRecords("Nope", "=", 3);  // a missing field reads as Empty
  EXPECT_EQ(all->RecordCount(), 3);
  all->SubductRecords("City", "<>", "Linz");
  EXPECT_EQ(Column(*all, "Name"), (Texts{"Dora"}));

  // Mixed values, against the restarting scan itself.
  std::mt19937 random(7);
  const Variant pool[] = {Variant(1), Variant(5), Variant(5.5), Variant("5"), Variant("x"), Variant("X"),
                          Variant(""), Variant(Null), Variant(true), Variant(-3)};
  std::vector<std::vector<Variant>> rows;
  std::vector<std::pair<std::string, Variant>> reference;
  for (int i = 0; i < 300; ++i) {
    const Variant& v = pool[random() % std::size(pool)];
    rows.push_back({i + 1, v});
    reference.emplace_back(std::to_string(i + 1), v);
  }
  auto mixed = test::MakeVirtualTable("ID;V", rows);
  for (const std::string op : {"=", ">", "<", "<>"}) {
    for (const Variant& value : {Variant(5), Variant("x"), Variant(""), Variant(Null)}) {
      auto manager = mixed->Extract();
      auto extract = manager->Extracts(manager->ExtractRecords("ID", ">", 0));
      extract->SubductRecords("V", op, value);
      EXPECT_EQ(Column(*extract, "ID"), SubductByRestart(reference, op, value)) << op << " " << ToText(value);
    }
  }
}

TEST(clsExtract, SortOrdersAsTheDataLayerDoesWithinTheSubset) {
  Surroundings s;
  // Text order compares lower-cased keys and keeps equal ones in their order; number order never
  // moves a value past a non-number.
  auto layer = test::MakeVirtualTable("ID;T;N", {{1, "b", 10}, {2, "A", "x"}, {3, "a", 2}, {4, "Öl", 1},
                                                  {5, "c", 7}});
  auto extracts = layer->Extract();
  auto extract = extracts->Extracts(extracts->ExtractRecords("ID", "<", 5));
  extract->SortRecordset("N", true, false, true);
  EXPECT_EQ(Column(*extract, "N"), (Texts{"10", "x", "1", "2"}));
  bool asc = false, desc = false;
  extract->SortRecordset("T", asc, desc);
  EXPECT_TRUE(asc);
  EXPECT_FALSE(desc);
  EXPECT_EQ(Column(*extract, "T"), (Texts{"A", "a", "b", "Öl"}));
  asc = desc = true;
  extract->SortRecordset("ID", asc, desc);
  EXPECT_FALSE(desc);
  EXPECT_EQ(Column(*extract, "ID"), (Texts{"1", "2", "3", "4"}));
  EXPECT_EQ(Column(*layer, "ID"), (Texts{"1", "2", "3", "4", "5"}));  // the parent's order stays
  extract->SortRecordset("Nope", false, true);
  EXPECT_EQ(Column(*extract, "ID"), (Texts{"1", "2", "3", "4"}));

  // Random data in both orders and directions, against the DataLayer's own sort of the same records.
  std::mt19937 random(11);
  std::vector<std::vector<Variant>> rows;
  for (int i = 0; i < 400; ++i) {
    const int pick = static_cast<int>(random() % 10);
    Variant n = pick == 0 ? Variant("n/a") : pick == 1 ? Variant(std::to_string(random() % 50)) : Variant(int32_t(random() % 50));
    rows.push_back({i + 1, std::string(1, static_cast<char>('a' + random() % 5)) + (random() % 2 ? "x" : "X"), n});
  }
  for (const bool numbers : {false, true}) {
    for (const bool ascending : {true, false}) {
      auto sorted = test::MakeVirtualTable("ID;T;N", rows);
      auto whole = sorted->Extract()->Extracts(sorted->Extract()->ExtractRecords("ID", ">", 0));
      const std::string field = numbers ? "N" : "T";
      whole->SortRecordset(field, ascending, !ascending, numbers);
      sorted->SortRecordset(field, ascending, !ascending, numbers);
      EXPECT_EQ(Column(*whole, "ID"), Column(*sorted, "ID")) << field << (ascending ? " asc" : " desc");
    }
  }
}

TEST(clsExtract, SortStopsAtARecordWithoutTheField) {
  Surroundings s;
  auto layer = test::MakeVirtualTable("ID;T", {{1, "c"}, {2, "b"}, {3, "a"}, {4, "d"}});
  layer->ErrorStatus("");
  auto extracts = layer->Extract();
  auto extract = extracts->Extracts(extracts->ExtractRecords("ID", ">", 0));
  layer->GetOfflineRecordset()->Records(4)->Remove(2);
  extract->SortRecordset("T");
  // The first pass compared the pairs before the short record: c b a -> b a c.
  EXPECT_EQ(Column(*extract, "ID"), (Texts{"2", "3", "1", "4"}));
  EXPECT_EQ(layer->ErrorStatus(), "\r\n1) Sortrecordset: FieldColumn Index is higher than fieldcount!");
}

// ---- Removal, lists, analyzer, output ----------------------------------------------------------------

TEST(clsExtract, RemoveRecordSaysWhatItDoesAndLeavesTheParent) {
  Surroundings s;
  auto layer = Shop();
  auto extract = layer->Extract()->Extracts(layer->Extract()->ExtractRecords("City", "=", "Wien"));
  extract->MoveSpecific(2);
  extract->RemoveRecord(true);
  ASSERT_EQ(s.box->Count(), 1u);
  const auto prompt = s.box->Prompts()[0];
  EXPECT_EQ(prompt.title, "Message for you...");
  EXPECT_EQ(prompt.style, platform::vbInformation);
  EXPECT_EQ(prompt.text,
            "You cannot remove records in the DB from the extract. Get the ID of the record and remove it in the "
            "DataLayer. Then create a new extract.\r\n\r\nRecords will only be removed in the extract and not "
            "in the datalayer.");
  EXPECT_EQ(extract->ActualPosition(), 2);
  EXPECT_EQ(extract->FieldValue("Name").AsString(), "Emil");
  EXPECT_EQ(layer->RecordCount(), 6);

  layer->SuppressAllMessages(true);
  extract->RemoveRecord(true);
  EXPECT_EQ(s.box->Count(), 1u);
  EXPECT_NE(layer->ErrorStatus().find("Records will only be removed in the extract"), std::string::npos);
  EXPECT_EQ(extract->ActualPosition(), 2);  // now past the only record left
  EXPECT_EQ(ErrorOf([&] { extract->RemoveRecord(); }), 9);
  EXPECT_EQ(Column(*extract, "Name"), (Texts{"Anna"}));
}

TEST(clsExtract, FillCBOFillsTheControlAndReturnsFalse) {
  Surroundings s;
  auto layer = Shop();
  auto extract = layer->Extract()->Extracts(layer->Extract()->ExtractRecords("City", "=", "Graz"));
  layer->MoveSpecific(2);
  layer->SetFieldValue("City", "");
  auto list = std::make_shared<test::FakeListControl>();
  list->items = {"old"};
  extract->MoveLast();
  const std::string gap(96, ' ');
  EXPECT_FALSE(extract->FillCBO(list, "Name", "ID"));
  EXPECT_EQ(list->items, (Texts{"Bernd" + gap + "2", "Fritz" + gap + "6"}));
  EXPECT_EQ(extract->ActualPosition(), 2);
  EXPECT_FALSE(extract->FillCBO(list, "Name", "ID", "City", "Qty", true, false));
  EXPECT_EQ(list->items, (Texts{"Bernd 7" + gap + "2", "Fritz, Graz 5" + gap + "6"}));
  EXPECT_FALSE(extract->FillCBO(list, "Name", "ID", "", "City", false, true));
  EXPECT_EQ(list->items, (Texts{"Bernd, " + gap + "2", "Fritz, Graz" + gap + "6"}));
  EXPECT_EQ(list->clears, 3);
  EXPECT_EQ(ErrorOf([&] { extract->FillCBO(nullptr, "Name", "ID"); }), 91);
}

TEST(clsExtract, AnalyzerIsNewEachTimeAndWorksOnTheSubset) {
  Surroundings s;
  auto layer = Shop();
  auto extract = layer->Extract()->Extracts(layer->Extract()->ExtractRecords("City", "=", "Graz"));
  auto first = extract->Analyzer();
  auto second = extract->Analyzer();
  EXPECT_NE(first, second);
  EXPECT_EQ(first->ParentDataLayer(), layer);
  EXPECT_EQ(first->Parent(), std::static_pointer_cast<Object>(extract));
  first->CalculateFieldAndValue1("Qty", "*", 10, "Qty");
  EXPECT_EQ(Column(*layer, "Qty"), (Texts{"3", "70", "9", "1", "6", "50"}));
  EXPECT_EQ(second->OccurrenceCount("City", "Wien"), 0);
}

// A viewer that reads the file while it is being opened, as a host's viewer that wants the dump does.
class ReadingViewer final : public platform::TextViewer {
 public:
  bool Open(const std::string& path) override {
    paths.push_back(path);
    contents.push_back(test::ReadBytes(path));
    return true;
  }
  std::vector<std::string> paths, contents;
};

TEST(clsExtract, TextDumpGoesToTheViewerAndIsThenDeleted) {
  Surroundings s;
  test::TempDir dir;
  auto environment = std::make_shared<test::FakeEnvironment>();
  environment->Set("Temp", dir.Path() + "/");
  environment->Set("temp", dir.Path());
  platform::EnvironmentScope environment_scope(environment);
  auto viewer = std::make_shared<ReadingViewer>();
  platform::TextViewerScope viewer_scope(viewer);

  auto layer = test::MakeVirtualTable("ID;Name", {{1, "Anna"}, {2, Variant(Null)}, {3, "Clara"}});
  auto extract = layer->Extract()->Extracts(layer->Extract()->ExtractRecords("ID", "<", 3));
  extract->VisualizeToTextFile();
  ASSERT_EQ(viewer->paths, (Texts{dir.File("Datalayer.txt")}));
  EXPECT_EQ(viewer->contents[0], "1 | Anna | \n2 |  | \n");
  EXPECT_FALSE(platform::FileExists(dir.File("Datalayer.txt")));

}

TEST(clsExtract, ZoomReplacesTheParentsRecordsOnlyWhenAsked) {
  Surroundings s;
  auto layer = Shop();
  auto extracts = layer->Extract();
  auto wien = extracts->Extracts(extracts->ExtractRecords("City", "=", "Wien"));
  auto graz = extracts->Extracts(extracts->ExtractRecords("City", "=", "Graz"));
  wien->SortRecordset("Qty", false, true, true);

  wien->Zoom(false);
  EXPECT_EQ(layer->RecordCount(), 6);
  EXPECT_EQ(layer->ErrorStatus(),
            "\r\n1) Extract.Zoom: Info: This function replaces the data of the datalayer with the one in the extract.");
  EXPECT_EQ(extracts->Extracts(1), wien);

  layer->MoveLast();
  wien->Zoom(true);
  EXPECT_EQ(layer->ActualPosition(), 1);
  EXPECT_EQ(Column(*layer, "Name"), (Texts{"Clara", "Emil", "Anna"}));
  EXPECT_EQ(extracts->Extracts(1), nullptr);
  EXPECT_EQ(extracts->Extracts(2), nullptr);
  EXPECT_EQ(wien->Parent(), nullptr);
  EXPECT_EQ(graz->Parent(), nullptr);

  // The records are the same objects; the lists are not, so the old extract cannot unbalance the parent.
  wien->RemoveRecord();
  EXPECT_EQ(wien->RecordCount(), 2);
  EXPECT_EQ(layer->RecordCount(), 3);
  layer->MoveSpecific(2);
  layer->SetFieldValue("Qty", 11);
  EXPECT_EQ(wien->FieldValue("Qty").AsLong(), 11);
  EXPECT_EQ(extracts->ExtractRecords("Qty", ">", 0), 3);  // the new working set, the counter going on
  EXPECT_EQ(extracts->Extracts(3)->RecordCount(), 3);
}

// ---- Real-time saving -----------------------------------------------------------------------------------

class ExtractRealtimeSave : public test::DataLayerTest {};

TEST_F(ExtractRealtimeSave, SetFieldValueSavesAtOnceWhenTheLoadAskedForIt) {
  auto layer = Bound();
  bool realtime = true;
  layer->GetRecordset("SELECT * FROM customers ORDER BY id", realtime);
  auto extracts = layer->Extract();
  auto active = extracts->Extracts(extracts->ExtractRecords("active", "=", true));
  ASSERT_NE(active, nullptr);
  ASSERT_EQ(active->RecordCount(), 2);
  active->MoveLast();
  active->SetFieldValue("city", "Krems");
  EXPECT_EQ(DbValue("SELECT city FROM customers WHERE id = 3").AsString(), "Krems");
  EXPECT_FALSE(layer->DataChanged());
  EXPECT_FALSE(layer->GetOfflineRecordset()->Records(3)->HasChanged);

}

}  // namespace
}  // namespace quorbex
