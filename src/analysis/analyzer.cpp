// clsAnalyzer: arithmetic between fields, conditional filling, replacing, counting and distinct values.
//
// Every operation walks the record collection from the first record to the last and catches failures
// per record: a record that fails is skipped, the others go on, and the last failure's description is
// reported once at the end. A failure that every record would meet alike (a field ID of 0) is
// recognised before the loop, so that a million records do not raise a million times.
#include <cmath>
#include <exception>

#include "analysis/analyzer_internal.h"
#include "quorbex/DataLayer.h"
#include "quorbex/clsAnalyzer.h"
#include "quorbex/errors.h"
#include "quorbex/text.h"
#include "service/modService.h"
#include "value/failure.h"

namespace quorbex {

using namespace internal;

using internal::AppendValueText;
using internal::FieldOf;
using internal::ReadAsNumber;
using internal::StoredValue;

namespace {

constexpr const char* kFieldsPrefix = "Analyzer.CalculateFields: ";

bool IsArithmeticOperator(const std::string& op) {
  return op == "+" || op == "-" || op == "*" || op == "/" || op == "^";
}

}  // namespace

clsAnalyzer::clsAnalyzer() = default;
clsAnalyzer::~clsAnalyzer() = default;

int32_t clsAnalyzer::ResolveField(const std::string& name) const {
  auto parent = parent_data_layer_.lock();
  return parent ? parent->FieldID(name) : 0;
}

void clsAnalyzer::Report(const std::string& text) const {
  if (auto parent = parent_data_layer_.lock()) {
    parent->ErrorStatus(text);
  } else {
    AppendErrorStatus(text);
  }
}

double clsAnalyzer::Calc(const Variant& a, const std::string& op, const Variant& b, int32_t RoundToDigits,
                         bool GermanKeyboard) const {
  std::string text;
  try {
    const double x = ReadAsNumber(a, GermanKeyboard, text);
    const double y = ReadAsNumber(b, GermanKeyboard, text);
    double result = 0.0;
    if (op == "+") {
      result = x + y;
    } else if (op == "-") {
      result = x - y;
    } else if (op == "*") {
      result = x * y;
    } else if (op == "^") {
      result = std::pow(x, y);
    } else if (op == "/") {
      if (y == 0.0) {
        text.clear();
        AppendValueText(text, a);
        if (GermanKeyboard) text = ReplaceText(text, ",", ".");
        Report("Analyzer.CALC: " + text + " / 0: Division by Zero is not allowed. Value set to 0");
        return 0.0;
      }
      result = x / y;
    } else {
      return 0.0;
    }
    // The runtime's arithmetic raises where the hardware would give NaN or infinity.
    if (std::isnan(result)) RaiseRuntimeError(errnum::kInvalidProcedureCall);
    if (std::isinf(result)) RaiseRuntimeError(errnum::kOverflow);
    if (RoundToDigits != kNoRounding && result != 0.0) result = Round(result, RoundToDigits);
    return result;
  } catch (const std::exception& e) {
    Report(internal::OperationError("Analyzer.calc", e));
    return 0.0;
  }
}

void clsAnalyzer::CalculateColumns(int32_t field1, const std::string& op, int32_t field2, int32_t target,
                                   const Variant& constant, int32_t RoundToDigits, bool GermanKeyboard) {
  if (!records_) return;
  std::string last_failure;
  for (const auto& record : records_->Items()) {
    try {
      const Variant& a = field1 ? StoredValue(FieldOf(record.get(), field1)) : constant;
      const Variant& b = field2 ? StoredValue(FieldOf(record.get(), field2)) : constant;
      clsOfflineField& result = FieldOf(record.get(), target);
      result.Value(Variant(Calc(a, op, b, RoundToDigits, GermanKeyboard)));
    } catch (const std::exception& e) {
      last_failure = internal::FailureDescription(e);
    }
  }
  if (!last_failure.empty()) Report(kFieldsPrefix + last_failure);
}

void clsAnalyzer::CalculateFields(const std::string& SourceFieldName1, const std::string& strOperator,
                                  const std::string& SourceFieldName2, const std::string& TargetFieldName,
                                  int32_t RoundToDigits, bool GermanKeyboard) {
  const int32_t field1 = ResolveField(SourceFieldName1);
  const int32_t field2 = ResolveField(SourceFieldName2);
  const int32_t target = ResolveField(TargetFieldName);
  if (field1 == 0 || field2 == 0 || target == 0) {
    Report("Analyzer.CalculateFields: Sourcefields or target field is not reckognized");
    return;
  }
  if (!IsArithmeticOperator(strOperator)) {
    Report("Analyze.CalculateFields: Operator  not allowed");
    return;
  }
  CalculateColumns(field1, strOperator, field2, target, Variant(), RoundToDigits, GermanKeyboard);
}

void clsAnalyzer::CalculateFieldAndValue1(const std::string& SourceFieldName, const std::string& strOperator,
                                          double dblvalue, const std::string& TargetFieldName, int32_t RoundToDigits,
                                          bool GermanKeyboard) {
  const int32_t source = ResolveField(SourceFieldName);
  const int32_t target = ResolveField(TargetFieldName);
  if (source == 0 || target == 0) {
    Report("Analyzer.CalculateFieldAndValue1: Sourcefields or target field is not reckognized");
    return;
  }
  if (!IsArithmeticOperator(strOperator)) {
    Report("Analyze.CalculateFieldAndValue1: Operator  not allowed");
    return;
  }
  CalculateColumns(source, strOperator, 0, target, Variant(dblvalue), RoundToDigits, GermanKeyboard);
}

void clsAnalyzer::CalculateFieldAndValue2(double dblvalue, const std::string& strOperator,
                                          const std::string& SourceFieldName, const std::string& TargetFieldName,
                                          int32_t RoundToDigits, bool GermanKeyboard) {
  const int32_t source = ResolveField(SourceFieldName);
  const int32_t target = ResolveField(TargetFieldName);
  if (source == 0 || target == 0) {
    // The text of CalculateFields, which clients already look for.
    Report("Analyzer.CalculateFields: Sourcefields or target field is not reckognized");
    return;
  }
  if (!IsArithmeticOperator(strOperator)) {
    Report("Analyze.CalculateFieldAndValue2: Operator  not allowed");
    return;
  }
  CalculateColumns(0, strOperator, source, target, Variant(dblvalue), RoundToDigits, GermanKeyboard);
}

void clsAnalyzer::FillIf(const Variant& FieldNameOrValue1, const std::string& Operator,
                         const Variant& FieldNameOrValue2, const std::string& FieldNameToFill,
                         const Variant& FillWithFieldnameOrValue,
                         const std::optional<Variant>& ElseFillWithFieldnameOrValue, bool NumericCompare) {
  // An argument names a field whenever its text is a field name; otherwise it is a constant.
  struct Operand {
    int32_t id = 0;
    const Variant* constant = nullptr;
    const Variant& In(const clsOfflineRecord* record) const {
      return id ? StoredValue(FieldOf(record, id)) : *constant;
    }
  };
  auto resolve = [&](const Variant& argument) { return Operand{ResolveField(ToText(argument)), &argument}; };
  const Operand first = resolve(FieldNameOrValue1);
  const Operand second = resolve(FieldNameOrValue2);
  const int32_t target = ResolveField(FieldNameToFill);
  const Operand fill = resolve(FillWithFieldnameOrValue);
  Operand otherwise;
  if (ElseFillWithFieldnameOrValue) otherwise = resolve(*ElseFillWithFieldnameOrValue);

  if (!records_) return;
  std::string last_failure;
  std::string scratch;
  for (const auto& record : records_->Items()) {
    try {
      const Variant& a = first.In(record.get());
      const Variant& b = second.In(record.get());
      bool holds = false;
      if (NumericCompare) {
        const double na = ReadAsNumber(a, true, scratch);
        const double nb = ReadAsNumber(b, true, scratch);
        if (Operator == "=") holds = na == nb;
        else if (Operator == ">") holds = na > nb;
        else if (Operator == "<") holds = na < nb;
        else if (Operator == "<>") holds = na != nb;
      } else {
        const auto order = Compare(a, b);  // Null on either side: no condition holds
        if (order) {
          if (Operator == "=") holds = *order == 0;
          else if (Operator == ">") holds = *order > 0;
          else if (Operator == "<") holds = *order < 0;
          else if (Operator == "<>") holds = *order != 0;
        }
      }
      const Operand* source = holds ? &fill : (ElseFillWithFieldnameOrValue ? &otherwise : nullptr);
      if (!source) continue;
      if (target == 0) {
        last_failure = RuntimeErrorText(errnum::kObjectNotSet);
        continue;
      }
      Variant value = source->In(record.get());  // a copy: the source may be the target itself
      FieldOf(record.get(), target).Value(std::move(value));
    } catch (const std::exception& e) {
      last_failure = internal::FailureDescription(e);
    }
  }
  if (!last_failure.empty()) Report(kFieldsPrefix + last_failure);
}

void clsAnalyzer::ReplaceField(const std::string& FieldName, const Variant& SourceValue, const Variant& TargetValue,
                               ByRef<bool> StringCompare, bool MatchCase, bool PartOnly) {
  if (MatchCase || PartOnly) *StringCompare = true;
  const bool string_compare = *StringCompare;
  const int32_t id = ResolveField(FieldName);
  if (!records_) return;

  std::string last_failure;
  auto fail = [&](int32_t number, const std::string& description) {
    last_failure = "Analyzer.ReplaceField " + std::to_string(number) + ": " + description;
  };
  if (id == 0) {
    if (records_->Count() > 0) fail(errnum::kObjectNotSet, RuntimeErrorText(errnum::kObjectNotSet));
  } else {
    std::string full;
    for (const auto& record : records_->Items()) {
      try {
        clsOfflineField& field = FieldOf(record.get(), id);
        const Variant& value = StoredValue(field);
        std::string replacement = CStr(TargetValue);
        bool match = false;
        if (string_compare) {
          full.clear();
          AppendValueText(full, value);
          const std::string source = CStr(SourceValue);
          const std::string current = Trim(full);
          match = MatchCase ? current == Trim(source) : LCase(current) == LCase(Trim(source));
          // The part search is exact whatever MatchCase says; an empty source is no part of anything.
          if (!match && PartOnly && !source.empty() && current.find(source) != std::string::npos) {
            replacement = ReplaceText(full, source, replacement);
            match = true;
          }
        } else {
          match = Equals(value, SourceValue);
        }
        if (match) field.Value(Variant(std::move(replacement)));
      } catch (const AutomationError& e) {
        fail(e.Number(), e.Description());
      } catch (const std::exception& e) {
        fail(0, e.what());
      }
    }
  }
  if (!last_failure.empty()) Report(last_failure);
}

int32_t clsAnalyzer::OccurrenceCount(const std::string& FieldName, const Variant& SearchValue, bool MatchCase) {
  const int32_t id = ResolveField(FieldName);
  if (!records_ || records_->Count() == 0) return 0;

  int32_t count = 0;
  std::string last_failure;
  if (id == 0) {
    last_failure = RuntimeErrorText(errnum::kObjectNotSet);
  } else if (MatchCase) {
    for (const auto& record : records_->Items()) {
      try {
        if (Equals(StoredValue(FieldOf(record.get(), id)), SearchValue)) ++count;
      } catch (const std::exception& e) {
        last_failure = internal::FailureDescription(e);
      }
    }
  } else {
    std::string key;
    try {
      internal::LowerTrimmedText(SearchValue, key);
    } catch (const std::exception& e) {
      // A search value without a text fails at every record alike.
      Report(internal::OperationError("Analyzer.OccurrenceCount", e));
      return 0;
    }
    std::string current;
    for (const auto& record : records_->Items()) {
      try {
        internal::LowerTrimmedText(StoredValue(FieldOf(record.get(), id)), current);
        if (current == key) ++count;
      } catch (const std::exception& e) {
        last_failure = internal::FailureDescription(e);
      }
    }
  }
  if (!last_failure.empty()) Report("Analyzer.OccurrenceCount: " + last_failure);
  return count;
}

std::shared_ptr<Collection<Variant>> clsAnalyzer::SingleOccurrence(const std::string& FieldName) {
  auto result = std::make_shared<Collection<Variant>>();
  const int32_t id = ResolveField(FieldName);
  internal::DistinctValues distinct = internal::GatherDistinct(records_.get(), id, false);
  result->Reserve(distinct.values.size());
  for (auto& value : distinct.values) result->Add(std::move(value));
  if (!distinct.last_failure.empty()) Report("Analyzer.SingleOccurrence: " + distinct.last_failure);
  return result;
}

}  // namespace quorbex
