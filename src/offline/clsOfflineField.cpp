#include "quorbex/clsOfflineField.h"

#include <ostream>
#include <utility>

#include "offline/name_pool.h"
#include "service/thread_state.h"

namespace quorbex {

using namespace internal;

using internal::NamePool;

// Cells dominate the memory of every table; a field that grows past 56 bytes costs 8 more per cell.
static_assert(sizeof(void*) != 8 || sizeof(clsOfflineField) <= 56, "clsOfflineField grew");
static_assert(sizeof(InternedName) == 3 && sizeof(ChangeFlag) == 1);

// ---- InternedName ----------------------------------------------------------------------------------

InternedName::InternedName(std::string_view text) { SetId(NamePool::Instance().InternCached(text)); }

InternedName::InternedName(const InternedName& other) noexcept {
  NamePool::Instance().AddRef(other.Id());
  SetId(other.Id());
}

InternedName::InternedName(InternedName&& other) noexcept {
  SetId(other.Id());
  other.SetId(0);
}

InternedName::~InternedName() { NamePool::Instance().Release(Id()); }

InternedName& InternedName::operator=(const InternedName& other) noexcept {
  if (Id() != other.Id()) {
    NamePool::Instance().AddRef(other.Id());
    NamePool::Instance().Release(Id());
    SetId(other.Id());
  }
  return *this;
}

InternedName& InternedName::operator=(InternedName&& other) noexcept {
  if (this != &other) {
    NamePool::Instance().Release(Id());
    SetId(other.Id());
    other.SetId(0);
  }
  return *this;
}

InternedName& InternedName::operator=(std::string_view text) {
  auto& pool = NamePool::Instance();
  if (pool.Text(Id()) == text) return *this;  // renaming to the same text keeps the shared entry
  // The text may view this object's own entry's storage; intern it before letting go of the old one.
  const uint32_t id = pool.InternCached(text);
  pool.Release(Id());
  SetId(id);
  return *this;
}

const std::string& InternedName::str() const noexcept { return NamePool::Instance().Text(Id()); }

std::string operator+(const InternedName& a, std::string_view b) {
  std::string result(a.view());
  result += b;
  return result;
}

std::string operator+(std::string_view a, const InternedName& b) {
  std::string result(a);
  result += b.view();
  return result;
}

std::string operator+(const InternedName& a, const InternedName& b) { return a + b.view(); }

std::ostream& operator<<(std::ostream& os, const InternedName& name) { return os << name.view(); }

// ---- clsOfflineField -------------------------------------------------------------------------------

clsOfflineField::clsOfflineField(const clsOfflineField& other)
    : Object(other),
      varValue(other.varValue),
      Description(other.Description),
      lngFieldType(other.lngFieldType) {
  HasChanged.bits_ = other.HasChanged.bits_;
}

clsOfflineField& clsOfflineField::operator=(const clsOfflineField& other) {
  if (this != &other) {
    varValue = other.varValue;
    Description = other.Description;
    HasChanged.bits_ = other.HasChanged.bits_;
    lngFieldType = other.lngFieldType;
  }
  return *this;
}

clsOfflineField::clsOfflineField(clsOfflineField&& other) noexcept
    : Object(),
      varValue(std::move(other.varValue)),
      Description(std::move(other.Description)),
      lngFieldType(other.lngFieldType) {
  HasChanged.bits_ = other.HasChanged.bits_;
}

clsOfflineField& clsOfflineField::operator=(clsOfflineField&& other) noexcept {
  if (this != &other) {
    varValue = std::move(other.varValue);
    // The same name stays as it is: taking the other's reference would cost two count updates for nothing.
    if (!Description.SharesStorageWith(other.Description)) Description = std::move(other.Description);
    HasChanged.bits_ = other.HasChanged.bits_;
    lngFieldType = other.lngFieldType;
  }
  return *this;
}

Variant clsOfflineField::Anything() const {
  if (IsStatusSet()) return Variant(Status());
  return Value();
}

void clsOfflineField::FieldStatus(bool bolFieldStatus) noexcept {
  uint8_t bits = HasChanged.bits_ | ChangeFlag::kStatusSet;
  bits = bolFieldStatus ? (bits | ChangeFlag::kStatusValue) : (bits & ~ChangeFlag::kStatusValue);
  HasChanged.bits_ = static_cast<uint8_t>(bits);
}

bool clsOfflineField::IsStatusSet() const noexcept { return (HasChanged.bits_ & ChangeFlag::kStatusSet) != 0; }

bool clsOfflineField::Status() const noexcept { return (HasChanged.bits_ & ChangeFlag::kStatusValue) != 0; }

Variant clsOfflineField::Value() const {
  if (varValue.IsNull()) return Variant(std::string());
  return varValue;
}

namespace {

// What a value assignment of an object stores: its default value, followed through objects whose
// default is again an object (a bounded number of times, in case two objects name each other).
Variant PlainValueOf(const ObjectRef& object) {
  Variant value;
  const Object* current = object.get();
  for (int depth = 0; current != nullptr && depth < 16; ++depth) {
    value = current->DefaultValue();
    if (!value.IsObject()) return value;
    current = value.AsObject().get();
  }
  return Variant();
}

}  // namespace

void clsOfflineField::Value(Variant varNewValue) {
  if (varNewValue.IsObject() && !State().allow_store_of_objects) {
    varValue = PlainValueOf(varNewValue.AsObject());
  } else {
    varValue = std::move(varNewValue);
  }
}

}  // namespace quorbex
