// The text of a caught failure.
//
// Every public operation catches at its own boundary and reports "<Operation>: <description>" through
// its error channel; these two functions are the one place that text is made.
#pragma once

#include <exception>
#include <string>
#include <string_view>

namespace quorbex::internal {

// The description a failure carries: an AutomationError's Description, the runtime's "Out of memory"
// for std::bad_alloc, what() for any other exception.
std::string FailureDescription(const std::exception& error);

// "<operation>: <description>".
std::string OperationError(std::string_view operation, const std::exception& error);

}  // namespace quorbex::internal
