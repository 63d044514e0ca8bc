// clsOfflineField: one cell of an offline table, with its column name, type code and change marks.
//
// Cells are the bulk of every loaded table, so the object is kept at 56 bytes on 64-bit platforms: the
// value (40), the column name as a 3-byte handle into a pool of shared texts, one byte of flags and the
// 32-bit type code, behind the vtable pointer every library object carries. The two helper types below
// make those packed members read and write like the plain string and Boolean they stand for.
//
// Thread safety: a field belongs to the thread that uses it, like every library object. The name pool
// behind InternedName is the exception: it is shared by the whole process and safe from any thread.
#pragma once

#include <compare>
#include <cstdint>
#include <iosfwd>
#include <memory>
#include <string>
#include <string_view>

#include "quorbex/byref.h"
#include "quorbex/variant.h"

namespace quorbex {

// InternedName: an immutable text kept once per process and shared by every holder of the same text.
//
// A table of a million records holds a million copies of each column name; as InternedName they are a
// million 3-byte handles to one stored text. Equal texts always share one entry, whoever assigned them
// and however (FieldDim, a loader copying engine column names, a client renaming a column), and the
// entry goes away with its last holder. Reads and writes look like std::string:
//     field->Description = "Name";  std::string s = field->Description;  field->Description == "Name"
// Functions taking `const std::string&` or `std::string_view` accept it directly; elsewhere use str().
//
// Up to 16,777,215 different texts can be alive at once; assigning yet another one raises
// AutomationError 7 "Out of memory". The empty text needs no entry and never fails.
class InternedName {
 public:
  InternedName() noexcept = default;
  explicit InternedName(std::string_view text);
  explicit InternedName(const std::string& text) : InternedName(std::string_view(text)) {}
  explicit InternedName(const char* text) : InternedName(std::string_view(text ? text : "")) {}
  InternedName(const InternedName& other) noexcept;
  InternedName(InternedName&& other) noexcept;
  ~InternedName();

  // Copying shares the other's entry; assigning a text shares the entry of that text.
  InternedName& operator=(const InternedName& other) noexcept;
  InternedName& operator=(InternedName&& other) noexcept;
  InternedName& operator=(std::string_view text);
  InternedName& operator=(const std::string& text) { return *this = std::string_view(text); }
  InternedName& operator=(const char* text) { return *this = std::string_view(text ? text : ""); }

  // The text; a reference that stays valid while this object holds it unchanged.
  const std::string& str() const noexcept;
  std::string_view view() const noexcept { return str(); }
  const char* c_str() const noexcept { return str().c_str(); }
  size_t size() const noexcept { return str().size(); }
  size_t length() const noexcept { return str().size(); }
  bool empty() const noexcept { return Id() == 0; }
  operator const std::string&() const noexcept { return str(); }  // NOLINT: reads like a string
  operator std::string_view() const noexcept { return str(); }    // NOLINT

  // True when both hold the same stored text (always so for equal texts).
  bool SharesStorageWith(const InternedName& other) const noexcept { return Id() == other.Id(); }

  friend bool operator==(const InternedName& a, const InternedName& b) noexcept { return a.Id() == b.Id(); }
  friend bool operator==(const InternedName& a, std::string_view b) noexcept { return a.view() == b; }
  friend std::strong_ordering operator<=>(const InternedName& a, std::string_view b) noexcept {
    return a.view().compare(b) <=> 0;
  }
  friend std::string operator+(const InternedName& a, std::string_view b);
  friend std::string operator+(std::string_view a, const InternedName& b);
  friend std::string operator+(const InternedName& a, const InternedName& b);
  friend std::ostream& operator<<(std::ostream& os, const InternedName& name);

 private:
  uint32_t Id() const noexcept {
    return static_cast<uint32_t>(id_[0]) | static_cast<uint32_t>(id_[1]) << 8 |
           static_cast<uint32_t>(id_[2]) << 16;
  }
  void SetId(uint32_t id) noexcept {
    id_[0] = static_cast<uint8_t>(id);
    id_[1] = static_cast<uint8_t>(id >> 8);
    id_[2] = static_cast<uint8_t>(id >> 16);
  }
  uint8_t id_[3] = {0, 0, 0};  // 0: the empty text
};

// ChangeFlag: the type of clsOfflineField::HasChanged. It reads and writes like a bool
// (`field->HasChanged = true; if (field->HasChanged) ...`) and is the field's one byte of flags: next
// to the change mark it carries the field's status pair, which only clsOfflineField touches. Copying or
// assigning a ChangeFlag carries the change mark alone.
class ChangeFlag {
 public:
  constexpr ChangeFlag() noexcept = default;
  constexpr ChangeFlag(bool value) noexcept : bits_(value ? kChanged : 0) {}  // NOLINT
  constexpr ChangeFlag(const ChangeFlag& other) noexcept : bits_(other.bits_ & kChanged) {}
  constexpr ChangeFlag& operator=(const ChangeFlag& other) noexcept { return *this = static_cast<bool>(other); }
  constexpr ChangeFlag& operator=(bool value) noexcept {
    bits_ = static_cast<uint8_t>((bits_ & ~kChanged) | (value ? kChanged : 0));
    return *this;
  }
  constexpr operator bool() const noexcept { return (bits_ & kChanged) != 0; }  // NOLINT

 private:
  friend class clsOfflineField;
  static constexpr uint8_t kChanged = 1;
  static constexpr uint8_t kStatusValue = 2;
  static constexpr uint8_t kStatusSet = 4;
  uint8_t bits_ = 0;
};

class clsOfflineField : public Object {
 public:
  clsOfflineField() noexcept = default;
  // A copy is a full clone: value, name, type, change mark and status pair.
  clsOfflineField(const clsOfflineField& other);
  clsOfflineField& operator=(const clsOfflineField& other);
  // Moving carries the same; `other` is left fit only to be assigned or destroyed.
  clsOfflineField(clsOfflineField&& other) noexcept;
  clsOfflineField& operator=(clsOfflineField&& other) noexcept;

  // The stored value itself; Value() reads and writes this same storage (Null stays visible here).
  Variant varValue;
  // The column name; identical in every record for the same position, shared rather than copied.
  InternedName Description;
  // Set by field writes through the DataLayer when the client changed the value; cleared after the
  // record was written back. Value(x) never touches it.
  ChangeFlag HasChanged;
  // The engine type code of the column the value came from; 0 for fields that never came from a database.
  int32_t lngFieldType = 0;

  // The status as a Boolean once a status was assigned (IsStatusSet), otherwise what Value() returns.
  Variant Anything() const;
  // Stores the status and marks it as set; the mark cannot be taken back.
  void FieldStatus(bool bolFieldStatus) noexcept;
  // True once FieldStatus was assigned, whatever value it was given.
  bool IsStatusSet() const noexcept;
  // The stored status; False while none was assigned.
  bool Status() const noexcept;
  // The value: an object reference comes back as the same reference, Null as "" (never Null), anything
  // else as a copy.
  Variant Value() const;
  // Stores `varNewValue`. An object reference is stored as such only while the thread's
  // AllowStoreOfObjects switch is on; otherwise the object's default value is stored (Empty for Nothing
  // and for objects without one). Lets an AutomationError of that default value through.
  void Value(Variant varNewValue);
};

}  // namespace quorbex
