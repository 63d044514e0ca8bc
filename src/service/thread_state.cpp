#include "service/thread_state.h"

namespace quorbex {

ThreadState& State() {
  thread_local ThreadState state;
  return state;
}

}  // namespace quorbex
