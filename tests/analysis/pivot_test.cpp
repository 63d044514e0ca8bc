#include <gtest/gtest.h>

#include <memory>
#include <random>
#include <set>
#include <string>
#include <vector>

#include "platform/message_box.h"
#include "platform/settings.h"
#include "quorbex/DataLayer.h"
#include "quorbex/clsAnalyzer.h"
#include "quorbex/frmProgress.h"
#include "service/thread_state.h"
#include "support/platform_fakes.h"
#include "support/virtual_table.h"

namespace quorbex {

using namespace quorbex::internal;
namespace {

using test::MakeVirtualTable;

class RecordingRenderer : public frmProgress::Renderer {
 public:
  void Draw(const frmProgress::Label&, const frmProgress::Label& description, const frmProgress::Label& percent) override {
    draws.push_back(description.Caption + " " + percent.Caption);
  }
  void Close() override { ++closes; }
  std::vector<std::string> draws;
  int closes = 0;
};

class Pivot : public ::testing::Test {
 protected:
  void SetUp() override {
    State() = ThreadState{};
    State().log_disabled = true;
    Locale::SetCurrent(Locale::C());
  }
  void TearDown() override { State() = ThreadState{}; }

  std::shared_ptr<DataLayer> Table(const std::string& fields, const std::vector<std::vector<Variant>>& rows) {
    auto layer = MakeVirtualTable(fields, rows, "T");
    layer->ErrorStatus("");
    return layer;
  }

  static std::vector<std::string> Column(DataLayer& layer, const std::string& field) {
    std::vector<std::string> out;
    for (int32_t i = 1; i <= layer.RecordCount(); ++i) {
      layer.MoveSpecific(i);
      out.push_back(CStr(layer.FieldValue(field)));
    }
    return out;
  }
  static std::vector<std::string> FieldNames(DataLayer& layer) {
    std::vector<std::string> out;
    auto record = layer.GetOfflineRecordset()->Records(1);
    for (int32_t i = 1; record && i <= record->FieldCount(); ++i) out.push_back(record->FieldAt(i)->Description);
    return out;
  }
  static bool IsGuidText(const std::string& text) {
    if (text.size() != 32) return false;
    for (char c : text) {
      if (!((c >= '0' && c <= '9') || (c >= 'A' && c <= 'F'))) return false;
    }
    return true;
  }

