#include "offline/offline_errors.h"

#include "quorbex/errors.h"

namespace quorbex::offline_internal {

AutomationError OutOfMemoryError(const std::string& source) { return AutomationError(7, source, "Out of memory"); }

void RaiseOutOfMemory(const std::string& source) { throw OutOfMemoryError(source); }

void RaiseObjectNotSet(const std::string& source) {
  throw AutomationError(91, source, "Object variable or With block variable not set");
}

}  // namespace quorbex::offline_internal
