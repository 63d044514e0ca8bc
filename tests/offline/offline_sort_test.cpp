#include <gtest/gtest.h>

#include <cmath>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "offline_test_util.h"
#include "quorbex/clsOfflineRecordset.h"
#include "quorbex/locale.h"
#include "quorbex/text.h"
#include "service/modService.h"
#include "service/thread_state.h"

namespace quorbex {

using namespace quorbex::internal;
namespace {

using test::OneFieldRecordset;

std::string Values(const clsOfflineRecordset& rs, int32_t column = 1) {
  std::string text;
  for (int32_t i = 1; i <= rs.RecordCollection()->Count(); ++i) {
    auto field = rs.Records(i)->Fields(column);
    text += (i > 1 ? "," : "") + (field ? ToText(field->varValue.IsNull() ? Variant("<null>") : field->varValue) : "-");
  }
  return text;
}

std::vector<clsOfflineRecord*> Order(const clsOfflineRecordset& rs) {
  std::vector<clsOfflineRecord*> order;
  for (const auto& record : *rs.RecordCollection()) order.push_back(record.get());
  return order;
}

const std::string kShort = "Sortrecordset: FieldColumn Index is higher than fieldcount!";

// The sort exactly as documented: passes of neighbour exchanges until one exchanges nothing, each
// exchange taking record i out and putting it back after the record now at i. A short record ends the
// sort where the pass meets it, as record i or as record i + 1.
void ExchangeSort(clsOfflineRecordset& rs, int32_t column, bool asc, bool desc, bool numbers) {
  if (asc && desc) desc = false;
  if (!asc && !desc) asc = true;
  if (column == 0) return;
  bool exchanged = true;
  while (exchanged) {
    exchanged = false;
    for (int32_t i = 1; i <= rs.RecordCount() - 1; ++i) {
      auto a = rs.Records(i);
      auto b = rs.Records(i + 1);
      if (column > a->FieldCount() || column > b->FieldCount()) {
        AppendErrorStatus(kShort + std::to_string(column));
        return;
      }
      bool swap = false;
      if (!numbers) {
        std::string ka = ToText(a->Fields(column)->Anything());
        std::string kb = ToText(b->Fields(column)->Anything());
        SortKeyText(ka);
        SortKeyText(kb);
        swap = asc ? ka > kb : ka < kb;
      } else {
        Variant va = a->Fields(column)->Value();
        Variant vb = b->Fields(column)->Value();
        if (IsNumeric(va) && IsNumeric(vb)) swap = asc ? Val(va) > Val(vb) : Val(va) < Val(vb);
      }
      if (swap) {
        auto records = rs.RecordCollection();
        auto record = records->Item(i);
        records->Remove(i);
        records->Add(record, std::nullopt, i);
        exchanged = true;
      }
    }
  }
}

class RecordsetSort : public ::testing::Test {
 protected:
  void SetUp() override {
    State() = ThreadState{};
    Locale::SetCurrent(Locale::C());
  }
  void TearDown() override {
    clsOfflineRecordset::InstallSortProgress(nullptr);
    State() = ThreadState{};
  }
};

TEST_F(RecordsetSort, MatchesTheExchangeSortOnRandomTables) {
  const std::vector<Variant> pool = {
      "b",  "A",  "a",      "Öl",  "uel",        "Uel",         "äpfel",      "Apfel",       "ue",  "é",
      "e",  "",   "Zebra",  "ß",   "10",         "2",           "1",          "-3",          "1.5", "x",
      "1,5", " 7 ", Null,   Variant(), Variant(5), Variant(2.5), Variant(true), Variant(1e20), Variant(0.1 + 0.2),
      Variant(0.3), Variant(int16_t{-2}), Variant(-0.0), Variant(3.0f), "&H10", "ÄRGER", "ärger", "École", "\xff\xfe",
  };
  std::mt19937 random(20240611);
  for (const Locale& locale : {Locale::C(), Locale::German()}) {
    LocaleScope scope(locale);
    for (int trial = 0; trial < 600; ++trial) {
      // Mostly small tables of any values; every fifth a longer one with a few distinct values.
      const bool few_values = trial % 5 == 0;
      const int32_t size = static_cast<int32_t>(few_values ? 40 + random() % 90 : random() % 14);
      const size_t kinds = few_values ? 1 + random() % 5 : pool.size();
      const size_t first_kind = random() % (pool.size() - kinds + 1);
      const bool numbers = random() % 2 == 0;
      const bool asc = random() % 2 == 0, desc = random() % 2 == 0;
      auto table = [&](std::mt19937 draw) {
        auto rs = std::make_shared<clsOfflineRecordset>();
        rs->Add(size);
        rs->FieldDim(2);
        for (int32_t i = 1; i <= size; ++i) {
          auto record = rs->Records(i);
          record->Fields(1)->Value(Variant(i));
          record->Fields(2)->Value(pool[first_kind + draw() % kinds]);
          if (draw() % 9 == 0) record->Fields(2)->FieldStatus(draw() % 2 == 0);
          if (!few_values && draw() % 25 == 0) record->Remove(2);  // a short record
        }
        return rs;
      };
      const std::mt19937 seed = random;
      random.discard(64);
      auto expected = table(seed);
      auto actual = table(seed);
      State().error_text.clear();
      State().error_count = 0;
      ExchangeSort(*expected, 2, asc, desc, numbers);
      const std::string expected_error = State().error_text;
      State().error_text.clear();
      State().error_count = 0;
      bool a = asc, d = desc, n = numbers;
      actual->RecordsetSort(2, a, d, n);
      ASSERT_EQ(Values(*actual, 1), Values(*expected, 1))
          << "trial " << trial << (numbers ? " numbers" : " text") << " asc " << asc << " desc " << desc
          << "\nvalues " << Values(*table(seed), 2);
      EXPECT_EQ(State().error_text, expected_error);
    }
  }
}

TEST_F(RecordsetSort, NumberOrderOfNearlyEqualDoublesFollowsTheirText) {
  // Doubles that differ only beyond the 15 digits of their text are equal in number order and keep
  // their order; neighbours that differ a little more are not. Texts and whole numbers mix in.
  std::vector<Variant> pool;
  for (double base : {0.3, 1.5, 123.456, -7.25, 1e-7, 2.5e20, 100.0, 0.1 + 0.2, 1e15 - 0.5}) {
    for (double value : {base, std::nextafter(base, 1e300), std::nextafter(base, -1e300), base * (1 + 3e-15),
                         base * (1 - 3e-15), base * (1 + 2e-14), base * (1 + 1e-13)}) {
      pool.emplace_back(value);
    }
    pool.emplace_back(CStr(Variant(base)));
    pool.emplace_back(std::round(base));
  }
  pool.emplace_back(Variant(int32_t{0}));
  pool.emplace_back("x");
  std::mt19937 random(7);
  // Field 1 numbers the records, so that values that print alike are still told apart.
  auto table = [](const std::vector<Variant>& values) {
    auto rs = std::make_shared<clsOfflineRecordset>();
    rs->Add(static_cast<int32_t>(values.size()));
    rs->FieldDim(2);
    for (int32_t i = 1; i <= rs->RecordCount(); ++i) {
      rs->Records(i)->Fields(1)->Value(Variant(i));
      rs->Records(i)->Fields(2)->Value(values[static_cast<size_t>(i - 1)]);
    }
    return rs;
  };
  for (const Locale& locale : {Locale::C(), Locale::German()}) {
    LocaleScope scope(locale);
    for (int trial = 0; trial < 300; ++trial) {
      std::vector<Variant> values;
      const size_t size = 2 + random() % 40;
      for (size_t i = 0; i < size; ++i) values.push_back(pool[random() % pool.size()]);
      const bool asc = random() % 2 == 0;
      auto expected = table(values);
      auto actual = table(values);
      ExchangeSort(*expected, 2, asc, !asc, true);
      actual->RecordsetSort(2, asc, !asc, true);
      ASSERT_EQ(Values(*actual, 1), Values(*expected, 1)) << "trial " << trial << " asc " << asc;
    }
  }
}

TEST_F(RecordsetSort, TextOrderFollowsTheSortKeys) {
  auto rs = OneFieldRecordset({"b", "A", "a"});
  rs->RecordsetSort(1, true);
  EXPECT_EQ(Values(*rs), "A,a,b");  // A and a are equal keys and keep their order

  // ä and ö sort as "ue": Öl sorts as uel, between uek and uem.
  rs = OneFieldRecordset({"uem", "Öl", "uek", "Ofen"});
  rs->RecordsetSort(1, true);
  EXPECT_EQ(Values(*rs), "Ofen,uek,Öl,uem");

  // Numbers sort as texts, a Null as "".
  rs = OneFieldRecordset({10, 9, Null, 100});
  rs->RecordsetSort(1, false, true);
  EXPECT_EQ(Values(*rs), "9,100,10,<null>");

  // A set status sorts as its Boolean text, not as the value.
  rs = OneFieldRecordset({"zz", "aa"});
  rs->Records(1)->Fields(1)->FieldStatus(false);
  rs->RecordsetSort(1, true);
  EXPECT_EQ(Values(*rs), "aa,zz");
  rs->Records(1)->Fields(1)->FieldStatus(true);
  rs->RecordsetSort(1, true);
  EXPECT_EQ(Values(*rs), "zz,aa");  // "false" < "true"
}

TEST_F(RecordsetSort, NumberOrderNeverMovesANonNumericValue) {
  auto rs = OneFieldRecordset({"10", "x", "2", "1"});
  rs->RecordsetSort(1, true, false, true);
  EXPECT_EQ(Values(*rs), "10,x,1,2");

  rs = OneFieldRecordset({3, 1, "", 2, Null, 9, 7, "abc", -1, 5});
  rs->RecordsetSort(1, false, true, true);
  EXPECT_EQ(Values(*rs), "3,1,,2,<null>,9,7,abc,5,-1");

  // Texts are read by Val: "12abc" is not numeric and holds, "1e3" is a thousand.
  rs = OneFieldRecordset({"1e3", 20, "12abc", 5.5, "5"});
  rs->RecordsetSort(1, true, false, true);
  EXPECT_EQ(Values(*rs), "20,1e3,12abc,5,5.5");
}

TEST_F(RecordsetSort, DirectionIsSettledInTheCallersVariables) {
  auto rs = OneFieldRecordset({"b", "a"});
  bool asc = false, desc = false;
  rs->RecordsetSort(1, asc, desc);
  EXPECT_TRUE(asc);
  EXPECT_FALSE(desc);
  EXPECT_EQ(Values(*rs), "a,b");

  asc = true;
  desc = true;
  rs->RecordsetSort(1, asc, desc);
  EXPECT_TRUE(asc);
  EXPECT_FALSE(desc);

  // Settled also when the column is 0, which then does nothing.
  asc = false;
  desc = false;
  int32_t none = 0;
  rs = OneFieldRecordset({"b", "a"});
  rs->RecordsetSort(none, asc, desc);
  EXPECT_TRUE(asc);
  EXPECT_EQ(Values(*rs), "b,a");
  rs->RecordsetSort(-4, asc, desc);
  EXPECT_EQ(Values(*rs), "b,a");
  EXPECT_EQ(State().error_text, "");
}

TEST_F(RecordsetSort, AShortRecordEndsTheSortInItsFirstPass) {
  // Two fields each; the fourth record has only one. The first pass carries "d" forward up to the
  // record before the short one and stops there.
  auto rs = std::make_shared<clsOfflineRecordset>();
  rs->Add(5);
  rs->FieldDim(2);
  const std::vector<std::string> keys = {"d", "b", "a", "c", "e"};
  for (int32_t i = 1; i <= 5; ++i) {
    rs->Records(i)->Fields(1)->Value(keys[static_cast<size_t>(i - 1)]);
    rs->Records(i)->Fields(2)->Value(keys[static_cast<size_t>(i - 1)]);
  }
  rs->Records(4)->Remove(2);
  rs->RecordsetSort(2, true);
  EXPECT_EQ(Values(*rs), "b,a,d,c,e");
  EXPECT_EQ(State().error_text, "\r\n1) " + kShort + "2");

  // Beyond every record's field count: nothing moves.
  rs->RecordsetSort(3, true);
  EXPECT_EQ(Values(*rs), "b,a,d,c,e");
  EXPECT_EQ(State().error_count, 2);

  // A single record is never compared: no error.
  auto one = OneFieldRecordset({"x"});
  one->RecordsetSort(7, true);
  EXPECT_EQ(State().error_count, 2);

  // A counter above the collection: the missing records count as short.
  auto missing = OneFieldRecordset({"c", "b", "a"});
  missing->SetRecordCount(5);
  missing->RecordsetSort(1, true);
  EXPECT_EQ(Values(*missing), "b,a,c");
  EXPECT_EQ(State().error_count, 3);

  // A counter below the collection: the records beyond it stay.
  auto partly = OneFieldRecordset({"c", "b", "a"});
  partly->SetRecordCount(2);
  partly->RecordsetSort(1, true);
  EXPECT_EQ(Values(*partly), "b,c,a");
}

TEST_F(RecordsetSort, InnerSortOrdersEachRunOfTheFirstColumn) {
  auto rs = std::make_shared<clsOfflineRecordset>();
  const std::vector<std::pair<Variant, Variant>> rows = {
      {"Graz", "b"}, {"graz", "a"}, {"Graz", "C"}, {"Linz", "z"}, {"Wien", "y"}, {"Wien", "x"}, {"Wien", "x"}};
  rs->Add(static_cast<int32_t>(rows.size()));
  rs->FieldDim(3);
  for (int32_t i = 1; i <= rs->RecordCount(); ++i) {
    rs->Records(i)->Fields(1)->Value(rows[static_cast<size_t>(i - 1)].first);
    rs->Records(i)->Fields(2)->Value(rows[static_cast<size_t>(i - 1)].second);
    rs->Records(i)->Fields(3)->Value(Variant(i));
  }
  int32_t outer = 1, inner = 2;
  bool asc = false, desc = false;
  rs->RecordsetInnerSort(outer, inner, asc, desc);
  EXPECT_TRUE(asc);
  EXPECT_EQ(Values(*rs, 2), "a,b,C,z,x,x,y");  // Graz and graz are one run
  EXPECT_EQ(Values(*rs, 3), "2,1,3,4,6,7,5");  // equal x keep their order

  asc = false;
  desc = true;
  rs->RecordsetInnerSort(outer, inner, asc, desc);
  EXPECT_EQ(Values(*rs, 2), "C,b,a,z,y,x,x");
  EXPECT_EQ(Values(*rs, 3), "3,1,2,4,5,6,7");

  // A missing column changes nothing and is reported.
  int32_t beyond = 4;
  const auto before = Order(*rs);
  rs->RecordsetInnerSort(outer, beyond, asc, desc);
  EXPECT_EQ(Order(*rs), before);
  EXPECT_EQ(State().error_text, "\r\n1) " + kShort + "4");
}

class RecordingProgress final : public clsOfflineRecordset::SortProgress {
 public:
  struct Log {
    std::vector<std::pair<int32_t, int32_t>> steps;
    std::vector<std::string> texts;
    int unloads = 0;
  };
  explicit RecordingProgress(std::shared_ptr<Log> log) : log_(std::move(log)) {}
  void SetProgress(int32_t position, int32_t total, const std::string& description) override {
    log_->steps.emplace_back(position, total);
    log_->texts.push_back(description);
  }
  void Unload() override { ++log_->unloads; }

