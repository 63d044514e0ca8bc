#include "quorbex/clsAnalyzer.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <functional>
#include <memory>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "analysis/analyzer_internal.h"
#include "platform/message_box.h"
#include "platform/settings.h"
#include "quorbex/DataLayer.h"
#include "service/thread_state.h"
#include "support/platform_fakes.h"
#include "support/virtual_table.h"

namespace quorbex {

using namespace quorbex::internal;
namespace {

using test::MakeVirtualTable;

class Analyzer : public ::testing::Test {
 protected:
  void SetUp() override {
    State() = ThreadState{};
    State().log_disabled = true;
    Locale::SetCurrent(Locale::C());
  }
  void TearDown() override {
    State() = ThreadState{};
    Locale::SetCurrent(Locale::C());
  }

  // A virtual table with the given fields and rows; the values are stored without change marks.
  std::shared_ptr<DataLayer> Table(const std::string& fields, const std::vector<std::vector<Variant>>& rows) {
    auto layer = MakeVirtualTable(fields, rows, "T");
    layer->ErrorStatus("");
    return layer;
  }

  static Variant At(DataLayer& layer, int32_t record, const std::string& field) {
    layer.MoveSpecific(record);
    return layer.FieldValue(field);
  }
  static std::vector<std::string> Errors() {
    std::vector<std::string> out;
    const std::string& text = State().error_text;
    size_t start = 0;
    while ((start = text.find("\r\n", start)) != std::string::npos) {
      start += 2;
      const size_t paren = text.find(") ", start);
      const size_t next = text.find("\r\n", start);
      out.push_back(text.substr(paren + 2, next == std::string::npos ? std::string::npos : next - paren - 2));
    }
    return out;
  }

