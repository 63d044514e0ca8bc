// ErrorOf(f): runs `f` and gives the number of the AutomationError it raised, 0 when it raised none
// (any other exception fails the test).
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <exception>

#include "quorbex/errors.h"

namespace quorbex::test {


template <class F>
int32_t ErrorOf(F&& f) {
  try {
    f();
  } catch (const AutomationError& e) {
    return e.Number();
  } catch (const std::exception& other) {
    ADD_FAILURE() << "unexpected exception: " << other.what();
    return -1;
  }
  return 0;
}

}  // namespace quorbex::test
