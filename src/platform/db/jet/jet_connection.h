// One Jet/ACE file opened with libmdb, and the guarded run that reads it.
//
// libmdb trusts the page structure of the file it reads: a damaged file can make it crash or loop
// forever. So nothing of libmdb runs in the caller's process. ReadGuarded forks a child that opens the
// file and does the whole reading there, reporting back over a pipe; the parent waits with a stall
// timeout (the child reports progress as it goes), kills a child that stops reporting and turns a
// crash, a hang or a libmdb failure into an EngineError naming the file. Only libmdb, SQLite and the
// allocator run in the child, which ends with _exit (no atexit handlers, no flushing of the parent's
// streams).
#pragma once

#include <glib.h>  // before mdbtools.h: that header includes glib inside its extern "C" block

#include <mdbtools.h>

#include <functional>
#include <string>
#include <string_view>
#include <vector>

namespace quorbex::db::internal::jet {

// An open libmdb handle with its catalogue read (TableReader sets the bind size per table).
class MdbFile {
 public:
  // Opens `path` read-only; raises NotADatabase naming the file when libmdb cannot read its header or
  // catalogue.
  explicit MdbFile(const std::string& path);
  ~MdbFile();
  MdbFile(const MdbFile&) = delete;
  MdbFile& operator=(const MdbFile&) = delete;

  MdbHandle* Handle() const { return mdb_; }
  const std::string& Path() const { return path_; }

 private:
  MdbHandle* mdb_ = nullptr;
  std::string path_;
};

// The child's side of the pipe: what the reading reports to the parent.
class Channel {
 public:
  explicit Channel(int fd) : fd_(fd) {}
  // A sign of life; the parent's stall timeout starts again.
  void Progress();
  // A record of data for the parent (`tag` says what it is).
  void Send(char tag, std::string_view payload);

 private:
  int fd_;
};

// What the parent got: the records the child sent, in order.
struct Record {
  char tag;
  std::string payload;
};

// Runs `work` in a child process and returns the records it sent. A `work` that raises an EngineError
// makes this raise the same kind and text. A child that crashes, or sends nothing for the stall
// timeout, raises NotADatabase "The file '<path>' is damaged, encrypted or not a readable Jet/ACE
// database (<what happened>)."
std::vector<Record> ReadGuarded(const std::string& path, const std::function<void(Channel&)>& work);

// How long the parent waits for a sign of life from the child (milliseconds; 20000 by default).
// Tests shorten it.
void SetStallTimeout(int milliseconds);

// The refusal of a damaged file, naming it and what went wrong.
[[noreturn]] void RaiseDamaged(const std::string& path, const std::string& what);

}  // namespace quorbex::db::internal::jet
