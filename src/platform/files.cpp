#include "platform/files.h"

#include <dirent.h>
#include <fcntl.h>
#include <stdio.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <string>
#include <utility>

namespace quorbex::platform {

namespace {

bool Usable(const std::string& path) { return !path.empty() && path.find('\0') == std::string::npos; }

bool WriteAll(int fd, std::string_view bytes) {
  while (!bytes.empty()) {
    ssize_t written = ::write(fd, bytes.data(), bytes.size());
    if (written < 0) {
      if (errno == EINTR) continue;
      return false;
    }
    bytes.remove_prefix(static_cast<size_t>(written));
  }
  return true;
}

bool WriteWithFlags(const std::string& path, std::string_view bytes, int flags) {
  if (!Usable(path)) return false;
  int fd = ::open(path.c_str(), flags | O_WRONLY | O_CREAT | O_CLOEXEC, 0666);
  if (fd < 0) return false;
  bool ok = WriteAll(fd, bytes);
  // close() reports delayed write errors (NFS, full disks); a lost write must not look like success.
  if (::close(fd) != 0) ok = false;
  return ok;
}

// Creates a new, empty file beside `path` under a name no one else uses and returns its descriptor
// (-1 on failure); `temporary` receives the name.
int CreateBeside(const std::string& path, std::string& temporary) {
  static std::atomic<unsigned> counter{0};
  for (int attempt = 0; attempt < 100; ++attempt) {
    temporary = path + ".tmp-" + std::to_string(::getpid()) + "-" + std::to_string(counter.fetch_add(1));
    int fd = ::open(temporary.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
    if (fd >= 0 || errno != EEXIST) return fd;
  }
  return -1;
}

// The folder a path lies in, for flushing a rename or a new name to disk.
std::string FolderOf(const std::string& path) {
  const size_t slash = path.rfind('/');
  if (slash == std::string::npos) return ".";
  return slash == 0 ? "/" : path.substr(0, slash);
}

// A rename or link is durable only once its folder is flushed. Some file systems cannot flush a
// folder (EINVAL); they give no stronger promise, so that counts as done.
bool FlushFolderOf(const std::string& path) {
  int fd = ::open(FolderOf(path).c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (fd < 0) return false;
  bool ok = ::fsync(fd) == 0 || errno == EINVAL;
  if (::close(fd) != 0) ok = false;
  return ok;
}

// Renames without ever replacing an existing `to`.
bool MoveNoReplace(const std::string& from, const std::string& to) {
  if (::renameat2(AT_FDCWD, from.c_str(), AT_FDCWD, to.c_str(), RENAME_NOREPLACE) == 0) return true;
  if (errno != EINVAL && errno != ENOSYS) return false;
  // The file system cannot refuse to replace by itself; check first (a narrow race, accepted).
  struct stat info {};
  if (::lstat(to.c_str(), &info) == 0) return false;
  return ::rename(from.c_str(), to.c_str()) == 0;
}

// Writes the whole file or nothing: the bytes go to a new file beside the target, are flushed to disk,
// and the new file is renamed over the target, so a crash leaves either the old file or the new one,
// never a truncated one. The target keeps its permissions; a new file gets the usual ones (0666 less
// the umask).
bool WriteWhole(const std::string& path, std::string_view bytes) {
  if (!Usable(path)) return false;
  struct stat target {};
  const bool exists = ::stat(path.c_str(), &target) == 0;
  if (exists && !S_ISREG(target.st_mode)) return false;
  std::string temporary;
  int fd = CreateBeside(path, temporary);
  if (fd < 0) return false;
  bool ok = WriteAll(fd, bytes);
  if (ok && exists) ok = ::fchmod(fd, target.st_mode & 07777) == 0;
  if (ok) ok = ::fdatasync(fd) == 0;
  if (::close(fd) != 0) ok = false;
  if (ok) ok = ::rename(temporary.c_str(), path.c_str()) == 0;
  if (!ok) ::unlink(temporary.c_str());
  return ok;
}

// Copies `from` (mode `mode`) to a new file `to` through a flushed temporary file beside it.
bool CopyBytes(const std::string& from, const std::string& to, mode_t mode) {
  int in = ::open(from.c_str(), O_RDONLY | O_CLOEXEC);
  if (in < 0) return false;
  std::string temporary;
  int out = CreateBeside(to, temporary);
  if (out < 0) {
    ::close(in);
    return false;
  }
  bool ok = true;
  char buffer[1 << 16];
  for (;;) {
    ssize_t got = ::read(in, buffer, sizeof buffer);
    if (got < 0 && errno == EINTR) continue;
    if (got <= 0) {
      ok = got == 0;
      break;
    }
    if (!WriteAll(out, std::string_view(buffer, static_cast<size_t>(got)))) {
      ok = false;
      break;
    }
  }
  ::close(in);
  if (ok) ok = ::fchmod(out, mode & 07777) == 0;
  if (ok) ok = ::fdatasync(out) == 0;
  if (::close(out) != 0) ok = false;
  if (ok) ok = MoveNoReplace(temporary, to);
  if (!ok) ::unlink(temporary.c_str());
  return ok;
}

// True when a process this one may inspect holds a descriptor on the file (device, inode).
bool OpenInSomeProcess(dev_t device, ino_t inode) {
  DIR* processes = ::opendir("/proc");
  if (!processes) return false;
  bool found = false;
  while (!found) {
    const dirent* process = ::readdir(processes);
    if (!process) break;
    if (process->d_name[0] < '1' || process->d_name[0] > '9') continue;
    const std::string fd_folder = std::string("/proc/") + process->d_name + "/fd";
    DIR* descriptors = ::opendir(fd_folder.c_str());
    if (!descriptors) continue;  // gone meanwhile, or not ours to look at
    while (const dirent* descriptor = ::readdir(descriptors)) {
      if (descriptor->d_name[0] == '.') continue;
      struct stat info {};
      if (::stat((fd_folder + "/" + descriptor->d_name).c_str(), &info) == 0 && info.st_dev == device &&
          info.st_ino == inode) {
        found = true;
        break;
      }
    }
    ::closedir(descriptors);
  }
  ::closedir(processes);
  return found;
}

class PosixFiles final : public FileSystem {
 public:
  bool FileExists(const std::string& path) override {
    struct stat info {};
    return Usable(path) && ::stat(path.c_str(), &info) == 0 && !S_ISDIR(info.st_mode);
  }

  bool FolderExists(const std::string& path) override {
    struct stat info {};
    return Usable(path) && ::stat(path.c_str(), &info) == 0 && S_ISDIR(info.st_mode);
  }

  bool DeleteFile(const std::string& path) override { return Usable(path) && ::unlink(path.c_str()) == 0; }

  bool RenameFile(const std::string& from, const std::string& to) override {
    return Usable(from) && Usable(to) && MoveNoReplace(from, to);
  }

  bool WriteFile(const std::string& path, std::string_view bytes) override {
    return WriteWhole(path, bytes);
  }

  bool AppendFile(const std::string& path, std::string_view bytes) override {
    return WriteWithFlags(path, bytes, O_APPEND);
  }

  bool FlushFile(const std::string& path) override {
    if (!Usable(path)) return false;
    int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) return false;
    bool ok = ::fdatasync(fd) == 0;
    if (::close(fd) != 0) ok = false;
    return ok;
  }

  std::optional<std::string> ReadFile(const std::string& path) override {
    if (!Usable(path)) return std::nullopt;
    int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) return std::nullopt;
    std::string content;
    // A regular file is read straight into a string of its size; whatever it gained meanwhile is
    // appended below, and a file that shrank is cut to what was read.
    struct stat info {};
    if (::fstat(fd, &info) == 0 && S_ISREG(info.st_mode) && info.st_size > 0) {
      content.resize(static_cast<size_t>(info.st_size));
      size_t filled = 0;
      while (filled < content.size()) {
        ssize_t got = ::read(fd, content.data() + filled, content.size() - filled);
        if (got < 0 && errno == EINTR) continue;
        if (got < 0) {
          ::close(fd);
          return std::nullopt;
        }
        if (got == 0) break;
        filled += static_cast<size_t>(got);
      }
      content.resize(filled);
    }
    char buffer[65536];
    for (;;) {
      ssize_t got = ::read(fd, buffer, sizeof buffer);
      if (got < 0) {
        if (errno == EINTR) continue;
        ::close(fd);
        return std::nullopt;
      }
      if (got == 0) break;
      content.append(buffer, static_cast<size_t>(got));
    }
    ::close(fd);
    return content;
  }

  bool KeepCopy(const std::string& from, const std::string& to) override {
    if (!Usable(from) || !Usable(to)) return false;
    struct stat info {};
    if (::stat(from.c_str(), &info) != 0 || !S_ISREG(info.st_mode)) return false;
    if (::link(from.c_str(), to.c_str()) != 0) {
      if (errno == EEXIST) return false;
      // A file system without hard links (FAT and the like): a real copy does the same job.
      if (!CopyBytes(from, to, info.st_mode)) return false;
    }
    if (FlushFolderOf(to)) return true;
    ::unlink(to.c_str());
    return false;
  }

  bool ReplaceFile(const std::string& from, const std::string& to) override {
    if (!Usable(from) || !Usable(to)) return false;
    if (::rename(from.c_str(), to.c_str()) != 0) return false;
    // The rename has happened and cannot be taken back; an unflushable folder only weakens how
    // durable it is, so it does not turn the result into a failure.
    FlushFolderOf(to);
    return true;
  }

  bool FileInUse(const std::string& path) override {
    struct stat info {};
    if (!Usable(path) || ::stat(path.c_str(), &info) != 0) return false;
    // A write lease is granted only while no other descriptor on the file is open anywhere, this
    // process included; taken and given back at once, it is an exact test that blocks no one. An open
    // that would break someone else's lease fails with EWOULDBLOCK thanks to O_NONBLOCK: in use too.
    int fd = ::open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    if (fd < 0) {
      if (errno == EWOULDBLOCK) return true;
    } else {
      const int taken = ::fcntl(fd, F_SETLEASE, F_WRLCK);
      const int error = errno;
      if (taken == 0) ::fcntl(fd, F_SETLEASE, F_UNLCK);
      ::close(fd);
      if (taken == 0) return false;
      if (error == EAGAIN || error == EBUSY) return true;
    }
    return OpenInSomeProcess(info.st_dev, info.st_ino);
  }
};

Installed<FileSystem>& Slot() {
  static Installed<FileSystem> slot(PosixFileSystem());
  return slot;
}

// Any exception from an installed implementation counts as a failed operation.
template <class F>
auto Guarded(F&& f, decltype(f()) failure) noexcept -> decltype(f()) {
  try {
    return f();
  } catch (...) {
    return failure;
  }
}

}  // namespace

std::shared_ptr<FileSystem> PosixFileSystem() {
  static const auto files = std::make_shared<PosixFiles>();
  return files;
}

std::shared_ptr<FileSystem> Install(std::shared_ptr<FileSystem> files) { return Slot().Set(std::move(files)); }

bool FileExists(const std::string& path) {
  return Guarded([&] { return Slot().Get()->FileExists(path); }, false);
}
bool FolderExists(const std::string& path) {
  return Guarded([&] { return Slot().Get()->FolderExists(path); }, false);
}
bool DeleteFile(const std::string& path) {
  return Guarded([&] { return Slot().Get()->DeleteFile(path); }, false);
}
bool RenameFile(const std::string& from, const std::string& to) {
  return Guarded([&] { return Slot().Get()->RenameFile(from, to); }, false);
}
bool WriteFile(const std::string& path, std::string_view bytes) {
  return Guarded([&] { return Slot().Get()->WriteFile(path, bytes); }, false);
}
bool AppendFile(const std::string& path, std::string_view bytes) {
  return Guarded([&] { return Slot().Get()->AppendFile(path, bytes); }, false);
}
bool FlushFile(const std::string& path) {
  return Guarded([&] { return Slot().Get()->FlushFile(path); }, false);
}
std::optional<std::string> ReadFile(const std::string& path) {
  return Guarded([&] { return Slot().Get()->ReadFile(path); }, std::optional<std::string>{});
}
bool KeepCopy(const std::string& from, const std::string& to) {
  return Guarded([&] { return Slot().Get()->KeepCopy(from, to); }, false);
}
bool ReplaceFile(const std::string& from, const std::string& to) {
  return Guarded([&] { return Slot().Get()->ReplaceFile(from, to); }, false);
}
bool FileInUse(const std::string& path) {
  return Guarded([&] { return Slot().Get()->FileInUse(path); }, false);
}

}  // namespace quorbex::platform
