// The installation slot shared by every platform service.
//
// Each service (settings, message boxes, environment, GUIDs, files, clock) is a small abstract
// interface with a Linux default. A host or a test replaces the implementation process-wide through
// the service's Install() overload and gets the previous one back, so that it can restore it; the
// RAII InstallScope does both for a scope:
//
//     FakeClock clock = std::make_shared<FakeClock>(...);
//     platform::InstallScope<platform::Clock> scope(clock);
//
// Thread safety: Install and the lookup behind every service call take a mutex and hand out a
// shared_ptr copy, so a call that is running keeps its implementation alive even when another thread
// installs a new one meanwhile. Scopes restore in reverse order of creation; overlapping scopes on
// several threads restore whatever each one found.
#pragma once

#include <memory>
#include <mutex>
#include <utility>

namespace quorbex::platform {

// The slot that holds a service's current implementation. One static instance per service lives in
// that service's .cpp; `fallback` is what Install(nullptr) puts back.
template <class Interface>
class Installed {
 public:
  explicit Installed(std::shared_ptr<Interface> fallback)
      : fallback_(std::move(fallback)), current_(fallback_) {}

  std::shared_ptr<Interface> Get() const {
    std::lock_guard lock(mutex_);
    return current_;
  }

  // Installs `next` (nullptr: the default) and returns the implementation it replaces.
  std::shared_ptr<Interface> Set(std::shared_ptr<Interface> next) {
    std::lock_guard lock(mutex_);
    auto previous = std::move(current_);
    current_ = next ? std::move(next) : fallback_;
    return previous;
  }

 private:
  mutable std::mutex mutex_;
  std::shared_ptr<Interface> fallback_;
  std::shared_ptr<Interface> current_;
};

// Installs an implementation for the lifetime of the object and restores the previous one afterwards.
// Works for every service that declares an `Install(std::shared_ptr<Interface>)` overload.
template <class Interface>
class InstallScope {
 public:
  explicit InstallScope(std::shared_ptr<Interface> implementation)
      : previous_(Install(std::move(implementation))) {}
  ~InstallScope() { Install(std::move(previous_)); }
  InstallScope(const InstallScope&) = delete;
  InstallScope& operator=(const InstallScope&) = delete;

 private:
  std::shared_ptr<Interface> previous_;
};

}  // namespace quorbex::platform
