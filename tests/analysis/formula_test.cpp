#include "quorbex/Formula.h"

#include <gtest/gtest.h>

#include <cmath>
#include <stdexcept>
#include <string>
#include <tuple>
#include <vector>

#include "quorbex/clsPart.h"
#include "quorbex/locale.h"

namespace quorbex {


// White-box access to the cutting and reduction steps.
class FormulaTestPeer {
 public:
  using PartRow = std::tuple<std::string, std::string, int>;  // content, type code, priority

  // Marks the formula and cuts it into parts, without evaluating.
  static std::vector<PartRow> Cut(Formula& f) {
    f.MarkTokens();
    f.BuildParts(f.source_);
    return Rows(f);
  }

  static std::vector<PartRow> Rows(const Formula& f) {
    std::vector<PartRow> rows;
    for (const auto& p : f.parts_) {
      std::string content = p.is_number ? std::to_string(p.number) : std::string(p.text);
      rows.emplace_back(content, TypeCode(p.type), p.prio);
    }
    return rows;
  }

  // Replaces the parts list with the given parts (numbers stay text, as the cutting leaves them).
  static void SetParts(Formula& f, const std::vector<PartRow>& rows) {
    f.parts_.clear();
    f.retired_sources_.clear();
    f.source_.clear();
    for (const auto& [content, type, prio] : rows) f.source_ += content;
    size_t offset = 0;
    for (const auto& [content, type, prio] : rows) {
      Formula::Part& part = f.parts_.emplace_back();
      part.text = std::string_view(f.source_).substr(offset, content.size());
      offset += content.size();
      part.type = TypeOf(type);
      part.prio = static_cast<int16_t>(prio);
    }
    f.simple_locale_ = true;
    f.decimal_ = '.';
    f.thousands_ = ',';
  }

  // Runs one EvaluatePart; returns the error text when it stopped, else "".
  static std::string Evaluate(Formula& f, size_t index) {
    try {
      f.EvaluatePart(index);
    } catch (const std::exception& e) {
      return e.what();
    }
    return "";
  }

  static double Value(const Formula& f, size_t index) {
    if (index == 0 || index > f.parts_.size()) throw std::out_of_range("no such part");
    return f.PartValue(f.parts_[index - 1]);
  }
  static bool RemoveBrackets(Formula& f) { return f.RemoveBrackets(); }
  static bool RemoveEmptyParts(Formula& f) { return f.RemoveEmptyParts(); }
  static size_t FindTopPart(const Formula& f) { return f.FindTopPart(); }
  static std::string Join(const Formula& f) { return f.JoinParts(); }
  static std::string Classify(std::string_view token) { return TypeCode(Formula::ClassifyToken(token)); }

