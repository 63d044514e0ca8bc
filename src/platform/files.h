// Files: the few whole-file operations the library needs.
//
// Every operation is binary-safe (bytes go through untouched, NUL included), never throws, and
// reports failure as false / nullopt. A path containing a NUL byte names no file.
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "platform/installable.h"

namespace quorbex::platform {

class FileSystem {
 public:
  virtual ~FileSystem() = default;
  virtual bool FileExists(const std::string& path) = 0;
  virtual bool FolderExists(const std::string& path) = 0;
  virtual bool DeleteFile(const std::string& path) = 0;
  virtual bool RenameFile(const std::string& from, const std::string& to) = 0;
  virtual bool WriteFile(const std::string& path, std::string_view bytes) = 0;
  virtual bool AppendFile(const std::string& path, std::string_view bytes) = 0;
  virtual bool FlushFile(const std::string& path) = 0;
  virtual std::optional<std::string> ReadFile(const std::string& path) = 0;
  virtual bool KeepCopy(const std::string& from, const std::string& to) = 0;
  virtual bool ReplaceFile(const std::string& from, const std::string& to) = 0;
  virtual bool FileInUse(const std::string& path) = 0;
};

// The POSIX default. New files get mode 0666 less the process umask.
std::shared_ptr<FileSystem> PosixFileSystem();

// Installs `files` process-wide (nullptr: the default) and returns the previous one.
std::shared_ptr<FileSystem> Install(std::shared_ptr<FileSystem> files);
using FileSystemScope = InstallScope<FileSystem>;

// True when `path` names an existing file (anything but a folder; symbolic links are followed).
bool FileExists(const std::string& path);
// True when `path` names an existing folder.
bool FolderExists(const std::string& path);
// Removes the file; false when it does not exist or cannot be removed.
bool DeleteFile(const std::string& path);
// Moves `from` to `to`; false when `from` is missing, `to` already exists (nothing is overwritten) or
// the move fails.
bool RenameFile(const std::string& from, const std::string& to);
// Writes `bytes` as the whole file, replacing an existing one (which keeps its permissions): written
// beside it, flushed, and renamed over it, so the file is never seen half written. False on any
// failure (the folder missing or unwritable among them); the old file then stays as it was.
bool WriteFile(const std::string& path, std::string_view bytes);
// Appends `bytes`, creating the file when it is missing; false on any failure.
bool AppendFile(const std::string& path, std::string_view bytes);
// Waits until what was written to the file is on the disk; false when it cannot be.
bool FlushFile(const std::string& path);
// The whole content; nullopt when the file cannot be read.
std::optional<std::string> ReadFile(const std::string& path);

// Makes `to` a second complete copy of `from`, which is left untouched: a hard link where the file
// system has them (both names then name one file), else a byte copy written beside `to` and renamed
// into place. The new name is on disk when this returns. False when `to` exists or anything fails
// (nothing is then left under `to`).
bool KeepCopy(const std::string& from, const std::string& to);
// Moves `from` to `to` in one step, replacing an existing `to`: anyone opening `to` meanwhile finds the
// old file or the new one, never none. The move is on disk when this returns. False on any failure
// (both files then stay as they were).
bool ReplaceFile(const std::string& from, const std::string& to);
// True when some process (this one included) has the file open; false for a missing file. Where the
// kernel cannot tell (a file system without leases, a file of another user), the processes this one
// may inspect are searched instead.
bool FileInUse(const std::string& path);

}  // namespace quorbex::platform
