// The wall clock, as local date and time.
#pragma once

#include <memory>

#include "platform/installable.h"
#include "quorbex/variant.h"

namespace quorbex::platform {

class Clock {
 public:
  virtual ~Clock() = default;
  // The current local date and time, whole seconds.
  virtual quorbex::Date Now() = 0;
};

// The system default: the real-time clock in the process's time zone (localtime_r).
std::shared_ptr<Clock> SystemClock();

// Installs `clock` process-wide (nullptr: the default) and returns the previous one.
std::shared_ptr<Clock> Install(std::shared_ptr<Clock> clock);
using ClockScope = InstallScope<Clock>;

// The current local date and time from the installed clock.
quorbex::Date NowLocal();

}  // namespace quorbex::platform