 private:
  static std::string TypeCode(Formula::PartType t) {
    switch (t) {
      case Formula::PartType::kValue: return "VL";
      case Formula::PartType::kOperator: return "OP";
      case Formula::PartType::kModifier: return "MD";
      case Formula::PartType::kFunction: return "FN";
      case Formula::PartType::kOpen: return "KO";
      case Formula::PartType::kClose: return "KC";
      case Formula::PartType::kNone: return "";
    }
    return "?";
  }
  static Formula::PartType TypeOf(const std::string& code) {
    if (code == "VL") return Formula::PartType::kValue;
    if (code == "OP") return Formula::PartType::kOperator;
    if (code == "MD") return Formula::PartType::kModifier;
    if (code == "FN") return Formula::PartType::kFunction;
    if (code == "KO") return Formula::PartType::kOpen;
    if (code == "KC") return Formula::PartType::kClose;
    return Formula::PartType::kNone;
  }
};

namespace {

using Rows = std::vector<FormulaTestPeer::PartRow>;

constexpr const char* kNoProgress = "Formula cannot be reduced: an operator is missing between two values";

struct Outcome {
  double value;
  bool errors;
  std::string info;
  int32_t ignored;
};

Outcome Calc(const std::string& text) {
  Formula f;
  f.FormulaString(text);
  double v = f.CalcFormula();
  return {v, f.HasErrors(), f.ErrorInfo(), f.IgnoredErrorCount()};
}

// The marking as a sequence of whole-text replacements, the way it is defined.
std::string MarkSequentially(std::string s) {
  if (s.empty()) return s;
  for (const char* token : {"+", "-", "/", "*", "^", "SQRT", "1/x", "Rnd0", "Rnd1", "Rnd2", "Rnd3", "Rnd4",
                            "%", "(", ")", "+/-"}) {
    const std::string from = token;
    const std::string to = "\\" + from + "\\";
    std::string out;
    size_t pos = 0;
    for (size_t hit; (hit = s.find(from, pos)) != std::string::npos; pos = hit + from.size()) {
      out.append(s, pos, hit - pos);
      out += to;
    }
    out.append(s, pos);
    s = std::move(out);
  }
  if (s.back() != '\\') s += '\\';
  return s;
}

class FormulaC : public ::testing::Test {
 protected:
  LocaleScope locale_{Locale::C()};
};

TEST_F(FormulaC, WorkedExamplesCutAndReduce) {
  Formula f;
  f.FormulaString("2+3*4");
  EXPECT_EQ(FormulaTestPeer::Cut(f),
            (Rows{{"2", "VL", 0}, {"+", "OP", 1}, {"3", "VL", 0}, {"*", "OP", 2}, {"4", "VL", 0}}));
  EXPECT_EQ(f.FormulaString(), "2\\+\\3\\*\\4\\");

  Formula g;
  g.FormulaString("(2+3)*4");
  EXPECT_EQ(FormulaTestPeer::Cut(g), (Rows{{"", "VL", 0},
                                          {"(", "KO", 10},
                                          {"2", "VL", 10},
                                          {"+", "OP", 11},
                                          {"3", "VL", 10},
                                          {")", "KC", 0},
                                          {"", "VL", 0},
                                          {"*", "OP", 2},
                                          {"4", "VL", 0}}));

  EXPECT_DOUBLE_EQ(Calc("2+3*4").value, 14);
  Outcome bracketed = Calc("(2+3)*4");
  EXPECT_DOUBLE_EQ(bracketed.value, 20);
  EXPECT_FALSE(bracketed.errors);
  EXPECT_EQ(bracketed.ignored, 0);
  EXPECT_DOUBLE_EQ(Calc("2*(3+4)-1").value, 13);
  EXPECT_DOUBLE_EQ(Calc("((1+2)*(3+4))/7").value, 3);
  EXPECT_DOUBLE_EQ(Calc("12.5*3*1.19-5").value, 12.5 * 3 * 1.19 - 5);
}

TEST_F(FormulaC, BracketsAndFunctionsTakeTheBaseOfThePartBefore) {
  Formula f;
  f.FormulaString("Ln(2)^Sqrt");
  EXPECT_EQ(FormulaTestPeer::Cut(f), (Rows{{"Ln", "FN", 4},
                                          {"(", "KO", 14},
                                          {"2", "VL", 10},
                                          {")", "KC", 0},
                                          {"", "VL", 0},
                                          {"^", "OP", 3},
                                          {"Sqrt", "MD", 5}}));
}

TEST_F(FormulaC, ClassifierKnowsOnlyTheListedSpellings) {
  const std::pair<const char*, const char*> cases[] = {
      {"1/x", "MD"},  {"+/-", "MD"}, {"Sqrt", "MD"}, {"sqrt", "MD"}, {"%", "MD"},    {"SQRT", "VL"},
      {"Int", "FN"},  {"int", "VL"}, {"Rnd2", "FN"}, {"Rnd3", "VL"}, {"EXP", "FN"},  {"exp", "VL"},
      {"Ln", "FN"},   {"^", "OP"},   {"-", "OP"},    {"(", "KO"},    {")", "KC"},    {"12", "VL"},
      {"", "VL"},     {"Var1", "VL"}, {"Pi", "VL"},  {"1/y", "VL"},
  };
  for (const auto& [token, type] : cases) EXPECT_EQ(FormulaTestPeer::Classify(token), type) << token;
}

TEST_F(FormulaC, EqualOperatorsApplyLeftToRight) {
  EXPECT_DOUBLE_EQ(Calc("2^3^2").value, 64);
  EXPECT_DOUBLE_EQ(Calc("10-2-3").value, 5);
  EXPECT_DOUBLE_EQ(Calc("8/2/2").value, 2);
  EXPECT_DOUBLE_EQ(Calc("2+3*4^2").value, 50);
}

TEST_F(FormulaC, EmptyValueBesideAnOperatorCountsAsZero) {
  EXPECT_DOUBLE_EQ(Calc("-5").value, -5);
  EXPECT_DOUBLE_EQ(Calc("2*-3").value, -3);
  EXPECT_DOUBLE_EQ(Calc("*3").value, 0);
  EXPECT_FALSE(Calc("2*-3").errors);
}

TEST_F(FormulaC, DivisionByZeroGivesZeroAndGoesOn) {
  Outcome o = Calc("10/0+1");
  EXPECT_DOUBLE_EQ(o.value, 1);
  EXPECT_FALSE(o.errors);
  EXPECT_EQ(o.info, "Cannot divide by 0");
  EXPECT_EQ(o.ignored, 1);
  EXPECT_EQ(Calc("1/0+2/0").ignored, 2);
}

TEST_F(FormulaC, StrayBracketsAreDroppedAndCounted) {
  Outcome closing = Calc("2+3)");
  EXPECT_DOUBLE_EQ(closing.value, 5);
  EXPECT_EQ(closing.ignored, 1);
  EXPECT_FALSE(closing.errors);

  Outcome opening = Calc("(2+3");
  EXPECT_DOUBLE_EQ(opening.value, 5);
  EXPECT_EQ(opening.ignored, 1);
  EXPECT_FALSE(opening.errors);

  // The opening bracket goes first and looks for its partner beyond the end of the list.
  Outcome unclosed = Calc("(5");
  EXPECT_TRUE(unclosed.errors);
  EXPECT_EQ(unclosed.value, 0);
  EXPECT_EQ(unclosed.info, "Subscript out of range: the formula has no part 4");
}

TEST_F(FormulaC, PiIsSubstitutedAsText) {
  EXPECT_DOUBLE_EQ(Calc("Pi*2").value, 6.283185307179586);
  EXPECT_EQ(Calc("Pi").value, 3.141592653589793);
  EXPECT_EQ(Calc("pi+1").value, 1);  // only the exact spelling is the constant
}

TEST_F(FormulaC, ModifiersActOnlyAsTokensOfTheirOwn) {
  EXPECT_DOUBLE_EQ(Calc("(9)Sqrt").value, 3);
  EXPECT_DOUBLE_EQ(Calc("(16)sqrt+1").value, 5);
  EXPECT_DOUBLE_EQ(Calc("50%").value, 0.5);
  // Unframed, the modifier is part of one token that reads as its leading number.
  Outcome joined = Calc("9Sqrt");
  EXPECT_DOUBLE_EQ(joined.value, 9);
  EXPECT_FALSE(joined.errors);
  // Framed, but not a modifier: two values side by side.
  Outcome framed = Calc("9SQRT");
  EXPECT_TRUE(framed.errors);
  EXPECT_EQ(framed.info, kNoProgress);
}

TEST_F(FormulaC, HyphenatedFunctionNamesAreCutApart) {
  Formula f;
  f.FormulaString("SIN-R(0)");
  Rows rows = FormulaTestPeer::Cut(f);
  ASSERT_GE(rows.size(), 3u);
  EXPECT_EQ(rows[0], (FormulaTestPeer::PartRow{"SIN", "VL", 0}));
  EXPECT_EQ(rows[1], (FormulaTestPeer::PartRow{"-", "OP", 1}));
  EXPECT_EQ(rows[2], (FormulaTestPeer::PartRow{"R", "VL", 0}));
  // SIN - R is 0 - 0, and the bracketed 0 stands beside it with no operator.
  Outcome o = Calc("SIN-R(0)");
  EXPECT_TRUE(o.errors);
  EXPECT_EQ(o.info, kNoProgress);
  EXPECT_DOUBLE_EQ(Calc("COSIN-R+1").value, 1);  // three values: 0 - 0 + 1
}

TEST_F(FormulaC, FunctionReducesOnlyWhileItsBracketsHoldSeveralParts) {
  // The brackets around a single value are removed before the function is reached.
  Outcome single = Calc("Ln(5)");
  EXPECT_TRUE(single.errors);
  EXPECT_EQ(single.value, 0);
  // Here the bracket content is reduced last, to a part that was already settled.
  EXPECT_DOUBLE_EQ(Calc("Ln((2)+3)").value, std::log(5.0));
  EXPECT_DOUBLE_EQ(Calc("EXP((0)+1)").value, std::exp(1.0));
  EXPECT_DOUBLE_EQ(Calc("Int((0)-2.5)").value, -3);
}

TEST_F(FormulaC, EvaluatePartCoversEveryFunction) {
  struct Case {
    const char* name;
    double argument;
    double expected;
  };
  const double deg = 3.14159265358979 / 180.0;
  const Case cases[] = {
      // Rnd rounds only the fraction, halves to even: 3.5 keeps 3 + Round(0.5) = 3.
      {"Int", -2.5, -3},        {"int", 2.7, 2},          {"INT", -0.1, -1},
      {"Rnd0", 2.5, 2},         {"Rnd0", 3.5, 3},         {"rnd0", -2.5, -2},
      {"Rnd1", 2.25, 2.2},      {"RND1", 2.35, 2.4},      {"Rnd2", 1.125, 1.12},
      {"rnd2", -7.256, -7.26},  {"RND2", 4.0, 4.0},       {"SIN-\u00B0", 30, std::sin(30 * deg)},
      {"COSIN-\u00B0", 60, std::cos(60 * deg)},           {"TAN-\u00B0", 45, std::tan(45 * deg)},
      {"ATAN-\u00B0", 1, std::atan(1.0) * 180 / 3.14159265358979},
      {"SIN-R", 0.5, std::sin(0.5)},                      {"COSIN-R", 0.5, std::sin(0.5)},
      {"TAN-R", 0.5, std::tan(0.5)}, {"ATAN-R", 0.5, std::atan(0.5)},
      {"Ln", 1, 0},             {"EXP", 0, 1},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    Formula f;
    char arg[64];
    std::snprintf(arg, sizeof arg, "%.17g", c.argument);
    FormulaTestPeer::SetParts(f, {{c.name, "FN", 4}, {"(", "KO", 0}, {arg, "VL", 0}, {")", "KC", 0}, {"1", "VL", 0}});
    ASSERT_EQ(FormulaTestPeer::Evaluate(f, 1), "");
    FormulaTestPeer::RemoveEmptyParts(f);
    Rows rows = FormulaTestPeer::Rows(f);
    ASSERT_EQ(rows.size(), 2u);
    EXPECT_EQ(std::get<1>(rows[0]), "VL");
    EXPECT_NEAR(FormulaTestPeer::Value(f, 1), c.expected, 1e-12);
  }
}

TEST_F(FormulaC, EvaluatePartFollowsEachType) {
  Formula f;
  // An operator beside a bracket waits: its priority drops by one.
  FormulaTestPeer::SetParts(f, {{"2", "VL", 0}, {"*", "OP", 2}, {"(", "KO", 0}, {"3", "VL", 10}, {")", "KC", 0}});
  EXPECT_EQ(FormulaTestPeer::Evaluate(f, 2), "");
  EXPECT_EQ(std::get<2>(FormulaTestPeer::Rows(f)[1]), 1);
  FormulaTestPeer::SetParts(f, {{"(", "KO", 0}, {"3", "VL", 10}, {")", "KC", 0}, {"*", "OP", 2}, {"2", "VL", 0}});
  EXPECT_EQ(FormulaTestPeer::Evaluate(f, 4), "");
  EXPECT_EQ(FormulaTestPeer::Join(f), "(3)*2");
  EXPECT_EQ(std::get<2>(FormulaTestPeer::Rows(f)[3]), 1);
  FormulaTestPeer::SetParts(f, {{"2", "VL", 0}, {"*", "OP", 2}, {"(", "KO", 0}, {"3", "VL", 10}, {")", "KC", 0}});
  // A value inside a bracket pair drops the pair, unless a function owns it.
  EXPECT_EQ(FormulaTestPeer::Evaluate(f, 4), "");
  FormulaTestPeer::RemoveEmptyParts(f);
  EXPECT_EQ(FormulaTestPeer::Join(f), "2*3");
  FormulaTestPeer::SetParts(f, {{"Ln", "FN", 4}, {"(", "KO", 0}, {"3", "VL", 10}, {")", "KC", 0}});
  EXPECT_EQ(FormulaTestPeer::Evaluate(f, 3), "");
  EXPECT_EQ(FormulaTestPeer::Join(f), "Ln(3)");
  // A function whose argument is not yet one value only gives up its priority.
  FormulaTestPeer::SetParts(f, {{"Ln", "FN", 4}, {"(", "KO", 0}, {"3", "VL", 0}, {"+", "OP", 0}, {"1", "VL", 0}});
  EXPECT_EQ(FormulaTestPeer::Evaluate(f, 1), "");
  EXPECT_EQ(std::get<2>(FormulaTestPeer::Rows(f)[0]), 0);
  // Modifiers write into the part before them.
  FormulaTestPeer::SetParts(f, {{"5", "VL", 0}, {"%", "MD", 5}});
  EXPECT_EQ(FormulaTestPeer::Evaluate(f, 2), "");
  FormulaTestPeer::RemoveEmptyParts(f);
  EXPECT_DOUBLE_EQ(FormulaTestPeer::Value(f, 1), 0.05);
  // The evaluator knows the modifiers that the cutting never produces.
  for (auto [name, expected] : {std::pair{"SQRT", 2.0}, {"1/x", 0.25}, {"+/-", -4.0}}) {
    FormulaTestPeer::SetParts(f, {{"4", "VL", 0}, {name, "MD", 5}});
    EXPECT_EQ(FormulaTestPeer::Evaluate(f, 2), "");
    EXPECT_DOUBLE_EQ(FormulaTestPeer::Value(f, 1), expected) << name;
  }
  // Neighbours outside the list.
  FormulaTestPeer::SetParts(f, {{"%", "MD", 5}});
  EXPECT_EQ(FormulaTestPeer::Evaluate(f, 1), "Subscript out of range: the formula has no part 0");
  FormulaTestPeer::SetParts(f, {{"(", "KO", 0}, {"5", "VL", 10}, {")", "KC", 0}});
  EXPECT_EQ(FormulaTestPeer::Evaluate(f, 2), "");  // position 2: k-2 is missing, nothing removed
  EXPECT_EQ(FormulaTestPeer::Join(f), "(5)");
  EXPECT_EQ(FormulaTestPeer::Evaluate(f, 9), "Subscript out of range: the formula has no part 9");
}

TEST_F(FormulaC, RemoveBracketsRepairsStructure) {
  Formula f;
  // A pair around at most one part goes, repeatedly.
  FormulaTestPeer::SetParts(f, {{"(", "KO", 0}, {"(", "KO", 0}, {"1", "VL", 0}, {")", "KC", 0}, {")", "KC", 0}});
  EXPECT_TRUE(FormulaTestPeer::RemoveBrackets(f));
  EXPECT_EQ(FormulaTestPeer::Join(f), "1");
  // A pair around more waits; a closing bracket with no opening one before it goes and counts.
  FormulaTestPeer::SetParts(f, {{"(", "KO", 0}, {"1", "VL", 0}, {"+", "OP", 0}, {"2", "VL", 0}, {")", "KC", 0}});
  EXPECT_FALSE(FormulaTestPeer::RemoveBrackets(f));
  FormulaTestPeer::SetParts(f, {{"1", "VL", 0}, {")", "KC", 0}, {"(", "KO", 0}, {")", "KC", 0}});
  EXPECT_TRUE(FormulaTestPeer::RemoveBrackets(f));
  EXPECT_EQ(FormulaTestPeer::Join(f), "1()");
  EXPECT_EQ(f.IgnoredErrorCount(), 1);
  // Without any closing bracket every opening one goes and counts.
  FormulaTestPeer::SetParts(f, {{"(", "KO", 0}, {"1", "VL", 0}, {"(", "KO", 0}});
  EXPECT_TRUE(FormulaTestPeer::RemoveBrackets(f));
  EXPECT_EQ(FormulaTestPeer::Join(f), "1");
  EXPECT_EQ(f.IgnoredErrorCount(), 3);
}

TEST_F(FormulaC, FindTopPartTakesTheLeftmostHighest) {
  Formula f;
  FormulaTestPeer::SetParts(f, {{"1", "VL", 0}, {"+", "OP", 1}, {"2", "VL", 0}, {"^", "OP", 3}, {"3", "VL", 0},
                                {"^", "OP", 3}, {"4", "VL", 0}});
  EXPECT_EQ(FormulaTestPeer::FindTopPart(f), 4u);
  FormulaTestPeer::SetParts(f, {{"1", "VL", 0}, {")", "KC", -10}});
  EXPECT_EQ(FormulaTestPeer::FindTopPart(f), 0u);
}

TEST_F(FormulaC, FormulasThatCannotProgressStop) {
  for (const char* text : {"5(3)", "9SQRT", "(1)(2)", "2 (3)"}) {
    SCOPED_TRACE(text);
    Outcome o = Calc(text);
    EXPECT_TRUE(o.errors);
    EXPECT_EQ(o.value, 0);
    EXPECT_FALSE(o.info.empty());
  }
  EXPECT_EQ(Calc("5(3)").info, kNoProgress);
  // Operators at the edge read a part that is not there.
  EXPECT_EQ(Calc("2+").info, "Subscript out of range: the formula has no part 3");
  EXPECT_EQ(Calc("Sqrt").info, "Subscript out of range: the formula has no part 0");
  EXPECT_EQ(Calc("()").info, "Subscript out of range: the formula has no part 1");
}

TEST_F(FormulaC, FailuresInsideAStepStopTheEvaluation) {
  EXPECT_EQ(Calc("10^308*10").info, "Overflow");
  EXPECT_EQ(Calc("(0-4)Sqrt").info, "Invalid procedure call or argument");
  EXPECT_EQ(Calc("1e999+1").info, "Overflow");
  EXPECT_TRUE(Calc("(0-8)^(1/3)").errors);

  Outcome empty = Calc("");
  EXPECT_EQ(empty.value, 0);
  EXPECT_TRUE(empty.errors);
  EXPECT_EQ(empty.info, "No Formulastring");

  std::string deep(3300, '(');
  EXPECT_EQ(Calc(deep + "1").info, "Overflow: brackets nested too deeply");
  std::string many;
  for (int i = 0; i < 17000; ++i) many += "1+";
  EXPECT_EQ(Calc(many + "1").info, "Overflow: the formula has more than 32767 parts");
}

TEST_F(FormulaC, TextInAValuePositionReadsAsItsLeadingNumber) {
  EXPECT_DOUBLE_EQ(Calc("12abc+1").value, 13);
  EXPECT_DOUBLE_EQ(Calc("abc+1").value, 1);
  EXPECT_DOUBLE_EQ(Calc("Var1+2").value, 2);
  EXPECT_DOUBLE_EQ(Calc(" 7 +1").value, 8);
  EXPECT_DOUBLE_EQ(Calc("1 2").value, 12);  // one token; blanks inside a leading number are skipped
  EXPECT_DOUBLE_EQ(Calc("Int+5+3").value, 8);  // a function name without brackets reads as 0
  EXPECT_DOUBLE_EQ(Calc("1E+3").value, 4);  // the exponent's sign is an operator: 1E, +, 3
  // Broken UTF-8 is just text.
  EXPECT_DOUBLE_EQ(Calc("\xff\xfe+2").value, 2);
}

TEST_F(FormulaC, StateIsNeverReset) {
  Formula f;
  f.FormulaString("2+3");
  EXPECT_DOUBLE_EQ(f.CalcFormula(), 5);
  EXPECT_EQ(f.FormulaString(), "2\\+\\3\\");
  // A second run evaluates the marked text, whose backslashes make empty values.
  f.CalcFormula();
  EXPECT_TRUE(f.HasErrors());

  Formula g;
  g.FormulaString("(5");
  g.CalcFormula();
  ASSERT_TRUE(g.HasErrors());
  g.FormulaString("1+1");
  EXPECT_EQ(g.CalcFormula(), 0);  // the error flag stays
  EXPECT_TRUE(g.HasErrors());

  Formula h;
  h.IgnoredErrorCount(2147483647);
  h.FormulaString("1/0");
  EXPECT_EQ(h.CalcFormula(), 0);
  EXPECT_EQ(h.ErrorInfo(), "Overflow");
}

TEST_F(FormulaC, MarkingMatchesSequentialReplacement) {
  for (const char* text : {"1/x", "+/-", "SQRTRnd0Rnd5Rnd4", "a\\b", "Rnd4%(x)", "SSQRTT", "Sqrt(2)",
                           "SIN-\u00B0(30)", "2\\", "\\", "RnRnd1d2", "(((", "x"}) {
    Formula f;
    f.FormulaString(text);
    f.CalcFormula();
    EXPECT_EQ(f.FormulaString(), MarkSequentially(text)) << text;
  }
  Formula e;
  e.CalcFormula();
  EXPECT_EQ(e.FormulaString(), "");
}

TEST(Formula, ReadsNumbersWithTheThreadLocale) {
  LocaleScope german(Locale::German());
  EXPECT_DOUBLE_EQ(Calc("1,5*2").value, 3);
  EXPECT_DOUBLE_EQ(Calc("10/4").value, 2.5);
}

TEST(Formula, LongFormulasStayFast) {
  LocaleScope c(Locale::C());
  std::string sum = "0";
  for (int i = 0; i < 3000; ++i) sum += "+1";
  EXPECT_DOUBLE_EQ(Calc(sum).value, 3000);
  // Operators that wait for a bracket beside them at a deep level are lowered in one go.
  std::string nested = std::string(3000, '(') + "1-(5(3))" + std::string(3000, ')');
  EXPECT_TRUE(Calc(nested).errors);
}

TEST(clsPart, HoldsItsThreeProperties) {
  clsPart part;
  EXPECT_EQ(part.strContent(), "");
  EXPECT_EQ(part.strType(), "");
  EXPECT_EQ(part.intPrio(), 0);
  part.strContent("3.5");
  part.strType("VL");
  part.intPrio(12);
  EXPECT_EQ(part.strContent(), "3.5");
  EXPECT_EQ(part.strType(), "VL");
  EXPECT_EQ(part.intPrio(), 12);
}

}  // namespace
}  // namespace quorbex
