// DBCompacter: compacts and repairs a closed database file in place.
//
// CompactAndRepair checks the file, has the engine write a compacted copy beside it, keeps the original
// under a new name (RenamedOriginalDatabaseName: "<name>_<date and time>.mdb", never an existing file)
// and puts the copy under the original name. Only paths ending in ".mdb" are accepted (the databases
// the library creates are SQLite files whatever their extension, so existing path names keep working).
//
// "In use": a lock file "<name>.ldb" that cannot be deleted, or any open connection to the file, of
// this process or another, stops the run before anything is written; the file is never compacted under
// someone's feet. Close every Database and DataLayer binding on the file first.
//
// Crash safety: the original is never written to. A kill at any moment leaves a complete database under
// the original name, the original or the compacted one; at worst a half-written compacted copy or a
// second name of the original is left beside it.
//
// Failures raise nothing: the result is False and ErrorStatus lists the reasons, numbered "1) ...",
// "2) ..." across the runs of the object. Only a failed final rename also shows a message, because the
// compacted copy then is not where it should be.
//
// Thread safety: none; use an object on one thread.
#pragma once

#include <cstdint>
#include <string>

#include "quorbex/variant.h"

namespace quorbex {

class DBCompacter : public Object {
 public:
  // True when the compacted database stands under strDatabaseFullPath.
  bool CompactAndRepair(const std::string& strDatabaseFullPath);

  // The numbered messages of this object's runs, lines joined by CR LF.
  const std::string& ErrorStatus() const { return error_status_; }
  // Appends `text` as the next numbered line.
  void ErrorStatus(const std::string& text);

  // Where the last successful run kept the original file.
  const std::string& RenamedOriginalDatabaseName() const { return renamed_original_; }

 private:
  std::string error_status_;
  int32_t message_count_ = 0;
  std::string renamed_original_;
  std::string phase_;
};

}  // namespace quorbex
