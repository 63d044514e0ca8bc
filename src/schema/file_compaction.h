// Compacting a database file in place: the steps DBCompacter and clsTableManager::CompactDB share.
//
// The order of the steps is what makes a kill at any moment harmless: the file under the original name
// is, at every instant, either the untouched original or the complete compacted copy.
//   1. WriteCompactedCopy: the engine writes the copy under a new name beside the original (which it
//      only reads), and the copy is flushed to disk. A kill leaves a stray, partial copy; the original
//      is still in place.
//   2. KeepOriginal: the original gets a second name (a hard link, or a flushed byte copy where the file
//      system has no links). The original name is not touched, so a kill changes nothing there.
//   3. PutCopyInPlace: the copy is renamed over the original name. A rename is one step for anyone
//      opening the name: before it they find the original, after it the copy, which step 1 put on disk
//      before, so not even a power loss can leave a half-written file under the name.
// Classic compaction moved the original away before moving the copy in; between the two renames there
// was no database under the name at all. Here the original keeps its name until the copy replaces it.
#pragma once

#include <string>

namespace quorbex::internal {

class FileCompaction {
 public:
  explicit FileCompaction(std::string path) : path_(std::move(path)) {}

  // True when some connection, of any process, has the file open.
  bool InUse() const;
  // Step 1. Throws the engine's error (db::EngineError) when compacting fails; no copy is left then.
  void WriteCompactedCopy();
  // Whether step 1 left a copy, and its name.
  bool CopyExists() const;
  const std::string& CopyPath() const { return copy_; }
  // Step 2: the original is kept under `kept_name` as well; false when that fails.
  bool KeepOriginal(const std::string& kept_name);
  // Step 3; false when the rename fails (the copy then stays beside the original).
  bool PutCopyInPlace();
  // Removes a copy that will not be put in place.
  void DiscardCopy();

 private:
  std::string path_;
  std::string copy_;
};

// A free name beside `path`: its name without the extension, `infix`, UniqueSuffix() and the extension
// ("data/shop.mdb" with "_" gives "data/shop_20261123_130405.mdb"); "_2", "_3", ... are added to the
// suffix while the name is taken.
std::string UniqueSibling(const std::string& path, const std::string& infix);

}  // namespace quorbex::internal
