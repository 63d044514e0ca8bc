// DBCompacter: compact and repair of a closed database file, in the phases CHECKS, COMPACT, RENAME.
#include "quorbex/DBCompacter.h"

#include <exception>

#include "platform/files.h"
#include "platform/message_box.h"
#include "quorbex/engine.h"
#include "schema/file_compaction.h"
#include "service/modService.h"
#include "value/failure.h"

namespace quorbex {

using namespace internal;

namespace {
constexpr std::string_view kExtension = ".mdb";
}

void DBCompacter::ErrorStatus(const std::string& text) {
  ++message_count_;
  const std::string line = std::to_string(message_count_) + ") " + text;
  error_status_ = message_count_ == 1 ? line : error_status_ + "\r\n" + line;
}

bool DBCompacter::CompactAndRepair(const std::string& strDatabaseFullPath) {
  const std::string& path = strDatabaseFullPath;
  const std::string in_use = path + " is in use. Compacting cannot proceed";
  phase_ = "CHECKS";
  try {
    if (path.size() < kExtension.size() || std::string_view(path).substr(path.size() - kExtension.size()) != kExtension) {
      ErrorStatus(path + " has no .mdb extention and is therefore not reckognized as database");
      return false;
    }
    // A lock file left by the classic engine: gone when no one holds it any more.
    const std::string lock_file = path.substr(0, path.size() - kExtension.size()) + ".ldb";
    if (platform::FileExists(lock_file)) platform::DeleteFile(lock_file);
    FileCompaction compaction(path);
    if (platform::FileExists(lock_file) || compaction.InUse()) {
      ErrorStatus(in_use);
      return false;
    }

    phase_ = "COMPACT";
    try {
      compaction.WriteCompactedCopy();
    } catch (const db::EngineError& e) {
      // A lock taken by another connection after the check above.
      ErrorStatus(e.Kind() == db::ErrorKind::Busy
                      ? in_use
                      : "Error when compacting database (DAO.Compactdatabase) '" + path + "': " + e.Description());
      return false;
    }

    phase_ = "RENAME";
    if (!compaction.CopyExists()) {
      ErrorStatus("Compacting did not create new database '" + compaction.CopyPath() +
                  "'. Compact therefore not successful");
      return false;
    }
    // Someone who opened the file meanwhile could have written to it after the copy was taken.
    if (compaction.InUse()) {
      compaction.DiscardCopy();
      ErrorStatus(in_use);
      return false;
    }
    const std::string kept = UniqueSibling(path, "_");
    if (!compaction.KeepOriginal(kept)) {
      ErrorStatus("Unable to rename Original database '" + path + "' in '" + kept + "'" + ". Aborting on this point.");
      return false;
    }
    renamed_original_ = kept;
    if (!compaction.PutCopyInPlace()) {
      const std::string text = "CompactDatabase has problems renaming the new compacted database '" +
                               compaction.CopyPath() + "' in '" + path +
                               "'. Therefore the database is now not available as expected. You need to rename '" +
                               compaction.CopyPath() + "' manually!";
      MessageRoutine(text, platform::vbCritical, "Problem when renaming database");
      ErrorStatus(text);
      return false;
    }
    return true;
  } catch (const std::exception& e) {
    ErrorStatus("General error in phase " + phase_ + ": " + FailureDescription(e));
    return false;
  }
}

}  // namespace quorbex
