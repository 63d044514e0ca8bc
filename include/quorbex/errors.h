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

// Run-time error numbers of the classic automation runtime that the library raises or reports itself;
// RuntimeErrorText gives each its text.
namespace errnum {
inline constexpr int32_t kInvalidProcedureCall = 5;   // "Invalid procedure call or argument"
inline constexpr int32_t kOverflow = 6;               // "Overflow"
inline constexpr int32_t kOutOfMemory = 7;            // "Out of memory"
inline constexpr int32_t kSubscriptOutOfRange = 9;    // "Subscript out of range"
inline constexpr int32_t kDivisionByZero = 11;        // "Division by zero"
inline constexpr int32_t kTypeMismatch = 13;          // "Type mismatch"
inline constexpr int32_t kObjectNotSet = 91;          // "Object variable or With block variable not set"
inline constexpr int32_t kInvalidUseOfNull = 94;      // "Invalid use of Null"
inline constexpr int32_t kInvalidPropertyValue = 380; // "Invalid property value"
inline constexpr int32_t kObjectRequired = 424;       // "Object required"
}  // namespace errnum

// The classic text of a runtime error number above; "Application-defined or object-defined error" for
// any other number.
const char* RuntimeErrorText(int32_t number) noexcept;

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

// The error the runtime itself raises for `number`, with its classic text.
AutomationError RuntimeError(int32_t number, const std::string& source = "Quorbex DataLayer");
// Throws RuntimeError(number, source).
[[noreturn]] void RaiseRuntimeError(int32_t number, const std::string& source = "Quorbex DataLayer");

}  // namespace quorbex
