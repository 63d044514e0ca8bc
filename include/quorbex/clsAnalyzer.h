// clsAnalyzer: column-wise work on a list of offline records: arithmetic between two fields or a field
// and a constant, a formula per record, conditional filling, replacing values, counting occurrences,
// listing distinct values, and pivots that summarise the records into a new DataLayer.
//
// An analyzer is handed out by DataLayer::Analyzer() (over all of its records) or by an extract (over
// its subset). The owner sets three things before use: ParentDataLayer, through which field names
// become Field IDs (DataLayer::FieldID) and failures are reported (DataLayer::ErrorStatus); Parent, the
// owner itself, kept for the caller; and RecordCollection, the records every operation walks from 1 to
// their count. Both parents are back references that never keep their target alive; without a living
// ParentDataLayer no name resolves and reports go straight to the thread's error channel.
//
// Results are written into the fields' values through clsOfflineField::Value, which sets no change
// marks: calculated values reach a database only when the caller marks them (or writes them through
// DataLayer::SetFieldValue). No operation raises; each reports through ErrorStatus and goes on with the
// next record where it can.
//
// Numbers from texts: the arithmetic reads every operand from its text with "." as the decimal point
// (the leading number, "12abc" is 12, an empty text 0). On a locale with a decimal comma pass
// GermanKeyboard True, which turns every "," into "." first; otherwise the fraction is lost.
//
// Thread safety: none; an analyzer belongs to the thread of its DataLayer.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "quorbex/byref.h"
#include "quorbex/clsOfflineRecord.h"
#include "quorbex/collection.h"
#include "quorbex/variant.h"

namespace quorbex {

class DataLayer;

class clsAnalyzer : public Object {
 public:
  using RecordCollectionType = Collection<std::shared_ptr<clsOfflineRecord>>;

  // RoundToDigits value that means "do not round".
  static constexpr int32_t kNoRounding = 99;

  clsAnalyzer();
  ~clsAnalyzer() override;
  clsAnalyzer(const clsAnalyzer&) = delete;
  clsAnalyzer& operator=(const clsAnalyzer&) = delete;

  // ---- Owner and records ---------------------------------------------------------------------------
  // The DataLayer that resolves field names and collects the reports; empty once it has gone.
  std::shared_ptr<DataLayer> ParentDataLayer() const { return parent_data_layer_.lock(); }
  void ParentDataLayer(const std::shared_ptr<DataLayer>& value) { parent_data_layer_ = value; }
  // The owner (a DataLayer or an extract), kept for the caller and not used by the calculations.
  std::shared_ptr<Object> Parent() const { return parent_.lock(); }
  void Parent(const std::shared_ptr<Object>& value) { parent_ = value; }
  // The records to work on (write only): the collection object itself, shared, not a copy. Nothing
  // (nullptr) leaves the analyzer without records.
  void RecordCollection(std::shared_ptr<RecordCollectionType> value) { records_ = std::move(value); }

