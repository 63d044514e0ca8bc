// OfficeProcess: one private office instance as a process group, with a private user profile and a
// watchdog.
//
// Start() creates a fresh profile folder ($TMPDIR/quorbex-office-<our pid>-<n>-XXXXXX), then forks
// the office program in a session (and so a process group) of its own, so that its helper processes
// (the launcher and the office binary it starts) end together with it. A second fork is the watchdog:
// a tiny process that does nothing but wait on a pipe from us. It ends the office's process group
//   - when this process dies in any way (the pipe's write end closes: EOF),
//   - when a call we announced with BeginCall does not end (EndCall) within its time limit.
// Stop() (and the destructor) kills the group, reaps the processes and removes the profile folder.
//
// The watchdog only uses calls that are safe after fork() in a threaded program (poll, read, kill,
// _exit).
#pragma once

#include <sys/types.h>

#include <chrono>
#include <string>
#include <vector>

namespace quorbex::platform {

class OfficeProcess {
 public:
  // Starts `program` with `arguments`, in which "{profile}" is replaced by the profile folder's
  // file URL. Throws std::runtime_error when the profile or the processes cannot be made.
  OfficeProcess(const std::string& program, const std::vector<std::string>& arguments);
  ~OfficeProcess();
  OfficeProcess(const OfficeProcess&) = delete;
  OfficeProcess& operator=(const OfficeProcess&) = delete;

  // The process id of the office program (also its process group id).
  pid_t Pid() const { return pid_; }
  const std::string& ProfileFolder() const { return profile_; }

  // Whether the office program is still running; when it has ended, `exit_text` says how.
  bool Alive(std::string* exit_text = nullptr);
  // Waits up to `limit` for the office program to end by itself; true when it has.
  bool WaitForExit(std::chrono::milliseconds limit);

  // Announces a call into the office that must end within `limit`; the watchdog kills the office's
  // process group when EndCall does not come in time. Calls do not nest.
  void BeginCall(std::chrono::milliseconds limit);
  void EndCall();

  // Kills the process group, reaps it and the watchdog, removes the profile folder. Idempotent.
  void Stop();

 private:
  void Tell(int32_t limit_ms);

  pid_t pid_ = -1;
  pid_t watchdog_ = -1;
  int watchdog_pipe_ = -1;  // write end; the watchdog holds the read end
  bool reaped_ = false;
  int status_ = 0;
  std::string profile_;
};

// Removes a folder with everything in it; false when something could not be removed.
bool RemoveFolderTree(const std::string& path);

}  // namespace quorbex::platform
