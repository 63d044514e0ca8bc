#include "quorbex/clsOfflineRecord.h"

#include <algorithm>
#include <new>
#include <stdexcept>
#include <utility>

#include "offline/offline_errors.h"

namespace quorbex {

using namespace internal;

static_assert(sizeof(void*) != 8 || sizeof(clsOfflineRecord) <= 56, "clsOfflineRecord grew");

Variant clsOfflineRecord::Add(int32_t intNumberOfFields) {
  if (intNumberOfFields <= 0) return {};
  const auto count = static_cast<size_t>(intNumberOfFields);
  auto& items = fields_.Items();
  try {
    // Room first, so that a failure leaves the record as it was. A record usually gets all its fields
    // in one call, which is sized exactly. One that starts with a single field is being built column by
    // column: it starts with room for four and then doubles, which spares the heap the small vectors
    // it would otherwise leave behind at every step.
    if (items.capacity() - items.size() < count) {
      size_t room = std::max(items.size() + count, items.size() * 2);
      if (items.empty()) room = count == 1 ? 4 : count;
      items.reserve(room);
    }
    if (count == 1) {
      items.push_back(std::make_shared<clsOfflineField>());
    } else {
      // One block and one reference count for all of them; each pointer aliases its own element.
      std::shared_ptr<clsOfflineField[]> block = std::make_shared<clsOfflineField[]>(count);
      for (size_t i = 0; i < count; ++i) items.emplace_back(block, &block[i]);
    }
  } catch (const std::bad_alloc&) {
    internal::RaiseOutOfMemory("clsOfflineRecord.Add");
  } catch (const std::length_error&) {
    internal::RaiseOutOfMemory("clsOfflineRecord.Add");
  }
  // Nothing reads the counter; it wraps rather than overflow.
  field_counter_ = static_cast<int32_t>(static_cast<uint32_t>(field_counter_) + static_cast<uint32_t>(count));
  return {};
}

std::shared_ptr<clsOfflineRecord::FieldCollectionType> clsOfflineRecord::FieldCollection() {
  // Shares the record's own reference count: the collection lives inside the record.
  return std::shared_ptr<FieldCollectionType>(weak_from_this().lock(), &fields_);
}

std::shared_ptr<clsOfflineField> clsOfflineRecord::Fields(int32_t Index) const noexcept {
  if (Index < 1 || Index > fields_.Count()) return nullptr;
  return fields_.Items()[static_cast<size_t>(Index - 1)];
}

Variant clsOfflineRecord::MoveFieldToNewPos(ByRef<int32_t> CurrentFieldID, ByRef<int32_t> NewFieldID) {
  if (*NewFieldID > fields_.Count()) NewFieldID = fields_.Count();
  std::shared_ptr<clsOfflineField> field = fields_.Item(*CurrentFieldID);
  fields_.Remove(*CurrentFieldID);
  if (*NewFieldID == fields_.Count()) {
    fields_.Add(std::move(field));
  } else {
    fields_.Add(std::move(field), *NewFieldID);
  }
  return {};
}

Variant clsOfflineRecord::Remove(int32_t lngPosField) {
  if (lngPosField < 1 || lngPosField > fields_.Count()) return {};
  fields_.Remove(lngPosField);
  field_counter_ = static_cast<int32_t>(static_cast<uint32_t>(field_counter_) - 1u);
  return {};
}

}  // namespace quorbex
