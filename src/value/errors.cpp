#include "quorbex/errors.h"

#include <new>

#include "value/failure.h"

namespace quorbex {

using namespace internal;

const char* RuntimeErrorText(int32_t number) noexcept {
  switch (number) {
    case errnum::kInvalidProcedureCall: return "Invalid procedure call or argument";
    case errnum::kOverflow: return "Overflow";
    case errnum::kOutOfMemory: return "Out of memory";
    case errnum::kSubscriptOutOfRange: return "Subscript out of range";
    case errnum::kDivisionByZero: return "Division by zero";
    case errnum::kTypeMismatch: return "Type mismatch";
    case errnum::kObjectNotSet: return "Object variable or With block variable not set";
    case errnum::kInvalidUseOfNull: return "Invalid use of Null";
    case errnum::kInvalidPropertyValue: return "Invalid property value";
    case errnum::kObjectRequired: return "Object required";
    default: return "Application-defined or object-defined error";
  }
}

AutomationError RuntimeError(int32_t number, const std::string& source) {
  return AutomationError(number, source, RuntimeErrorText(number));
}

void RaiseRuntimeError(int32_t number, const std::string& source) { throw RuntimeError(number, source); }

namespace internal {

std::string FailureDescription(const std::exception& error) {
  if (const auto* automation = dynamic_cast<const AutomationError*>(&error)) return automation->Description();
  if (dynamic_cast<const std::bad_alloc*>(&error) != nullptr) return RuntimeErrorText(errnum::kOutOfMemory);
  return error.what();
}

std::string OperationError(std::string_view operation, const std::exception& error) {
  std::string text(operation);
  text += ": ";
  text += FailureDescription(error);
  return text;
}

}  // namespace internal

}  // namespace quorbex
