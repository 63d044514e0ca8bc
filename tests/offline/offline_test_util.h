// Helpers shared by the offline model's tests.
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <functional>

#include "quorbex/errors.h"

namespace quorbex::test {

// The number of the AutomationError `action` raises; 0 when it raises nothing (any other exception
// fails the test).
inline int32_t ErrorNumberOf(const std::function<void()>& action) {
  try {
    action();
  } catch (const AutomationError& error) {
    return error.Number();
  } catch (const std::exception& other) {
    ADD_FAILURE() << "unexpected exception: " << other.what();
    return -1;
  }
  return 0;
}

}  // namespace quorbex::test
