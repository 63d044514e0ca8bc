// One run of DataLayer::Save: the records written back, what each wrote, and how to take it back.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <unordered_set>
#include <vector>

#include "quorbex/DataLayer.h"
#include "quorbex/clsOfflineField.h"
#include "quorbex/engine.h"

namespace quorbex::internal {

// Writes every marked record of a DataLayer in one transaction, in position order, and keeps the offline
// marks in step with what the database holds when it ends: a record that fails ends the run, the
// records before it are committed and lose their marks, the failing one and all later ones keep
// theirs. A commit that fails takes everything back, offline too (read-back keys included).
//
// Thread safety: a run belongs to the thread of its DataLayer and lives for one Save.
class SaveRun {
 public:
  SaveRun(DataLayer& layer, db::Database& database);

  // Writes the records and clears the marks of those written. Returns the failure text, empty when
  // every record was written and committed.
  std::string Run();

  // Whether at least one record was inserted or updated (and committed).
  bool WroteAny() const { return !written_.empty(); }

 private:
  // One session-log entry; written only for records whose change was committed.
  struct LogLine {
    std::string action, field_name, old_value, new_value;
  };
  struct Written {
    std::shared_ptr<clsOfflineRecord> record;
    std::vector<LogLine> log;
  };
  // The "id" field of a new record as it was before the key read back from the database replaced it.
  struct KeyBefore {
    std::shared_ptr<clsOfflineRecord> record;
    int32_t position;
    clsOfflineField field;
  };

  void WriteRecords();
  void Insert(int32_t position);
  void UpdateBatch();
  Written UpdateRow(db::Recordset& rows, const std::shared_ptr<clsOfflineRecord>& record);
  // Fails when `key` was already written by this run: two records with one key would both update
  // the same row, and the first edit would be lost without a word.
  void ClaimKey(const Variant& key);
  void RestoreKeys(size_t from);
  // Writes the session-log entries of the records written, and waits until they are on the disk.
  void WriteLog();
  void Commit();
  void ClearMarks();

  DataLayer& layer_;
  db::Database& database_;
  std::string query_name_;         // the temporary stored query over the loaded query's text
  std::vector<int32_t> batch_;     // positions of changed records waiting for their update
  std::vector<Written> written_;
  std::vector<KeyBefore> keys_before_;
  std::unordered_set<std::string> keys_claimed_;
};

}  // namespace quorbex::internal