  std::shared_ptr<test::MemorySettingsStore> settings_ = std::make_shared<test::MemorySettingsStore>();
  platform::SettingsScope settings_scope_{settings_};
  std::shared_ptr<test::FakeMessageBox> box_ = std::make_shared<test::FakeMessageBox>();
  platform::MessageBoxScope box_scope_{box_};
};

TEST_F(Pivot, SumsPerCriteriaValueOverTheSortedSource) {
  auto source = Table("ID;Region;Amount;Qty", {{1, "B", 10, 1}, {2, "A", 2.5, "3 pieces"}, {3, "B", "x", 2},
                                               {4, "A", "1.5", Variant()}});
  State().auto_guid_column = "Key";
  auto pivot = source->Analyzer()->Pivot("Amount;Qty", "Region");
  ASSERT_TRUE(pivot);
  EXPECT_EQ(pivot->SQLStringInUse(), "SELECT * FROM Pivot");
  EXPECT_EQ(FieldNames(*pivot), (std::vector<std::string>{"ID", "Region", "Amount", "Qty"}));
  EXPECT_EQ(Column(*pivot, "Region"), (std::vector<std::string>{"A", "B"}));
  EXPECT_EQ(Column(*pivot, "Amount"), (std::vector<std::string>{"4", "10"}));  // "x" adds 0
  EXPECT_EQ(Column(*pivot, "Qty"), (std::vector<std::string>{"3", "3"}));     // "3 pieces" adds 3
  const auto ids = Column(*pivot, "ID");
  EXPECT_TRUE(IsGuidText(ids[0]) && IsGuidText(ids[1]) && ids[0] != ids[1]);

  // The source stays sorted by the criteria field, its cursor on the last record.
  EXPECT_EQ(source->ActualPosition(), 4);
  EXPECT_EQ(Column(*source, "Region"), (std::vector<std::string>{"A", "A", "B", "B"}));
  EXPECT_EQ(Column(*source, "ID"), (std::vector<std::string>{"2", "4", "1", "3"}));
  EXPECT_EQ(State().auto_guid_column, "ID");  // the pivot's SetAutoGuidColumn stays in force
  EXPECT_TRUE(State().error_text.empty()) << State().error_text;
}

TEST_F(Pivot, FieldListRuleAndTheHundredValueFields) {
  auto source = Table("ID;Region;Amount", {{1, "West", 5}, {2, "West", 7}});
  auto pivot = source->Analyzer()->Pivot("Amount;Region", "Region");
  EXPECT_EQ(FieldNames(*pivot), (std::vector<std::string>{"ID", "Amount", "Region"}));
  EXPECT_EQ(Column(*pivot, "Region"), std::vector<std::string>{"West"});
  EXPECT_EQ(Column(*pivot, "Amount"), std::vector<std::string>{"12"});

  // 101 names: the table gets them all, only the first 100 are summed.
  std::string fields = "Amount";
  for (int i = 2; i <= 101; ++i) fields += ";F" + std::to_string(i);
  auto wide = source->Analyzer()->Pivot(fields + ";", "Region");
  EXPECT_EQ(FieldNames(*wide).size(), 103u);
  EXPECT_EQ(Column(*wide, "Amount"), std::vector<std::string>{"12"});
  EXPECT_EQ(Column(*wide, "F100"), std::vector<std::string>{"0"});
  EXPECT_EQ(Column(*wide, "F101"), std::vector<std::string>{""});
  EXPECT_TRUE(State().error_text.empty()) << State().error_text;
}

TEST_F(Pivot, EmptySourceGivesTheFieldsWithoutRecords) {
  auto source = Table("ID;Region;Amount", {});
  auto pivot = source->Analyzer()->Pivot("Amount", "Region", true);
  EXPECT_EQ(pivot->RecordCount(), 0);
  EXPECT_EQ(pivot->SQLStringInUse(), "SELECT * FROM Pivot");
  EXPECT_TRUE(pivot->CheckContainsFieldName("Region"));
  EXPECT_TRUE(pivot->CheckContainsFieldName("Amount"));

  auto counts = source->Analyzer()->PivotCountOnly("Region");
  EXPECT_EQ(counts->RecordCount(), 0);
  EXPECT_TRUE(counts->CheckContainsFieldName("Count"));
}

TEST_F(Pivot, ProgressDisplayFollowsTheRecords) {
  auto renderer = std::make_shared<RecordingRenderer>();
  auto previous = frmProgress::InstallRenderer(renderer);
  auto source = Table("ID;Region;Amount", {{1, "A", 1}, {2, "B", 2}, {3, "A", 3}, {4, "C", 4}});
  auto pivot = source->Analyzer()->Pivot("Amount", "Region", true);
  frmProgress::InstallRenderer(previous);
  EXPECT_EQ(Column(*pivot, "Amount"), (std::vector<std::string>{"4", "2", "4"}));
  ASSERT_FALSE(renderer->draws.empty());
  EXPECT_EQ(renderer->draws.back(), "Pivotieren.... 100%");
  EXPECT_GE(renderer->closes, 1);
}

TEST_F(Pivot, FailuresAreReportedAndThePartialTableReturned) {
  auto source = Table("ID;Region;Amount", {{1, "A", "1e999"}, {2, "A", 2}});
  auto pivot = source->Analyzer()->Pivot("Amount", "Region");
  EXPECT_EQ(Column(*pivot, "Amount"), std::vector<std::string>{"2"});
  EXPECT_NE(State().error_text.find("Analyzer.Pivot: Fehler bei Aufbereitung: Overflow"), std::string::npos)
      << State().error_text;

  // An analyzer whose DataLayer has gone still answers with an empty table.
  auto analyzer = source->Analyzer();
  source.reset();
  State().error_text.clear();
  auto orphan = analyzer->Pivot("Amount", "Region");
  ASSERT_TRUE(orphan);
  EXPECT_EQ(orphan->RecordCount(), 0);
  EXPECT_NE(State().error_text.find("Analyzer.Pivot: Fehler bei Aufbereitung: "), std::string::npos);
}

TEST_F(Pivot, SourceOrderAndGroupsMatchSortRecordset) {
  // Keys that differ only in case share a place in the order, so their records keep their order and
  // each change of the exact text opens a group; numbers sort by their text. A non-ASCII key makes the
  // pivot leave the sorting to the recordset itself; the result must not tell the difference. The
  // first pool has one text per key (each key one group), the second texts that differ in case only.
  const std::vector<std::vector<Variant>> pools = {
      {"b", "a", "ab", " a", "a ", "10", 9, 10, 2.5, -1, "x-1", ""},
      {"b", "A", "a", "B", "ab", " a", "a ", "10", 9, 10, 2.5, -1, "x-1", ""},
      {"b", "A", "\u00d6l", "ol", "Uel", "uel", 3, "a"}};
  std::mt19937 rng(3);
  for (const auto& pool : pools) {
    std::vector<std::vector<Variant>> rows;
    for (int i = 1; i <= 400; ++i) rows.push_back({i, pool[rng() % pool.size()], static_cast<int32_t>(rng() % 7)});
    auto pivoted = Table("ID;K;V", rows);
    auto sorted = Table("ID;K;V", rows);
    auto pivot = pivoted->Analyzer()->Pivot("V", "K");
    bool ascending = true, descending = false;
    sorted->SortRecordset("K", ascending, descending);
    ASSERT_EQ(Column(*pivoted, "ID"), Column(*sorted, "ID"));

    // The groups: one per run of equal texts in the sorted records, with the run's sum.
    std::vector<std::string> texts, sums;
    const auto keys = Column(*sorted, "K");
    const auto values = Column(*sorted, "V");
    for (size_t i = 0; i < keys.size(); ++i) {
      if (texts.empty() || keys[i] != texts.back()) {
        texts.push_back(keys[i]);
        sums.push_back("0");
      }
      sums.back() = std::to_string(std::stoi(sums.back()) + std::stoi(values[i]));
    }
    EXPECT_EQ(Column(*pivot, "K"), texts);
    EXPECT_EQ(Column(*pivot, "V"), sums);
  }
  EXPECT_TRUE(State().error_text.empty()) << State().error_text;
}

TEST_F(Pivot, PivotCountOnlyCountsLikeOccurrenceCount) {
  auto source = Table("ID;City", {{1, "Wien"}, {2, "graz"}, {3, "Graz"}, {4, " wien"}, {5, "Linz"}, {6, ""},
                                  {7, "Wien"}});
  auto analyzer = source->Analyzer();
  auto pivot = analyzer->PivotCountOnly("City");
  EXPECT_EQ(FieldNames(*pivot), (std::vector<std::string>{"ID", "City", "Count"}));
  const auto cities = Column(*pivot, "City");
  EXPECT_EQ(cities, (std::vector<std::string>{" wien", "Graz", "Linz", "Wien", "graz"}));
  const auto counts = Column(*pivot, "Count");
  for (size_t i = 0; i < cities.size(); ++i) {
    EXPECT_EQ(counts[i], std::to_string(analyzer->OccurrenceCount("City", cities[i]))) << cities[i];
  }
  EXPECT_EQ(counts, (std::vector<std::string>{"3", "2", "1", "3", "2"}));
  for (const auto& id : Column(*pivot, "ID")) EXPECT_TRUE(IsGuidText(id));
  // Counting leaves the source in its order.
  EXPECT_EQ(Column(*source, "ID"), (std::vector<std::string>{"1", "2", "3", "4", "5", "6", "7"}));
  EXPECT_TRUE(State().error_text.empty()) << State().error_text;
}

TEST_F(Pivot, PivotCountOnlyAgreesWithOccurrenceCountOnRandomData) {
  std::mt19937 rng(7);
  const std::vector<Variant> pool = {"a", "A", " a", "b ", "B", 1, 1.5, "1", "x", ""};
  std::vector<std::vector<Variant>> rows;
  for (int i = 1; i <= 300; ++i) rows.push_back({i, pool[rng() % pool.size()]});
  auto source = Table("ID;V", rows);
  auto analyzer = source->Analyzer();
  auto pivot = analyzer->PivotCountOnly("V");
  auto distinct = analyzer->SingleOccurrence("V");
  ASSERT_EQ(pivot->RecordCount(), distinct->Count());
  int32_t total = 0;
  for (int32_t i = 1; i <= pivot->RecordCount(); ++i) {
    pivot->MoveSpecific(i);
    EXPECT_TRUE(distinct->Item(i).SameAs(pivot->FieldValue("V")));
    const int32_t count = CLng(pivot->FieldValue("Count"));
    EXPECT_EQ(count, analyzer->OccurrenceCount("V", distinct->Item(i)));
    total += count;
  }
  EXPECT_GT(total, 0);
}

}  // namespace
}  // namespace quorbex
