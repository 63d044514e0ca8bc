#include "platform/files.h"

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

// Writes the whole file or nothing: the bytes go to a new file beside the target, are flushed to disk,
// and the new file is renamed over the target, so a crash leaves either the old file or the new one,
// never a truncated one. The target keeps its permissions; a new file gets the usual ones (0666 less
// the umask).
bool WriteWhole(const std::string& path, std::string_view bytes) {
  if (!Usable(path)) return false;
  struct stat target {};
  const bool exists = ::stat(path.c_str(), &target) == 0;
  if (exists && !S_ISREG(target.st_mode)) return false;
  static std::atomic<unsigned> counter{0};
  std::string temporary;
  int fd = -1;
  for (int attempt = 0; attempt < 100 && fd < 0; ++attempt) {
    temporary = path + ".tmp-" + std::to_string(::getpid()) + "-" + std::to_string(counter.fetch_add(1));
    fd = ::open(temporary.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
    if (fd < 0 && errno != EEXIST) return false;
  }
  if (fd < 0) return false;
  bool ok = WriteAll(fd, bytes);
  if (ok && exists) ok = ::fchmod(fd, target.st_mode & 07777) == 0;
  if (ok) ok = ::fdatasync(fd) == 0;
  if (::close(fd) != 0) ok = false;
  if (ok) ok = ::rename(temporary.c_str(), path.c_str()) == 0;
  if (!ok) ::unlink(temporary.c_str());
  return ok;
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
    if (!Usable(from) || !Usable(to)) return false;
    if (::renameat2(AT_FDCWD, from.c_str(), AT_FDCWD, to.c_str(), RENAME_NOREPLACE) == 0) return true;
    if (errno != EINVAL && errno != ENOSYS) return false;
    // The file system cannot refuse to replace by itself; check first (a narrow race, accepted).
    struct stat info {};
    if (::lstat(to.c_str(), &info) == 0) return false;
    return ::rename(from.c_str(), to.c_str()) == 0;
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

}  // namespace quorbex::platform
