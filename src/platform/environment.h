// The process environment: variables, the computer and user names, the temporary folder and the
// folder of the running program.
//
// Code ported from the desktop world asks for variables such as "Computername", "Username" and "Temp"
// that a Linux shell does not set. Environ() answers those from the host name, the login name and the
// temporary folder when the variable itself is unset, so such code keeps working unchanged.
#pragma once

#include <memory>
#include <optional>
#include <string>

#include "platform/installable.h"

namespace quorbex::platform {

class Environment {
 public:
  virtual ~Environment() = default;
  // The variable's value, or nullopt when it is not set (a variable set to "" is set). Case-sensitive.
  virtual std::optional<std::string> Variable(const std::string& name) = 0;
  // The host name; "" when it cannot be read.
  virtual std::string HostName() = 0;
  // The name of the user the process runs as (from the password database); "" when unknown.
  virtual std::string LoginName() = 0;
  // The full path of the running executable; "" when it cannot be read.
  virtual std::string ExecutablePath() = 0;
};

// The Linux default: getenv, gethostname, getpwuid_r, readlink("/proc/self/exe").
std::shared_ptr<Environment> SystemEnvironment();

// Installs `environment` process-wide (nullptr: the default) and returns the previous one.
std::shared_ptr<Environment> Install(std::shared_ptr<Environment> environment);
using EnvironmentScope = InstallScope<Environment>;

// The value of the variable `name`, "" when unset. When unset, "Computername" (also "computername",
// "COMPUTERNAME") gives ComputerName(), "Username" ("username", "USERNAME") gives UserName(), and
// "Temp" ("temp", "TEMP", "TMP") gives TempFolder().
std::string Environ(const std::string& name);
// The host name.
std::string ComputerName();
// $USER, else the login name of the process's user.
std::string UserName();
// $TMPDIR when set and not empty, else "/tmp".
std::string TempFolder();
// The folder that holds the running executable, without a trailing "/"; "" when unknown.
std::string ExecutableFolder();

}  // namespace quorbex::platform
