// Stand-ins for the platform services, for tests. Install one for a scope with the service's scope
// type, e.g.
//     auto boxes = std::make_shared<quorbex::test::FakeMessageBox>();
//     quorbex::platform::MessageBoxScope scope(boxes);
// Each fake is safe to call from several threads.
#pragma once

#include <chrono>
#include <cstdint>
#include <deque>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <tuple>
#include <vector>

#include "platform/clock.h"
#include "platform/environment.h"
#include "platform/guid.h"
#include "platform/message_box.h"
#include "platform/settings.h"

namespace quorbex::test {


// Records every prompt and answers with preset buttons, then with the style's default button.
class FakeMessageBox final : public platform::MessageBoxHandler {
 public:
  struct Prompt {
    std::string text;
    int32_t style = 0;
    std::string title;
  };

  int32_t Show(const std::string& text, int32_t style, const std::string& title) override;

  // Queues the answers for the next prompts, in order.
  void Answer(int32_t button);
  std::vector<Prompt> Prompts() const;
  size_t Count() const;

 private:
  mutable std::mutex mutex_;
  std::vector<Prompt> prompts_;
  std::deque<int32_t> answers_;
};

// Settings in memory, matched without regard to ASCII case like the file store. SetFailing(true) makes
// Save throw SettingsError.
class MemorySettingsStore final : public platform::SettingsStore {
 public:
  std::string Get(const std::string& application, const std::string& section, const std::string& key,
                  const std::string& default_value) override;
  void Save(const std::string& application, const std::string& section, const std::string& key,
            const std::string& value) override;
  void SetFailing(bool failing);
  size_t Count() const;

 private:
  using Key = std::tuple<std::string, std::string, std::string>;
  mutable std::mutex mutex_;
  std::map<Key, std::string> values_;
  bool failing_ = false;
};

// An environment with exactly the variables set here (none at first), a host, login name and
// executable path of the test's choosing.
class FakeEnvironment final : public platform::Environment {
 public:
  std::optional<std::string> Variable(const std::string& name) override;
  std::string HostName() override;
  std::string LoginName() override;
  std::string ExecutablePath() override;

  void Set(const std::string& name, const std::string& value);
  void Unset(const std::string& name);
  void SetHostName(std::string host);
  void SetLoginName(std::string login);
  void SetExecutablePath(std::string path);

 private:
  std::mutex mutex_;
  std::map<std::string, std::string> variables_;
  std::string host_ = "testhost";
  std::string login_ = "tester";
  std::string executable_ = "/opt/quorbex/bin/test";
};

// A clock that stands still until the test sets or advances it. Set moves only the wall clock, as a
// user setting the system time does; Advance moves both, except that a step back leaves the monotonic
// clock where it is.
class FakeClock final : public platform::Clock {
 public:
  explicit FakeClock(quorbex::Date start = {}) : now_(start) {}
  quorbex::Date Now() override;
  std::chrono::nanoseconds Elapsed() override;
  void Set(quorbex::Date now);
  void Advance(double seconds);

 private:
  std::mutex mutex_;
  quorbex::Date now_;
  std::chrono::nanoseconds elapsed_{0};
};

// Hands out queued GUIDs, then 00..01, 00..02, ...; with SetFailing(true) it fails like a system
// without a random source.
class FakeGuidSource final : public platform::GuidSource {
 public:
  std::optional<platform::Guid> Create() override;
  void Queue(const platform::Guid& guid);
  void SetFailing(bool failing);

 private:
  std::mutex mutex_;
  std::deque<platform::Guid> queued_;
  uint64_t counter_ = 0;
  bool failing_ = false;
};

}  // namespace quorbex::test
