// UnfilteredCopy: the records of a DataLayer as they were before its first filter, kept until
// DeleteFilter puts them back.
//
// What DeleteFilter brings back must look exactly like a deep copy taken when the filter began: new
// records with every field (value, name, type, change mark, status) and the record marks of that
// moment, whatever happened to the filtered records since. Cloning every record up front and freeing
// the filtered ones afterwards costs two allocations and two releases per record, and the clones
// scatter the table over fresh memory. This copy avoids the objects wherever nobody could tell:
//
//   - A record the filter removes, and that nothing else holds, is not cloned: the record itself moves
//     into the copy. Its values are those of the moment of the filter, since nothing else can reach it.
//   - A record the filter keeps stays in the filtered recordset, so the copy keeps a snapshot of its
//     values, and of its fields' names, types and flags and its marks (shared by neighbours that look
//     alike). When DeleteFilter finds it held by nothing but the filtered recordset that is about to
//     go (no client holds the record or one of its fields) and its names, types, flags and marks as
//     they were, it takes its values back and returns as a record no one can tell from a new one.
//   - Everything else, a record a client still holds, or one whose names, flags or marks changed (a
//     value edited while filtered marks its field), becomes a new record, as a deep copy makes it.
//
// So after Filter + DeleteFilter with no client holding records the table is the same objects in the
// same memory, which also keeps every later pass over it as fast as before. Only a weak pointer a
// client kept to a record could see the difference: it does not expire.
#pragma once

#include <cstdint>
#include <exception>
#include <memory>
#include <string>
#include <vector>

#include "quorbex/clsOfflineField.h"
#include "quorbex/clsOfflineRecord.h"
#include "quorbex/clsOfflineRecordset.h"
#include "quorbex/variant.h"

namespace quorbex::internal {

class UnfilteredCopy {
 public:
  // Takes the copy of `recordset`, then removes from it every counted record whose field `field`
  // satisfies CompareValues(Value, compare_value, op): the result of a deep copy followed by
  // DeleteOutfilteredRecords, made in one pass. That walk goes from the last record down and stops at
  // the first test that raises; here, when tests raise, only the matches behind the last of them are
  // removed, and that error is stored in `failure` for the caller to pass on. Field 0 removes nothing.
  static std::unique_ptr<UnfilteredCopy> TakeAndRemove(clsOfflineRecordset& recordset, int32_t field,
                                                       const std::string& op, const Variant& compare_value,
                                                       std::exception_ptr& failure);

  // The records as they were, as a new recordset. `filtered`, the recordset the filter left, is let go
  // (reset), so that the records only it held can take their values back; the copy is spent. Running
  // out of memory (std::bad_alloc, or AutomationError 7 from a new record) leaves `filtered` and the
  // copy as they were.
  std::shared_ptr<clsOfflineRecordset> Restore(std::shared_ptr<clsOfflineRecordset>& filtered);

 private:
  static constexpr uint32_t kNoSnapshot = UINT32_MAX;

  // One position of the copy: a record that is entirely the copy's own, or a kept record with the index
  // of its snapshot.
  struct Entry {
    std::shared_ptr<clsOfflineRecord> record;
    uint32_t snapshot = kNoSnapshot;
  };
  // Everything of a kept record but its values: the record marks, and its fields with their names,
  // types and flags (templates_[first_template, first_template + field_count), with empty values).
  // Neighbouring records nearly always look alike, so they share one shape.
  struct Shape {
    size_t first_template = 0;
    uint32_t field_count = 0;
    bool has_changed = false;
    bool newly_added = false;
  };
  // A kept record as it was: its shape, and its values at values_[first_value, ...).
  struct Snapshot {
    size_t first_value = 0;
    uint32_t shape = 0;
  };

  // Adds the position of a record the filter keeps.
  void Keep(const std::shared_ptr<clsOfflineRecord>& record);
  // Takes the snapshot of a record; returns its index.
  uint32_t Snap(const clsOfflineRecord& record);
  // Whether the record's marks and its fields' names, types and flags are those of `shape`.
  bool HasShape(const clsOfflineRecord& record, const Shape& shape) const;
  // Exchanges the values of a record of the snapshot's field count with the snapshot's.
  void SwapValues(clsOfflineRecord& record, const Snapshot& snapshot) noexcept;

  std::vector<Entry> entries_;
  std::vector<Snapshot> snapshots_;
  std::vector<Shape> shapes_;
  std::vector<clsOfflineField> templates_;
  std::vector<Variant> values_;
  int32_t record_count_ = 0;
  bool read_only_ = false;
  std::string tag_;
  std::weak_ptr<Object> parent_;
};

}  // namespace quorbex::internal
