#include "platform/environment.h"

#include <pwd.h>
#include <unistd.h>

#include <climits>
#include <cstdlib>
#include <utility>
#include <vector>

namespace quorbex::platform {

namespace {

class SystemEnv final : public Environment {
 public:
  std::optional<std::string> Variable(const std::string& name) override {
    // getenv with an embedded NUL would look up a different, shorter name.
    if (name.find('\0') != std::string::npos) return std::nullopt;
    const char* value = std::getenv(name.c_str());
    if (value == nullptr) return std::nullopt;
    return std::string(value);
  }

  std::string HostName() override {
    char buffer[HOST_NAME_MAX + 1] = {};
    if (gethostname(buffer, sizeof buffer - 1) != 0) return "";
    return buffer;
  }

  std::string LoginName() override {
    long size_hint = sysconf(_SC_GETPW_R_SIZE_MAX);
    std::vector<char> buffer(size_hint > 0 ? static_cast<size_t>(size_hint) : 16384);
    passwd entry{};
    passwd* found = nullptr;
    if (getpwuid_r(geteuid(), &entry, buffer.data(), buffer.size(), &found) == 0 && found != nullptr &&
        found->pw_name != nullptr) {
      return found->pw_name;
    }
    // No password entry (a container with an arbitrary uid): the session's login name, if any.
    char login[LOGIN_NAME_MAX + 1] = {};
    if (getlogin_r(login, sizeof login - 1) == 0) return login;
    return "";
  }

  std::string ExecutablePath() override {
    std::vector<char> buffer(PATH_MAX);
    for (;;) {
      ssize_t length = readlink("/proc/self/exe", buffer.data(), buffer.size());
      if (length < 0) return "";
      if (static_cast<size_t>(length) < buffer.size()) return std::string(buffer.data(), static_cast<size_t>(length));
      buffer.resize(buffer.size() * 2);
    }
  }
};

Installed<Environment>& Slot() {
  static Installed<Environment> slot(SystemEnvironment());
  return slot;
}

bool OneOf(const std::string& name, std::initializer_list<const char*> spellings) {
  for (const char* s : spellings) {
    if (name == s) return true;
  }
  return false;
}

}  // namespace

std::shared_ptr<Environment> SystemEnvironment() {
  static const auto environment = std::make_shared<SystemEnv>();
  return environment;
}

std::shared_ptr<Environment> Install(std::shared_ptr<Environment> environment) {
  return Slot().Set(std::move(environment));
}

std::string Environ(const std::string& name) {
  if (auto value = Slot().Get()->Variable(name)) return *value;
  if (OneOf(name, {"Computername", "computername", "COMPUTERNAME"})) return ComputerName();
  if (OneOf(name, {"Username", "username", "USERNAME"})) return UserName();
  if (OneOf(name, {"Temp", "temp", "TEMP", "TMP"})) return TempFolder();
  return "";
}

std::string ComputerName() { return Slot().Get()->HostName(); }

std::string UserName() {
  auto environment = Slot().Get();
  if (auto user = environment->Variable("USER"); user && !user->empty()) return *user;
  return environment->LoginName();
}

std::string TempFolder() {
  if (auto tmpdir = Slot().Get()->Variable("TMPDIR"); tmpdir && !tmpdir->empty()) return *tmpdir;
  return "/tmp";
}

std::string ExecutableFolder() {
  std::string path = Slot().Get()->ExecutablePath();
  auto slash = path.rfind('/');
  if (slash == std::string::npos) return "";
  if (slash == 0) return "/";
  return path.substr(0, slash);
}

}  // namespace quorbex::platform