 private:
  std::shared_ptr<Log> log_;
};

TEST_F(RecordsetSort, ProgressIsShownWithSortiereAndUnloadedOnlyWhenAskedFor) {
  auto log = std::make_shared<RecordingProgress::Log>();
  int opened = 0;
  clsOfflineRecordset::InstallSortProgress([&] {
    ++opened;
    return std::make_unique<RecordingProgress>(log);
  });
  std::vector<Variant> values;
  for (int i = 0; i < 1000; ++i) values.emplace_back(Variant((i * 7919) % 1000));
  auto rs = OneFieldRecordset(values);
  rs->RecordsetSort(1, true, false, true, false);
  EXPECT_EQ(opened, 0);

  for (bool numbers : {false, true}) {
    *log = {};
    rs->RecordsetSort(1, false, true, numbers, true);
    ASSERT_FALSE(log->steps.empty());
    EXPECT_LE(log->steps.size(), 101u);
    for (size_t i = 0; i < log->steps.size(); ++i) {
      EXPECT_EQ(log->texts[i], "Sortiere...");
      EXPECT_GE(log->steps[i].first, 1);
      EXPECT_LE(log->steps[i].first, log->steps[i].second);
      if (i > 0) {
        EXPECT_GT(log->steps[i].first, log->steps[i - 1].first);
      }
    }
    EXPECT_EQ(log->steps.back().first, log->steps.back().second);
    EXPECT_EQ(log->unloads, 1);
  }
  EXPECT_EQ(CStr(rs->Records(1)->Fields(1)->Value()), "999");

  // One record: one step, shown and taken away; no records at all likewise.
  for (int32_t size : {1, 0}) {
    *log = {};
    auto small = OneFieldRecordset(std::vector<Variant>(static_cast<size_t>(size), Variant("x")));
    small->RecordsetSort(1, true, false, false, true);
    EXPECT_EQ(log->steps.size(), 1u);
    EXPECT_EQ(log->unloads, 1);
  }
  EXPECT_EQ(opened, 4);
}

}  // namespace
}  // namespace quorbex
