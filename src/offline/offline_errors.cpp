#include "offline/offline_errors.h"

#include "quorbex/errors.h"

namespace quorbex::internal {

AutomationError OutOfMemoryError(const std::string& source) { return RuntimeError(errnum::kOutOfMemory, source); }

void RaiseOutOfMemory(const std::string& source) { throw OutOfMemoryError(source); }

void RaiseObjectNotSet(const std::string& source) {
  RaiseRuntimeError(errnum::kObjectNotSet, source);
}

}  // namespace quorbex::internal