  // ---- Arithmetic between fields ---------------------------------------------------------------------
  // For every record: target = field1 strOperator field2, with strOperator one of "+" "-" "*" "/" "^";
  // the result rounded to RoundToDigits places (halves to even) unless it is 99 or the result is 0.
  // Reports "Analyzer.CalculateFields: Sourcefields or target field is not reckognized" for an unknown
  // name and "Analyze.CalculateFields: Operator  not allowed" for another operator, changing nothing.
  // A division by 0 gives 0 and reports "Analyzer.CALC: <a> / 0: Division by Zero is not allowed.
  // Value set to 0"; any other failed calculation gives 0 and reports "Analyzer.calc: <description>".
  // A record that fails otherwise (a record without the field) is skipped; the last such failure is
  // reported at the end as "Analyzer.CalculateFields: <description>".
  void CalculateFields(const std::string& SourceFieldName1, const std::string& strOperator,
                       const std::string& SourceFieldName2, const std::string& TargetFieldName,
                       int32_t RoundToDigits = kNoRounding, bool GermanKeyboard = false);
  // As CalculateFields with the constant on the right: target = field strOperator dblvalue. Its
  // texts: "Analyzer.CalculateFieldAndValue1: Sourcefields or target field is not reckognized",
  // "Analyze.CalculateFieldAndValue1: Operator  not allowed", and "Analyzer.CalculateFields: ..." for
  // failed records.
  void CalculateFieldAndValue1(const std::string& SourceFieldName, const std::string& strOperator, double dblvalue,
                               const std::string& TargetFieldName, int32_t RoundToDigits = kNoRounding,
                               bool GermanKeyboard = false);
  // As CalculateFields with the constant on the left: target = dblvalue strOperator field (100 "-"
  // field gives 100 minus the field). Its texts: "Analyzer.CalculateFields: Sourcefields or target field
  // is not reckognized", "Analyze.CalculateFieldAndValue2: Operator  not allowed", and
  // "Analyzer.CalculateFields: ..." for failed records.
  void CalculateFieldAndValue2(double dblvalue, const std::string& strOperator, const std::string& SourceFieldName,
                               const std::string& TargetFieldName, int32_t RoundToDigits = kNoRounding,
                               bool GermanKeyboard = false);

  // ---- Formulas ---------------------------------------------------------------------------------------
  // For every record: the formula with each field reference "<FieldName>" replaced by that record's
  // value as text (the locale's form), evaluated by a Formula, then read back through the arithmetic
  // above (result + 0: rounding, GermanKeyboard) and stored into the target field.
  // WantHelp first shows the help message box (information icon, title "Hilfe").
  // Reports "Analyzer.CalculateFieldAndValue1: Target field '<name>' is not reckognized" for an unknown
  // target, changing nothing. A "<" without a closing ">" reports "Cannot analyze Formula '<formula>' as
  // closing bracket > is missing" and then "Analyzer.CalculateFields: Stopped due to errors in
  // CalcFormulaField function". A reference to an unknown field leaves FieldID's not-found text, skips
  // every record and reports "Analyzer.CalculateFields: Object variable or With block variable not
  // set". References are resolved once per call, not per record. A formula the engine
  // cannot evaluate stores 0 and reports "Analyzer.CalculateFields: <the engine's ErrorInfo>" once at
  // the end.
  void CalculateFormula(const std::string& FormulaString, const std::string& TargetFieldName,
                        int32_t RoundToDigits = kNoRounding, bool WantHelp = false, bool GermanKeyboard = false);

  // ---- Conditional filling and replacing ----------------------------------------------------------------
  // For every record: if "a Operator b" holds, FieldNameToFill := the fill value, else (when given) the
  // else value. Each of the four value arguments is a field when its text is a field name (FieldID
  // finds it: so a constant that equals a field name is always that field) and a constant otherwise;
  // note that FieldID leaves its not-found text in ErrorStatus for every constant it was asked about.
  // Operators "=" ">" "<" "<>" (any other: the condition is False). NumericCompare compares the
  // leading numbers of the texts, "," read as "." (so "1,0" equals 1); otherwise the values are
  // compared as values, texts case-sensitively. Failed records are skipped and the last failure is
  // reported as "Analyzer.CalculateFields: <description>".
  void FillIf(const Variant& FieldNameOrValue1, const std::string& Operator, const Variant& FieldNameOrValue2,
              const std::string& FieldNameToFill, const Variant& FillWithFieldnameOrValue,
              const std::optional<Variant>& ElseFillWithFieldnameOrValue = std::nullopt, bool NumericCompare = false);
  // Replaces the field's value by TargetValue (always stored as text) where it matches SourceValue.
  // StringCompare (set to True when MatchCase or PartOnly is, and the caller's variable with it)
  // compares the trimmed texts, exactly with MatchCase, otherwise without regard to case; PartOnly also
  // replaces every occurrence of SourceValue inside the untrimmed text (that search is always
  // case-sensitive). Without StringCompare the values are compared as values. Failed records (an
  // unknown field name fails every record) are skipped; the last failure is reported as
  // "Analyzer.ReplaceField <number>: <description>".
  void ReplaceField(const std::string& FieldName, const Variant& SourceValue, const Variant& TargetValue,
                    ByRef<bool> StringCompare, bool MatchCase, bool PartOnly);

