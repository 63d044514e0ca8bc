// The clocks: the wall clock, as local date and time, and beside it a monotonic clock for measuring
// intervals (a timer's due time), which never jumps when the wall clock is set or changes zone.
#pragma once

#include <chrono>
#include <memory>

#include "platform/installable.h"
#include "quorbex/variant.h"

namespace quorbex::platform {

class Clock {
 public:
  virtual ~Clock() = default;
  // The current local date and time, whole seconds.
  virtual quorbex::Date Now() = 0;
  // Time since an arbitrary fixed point; never decreases, whatever happens to the wall clock.
  virtual std::chrono::nanoseconds Elapsed() = 0;
};

// The system default: the real-time clock in the process's time zone (localtime_r) and
// std::chrono::steady_clock.
std::shared_ptr<Clock> SystemClock();

// Installs `clock` process-wide (nullptr: the default) and returns the previous one.
std::shared_ptr<Clock> Install(std::shared_ptr<Clock> clock);
using ClockScope = InstallScope<Clock>;

// The current local date and time from the installed clock.
quorbex::Date NowLocal();

// The monotonic time from the installed clock; only differences between two readings mean anything.
std::chrono::nanoseconds MonotonicNow();

}  // namespace quorbex::platform
