// clsOfflineRecord: one row of an offline table, an ordered 1-based collection of clsOfflineField with
// two record-level change marks.
//
// Every record of one offline recordset has the same fields in the same order; the recordset keeps
// that invariant, not the record. A record owns its fields: its collection holds the only references
// the library keeps. Fields are handed out as std::shared_ptr, and Fields(i) gives the same object
// every time.
//
// Memory: the fields created by one Add call are allocated together, in one block with one reference
// count, and each handed-out pointer shares that count. A field removed from the record therefore stays
// allocated until the record and every pointer into the block are gone; clients never see the
// difference.
//
// Thread safety: a record belongs to the thread that uses it, like every library object.
#pragma once

#include <cstdint>
#include <memory>

#include "quorbex/byref.h"
#include "quorbex/clsOfflineField.h"
#include "quorbex/collection.h"
#include "quorbex/variant.h"

namespace quorbex {

class clsOfflineRecord : public Object, public std::enable_shared_from_this<clsOfflineRecord> {
 public:
  using FieldCollectionType = Collection<std::shared_ptr<clsOfflineField>>;

 private:
  // Declared first so that they pack with the two public marks below.
  FieldCollectionType fields_;
  int32_t field_counter_ = 0;

 public:
  clsOfflineRecord() = default;
  clsOfflineRecord(const clsOfflineRecord&) = delete;
  clsOfflineRecord& operator=(const clsOfflineRecord&) = delete;

  // Appends `intNumberOfFields` new empty fields (empty value and name, type 0, no marks) and counts
  // them; nothing for 0 or less. Returns Empty. Raises AutomationError 7 "Out of memory" when they do
  // not fit, leaving the record unchanged.
  Variant Add(int32_t intNumberOfFields);
  // The field collection object itself, shared with the record (not a copy); never null. For a record
  // that is not held by a std::shared_ptr the result does not keep the record alive.
  std::shared_ptr<FieldCollectionType> FieldCollection();
  // The number of fields in the collection.
  int32_t FieldCount() const noexcept { return fields_.Count(); }
  // The field at 1-based `Index`; nullptr (Nothing) when there is none. Never raises.
  std::shared_ptr<clsOfflineField> Fields(int32_t Index) const noexcept;
  // The field at 1-based `Index` without taking a reference, for the library's own loops; nullptr when
  // there is none. Valid while the record keeps the field.
  clsOfflineField* FieldAt(int32_t Index) const noexcept {
    if (Index < 1 || Index > fields_.Count()) return nullptr;
    return fields_.Items()[static_cast<size_t>(Index - 1)].get();
  }
  // Moves one field inside the record. If `NewFieldID` is greater than the field count it is lowered to
  // the count (the caller's variable changes). The field at `CurrentFieldID` is taken out; if
  // `NewFieldID` then equals the number of fields left it is appended, otherwise inserted before
  // `NewFieldID`. So with five fields 2 -> 4 puts field 2 last, while 2 -> 5 raises. Returns Empty.
  // Raises AutomationError 9 "Subscript out of range" for a bad `CurrentFieldID` (nothing moved) and 5
  // "Invalid procedure call or argument" for a target outside the shortened collection, after the field
  // was taken out: the record then has one field less. Both are deliberate.
  Variant MoveFieldToNewPos(ByRef<int32_t> CurrentFieldID, ByRef<int32_t> NewFieldID);
  // Removes the field at 1-based `lngPosField` and lowers the field counter by one. A bad position
  // changes nothing (neither the fields nor the counter) and raises nothing. Returns Empty.
  Variant Remove(int32_t lngPosField);

  // True when at least one field was changed since loading or the last save.
  bool HasChanged = false;
  // True for a record appended by DataLayer.AddNew that is not yet in the database.
  bool NewlyAdded = false;

  // The record's own count of fields: raised by Add, lowered by a successful Remove, and otherwise
  // never read or corrected (MoveFieldToNewPos losing a field leaves it as it was). FieldCount counts
  // the collection instead.
  int32_t FieldCounter() const noexcept { return field_counter_; }
};

}  // namespace quorbex
