// Collection<T>: the 1-based ordered collection of the automation interface.
//
// Positions run from 1 to Count(). Item and Remove with a position outside that range raise
// AutomationError 9 ("Subscript out of range"), as the classic collection does; callers that must not
// raise check the position first. Collections that the interface shares between objects are handed out
// as std::shared_ptr<Collection<T>>.
//
// Thread safety: none; a collection belongs to the thread that uses it, like every library object.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <utility>
#include <vector>

#include "quorbex/errors.h"

namespace quorbex {

template <class T>
class Collection {
 public:
  using value_type = T;
  using iterator = typename std::vector<T>::iterator;
  using const_iterator = typename std::vector<T>::const_iterator;

  Collection() = default;

  int32_t Count() const noexcept { return static_cast<int32_t>(items_.size()); }

  // The item at 1-based `index`; raises error 9 when there is none.
  T& Item(int32_t index) {
    Check(index);
    return items_[static_cast<size_t>(index - 1)];
  }
  const T& Item(int32_t index) const {
    Check(index);
    return items_[static_cast<size_t>(index - 1)];
  }
  T& operator()(int32_t index) { return Item(index); }
  const T& operator()(int32_t index) const { return Item(index); }

  // Appends `item`; with `before` it is inserted before that position, with `after` after it.
  // A position outside 1..Count() raises error 5, as the classic collection does.
  void Add(T item, std::optional<int32_t> before = std::nullopt, std::optional<int32_t> after = std::nullopt) {
    if (before && after) RaiseRuntimeError(errnum::kInvalidProcedureCall);
    if (before) {
      if (*before < 1 || *before > Count()) RaiseRuntimeError(errnum::kInvalidProcedureCall);
      items_.insert(items_.begin() + (*before - 1), std::move(item));
    } else if (after) {
      if (*after < 1 || *after > Count()) RaiseRuntimeError(errnum::kInvalidProcedureCall);
      items_.insert(items_.begin() + *after, std::move(item));
    } else {
      items_.push_back(std::move(item));
    }
  }

  // Removes the item at 1-based `index`; raises error 9 when there is none.
  void Remove(int32_t index) {
    Check(index);
    items_.erase(items_.begin() + (index - 1));
  }

  // Library-internal bulk helpers (not part of the classic interface): they keep n-sized work O(n).
  template <class Pred>
  int32_t RemoveIf(Pred pred) {
    auto old = items_.size();
    std::erase_if(items_, pred);
    return static_cast<int32_t>(old - items_.size());
  }
  void Clear() noexcept { items_.clear(); }
  void Reserve(size_t n) { items_.reserve(n); }
  std::vector<T>& Items() noexcept { return items_; }
  const std::vector<T>& Items() const noexcept { return items_; }

  iterator begin() noexcept { return items_.begin(); }
  iterator end() noexcept { return items_.end(); }
  const_iterator begin() const noexcept { return items_.begin(); }
  const_iterator end() const noexcept { return items_.end(); }

 private:
  void Check(int32_t index) const {
    if (index < 1 || index > Count()) RaiseRuntimeError(errnum::kSubscriptOutOfRange);
  }
  std::vector<T> items_;
};

}  // namespace quorbex
