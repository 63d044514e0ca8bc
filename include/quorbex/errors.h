// Errors that reach a caller of the library.
//
// Almost every public operation reports failures through its error channel and returns a failure
// value. The few that raise (a handful of documented operations, plus invalid use of a value such as
// converting Null or an out-of-range number) throw AutomationError, which carries the classic triple of
// number, source and description.
#pragma once

#include <cstdint>
#include <stdexcept>
#include <string>

namespace quorbex {

// Run-time error numbers of the classic automation runtime that the library raises itself.
namespace errnum {
inline constexpr int32_t kInvalidProcedureCall = 5;   // "Invalid procedure call or argument"
inline constexpr int32_t kOverflow = 6;               // "Overflow"
inline constexpr int32_t kSubscriptOutOfRange = 9;    // "Subscript out of range"
inline constexpr int32_t kTypeMismatch = 13;          // "Type mismatch"
inline constexpr int32_t kInvalidUseOfNull = 94;      // "Invalid use of Null"
inline constexpr int32_t kObjectRequired = 424;       // "Object required"
}  // namespace errnum

class AutomationError : public std::runtime_error {
 public:
  AutomationError(int32_t number, std::string source, std::string description)
      : std::runtime_error(description),
        number_(number),
        source_(std::move(source)),
        description_(std::move(description)) {}

  int32_t Number() const noexcept { return number_; }
  const std::string& Source() const noexcept { return source_; }
  const std::string& Description() const noexcept { return description_; }

 private:
  int32_t number_;
  std::string source_;
  std::string description_;
};

// The errors the runtime itself raises, with their classic texts.
[[noreturn]] void RaiseRuntimeError(int32_t number, const std::string& source = "Quorbex DataLayer");

}  // namespace quorbex