  // ---- Counting and distinct values ------------------------------------------------------------------
  // The number of records whose field equals SearchValue: with MatchCase as values, otherwise as texts
  // trimmed and in lower case (" abc" counts for "ABC"). 0 for no records. Failed records are not
  // counted and the last failure is reported as "Analyzer.OccurrenceCount: <description>".
  int32_t OccurrenceCount(const std::string& FieldName, const Variant& SearchValue, bool MatchCase = false);
  // A new collection with each distinct value of the field once, in ascending order (numbers by
  // value before texts, texts by character codes). Empty values and the empty text (Null reads as the
  // empty text) are left out; values of different kinds (the number 1 and the text "1") count as
  // different. Failed records are left out and the last failure is reported as
  // "Analyzer.SingleOccurrence: <description>". O(n log n).
  std::shared_ptr<Collection<Variant>> SingleOccurrence(const std::string& FieldName);

  // ---- Pivots ---------------------------------------------------------------------------------------
  // Sums the fields named in ValueFieldsDividedBySemicolon (at most the first 100, up to the first
  // empty name) per value of CriteriaField over the parent DataLayer's records, which are first sorted
  // by the criteria field (ascending text order) and stay so; the parent's cursor ends on the last
  // record. Returns a new virtual table "Pivot" with the fields ID, the criteria field (unless the
  // value list already contains its name as a plain substring) and the value fields; one record per run
  // of equal criteria texts, the criteria field holding that text, each value field the sum of the
  // values read as numbers (numbers as they are, texts by their leading number with "." as decimal
  // point, 0 when none), and ID a fresh GUID. A criteria field that is also listed as a value field
  // keeps the group's text. WithProgressBar shows the progress display ("Pivotieren....").
  // Failures are skipped; the last is reported as "Analyzer.Pivot: Fehler bei Aufbereitung:
  // <description>" and the table built so far is returned. The thread's auto-GUID column setting is
  // the same afterwards as before.
  std::shared_ptr<DataLayer> Pivot(const std::string& ValueFieldsDividedBySemicolon, const std::string& CriteriaField,
                                   bool WithProgressBar = false);
  // Counts the records per distinct value of CriteriaField over RecordCollection: a new virtual table
  // "Pivot" with the fields ID, the criteria field and "Count", one record per value of
  // SingleOccurrence (ascending), Count as OccurrenceCount of that value (texts compared trimmed and
  // without regard to case), ID a fresh GUID. One pass over the records. Failures as with Pivot.
  std::shared_ptr<DataLayer> PivotCountOnly(const std::string& CriteriaField);

 private:
  // Field ID of a name through the parent (its FieldID, with its reports); 0 without a parent.
  int32_t ResolveField(const std::string& name) const;
  // Appends a text to the parent's ErrorStatus (the thread's error channel without a parent).
  void Report(const std::string& text) const;
  // The arithmetic of one pair of values: reads both from their texts, applies the operator, rounds.
  // Reports its own failures ("Analyzer.CALC: ...", "Analyzer.calc: ...") and returns 0 for them.
  double Calc(const Variant& a, const std::string& op, const Variant& b, int32_t RoundToDigits,
              bool GermanKeyboard) const;
  // The shared loop of the three field calculations; `constant` replaces the field that is 0.
  void CalculateColumns(int32_t field1, const std::string& op, int32_t field2, int32_t target,
                        const Variant& constant, int32_t RoundToDigits, bool GermanKeyboard);

  std::weak_ptr<DataLayer> parent_data_layer_;
  std::weak_ptr<Object> parent_;
  std::shared_ptr<RecordCollectionType> records_;
};

}  // namespace quorbex
