#include "platform_fakes.h"

#include <cmath>
#include <utility>

namespace quorbex::test {


namespace {
std::string Folded(std::string s) {
  for (char& c : s) {
    if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
  }
  return s;
}
}  // namespace

// ---- FakeMessageBox ------------------------------------------------------------------------------

int32_t FakeMessageBox::Show(const std::string& text, int32_t style, const std::string& title) {
  std::lock_guard lock(mutex_);
  prompts_.push_back({text, style, title});
  if (answers_.empty()) return platform::DefaultButton(style);
  int32_t answer = answers_.front();
  answers_.pop_front();
  return answer;
}

void FakeMessageBox::Answer(int32_t button) {
  std::lock_guard lock(mutex_);
  answers_.push_back(button);
}

std::vector<FakeMessageBox::Prompt> FakeMessageBox::Prompts() const {
  std::lock_guard lock(mutex_);
  return prompts_;
}

size_t FakeMessageBox::Count() const {
  std::lock_guard lock(mutex_);
  return prompts_.size();
}

// ---- MemorySettingsStore -------------------------------------------------------------------------

std::string MemorySettingsStore::Get(const std::string& application, const std::string& section,
                                     const std::string& key, const std::string& default_value) {
  std::lock_guard lock(mutex_);
  auto found = values_.find({Folded(application), Folded(section), Folded(key)});
  return found == values_.end() ? default_value : found->second;
}

void MemorySettingsStore::Save(const std::string& application, const std::string& section, const std::string& key,
                               const std::string& value) {
  std::lock_guard lock(mutex_);
  if (failing_) throw platform::SettingsError("Cannot write the settings file '(memory)': store is failing");
  values_[{Folded(application), Folded(section), Folded(key)}] = value;
}

void MemorySettingsStore::SetFailing(bool failing) {
  std::lock_guard lock(mutex_);
  failing_ = failing;
}

size_t MemorySettingsStore::Count() const {
  std::lock_guard lock(mutex_);
  return values_.size();
}

// ---- FakeEnvironment -----------------------------------------------------------------------------

std::optional<std::string> FakeEnvironment::Variable(const std::string& name) {
  std::lock_guard lock(mutex_);
  auto found = variables_.find(name);
  if (found == variables_.end()) return std::nullopt;
  return found->second;
}

std::string FakeEnvironment::HostName() {
  std::lock_guard lock(mutex_);
  return host_;
}

std::string FakeEnvironment::LoginName() {
  std::lock_guard lock(mutex_);
  return login_;
}

std::string FakeEnvironment::ExecutablePath() {
  std::lock_guard lock(mutex_);
  return executable_;
}

void FakeEnvironment::Set(const std::string& name, const std::string& value) {
  std::lock_guard lock(mutex_);
  variables_[name] = value;
}

void FakeEnvironment::Unset(const std::string& name) {
  std::lock_guard lock(mutex_);
  variables_.erase(name);
}

void FakeEnvironment::SetHostName(std::string host) {
  std::lock_guard lock(mutex_);
  host_ = std::move(host);
}

void FakeEnvironment::SetLoginName(std::string login) {
  std::lock_guard lock(mutex_);
  login_ = std::move(login);
}

void FakeEnvironment::SetExecutablePath(std::string path) {
  std::lock_guard lock(mutex_);
  executable_ = std::move(path);
}

// ---- FakeClock -----------------------------------------------------------------------------------

quorbex::Date FakeClock::Now() {
  std::lock_guard lock(mutex_);
  return now_;
}

std::chrono::nanoseconds FakeClock::Elapsed() {
  std::lock_guard lock(mutex_);
  return elapsed_;
}

void FakeClock::Set(quorbex::Date now) {
  std::lock_guard lock(mutex_);
  now_ = now;
}

void FakeClock::Advance(double seconds) {
  std::lock_guard lock(mutex_);
  // Kept on whole seconds, like the real clock, so that repeated steps do not drift.
  double total = std::round(now_.serial * 86400.0 + seconds);
  now_.serial = total / 86400.0;
  if (seconds > 0) elapsed_ += std::chrono::duration_cast<std::chrono::nanoseconds>(std::chrono::duration<double>(seconds));
}

// ---- FakeGuidSource ------------------------------------------------------------------------------

std::optional<platform::Guid> FakeGuidSource::Create() {
  std::lock_guard lock(mutex_);
  if (failing_) return std::nullopt;
  if (!queued_.empty()) {
    platform::Guid guid = queued_.front();
    queued_.pop_front();
    return guid;
  }
  platform::Guid guid{};
  uint64_t n = ++counter_;
  for (int i = 15; i >= 8; --i) {
    guid[static_cast<size_t>(i)] = static_cast<uint8_t>(n & 0xFF);
    n >>= 8;
  }
  return guid;
}

void FakeGuidSource::Queue(const platform::Guid& guid) {
  std::lock_guard lock(mutex_);
  queued_.push_back(guid);
}

void FakeGuidSource::SetFailing(bool failing) {
  std::lock_guard lock(mutex_);
  failing_ = failing;
}

}  // namespace quorbex::test
