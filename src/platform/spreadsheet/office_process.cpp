#include "platform/spreadsheet/office_process.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <atomic>
#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <stdexcept>
#include <thread>

namespace quorbex::platform {

namespace {

constexpr int kExecFailed = 127;

std::atomic<int> profile_counter{0};

std::string TempFolder() {
  const char* tmp = std::getenv("TMPDIR");
  std::string folder = tmp && *tmp ? tmp : "/tmp";
  while (folder.size() > 1 && folder.back() == '/') folder.pop_back();
  return folder;
}

// A file URL for a local path: the characters a URL cannot hold as they are get percent-encoded.
std::string FileUrl(const std::string& path) {
  static const char* hex = "0123456789ABCDEF";
  std::string url = "file://";
  for (unsigned char c : path) {
    if (std::isalnum(c) || std::strchr("/-._~", c)) {
      url += static_cast<char>(c);
    } else {
      url += '%';
      url += hex[c >> 4];
      url += hex[c & 15];
    }
  }
  return url;
}

void CloseOtherFiles(int keep) {
  const long limit = sysconf(_SC_OPEN_MAX);
  for (int fd = 3; fd < (limit > 0 && limit < 65536 ? limit : 65536); ++fd) {
    if (fd != keep) close(fd);
  }
}

int64_t NowMs() {
  timespec ts{};
  clock_gettime(CLOCK_MONOTONIC, &ts);
  return int64_t(ts.tv_sec) * 1000 + ts.tv_nsec / 1000000;
}

// The watchdog's whole life (in the forked child): wait for announcements on `fd`; kill the group
// `group` when an announced call overruns or when the pipe reaches its end. At the end (our client has
// gone without stopping the office) it also removes the profile folder, by running `remove` (an argv
// made before the fork, as nothing else may allocate here).
[[noreturn]] void Watch(int fd, pid_t group, char* const* remove) {
  int64_t deadline = -1;
  for (;;) {
    pollfd p{fd, POLLIN, 0};
    const int wait_ms = deadline < 0 ? -1 : static_cast<int>(std::max<int64_t>(0, deadline - NowMs()));
    const int ready = poll(&p, 1, wait_ms);
    if (ready < 0) {
      if (errno == EINTR) continue;
      break;
    }
    if (ready == 0) {
      kill(-group, SIGKILL);
      deadline = -1;
      continue;
    }
    int32_t message = 0;
    const ssize_t got = read(fd, &message, sizeof message);
    if (got < 0 && errno == EINTR) continue;
    if (got != static_cast<ssize_t>(sizeof message)) break;  // our client has gone
    deadline = message > 0 ? NowMs() + message : -1;
  }
  kill(-group, SIGKILL);
  const timespec pause{0, 300 * 1000 * 1000};  // let the killed processes let go of their files
  nanosleep(&pause, nullptr);
  execv(remove[0], remove);
  _exit(0);
}

}  // namespace

bool RemoveFolderTree(const std::string& path) {
  std::error_code error;
  std::filesystem::remove_all(path, error);
  return !error;
}

OfficeProcess::OfficeProcess(const std::string& program, const std::vector<std::string>& arguments) {
  std::string pattern = TempFolder() + "/quorbex-office-" + std::to_string(getpid()) + "-" +
                        std::to_string(profile_counter++) + "-XXXXXX";
  if (!mkdtemp(pattern.data())) {
    throw std::runtime_error("cannot create a profile folder under " + TempFolder() + ": " + std::strerror(errno));
  }
  profile_ = pattern;

  // Everything the children need is prepared before fork: after it, only async-signal-safe calls.
  std::vector<std::string> args{program};
  for (std::string argument : arguments) {
    if (auto at = argument.find("{profile}"); at != std::string::npos) argument.replace(at, 9, FileUrl(profile_));
    args.push_back(std::move(argument));
  }
  std::vector<char*> argv;
  for (auto& argument : args) argv.push_back(argument.data());
  argv.push_back(nullptr);

  std::vector<std::string> remove_args{"/bin/rm", "-rf", "--", profile_};
  std::vector<char*> remove;
  for (auto& argument : remove_args) remove.push_back(argument.data());
  remove.push_back(nullptr);

  int fds[2];
  if (pipe2(fds, O_CLOEXEC) != 0) {
    RemoveFolderTree(profile_);
    throw std::runtime_error(std::string("cannot create a pipe: ") + std::strerror(errno));
  }
  const pid_t parent = getpid();
  pid_ = fork();
  if (pid_ < 0) {
    close(fds[0]);
    close(fds[1]);
    RemoveFolderTree(profile_);
    throw std::runtime_error(std::string("cannot start a process: ") + std::strerror(errno));
  }
  if (pid_ == 0) {
    setsid();
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    if (getppid() != parent) _exit(kExecFailed);
    sigset_t none;
    sigemptyset(&none);
    sigprocmask(SIG_SETMASK, &none, nullptr);
    signal(SIGPIPE, SIG_DFL);
    const int null = open("/dev/null", O_RDWR);
    if (null >= 0) {
      dup2(null, 0);
      dup2(null, 1);
      dup2(null, 2);
    }
    CloseOtherFiles(-1);
    execv(argv[0], argv.data());
    _exit(kExecFailed);
  }
  // The group exists once the child has called setsid; doing it here too closes the race.
  setpgid(pid_, pid_);

  watchdog_ = fork();
  if (watchdog_ == 0) {
    close(fds[1]);
    CloseOtherFiles(fds[0]);
    Watch(fds[0], pid_, remove.data());
  }
  close(fds[0]);
  watchdog_pipe_ = fds[1];
  if (watchdog_ < 0) {
    Stop();
    throw std::runtime_error(std::string("cannot start a process: ") + std::strerror(errno));
  }
}

OfficeProcess::~OfficeProcess() { Stop(); }

bool OfficeProcess::Alive(std::string* exit_text) {
  if (!reaped_ && pid_ > 0) {
    const pid_t done = waitpid(pid_, &status_, WNOHANG);
    if (done == pid_ || (done < 0 && errno == ECHILD)) reaped_ = true;
  }
  if (!reaped_) return true;
  if (exit_text) {
    if (WIFEXITED(status_) && WEXITSTATUS(status_) == kExecFailed) {
      *exit_text = "the program could not be run";
    } else if (WIFEXITED(status_)) {
      *exit_text = "it ended with exit code " + std::to_string(WEXITSTATUS(status_));
    } else if (WIFSIGNALED(status_)) {
      *exit_text = "it was ended by signal " + std::to_string(WTERMSIG(status_));
    } else {
      *exit_text = "it ended";
    }
  }
  return false;
}

bool OfficeProcess::WaitForExit(std::chrono::milliseconds limit) {
  const auto until = std::chrono::steady_clock::now() + limit;
  while (Alive()) {
    if (std::chrono::steady_clock::now() >= until) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
  }
  return true;
}

void OfficeProcess::Tell(int32_t limit_ms) {
  if (watchdog_pipe_ < 0) return;
  ssize_t written;
  do {
    written = write(watchdog_pipe_, &limit_ms, sizeof limit_ms);
  } while (written < 0 && errno == EINTR);
}

void OfficeProcess::BeginCall(std::chrono::milliseconds limit) {
  Tell(static_cast<int32_t>(std::max<int64_t>(1, limit.count())));
}

void OfficeProcess::EndCall() { Tell(0); }

void OfficeProcess::Stop() {
  if (pid_ > 0) {
    kill(-pid_, SIGKILL);
    if (!reaped_) waitpid(pid_, &status_, 0);
    reaped_ = true;
    pid_ = -1;
  }
  if (watchdog_ > 0) {
    kill(watchdog_, SIGKILL);
    waitpid(watchdog_, nullptr, 0);
    watchdog_ = -1;
  }
  if (watchdog_pipe_ >= 0) {
    close(watchdog_pipe_);
    watchdog_pipe_ = -1;
  }
  if (!profile_.empty()) {
    RemoveFolderTree(profile_);
    profile_.clear();
  }
}

}  // namespace quorbex::platform
