#include "platform/clock.h"

#include <ctime>
#include <utility>

namespace quorbex::platform {

namespace {

class RealTimeClock final : public Clock {
 public:
  quorbex::Date Now() override {
    std::time_t now = std::time(nullptr);
    std::tm local{};
    if (localtime_r(&now, &local) == nullptr) return {};
    return MakeDate({local.tm_year + 1900, local.tm_mon + 1, local.tm_mday, local.tm_hour, local.tm_min,
                     local.tm_sec > 59 ? 59 : local.tm_sec});  // a leap second reads as :59
  }
  std::chrono::nanoseconds Elapsed() override {
    return std::chrono::duration_cast<std::chrono::nanoseconds>(std::chrono::steady_clock::now().time_since_epoch());
  }
};

Installed<Clock>& Slot() {
  static Installed<Clock> slot(SystemClock());
  return slot;
}

}  // namespace

std::shared_ptr<Clock> SystemClock() {
  static const auto clock = std::make_shared<RealTimeClock>();
  return clock;
}

std::shared_ptr<Clock> Install(std::shared_ptr<Clock> clock) { return Slot().Set(std::move(clock)); }

quorbex::Date NowLocal() { return Slot().Get()->Now(); }

std::chrono::nanoseconds MonotonicNow() { return Slot().Get()->Elapsed(); }

}  // namespace quorbex::platform