  std::shared_ptr<test::MemorySettingsStore> settings_ = std::make_shared<test::MemorySettingsStore>();
  platform::SettingsScope settings_scope_{settings_};
  std::shared_ptr<test::FakeMessageBox> box_ = std::make_shared<test::FakeMessageBox>();
  platform::MessageBoxScope box_scope_{box_};
};

TEST_F(Analyzer, DataLayerHandsOutOneAnalyzerOverItsCurrentRecords) {
  auto layer = Table("ID;A", {{1, 10}, {2, 20}});
  auto analyzer = layer->Analyzer();
  ASSERT_TRUE(analyzer);
  EXPECT_EQ(analyzer, layer->Analyzer());
  EXPECT_EQ(analyzer->ParentDataLayer(), layer);
  EXPECT_EQ(analyzer->Parent(), std::static_pointer_cast<Object>(layer));
  EXPECT_EQ(analyzer->OccurrenceCount("A", 20), 1);

  // A new table replaces the collection; the analyzer follows on the next call.
  layer->AddNew();
  layer->SetFieldValue("A", 20);
  EXPECT_EQ(layer->Analyzer()->OccurrenceCount("A", 20), 2);

  // The back references do not keep the DataLayer alive.
  std::weak_ptr<DataLayer> watch = layer;
  layer.reset();
  EXPECT_TRUE(watch.expired());
  EXPECT_EQ(analyzer->ParentDataLayer(), nullptr);
  analyzer->CalculateFields("A", "+", "A", "A");
  EXPECT_EQ(Errors().back(), "Analyzer.CalculateFields: Sourcefields or target field is not reckognized");
}

TEST_F(Analyzer, CalculateFieldsAppliesEachOperatorWithoutChangeMarks) {
  auto layer = Table("ID;A;B;R", {{1, 7, 2, Variant()}, {2, "12abc", "", Variant()}, {3, 2.5, 4, Variant()}});
  auto analyzer = layer->Analyzer();
  const std::vector<std::pair<std::string, std::vector<double>>> cases = {
      {"+", {9, 12, 6.5}}, {"-", {5, 12, -1.5}}, {"*", {14, 0, 10}}, {"^", {49, 1, 39.0625}}, {"/", {3.5, 0, 0.625}}};
  for (const auto& [op, expected] : cases) {
    analyzer->CalculateFields("A", op, "B", "R");
    for (int32_t i = 1; i <= 3; ++i) EXPECT_DOUBLE_EQ(CDbl(At(*layer, i, "R")), expected[i - 1]) << op << i;
  }
  EXPECT_FALSE(layer->GetOfflineRecordset()->Records(1)->FieldAt(4)->HasChanged);
  EXPECT_FALSE(layer->DataChanged());
  // "12abc" / "" divided by zero: 0, reported, and the other records still calculated.
  EXPECT_EQ(Errors(), std::vector<std::string>{
                          "Analyzer.CALC: 12abc / 0: Division by Zero is not allowed. Value set to 0"});
}

TEST_F(Analyzer, CalculationsRefuseUnknownNamesAndOperatorsWithTheirOwnTexts) {
  auto layer = Table("ID;A;R", {{1, 5, 1}});
  auto analyzer = layer->Analyzer();
  analyzer->CalculateFields("A", "%", "A", "R");
  analyzer->CalculateFieldAndValue1("A", "mod", 2, "R");
  analyzer->CalculateFieldAndValue2(2, "", "A", "R");
  analyzer->CalculateFieldAndValue1("Nope", "+", 2, "R");
  analyzer->CalculateFieldAndValue2(2, "+", "A", "Nope");
  EXPECT_EQ(Errors(), (std::vector<std::string>{
                          "Analyze.CalculateFields: Operator  not allowed",
                          "Analyze.CalculateFieldAndValue1: Operator  not allowed",
                          "Analyze.CalculateFieldAndValue2: Operator  not allowed",
                          "FieldID: Fieldname 'Nope' not found (or error: )",
                          "Analyzer.CalculateFieldAndValue1: Sourcefields or target field is not reckognized",
                          "FieldID: Fieldname 'Nope' not found (or error: )",
                          "Analyzer.CalculateFields: Sourcefields or target field is not reckognized"}));
  EXPECT_EQ(CDbl(At(*layer, 1, "R")), 1);

  // Any one unknown name, in any position, refuses the whole calculation.
  const std::string fields = "Analyzer.CalculateFields: Sourcefields or target field is not reckognized";
  const std::string value1 = "Analyzer.CalculateFieldAndValue1: Sourcefields or target field is not reckognized";
  const std::vector<std::pair<std::function<void()>, std::string>> unknown = {
      {[&] { analyzer->CalculateFields("Nope", "+", "A", "R"); }, fields},
      {[&] { analyzer->CalculateFields("A", "+", "Nope", "R"); }, fields},
      {[&] { analyzer->CalculateFields("A", "+", "A", "Nope"); }, fields},
      {[&] { analyzer->CalculateFieldAndValue1("A", "+", 2, "Nope"); }, value1},
      {[&] { analyzer->CalculateFieldAndValue2(2, "+", "Nope", "R"); }, fields},
  };
  for (size_t i = 0; i < unknown.size(); ++i) {
    layer->ErrorStatus("");
    unknown[i].first();
    ASSERT_FALSE(Errors().empty()) << i;
    EXPECT_EQ(Errors().back(), unknown[i].second) << i;
    EXPECT_EQ(CDbl(At(*layer, 1, "R")), 1) << i;
  }
}

TEST_F(Analyzer, ConstantOperandsStandOnTheirSide) {
  auto layer = Table("ID;A;R", {{1, 30, Variant()}});
  auto analyzer = layer->Analyzer();
  analyzer->CalculateFieldAndValue1("R", "+", 5, "R");  // an Empty value reads as 0
  EXPECT_EQ(CDbl(At(*layer, 1, "R")), 5);
  analyzer->CalculateFieldAndValue1("A", "-", 100, "R");
  EXPECT_EQ(CDbl(At(*layer, 1, "R")), -70);
  analyzer->CalculateFieldAndValue2(100, "-", "A", "R");
  EXPECT_EQ(CDbl(At(*layer, 1, "R")), 70);
  analyzer->CalculateFieldAndValue2(1, "/", "A", "R", 3);
  EXPECT_EQ(CDbl(At(*layer, 1, "R")), 0.033);
}

TEST_F(Analyzer, RoundingIsHalfToEvenAndNinetyNineLeavesTheValue) {
  auto layer = Table("ID;A;R", {{1, 2.5, Variant()}, {2, 3.5, Variant()}, {3, 0.125, Variant()}});
  auto analyzer = layer->Analyzer();
  analyzer->CalculateFieldAndValue1("A", "+", 0, "R", 0);
  EXPECT_EQ(CDbl(At(*layer, 1, "R")), 2);
  EXPECT_EQ(CDbl(At(*layer, 2, "R")), 4);
  analyzer->CalculateFieldAndValue1("A", "+", 0, "R", 2);
  EXPECT_EQ(CDbl(At(*layer, 3, "R")), 0.12);
  analyzer->CalculateFieldAndValue1("A", "+", 0, "R");
  EXPECT_EQ(CDbl(At(*layer, 3, "R")), 0.125);
  EXPECT_TRUE(State().error_text.empty());
}

TEST_F(Analyzer, GermanKeyboardReadsTheDecimalComma) {
  auto layer = Table("ID;A;R", {{1, "12,5", Variant()}});
  auto analyzer = layer->Analyzer();
  analyzer->CalculateFieldAndValue1("A", "*", 2, "R", 99, true);
  EXPECT_EQ(CDbl(At(*layer, 1, "R")), 25);
  analyzer->CalculateFieldAndValue1("A", "*", 2, "R", 99, false);
  EXPECT_EQ(CDbl(At(*layer, 1, "R")), 24);
  analyzer->CalculateFieldAndValue1("A", "/", 0, "R", 99, true);
  EXPECT_EQ(Errors().back(), "Analyzer.CALC: 12.5 / 0: Division by Zero is not allowed. Value set to 0");
  layer->ErrorStatus("");

  // Under a decimal comma a stored number's text has the comma too.
  LocaleScope german(Locale::German());
  layer->MoveSpecific(1);
  layer->FieldObject("A")->Value(12.5);
  analyzer->CalculateFieldAndValue1("A", "*", 2, "R", 99, true);
  EXPECT_EQ(CDbl(At(*layer, 1, "R")), 25);
  analyzer->CalculateFieldAndValue1("A", "*", 2, "R");
  EXPECT_EQ(CDbl(At(*layer, 1, "R")), 24);
}

TEST_F(Analyzer, FailedCalculationsGiveZeroAndTheirDescription) {
  auto layer = Table("ID;A;R", {{1, 1e308, 5}, {2, -8, 5}});
  auto analyzer = layer->Analyzer();
  analyzer->CalculateFieldAndValue1("A", "*", 10, "R");
  analyzer->CalculateFieldAndValue1("A", "^", 0.5, "R");
  analyzer->CalculateFieldAndValue1("A", "+", 1, "R", -1);
  EXPECT_EQ(Errors(), (std::vector<std::string>{"Analyzer.calc: Overflow", "Analyzer.calc: Invalid procedure call or argument",
                                                "Analyzer.calc: Invalid procedure call or argument",
                                                "Analyzer.calc: Invalid procedure call or argument"}));
  EXPECT_EQ(CDbl(At(*layer, 1, "R")), 0);
  EXPECT_EQ(CDbl(At(*layer, 2, "R")), 0);
}

TEST_F(Analyzer, RecordWithoutTheFieldIsSkippedAndReportedOnce) {
  auto layer = Table("ID;A;R", {{1, 1, 0}, {2, 2, 0}, {3, 3, 0}});
  layer->GetOfflineRecordset()->Records(2)->Remove(3);
  auto analyzer = layer->Analyzer();
  analyzer->CalculateFieldAndValue1("A", "*", 2, "R");
  EXPECT_EQ(CDbl(At(*layer, 1, "R")), 2);
  EXPECT_EQ(CDbl(At(*layer, 3, "R")), 6);
  EXPECT_EQ(Errors(), std::vector<std::string>{
                          "Analyzer.CalculateFields: Object variable or With block variable not set"});
}

TEST_F(Analyzer, CalculateFormulaSubstitutesReferencesPerRecord) {
  auto layer = Table("ID;Price;Qty;Total", {{1, 10, 3, Variant()}, {2, 2.5, "4", Variant()}, {3, "", 1, Variant()}});
  auto analyzer = layer->Analyzer();
  analyzer->CalculateFormula("<Price>*<Qty>*1.19-5", "Total", 2);
  EXPECT_EQ(CDbl(At(*layer, 1, "Total")), 30.7);
  EXPECT_EQ(CDbl(At(*layer, 2, "Total")), 6.9);
  EXPECT_EQ(CDbl(At(*layer, 3, "Total")), -5);  // an empty value reads as 0
  // The same reference twice, and the formula's own rules: 2*-3 is 0-3.
  analyzer->CalculateFormula("<Qty>+<Qty>*-1", "Total");
  EXPECT_EQ(CDbl(At(*layer, 1, "Total")), 2);
  analyzer->CalculateFormula("<Price>*<Qty>+<ID>", "Total");  // every reference, not just the first few
  EXPECT_EQ(CDbl(At(*layer, 1, "Total")), 31);
  EXPECT_EQ(CDbl(At(*layer, 3, "Total")), 3);
  EXPECT_TRUE(State().error_text.empty());
  EXPECT_EQ(box_->Count(), 0u);

  // A record whose formula fails leaves the next record's calculation alone.
  auto mixed = Table("ID;A;R", {{1, "(5", 1}, {2, 4, 1}});
  mixed->Analyzer()->CalculateFormula("<A>", "R");
  EXPECT_EQ(CDbl(At(*mixed, 1, "R")), 0);
  EXPECT_EQ(CDbl(At(*mixed, 2, "R")), 4);
  EXPECT_EQ(Errors().size(), 1u);
}

TEST_F(Analyzer, CalculateFormulaReportsItsProblems) {
  auto layer = Table("ID;A;R", {{1, 4, 9}});
  auto analyzer = layer->Analyzer();
  analyzer->CalculateFormula("<A>*2", "Nope");
  analyzer->CalculateFormula("<A>*2+<A", "R");
  EXPECT_EQ(CDbl(At(*layer, 1, "R")), 9);
  analyzer->CalculateFormula("<B>*2", "R");
  EXPECT_EQ(CDbl(At(*layer, 1, "R")), 9);
  analyzer->CalculateFormula("(<A>", "R");  // the engine stops: stored as 0
  EXPECT_EQ(CDbl(At(*layer, 1, "R")), 0);
  const auto errors = Errors();
  ASSERT_EQ(errors.size(), 7u);
  EXPECT_EQ(errors[0], "FieldID: Fieldname 'Nope' not found (or error: )");
  EXPECT_EQ(errors[1], "Analyzer.CalculateFieldAndValue1: Target field 'Nope' is not reckognized");
  EXPECT_EQ(errors[2], "Cannot analyze Formula '<A>*2+<A' as closing bracket > is missing");
  EXPECT_EQ(errors[3], "Analyzer.CalculateFields: Stopped due to errors in CalcFormulaField function");
  EXPECT_EQ(errors[4], "FieldID: Fieldname 'B' not found (or error: )");
  EXPECT_EQ(errors[5], "Analyzer.CalculateFields: Object variable or With block variable not set");
  EXPECT_EQ(errors[6].rfind("Analyzer.CalculateFields: ", 0), 0u);
}

TEST_F(Analyzer, CalculateFormulaHelpAndResultReading) {
  auto layer = Table("ID;A;R", {{1, 12.5, Variant()}});
  auto analyzer = layer->Analyzer();
  analyzer->CalculateFormula("<A>", "R", 99, true);
  ASSERT_EQ(box_->Count(), 1u);
  const auto prompt = box_->Prompts()[0];
  EXPECT_EQ(prompt.title, "Hilfe");
  EXPECT_EQ(prompt.style, platform::vbInformation);
  EXPECT_EQ(prompt.text,
            "Sie k\u00f6nnen einen beliebigen String \u00fcbergeben und dabei auch Feldnamen angeben in eckigen "
            "Klammern. Beispiel:\r\n<Umsatz>/<UmsatzVorjahr>*100");
  EXPECT_EQ(CDbl(At(*layer, 1, "R")), 12.5);

  // Under a decimal comma the value goes in as "12,5" and the engine reads it; the result's text
  // "12,5" then loses its fraction unless GermanKeyboard says that the comma is the decimal point.
  LocaleScope german(Locale::German());
  analyzer->CalculateFormula("<A>*1", "R");
  EXPECT_EQ(CDbl(At(*layer, 1, "R")), 12);
  analyzer->CalculateFormula("<A>*1", "R", 99, false, true);
  EXPECT_EQ(CDbl(At(*layer, 1, "R")), 12.5);
}

TEST_F(Analyzer, CalculateFormulaReplacesReferencesOneAfterTheOther) {
  // A's value holds B's reference, so replacing <A> first leaves two <B> for the second replacement.
  auto layer = Table("ID;A;B;R", {{1, "<B>", 3, Variant()}, {2, "7", 3, Variant()}});
  auto analyzer = layer->Analyzer();
  analyzer->CalculateFormula("<A>+<B>", "R");
  EXPECT_EQ(CDbl(At(*layer, 1, "R")), 6);
  EXPECT_EQ(CDbl(At(*layer, 2, "R")), 10);
}

TEST_F(Analyzer, FillIfTakesFieldNamesAsFieldsAndOtherTextsAsConstants) {
  auto layer = Table("ID;A;B;R", {{1, 5, 3, ""}, {2, 1, 3, ""}, {3, "x", "X", ""}});
  auto analyzer = layer->Analyzer();
  analyzer->FillIf("A", ">", "B", "R", "A", Variant("small"));
  EXPECT_EQ(CStr(At(*layer, 1, "R")), "5");
  EXPECT_EQ(CStr(At(*layer, 2, "R")), "small");
  EXPECT_EQ(CStr(At(*layer, 3, "R")), "x");  // "x" > "X" by character codes

  analyzer->FillIf("A", "=", "x", "R", "hit");
  EXPECT_EQ(CStr(At(*layer, 3, "R")), "hit");
  EXPECT_EQ(CStr(At(*layer, 1, "R")), "5");  // no else value: left as it was
  analyzer->FillIf("A", "=", "X", "R", "upper");
  EXPECT_EQ(CStr(At(*layer, 3, "R")), "hit");  // texts compare case-sensitively
  // Every constant was asked for as a field name first.
  EXPECT_EQ(Errors().front(), "FieldID: Fieldname 'small' not found (or error: )");
}

TEST_F(Analyzer, FillIfNumericCompareReadsTheCommaAsPoint) {
  auto layer = Table("ID;A;R", {{1, "1,0", ""}, {2, "2", ""}});
  auto analyzer = layer->Analyzer();
  analyzer->FillIf("A", "=", 1, "R", "yes", Variant("no"), true);
  EXPECT_EQ(CStr(At(*layer, 1, "R")), "yes");
  EXPECT_EQ(CStr(At(*layer, 2, "R")), "no");
  analyzer->FillIf("A", "=", 1, "R", "yes", Variant("no"), false);
  EXPECT_EQ(CStr(At(*layer, 1, "R")), "no");
  analyzer->FillIf("A", "<>", 2, "R", "other", Variant(), true);
  EXPECT_EQ(CStr(At(*layer, 1, "R")), "other");
  EXPECT_TRUE(At(*layer, 2, "R").IsEmpty());  // the else value given as Empty is stored
}

TEST_F(Analyzer, FillIfOperatorsHoldExactlyOnTheirSideOfEquality) {
  // Numbers, equal numbers, texts of numbers whose text order differs from their value order, a comma.
  auto layer = Table("ID;A;B;R", {{1, 5, 3, ""}, {2, 3, 3, ""}, {3, 1, 3, ""}, {4, "10", "9", ""}, {5, "2,5", "2.5", ""}});
  auto analyzer = layer->Analyzer();
  struct Case {
    const char* op;
    bool numeric;
    const char* filled;
  };
  const Case cases[] = {
      {"=", false, "n,y,n,n,n"},  {">", false, "y,n,n,n,n"}, {"<", false, "n,n,y,y,y"},
      {"<>", false, "y,n,y,y,y"}, {"=", true, "n,y,n,n,y"},  {">", true, "y,n,n,y,n"},
      {"<", true, "n,n,y,n,n"},   {"<>", true, "y,n,y,y,n"}, {">=", true, "n,n,n,n,n"},
      {"=>", false, "n,n,n,n,n"},
  };
  for (const Case& c : cases) {
    analyzer->FillIf("A", c.op, "B", "R", "y", Variant("n"), c.numeric);
    std::string filled;
    for (int32_t i = 1; i <= layer->RecordCount(); ++i) filled += (i > 1 ? "," : "") + CStr(At(*layer, i, "R"));
    EXPECT_EQ(filled, c.filled) << c.op << (c.numeric ? " numeric" : " as values");
  }
}

TEST_F(Analyzer, ReplaceFieldMatchesTrimmedTextsAndPartsInExactCase) {
  auto layer = Table("ID;A", {{1, " Apple "}, {2, "apple pie"}, {3, "Pineapple"}, {4, 12}, {5, 7}});
  auto analyzer = layer->Analyzer();
  bool string_compare = false;
  analyzer->ReplaceField("A", "APPLE", "Pear", string_compare, false, false);
  EXPECT_FALSE(string_compare);
  EXPECT_EQ(CStr(At(*layer, 1, "A")), " Apple ");  // without StringCompare the values differ

  string_compare = true;
  analyzer->ReplaceField("A", "APPLE", "Pear", string_compare, false, false);
  EXPECT_EQ(CStr(At(*layer, 1, "A")), "Pear");

  analyzer->ReplaceField("A", "apple", "pear", string_compare, false, true);
  EXPECT_EQ(CStr(At(*layer, 2, "A")), "pear pie");
  EXPECT_EQ(CStr(At(*layer, 3, "A")), "Pinepear");

  string_compare = false;
  analyzer->ReplaceField("A", "PEAR", "x", string_compare, true, false);
  EXPECT_TRUE(string_compare);  // MatchCase turns StringCompare on, for the caller too
  EXPECT_EQ(CStr(At(*layer, 1, "A")), "Pear");

  bool by_value = false;
  analyzer->ReplaceField("A", 12, 13, by_value, false, false);
  EXPECT_TRUE(At(*layer, 4, "A").IsString());
  EXPECT_EQ(CStr(At(*layer, 4, "A")), "13");
  EXPECT_TRUE(State().error_text.empty());

  by_value = false;
  analyzer->ReplaceField("A", "pie", "tart", by_value, false, true);
  EXPECT_TRUE(by_value);  // PartOnly turns StringCompare on too
  EXPECT_EQ(CStr(At(*layer, 2, "A")), "pear tart");
  analyzer->ReplaceField("A", " Pear ", "Plum", string_compare, true, false);
  EXPECT_EQ(CStr(At(*layer, 1, "A")), "Plum");  // the source is trimmed too
  analyzer->ReplaceField("A", "", "z", string_compare, false, true);
  EXPECT_EQ(At(*layer, 5, "A").Type(), VarType::Long);  // an empty part is found nowhere: no rewrite

  analyzer->ReplaceField("Nope", 1, 2, by_value, false, false);
  EXPECT_EQ(Errors().back(), "Analyzer.ReplaceField 91: Object variable or With block variable not set");
}

TEST_F(Analyzer, OccurrenceCountComparesTrimmedLowerCaseUnlessMatchCase) {
  auto layer = Table("ID;A", {{1, " abc"}, {2, "ABC"}, {3, "abc"}, {4, "\u00c4bc"}, {5, "\u00e4BC "}, {6, 7}});
  auto analyzer = layer->Analyzer();
  EXPECT_EQ(analyzer->OccurrenceCount("A", "abc"), 3);
  EXPECT_EQ(analyzer->OccurrenceCount("A", "abc", true), 1);
  EXPECT_EQ(analyzer->OccurrenceCount("A", "\u00e4bc"), 2);
  EXPECT_EQ(analyzer->OccurrenceCount("A", "7"), 1);
  EXPECT_EQ(analyzer->OccurrenceCount("A", 7, true), 1);
  EXPECT_TRUE(State().error_text.empty());

  auto empty = Table("ID;A", {});
  EXPECT_EQ(empty->Analyzer()->OccurrenceCount("A", "abc"), 0);
  EXPECT_EQ(analyzer->OccurrenceCount("Nope", "abc"), 0);
  EXPECT_EQ(Errors().back(), "Analyzer.OccurrenceCount: Object variable or With block variable not set");
}

TEST_F(Analyzer, SingleOccurrenceListsEachValueOnceAscending) {
  auto layer = Table("ID;A;N", {{1, "b", 10}, {2, "A", 2.5}, {3, "b", 10}, {4, "", 2.5},
                                {5, "a", Variant()}, {6, Null, -1}, {7, "A", 100}});
  auto analyzer = layer->Analyzer();
  auto texts = analyzer->SingleOccurrence("A");
  ASSERT_EQ(texts->Count(), 3);
  EXPECT_EQ(CStr(texts->Item(1)), "A");
  EXPECT_EQ(CStr(texts->Item(2)), "a");
  EXPECT_EQ(CStr(texts->Item(3)), "b");

  auto numbers = analyzer->SingleOccurrence("N");
  ASSERT_EQ(numbers->Count(), 4);
  EXPECT_EQ(CDbl(numbers->Item(1)), -1);
  EXPECT_EQ(CDbl(numbers->Item(2)), 2.5);
  EXPECT_EQ(CDbl(numbers->Item(3)), 10);
  EXPECT_EQ(CDbl(numbers->Item(4)), 100);
  // A new collection each time, owned by the caller.
  EXPECT_NE(analyzer->SingleOccurrence("N"), numbers);
  EXPECT_TRUE(State().error_text.empty());
}

TEST(AnalyzerValues, TextsAndNumberReadingsAgreeWithCStrAndVal) {
  std::mt19937_64 rng(11);
  std::uniform_real_distribution<double> mantissa(-10.0, 10.0);
  std::uniform_int_distribution<int> exponent(-12, 22);
  std::uniform_int_distribution<int> cents(-100000, 100000);
  std::vector<double> samples = {0.1, 0.2 + 0.1, 1e-5, 1e-4, 123456789012345.0, 1e15, 999999999999999.9, -2.5, 1e300};
  for (int i = 0; i < 20000; ++i) {
    samples.push_back(mantissa(rng) * std::pow(10.0, exponent(rng)));
    samples.push_back(cents(rng) / 100.0);
  }
  for (const Locale& locale : {Locale::C(), Locale::German()}) {
    LocaleScope scope(locale);
    for (double x : samples) {
      const Variant value(x);
      std::string text;
      internal::AppendValueText(text, value);
      ASSERT_EQ(text, CStr(value)) << x;
      for (bool comma_as_point : {false, true}) {
        std::string expected_text = CStr(value);
        if (comma_as_point) std::replace(expected_text.begin(), expected_text.end(), ',', '.');
        std::string read_text;
        ASSERT_EQ(internal::ReadAsNumber(value, comma_as_point, read_text), Val(expected_text)) << x;
      }
    }
  }
}

}  // namespace
}  // namespace quorbex
