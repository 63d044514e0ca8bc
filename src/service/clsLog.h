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
// written at all, and a log that cannot be written (a missing or read-only folder) fails silently:
// logging never disturbs the work it records.
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
  // Appends several ACTION elements in one write (the file is opened and closed once), with the same
  // action time; as WriteLogEntry otherwise. Used for the entries of one save, written after its commit.
  void WriteLogEntries(const std::vector<Entry>& entries);

  // The full path of the file of the current (or last) session; "" before the first session.
  const std::string& LogFileName() const { return file_name_; }

 private:
  std::string session_id_;
  std::string file_name_;
  bool closed_ = false;
};

}  // namespace quorbex::internal
