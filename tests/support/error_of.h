// ErrorOf(f): runs `f` and gives the number of the AutomationError it raised, 0 when it raised none.
#pragma once

#include <cstdint>

#include "quorbex/errors.h"

namespace quorbex::test {

template <class F>
int32_t ErrorOf(F&& f) {
  try {
    f();
  } catch (const AutomationError& e) {
    return e.Number();
  }
  return 0;
}

}  // namespace quorbex::test
