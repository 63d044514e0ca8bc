// clsAnalyzer::CalculateFormula: a formula with field references, evaluated once per record.
//
// A reference is a field name in angle brackets. Per record, each reference in the order it was found
// has every occurrence of "<name>" replaced by that record's value as text; the text goes to a new
// Formula, and the result is read back through Calc (result + 0), which applies the rounding and the
// GermanKeyboard reading. The references do not depend on the record, so they are found and resolved
// once per call, and the formula is cut once into literal pieces and reference slots; a record's
// formula text is then the pieces with the values in between, built in one reused buffer.
//
// Replacing one reference after the other can in principle let a value take part in a later
// replacement: a value that contains "<" or ">", or one whose text lies inside a later reference's
// name, could form or break a later "<name>". A record whose values could do that gets its formula
// text by the literal replacements instead, so that every record reads exactly as the rule says.
#include <exception>
#include <memory>
#include <string>
#include <vector>

#include "analysis/analyzer_internal.h"
#include "platform/message_box.h"
#include "quorbex/DataLayer.h"
#include "quorbex/Formula.h"
#include "quorbex/clsAnalyzer.h"
#include "service/modService.h"
#include "value/failure.h"

namespace quorbex {

using namespace internal;

namespace {

constexpr const char* kHelpText =
    "Sie k\u00f6nnen einen beliebigen String \u00fcbergeben und dabei auch Feldnamen angeben in eckigen "
    "Klammern. Beispiel:\r\n<Umsatz>/<UmsatzVorjahr>*100";
constexpr size_t kMaxReferences = 1000;
constexpr char kSlotStart = '\x01';
constexpr char kSlotEnd = '\x02';

struct Reference {
  std::string name;
  int32_t id = 0;
};

// The formula after the replacements, with each reference's value still open: literal pieces and,
// between them, the index of the reference whose value goes there.
struct FormulaTemplate {
  std::vector<std::string> pieces;  // pieces.size() == slots.size() + 1
  std::vector<size_t> slots;
};

// Carries out the replacements once with a placeholder per reference. Returns false when the formula
// itself contains the placeholder characters, so that a template cannot stand for it.
bool BuildTemplate(const std::string& formula, const std::vector<Reference>& references, FormulaTemplate& out) {
  if (formula.find(kSlotStart) != std::string::npos || formula.find(kSlotEnd) != std::string::npos) return false;
  std::string text = formula;
  for (size_t k = 0; k < references.size(); ++k) {
    const std::string placeholder = kSlotStart + std::to_string(k) + kSlotEnd;
    text = ReplaceText(text, "<" + references[k].name + ">", placeholder);
  }
  out.pieces.assign(1, std::string());
  out.slots.clear();
  for (size_t i = 0; i < text.size(); ++i) {
    if (text[i] != kSlotStart) {
      out.pieces.back().push_back(text[i]);
      continue;
    }
    const size_t end = text.find(kSlotEnd, i);
    out.slots.push_back(std::stoul(text.substr(i + 1, end - i - 1)));
    out.pieces.emplace_back();
    i = end;
  }
  return true;
}

// True when the template gives the same text as the literal replacements for these values: no value
// of an earlier reference holds an angle bracket or lies inside the name of a later reference.
bool TemplateHolds(const std::vector<Reference>& references, const std::vector<std::string>& values) {
  for (size_t k = 0; k + 1 < references.size(); ++k) {
    const std::string& value = values[k];
    if (value.find_first_of("<>") != std::string::npos) return false;
    for (size_t j = k + 1; j < references.size(); ++j) {
      if (references[j].name.find(value) != std::string::npos) return false;
    }
  }
  return true;
}

}  // namespace

void clsAnalyzer::CalculateFormula(const std::string& FormulaString, const std::string& TargetFieldName,
                                   int32_t RoundToDigits, bool WantHelp, bool GermanKeyboard) {
  if (WantHelp) MessageRoutine(kHelpText, platform::vbInformation, "Hilfe");

  const int32_t target = ResolveField(TargetFieldName);
  if (target == 0) {
    // The text names the other method; clients look for it as it is.
    Report("Analyzer.CalculateFieldAndValue1: Target field '" + TargetFieldName + "' is not reckognized");
    return;
  }
  if (!records_ || records_->Count() == 0) return;

  // The references, in the order the scan from the left finds them.
  std::vector<Reference> references;
  bool unknown_reference = false;
  size_t position = 0;
  while (references.size() < kMaxReferences) {
    const size_t open = FormulaString.find('<', position);
    if (open == std::string::npos) break;
    const size_t close = FormulaString.find('>', open);
    if (close == std::string::npos) {
      Report("Cannot analyze Formula '" + FormulaString + "' as closing bracket > is missing");
      Report("Analyzer.CalculateFields: Stopped due to errors in CalcFormulaField function");
      return;
    }
    Reference reference{FormulaString.substr(open + 1, close - open - 1), 0};
    reference.id = ResolveField(reference.name);
    if (reference.id == 0) unknown_reference = true;
    references.push_back(std::move(reference));
    position = close + 1;
  }
  if (unknown_reference) {
    // Reading a field that is not there fails at every record alike.
    Report(std::string("Analyzer.CalculateFields: ") + RuntimeErrorText(errnum::kObjectNotSet));
    return;
  }

  FormulaTemplate formula_template;
  const bool have_template = BuildTemplate(FormulaString, references, formula_template);

  std::vector<std::string> values(references.size());
  std::string text;
  std::string last_failure;
  const Variant zero(int32_t{0});  // a Long reads as its value without a text
  std::unique_ptr<Formula> formula;
  for (const auto& record : records_->Items()) {
    try {
      for (size_t k = 0; k < references.size(); ++k) {
        values[k].clear();
        internal::AppendValueText(values[k], internal::StoredValue(internal::FieldOf(record.get(), references[k].id)));
      }
      clsOfflineField& result_field = internal::FieldOf(record.get(), target);

      if (have_template && TemplateHolds(references, values)) {
        text.clear();
        text += formula_template.pieces[0];
        for (size_t s = 0; s < formula_template.slots.size(); ++s) {
          text += values[formula_template.slots[s]];
          text += formula_template.pieces[s + 1];
        }
      } else {
        text = FormulaString;
        for (size_t k = 0; k < references.size(); ++k) {
          text = ReplaceText(text, "<" + references[k].name + ">", values[k]);
        }
      }

      // A Formula never resets its state, but after a calculation without errors it holds nothing a
      // next formula could see (its parts are consumed and its flag is clear), so one object serves
      // record after record until a formula fails.
      if (!formula || formula->HasErrors()) formula = std::make_unique<Formula>();
      formula->FormulaString(std::move(text));
      const double value = formula->CalcFormula();
      if (formula->HasErrors()) last_failure = formula->ErrorInfo();
      result_field.Value(Variant(Calc(Variant(value), "+", zero, RoundToDigits, GermanKeyboard)));
    } catch (const std::exception& e) {
      last_failure = internal::FailureDescription(e);
    }
  }
  if (!last_failure.empty()) Report("Analyzer.CalculateFields: " + last_failure);
}

}  // namespace quorbex
