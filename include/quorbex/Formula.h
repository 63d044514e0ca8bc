// Formula: evaluates one arithmetic formula given as text and returns a double.
//
// The language: numbers, the constant Pi, the binary operators + - * / ^, round brackets, the
// functions Int Rnd0 Rnd1 Rnd2 Ln EXP (and the trigonometric names, which the "-" in their names
// cuts apart, so they never act as functions), and the postfix modifiers % and Sqrt/sqrt.
//
// There is no syntax tree. The text is cut into a flat list of parts, each part gets a priority
// (operator strength plus 10 per enclosing bracket pair), and the leftmost part with the highest
// priority is reduced together with its neighbours until one part is left. That gives a few rules a
// reader of a formula must know:
//   - equal operators apply left to right, "^" too: 2^3^2 is 64;
//   - an operator directly after another sees an empty value 0: 2*-3 is 0-3 = -3, and -5 is 0-5;
//   - a text that is not a number reads as its leading number ("12abc" is 12), or 0;
//   - stray brackets are dropped and counted in IgnoredErrorCount;
//   - a function keeps its brackets only while they hold more than one part, so Ln(5) stops with an
//     error (the brackets around the single value are removed before the function is reached), while
//     Ln((2)+3) gives Ln(5).
//
// The evaluation always ends: when a step can find nothing left to reduce, such as with 5(3) (two
// values and no operator between them), it stops with HasErrors True and ErrorInfo
// "Formula cannot be reduced: an operator is missing between two values". A part that needs a
// neighbour outside the list (an operator at the start or end, a "(" near the end) stops with
// ErrorInfo "Subscript out of range: the formula has no part N".
//
// None of the state is reset by a calculation: one object serves one formula. CalcFormula rewrites
// FormulaString to its marked form (tokens framed in backslashes), so a second call would evaluate
// the marked text.
//
// Thread safety: none; an object belongs to the thread that uses it. Numbers are read with the
// calling thread's Locale.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "quorbex/variant.h"

namespace quorbex {

class Formula : public Object {
 public:
  Formula();
  ~Formula() override;
  Formula(const Formula&) = delete;
  Formula& operator=(const Formula&) = delete;

  // The formula. After CalcFormula it holds the marked text: every + - / * ^ % ( ) SQRT Rnd0..Rnd4
  // framed in backslashes, and a closing backslash appended (for example 2\+\3\).
  const std::string& FormulaString() const;
  void FormulaString(std::string value);

  // Description of the last problem: "No Formulastring", "Cannot divide by 0", or the description of
  // the failure that stopped the evaluation. Never cleared by the object itself.
  const std::string& ErrorInfo() const noexcept { return error_info_; }
  void ErrorInfo(std::string value) { error_info_ = std::move(value); }

  // Problems repaired silently while the evaluation went on: divisions by zero (the quotient is 0)
  // and stray closing or opening brackets (dropped). Never reset by the object itself.
  int32_t IgnoredErrorCount() const noexcept { return ignored_errors_; }
  void IgnoredErrorCount(int32_t value) noexcept { ignored_errors_ = value; }

  // Evaluates FormulaString and returns its value. Returns 0 with HasErrors True when the formula is
  // empty ("No Formulastring") or the evaluation stopped on an error (ErrorInfo tells which); once
  // HasErrors is True every later call returns 0. Never throws.
  double CalcFormula();

  // True once an evaluation stopped on an error. Never reset by the object itself.
  bool HasErrors() const noexcept { return has_errors_; }

 private:
  friend class FormulaTestPeer;  // white-box tests of the cutting and reduction steps

  enum class PartType : uint8_t { kNone, kValue, kOperator, kModifier, kFunction, kOpen, kClose };

  // One entry of the parts list. The content is either a text (a view into the formula text the
  // part was cut from, or a constant) or, after a reduction, a number: the evaluator keeps the
  // double itself instead of writing it out and reading it back, which yields the same value.
  // Trivial on purpose, so that the inline storage below costs nothing until it is used.
  struct Part {
    std::string_view text;
    double number;
    int16_t prio;
    PartType type;
    bool is_number;
    bool IsEmpty() const noexcept { return !is_number && text.empty(); }
  };

  // The parts list: a vector that keeps its first entries inside the object, because a formula of a
  // field calculation has a handful of parts and one object is made per record.
  class PartList {
   public:
    PartList() = default;
    PartList(const PartList&) = delete;
    PartList& operator=(const PartList&) = delete;
    size_t size() const noexcept { return size_; }
    bool empty() const noexcept { return size_ == 0; }
    Part& operator[](size_t i) noexcept { return data_[i]; }
    const Part& operator[](size_t i) const noexcept { return data_[i]; }
    Part* begin() noexcept { return data_; }
    Part* end() noexcept { return data_ + size_; }
    const Part* begin() const noexcept { return data_; }
    const Part* end() const noexcept { return data_ + size_; }
    Part& emplace_back();
    void erase(size_t index) noexcept;
    void clear() noexcept { size_ = 0; }
    // Removes the parts for which `remove` holds, keeping the order; returns how many went.
    template <class Pred>
    size_t erase_if(Pred remove) noexcept {
      size_t out = 0;
      while (out < size_ && !remove(data_[out])) ++out;
      for (size_t i = out; i < size_; ++i) {
        if (!remove(data_[i])) data_[out++] = data_[i];
      }
      const size_t removed = size_ - out;
      size_ = out;
      return removed;
    }

   private:
    static constexpr size_t kInline = 16;
    Part inline_[kInline];
    std::unique_ptr<Part[]> heap_;
    Part* data_ = inline_;
    size_t size_ = 0;
    size_t capacity_ = kInline;
  };

  void MarkTokens();
  void BuildParts(std::string_view marked_source);
  static PartType ClassifyToken(std::string_view token) noexcept;
  size_t FindTopPart() const noexcept;
  bool EvaluatePart(size_t index);
  void ClearPart(size_t index) noexcept;
  bool RemoveBrackets();
  bool RemoveEmptyParts();
  double PartValue(const Part& part) const;
  static double PartValue(std::string_view text, char decimal, char thousands);
  std::string JoinParts() const;

  Part& At(size_t index);  // 1-based; a missing part stops the evaluation
  void SetPart(size_t index, double value);
  void CountIgnoredError();
  void SkipOperatorWaits(size_t index);

  // FormulaString as the caller sees it. While `marked_pending_` is set it is the marked form of
  // `source_`, written out only when someone reads it.
  mutable std::string text_;
  mutable bool marked_pending_ = false;
  std::string source_;                       // the text the current parts were cut from
  std::vector<std::string> retired_sources_;  // older texts that leftover parts still point into
  PartList parts_;
  std::string error_info_;
  int32_t ignored_errors_ = 0;
  bool has_errors_ = false;
  char decimal_ = '.';    // the calling thread's decimal separator, taken at the start of a calculation
  char thousands_ = ',';
  bool simple_locale_ = true;  // both separators are single characters
  size_t lowered_operator_ = 0;  // the operator that the current step lowered, if any
};

}  // namespace quorbex
