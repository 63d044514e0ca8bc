#include "schema/file_compaction.h"

#include "platform/files.h"
#include "quorbex/engine.h"
#include "service/modService.h"

namespace quorbex::internal {

std::string UniqueSibling(const std::string& path, const std::string& infix) {
  const size_t slash = path.rfind('/');
  size_t dot = path.rfind('.');
  if (dot == std::string::npos || (slash != std::string::npos && dot < slash)) dot = path.size();
  const std::string stem = path.substr(0, dot);
  const std::string extension = path.substr(dot);
  const std::string suffix = UniqueSuffix();
  std::string name = stem + infix + suffix + extension;
  for (int n = 2; platform::FileExists(name); ++n) name = stem + infix + suffix + "_" + std::to_string(n) + extension;
  return name;
}

bool FileCompaction::InUse() const { return platform::FileInUse(path_); }

void FileCompaction::WriteCompactedCopy() {
  copy_ = UniqueSibling(path_, "_compacting_");
  db::DBEngine::Default()->CompactDatabase(path_, copy_);
  // The engine writes the copy without waiting for the disk; it must be there before step 3 makes it
  // the database.
  if (!platform::FlushFile(copy_)) {
    DiscardCopy();
    throw db::EngineError(db::ErrorKind::General, "The compacted copy '" + copy_ + "' could not be written to disk.");
  }
}

bool FileCompaction::CopyExists() const { return !copy_.empty() && platform::FileExists(copy_); }

bool FileCompaction::KeepOriginal(const std::string& kept_name) { return platform::KeepCopy(path_, kept_name); }

bool FileCompaction::PutCopyInPlace() { return platform::ReplaceFile(copy_, path_); }

void FileCompaction::DiscardCopy() {
  if (!copy_.empty()) platform::DeleteFile(copy_);
}

}  // namespace quorbex::internal
