// The run-time errors the offline model raises itself, with their classic numbers and texts.
#pragma once

#include <string>

#include "quorbex/errors.h"

namespace quorbex::internal {

// 7 "Out of memory": a collection or the name pool could not grow.
AutomationError OutOfMemoryError(const std::string& source);
[[noreturn]] void RaiseOutOfMemory(const std::string& source);
// 91 "Object variable or With block variable not set": a record or field that is not there was used.
[[noreturn]] void RaiseObjectNotSet(const std::string& source);

}  // namespace quorbex::internal
