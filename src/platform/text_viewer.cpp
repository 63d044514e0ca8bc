#include "platform/text_viewer.h"

#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <exception>
#include <vector>

#include "platform/environment.h"

extern char** environ;

namespace quorbex::platform {

namespace {

// The first blank-separated word of a command.
std::string ProgramOf(const std::string& command) {
  const size_t start = command.find_first_not_of(" \t");
  if (start == std::string::npos) return "";
  const size_t end = command.find_first_of(" \t", start);
  return command.substr(start, end == std::string::npos ? std::string::npos : end - start);
}

// True when `program` names an executable: as a path when it holds a "/", else through $PATH.
bool IsRunnable(const std::string& program) {
  if (program.empty() || program.find('\0') != std::string::npos) return false;
  if (program.find('/') != std::string::npos) return access(program.c_str(), X_OK) == 0;
  std::string path = Environ("PATH");
  if (path.empty()) path = "/usr/local/bin:/usr/bin:/bin";
  size_t start = 0;
  while (start <= path.size()) {
    size_t end = path.find(':', start);
    if (end == std::string::npos) end = path.size();
    std::string folder = path.substr(start, end - start);
    if (folder.empty()) folder = ".";
    if (access((folder + "/" + program).c_str(), X_OK) == 0) return true;
    start = end + 1;
  }
  return false;
}

class SystemViewer final : public TextViewer {
 public:
  bool Open(const std::string& path) override {
    if (path.find('\0') != std::string::npos) return false;
    std::string command;
    for (const char* name : {"VISUAL", "EDITOR"}) {
      const std::string value = Environ(name);
      if (IsRunnable(ProgramOf(value))) {
        command = value;
        break;
      }
    }
    if (command.empty()) {
      if (!IsRunnable("xdg-open")) return false;
      command = "xdg-open";
    }
    // The shell only starts the viewer in the background and exits, so waiting for the shell is
    // immediate and the viewer, orphaned, is reaped by the system. "$0" stays unquoted so that a
    // command with arguments is split into words (globbing off); neither it nor the path is parsed as
    // shell syntax.
    std::string sh = "sh", flag = "-c", script = "set -f; $0 \"$1\" </dev/null >/dev/null 2>&1 &", file = path;
    std::vector<char*> argv = {sh.data(), flag.data(), script.data(), command.data(), file.data(), nullptr};
    pid_t pid = 0;
    if (posix_spawn(&pid, "/bin/sh", nullptr, nullptr, argv.data(), environ) != 0) return false;
    int status = 0;
    while (waitpid(pid, &status, 0) < 0) {
      if (errno != EINTR) return false;
    }
    return WIFEXITED(status) && WEXITSTATUS(status) == 0;
  }
};

Installed<TextViewer>& Slot() {
  static Installed<TextViewer> slot(SystemTextViewer());
  return slot;
}

}  // namespace

std::shared_ptr<TextViewer> SystemTextViewer() { return std::make_shared<SystemViewer>(); }

std::shared_ptr<TextViewer> Install(std::shared_ptr<TextViewer> viewer) { return Slot().Set(std::move(viewer)); }

bool ShowTextFile(const std::string& path) {
  try {
    return Slot().Get()->Open(path);
  } catch (const std::exception&) {
    return false;
  }
}

}  // namespace quorbex::platform
