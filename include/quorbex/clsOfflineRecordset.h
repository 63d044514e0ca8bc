// clsOfflineRecordset: the in-memory table a DataLayer works on.
//
// An ordered, 1-based collection of clsOfflineRecord with a stored record count, a read-only mark, a
// free-text tag and a back reference to the owning DataLayer. It is filled from an engine recordset
// (FillFromDAORecordset) or built by hand (Add, then FieldDim). There is no column catalogue: the
// layout lives in the records, every record carrying the same fields in the same order, each with its
// own name and type. A recordset without records has no fields.
//
// The record count is a number of its own, not the collection's count. Add, Remove, Destroy,
// SetRecordCount and OverwriteRecordCollection keep it; a caller that changes the collection directly
// (through RecordCollection) corrects it with SetRecordCount. Every loop over the records here runs from
// 1 to the count: a count above the collection's size makes the loops that raise fail with 9 "Subscript
// out of range" at the first missing record.
//
// Thread safety: a recordset belongs to the thread that uses it, like every library object.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>

#include "quorbex/byref.h"
#include "quorbex/clsOfflineField.h"
#include "quorbex/clsOfflineRecord.h"
#include "quorbex/collection.h"
#include "quorbex/variant.h"

namespace quorbex {

namespace db {
class Recordset;
}  // namespace db

class clsOfflineRecordset : public Object {
 public:
  using RecordCollectionType = Collection<std::shared_ptr<clsOfflineRecord>>;

  clsOfflineRecordset();
  ~clsOfflineRecordset() override;
  clsOfflineRecordset(const clsOfflineRecordset&) = delete;
  clsOfflineRecordset& operator=(const clsOfflineRecordset&) = delete;

  // The records 1 to RecordCount whose field `lngFilterFieldID` satisfies
  // CompareValues(field Value, varCompareValue, strOperator), in their order; the records themselves,
  // not copies. An empty collection when none matches; nullptr (Nothing) when `lngFilterFieldID` is 0.
  // Raises what CompareValues raises (5 for a compare value of exactly "*"), 9 "Subscript out of range"
  // for a counted record missing from the collection and 91 "Object variable or With block variable not
  // set" for a record without that field.
  std::shared_ptr<RecordCollectionType> GetHitRecords(int32_t lngFilterFieldID, const std::string& strOperator,
                                                      const Variant& varCompareValue) const;
  // Makes `RecordCollection` the record collection (the same object, not a copy) and sets the record
  // count to its number of items. Nothing (nullptr) installs a new empty collection and the count 0.
  void OverwriteRecordCollection(std::shared_ptr<RecordCollectionType> RecordCollection);
  // The record collection object itself; never null.
  std::shared_ptr<RecordCollectionType> RecordCollection() const noexcept;

  // ---- Sorting --------------------------------------------------------------------------------------
  // Orders records 1 to RecordCount inside each run of equal values of column `lngFieldColSortedLast`
  // (the records are expected to be sorted by it already) by column `lngFieldColToSort`. Both columns
  // are compared in the text order of RecordsetSort; a run is a stretch of neighbours whose first-column
  // sort keys are equal, and inside a run equal second keys keep their order. The direction is settled
  // as in RecordsetSort (the caller's variables change). A column below 1 does nothing. A record with
  // fewer fields than a column changes nothing and appends "Sortrecordset: FieldColumn Index is higher
  // than fieldcount!" followed by that column to the thread's error text. Returns Empty; raises only
  // AutomationError 7 "Out of memory", before anything moved.
  Variant RecordsetInnerSort(ByRef<int32_t> lngFieldColSortedLast, ByRef<int32_t> lngFieldColToSort,
                             ByRef<bool> bolAsc, ByRef<bool> bolDesc);

  // Sorts records 1 to RecordCount in place by column `lngFieldColumn` (records beyond the count stay).
  // Direction: both `bolAsc` and `bolDesc` True clears `bolDesc`, both False sets `bolAsc` (the
  // caller's variables change); a column below 1 then returns at once. The order is exactly the one a
  // repeated exchange of out-of-order neighbours yields, computed in O(n log n):
  //   - text order: the keys are SortKeyText of each field's Anything as text (lower case, ä ö ü as
  //     "ue"), compared by character codes; equal keys keep their order;
  //   - number order (`bolNumberOnly`): a record whose Value is not numeric holds its place and nothing
  //     passes it; the numeric records between two such records are ordered by Val of their Value,
  //     equal numbers keeping their order.
  // When one of the records has fewer fields than `lngFieldColumn` (or is missing), the exchange sort
  // meets it during its first pass, as the right-hand neighbour of the record before it. So only the
  // part of that pass in front of the first short record is made (the pairs 1-2, 2-3, ... up to the
  // pair that ends just before it, each compared and exchanged once, in turn; in text order the
  // last of them in sort order ends up right before the short record), and then "Sortrecordset: FieldColumn
  // Index is higher than fieldcount!" followed by the column is appended to the thread's error text.
  // A single record is never compared and so never reported.
  // With `WithProgressBar` the sort shows its progress with the text "Sortiere..." (see SortProgress)
  // and takes the display away at the end. Returns Empty; raises only AutomationError 7 "Out of
  // memory", before anything moved.
  Variant RecordsetSort(ByRef<int32_t> lngFieldColumn, ByRef<bool> bolAsc = false, ByRef<bool> bolDesc = false,
                        ByRef<bool> bolNumberOnly = false, ByRef<bool> WithProgressBar = false);

