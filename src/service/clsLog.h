// clsLog: the session log, one XML file per session of work (private to the library).
//
// A DataLayer owns one clsLog. The first WriteLogEntry (or an explicit OpenSession) creates the file
// "<session id>_<computer>_<user>_<date and time digits>.xml" in the thread's log folder and writes its
// head: who, where, which database. Each WriteLogEntry appends one ACTION element; CloseSession (or the
// destructor) appends the errors collected on the thread and ends the document.
//
// The file is written in Windows-1252, as its declaration says (characters the code page lacks become
// "?"), with CR LF line ends, and closed after every write so that a crash leaves everything written
// so far on disk. Inserted texts are not escaped: a value with "<" or "&" makes the file ill-formed,
// which readers of these logs accept. While the thread's logging-disabled switch is on nothing is
// written at all, and a log that cannot be written (a missing or read-only folder) fails silently for
// the caller: logging never disturbs the work it records. Writing() and LastError() tell whether it is
// being written.
//
// When the thread's log folder is empty at OpenSession it is set, for the whole thread, to the folder
// of the running executable (/proc/self/exe): the nearest thing on Linux to "the folder the library was
// loaded from", and one the user can find.
//
// Thread safety: a clsLog belongs to the thread that uses it, like the state it reads.
#pragma once

#include <string>
#include <vector>

#include "quorbex/byref.h"
#include "quorbex/variant.h"

namespace quorbex::internal {

class clsLog {
 public:
  clsLog() = default;
  // Closes a session that is still open.
  ~clsLog();
  clsLog(const clsLog&) = delete;
  clsLog& operator=(const clsLog&) = delete;

  // Starts a session: a new session ID, a new file, the head. A session still open is closed first.
  // Does nothing while logging is disabled. Always returns Empty.
  Variant OpenSession();

  // Ends the session: "</LOGDATA>", the ERRORINFO element when the thread's collected error text is
  // not empty, "</QuorbexDataLayerLog>". Then the session ID is cleared. Does nothing when no session
  // is open, when it was closed already or while logging is disabled. When the file cannot be written
  // the session stays open, so that a later call (the destructor's) can try again. Always Empty.
  Variant CloseSession();

  // The session ID (32 hexadecimal digits) while a session is open, else "".
  std::string SessionID() const { return session_id_; }

  // Appends one ACTION element, opening a session first when none is open. An empty `actionType`
  // becomes "UNKNOWN", which the caller sees. `deletedRecordInfo` brings its own line breaks.
  // Does nothing while logging is disabled. Always returns Empty.
  Variant WriteLogEntry(ByRef<std::string> actionType, const std::string& query,
                        const std::string& deletedRecordInfo, const std::string& fieldName,
                        const std::string& oldValue, const std::string& newValue);

  // One ACTION element's texts.
  struct Entry {
    std::string action_type, query, deleted_record_info, field_name, old_value, new_value;
  };
  // Appends several ACTION elements, whole ones in each write, with the same action time; as
  // WriteLogEntry otherwise. With `flush` the call returns once they are on the disk. A save writes the
  // entries of its records so before it commits: after a crash at any moment every committed change has
  // its entry, and the file reads up to its last complete entry.
  void WriteLogEntries(const std::vector<Entry>& entries, bool flush = false);
  // Whether the session log is being written: logging is on and the last write to the file succeeded.
  bool Writing() const;
  // Why the log is not being written ("" while it is, or before anything was tried).
  std::string LastError() const;

  // The full path of the file of the current (or last) session; "" before the first session.
  const std::string& LogFileName() const { return file_name_; }

 private:
  std::string session_id_;
  std::string file_name_;
  bool closed_ = false;
  std::string last_error_;  // the last failed write's text; "" after a write that succeeded
  void Wrote(bool ok);
};

}  // namespace quorbex::internal
