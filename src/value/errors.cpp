#include "quorbex/errors.h"

namespace quorbex {

namespace {
const char* RuntimeErrorText(int32_t number) {
  switch (number) {
    case errnum::kInvalidProcedureCall: return "Invalid procedure call or argument";
    case errnum::kOverflow: return "Overflow";
    case errnum::kSubscriptOutOfRange: return "Subscript out of range";
    case 91: return "Object variable or With block variable not set";
    case errnum::kTypeMismatch: return "Type mismatch";
    case errnum::kInvalidUseOfNull: return "Invalid use of Null";
    case errnum::kObjectRequired: return "Object required";
    default: return "Application-defined or object-defined error";
  }
}
}  // namespace

void RaiseRuntimeError(int32_t number, const std::string& source) {
  throw AutomationError(number, source, RuntimeErrorText(number));
}

}  // namespace quorbex