  // The progress display of a sort with WithProgressBar. A sort opens one display through the installed
  // maker, reports at most about a hundred steps on it, and unloads it when it ends, whichever way.
  // A host's display may let its user interface process pending events in SetProgress. Calls arrive on
  // the sorting thread; implementations must not throw.
  class SortProgress {
   public:
    virtual ~SortProgress() = default;
    // Shows step `position` of `total` (1 <= position <= total) with `description`; the first call
    // shows the display.
    virtual void SetProgress(int32_t position, int32_t total, const std::string& description) = 0;
    // Takes the display away.
    virtual void Unload() = 0;
  };
  using SortProgressMaker = std::function<std::unique_ptr<SortProgress>()>;
  // Installs, process-wide, the maker of the display every sort with WithProgressBar uses from now on,
  // and returns the previous one. An empty maker restores the default, which draws the bar, the
  // description and the percentage of the progress window through the installed progress renderer
  // (frmProgress::InstallRenderer): a line on a terminal's stderr, nothing otherwise.
  static SortProgressMaker InstallSortProgress(SortProgressMaker maker);
  // ----------------------------------------------------------------------------------------------------

  // Removes every record among 1 to RecordCount whose field `lngFilterFieldID` satisfies
  // CompareValues(field Value, varCompareValue, strOperator), lowering the count by one for each; so the
  // condition names the records to throw away. Nothing happens for `lngFilterFieldID` 0. Returns Empty.
  // The records are tested from the last to the first, and the result is exactly that of removing them
  // one by one in that order, done in a single pass. When a test raises (CompareValues, or a missing
  // record or field as in GetHitRecords), the records behind it that matched are removed, those before
  // it stay, and the error reaches the caller.
  Variant DeleteOutfilteredRecords(int32_t lngFilterFieldID, const std::string& strOperator,
                                   const Variant& varCompareValue);
  // Adds fields to every record 1 to RecordCount. With `lngNumberOfFields` below 2 or no
  // `FieldDescription`, each record gets `lngNumberOfFields` new empty fields (Add), and with a
  // description the record's last field is then named `FieldDescription` (so FieldDim(0, "X") renames
  // the last field); all records share one stored name. Two or more fields with a description add
  // nothing and show the message box "Sie können nur ein Feld hinzufügen, wenn Sie eine
  // Feldbeschreibung verwenden. Lassen Sie entweder die Feldbeschreibung leer oder fügen Sie nur ein
  // Feld hinzu!" CR LF "Die Aktion wurde abgebrochen!" (exclamation icon, OK button, title
  // "OfflineRecordset.FieldDim"). A record that fails is skipped silently. Records added later do not
  // get these fields. Returns Empty; never raises.
  Variant FieldDim(int32_t lngNumberOfFields, const std::string& FieldDescription = std::string());
  // Copies the rows of the engine recordset `rstRecordset` into this (empty) recordset: N records of F
  // fields, each field with the engine field's value, name and type code. Returns True after the last
  // row; for a query without rows `SetSuccessIf0Records`; False when an error ends the copy (what was
  // copied stays). With `bolWithClose` the engine recordset is closed and the caller's reference
  // cleared. Sets RecordsetIsReadOnly when the engine recordset is not updatable.
  bool FillFromDAORecordset(ByRef<std::shared_ptr<db::Recordset>> rstRecordset, bool bolWithClose,
                            bool SetSuccessIf0Records = false);
  // The record count (see the class comment).
  int32_t RecordCount() const noexcept;
  // Drops all records: a new empty collection and the count 0. Tag, Parent and RecordsetIsReadOnly stay.
  void Destroy();
  // The record at 1-based `Index` of the collection; nullptr (Nothing) when there is none. Never raises.
  std::shared_ptr<clsOfflineRecord> Records(int32_t Index) const noexcept;
  // Removes the record at 1-based `lngPosRecord` and lowers the count by one. A bad position changes
  // nothing (the count neither) and raises nothing. Returns Empty.
  Variant Remove(int32_t lngPosRecord);
  // Appends `intNumberOfRecords` new records without fields and raises the count by as many; nothing for
  // 0 or less. Returns Empty. Raises AutomationError 7 "Out of memory" when they do not fit and 6
  // "Overflow" when the count would pass 2,147,483,647, in both cases before adding anything.
  Variant Add(int32_t intNumberOfRecords);
  // Removes the field at `FieldIndex` from every record 1 to RecordCount, but only when record 1 has no
  // more than `FieldIndex` fields: so only the last field is ever removed, a position past the end
  // changes nothing, and for any lower position the call does nothing. The direction of that test is
  // deliberate. Failures in single records are ignored. With no records the missing record 1 raises
  // AutomationError 9 "Subscript out of range" (91 when the collection holds Nothing there).
  void RemoveField(int32_t FieldIndex);
  // Sets the record count without touching the collection.
  void SetRecordCount(int32_t lngRecordCount) noexcept;

  // True when the engine recordset it was filled from could not be updated.
  bool RecordsetIsReadOnly = false;
  // Free text; "AllowAttach" permits attaching this recordset to another DataLayer.
  std::string Tag;
  // The owning DataLayer, set by the owner; a back reference that never keeps it alive.
  std::weak_ptr<Object> Parent;

 private:
  std::shared_ptr<RecordCollectionType> records_;
  int32_t record_count_ = 0;
};

}  // namespace quorbex
