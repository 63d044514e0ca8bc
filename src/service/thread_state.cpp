#include "service/thread_state.h"

namespace quorbex::internal {

ThreadState& State() {
  thread_local ThreadState state;
  return state;
}

}  // namespace quorbex::internal
