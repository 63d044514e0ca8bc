// clsPart: one piece of a formula as the formula evaluator cuts it.
//
// A plain record without behaviour: the token text, its two-letter type code and its evaluation
// priority. Formula keeps its working list in a leaner internal form; clsPart is the public shape of
// one entry, for callers that want to hold or show formula pieces.
//
// Thread safety: none; an object belongs to the thread that uses it.
#pragma once

#include <cstdint>
#include <string>

#include "quorbex/variant.h"

namespace quorbex {

class clsPart : public Object {
 public:
  clsPart() = default;

  // The token text, or after a reduction the number it stands for. An empty text marks a part that
  // the evaluator removes at the end of the step.
  const std::string& strContent() const noexcept { return content_; }
  void strContent(std::string value) { content_ = std::move(value); }

  // The type code: "VL" value, "OP" binary operator, "MD" postfix modifier, "FN" function, "KO"
  // opening bracket, "KC" closing bracket, or "" for a cleared part.
  const std::string& strType() const noexcept { return type_; }
  void strType(std::string value) { type_ = std::move(value); }

  // Evaluation priority; the evaluator reduces the leftmost part with the highest value first.
  int16_t intPrio() const noexcept { return prio_; }
  void intPrio(int16_t value) noexcept { prio_ = value; }

 private:
  std::string content_;
  std::string type_;
  int16_t prio_ = 0;
};

}  // namespace quorbex
