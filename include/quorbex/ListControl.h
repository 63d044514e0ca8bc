// ListControl: the list or combo box a GUI host hands to DataLayer::FillCBO and SetCBOPos.
//
// The library never draws a control; it talks to the host's control through this small interface,
// with the members and conventions of the classic list controls: items are texts, positions are
// 0-based, and ListIndex -1 means "nothing selected". A host wraps its widget (a Qt QComboBox, a
// terminal menu) in an implementation; tests use a plain fake.
//
// Implementations may throw; the library catches at its own boundary and reports through ErrorStatus.
#pragma once

#include <cstdint>
#include <string>

#include "quorbex/variant.h"

namespace quorbex {

class ListControl : public Object {
 public:
  // Removes every item and clears the selection.
  virtual void Clear() = 0;
  // Appends one item at the end.
  virtual void AddItem(const std::string& Item) = 0;
  // The number of items.
  virtual int32_t ListCount() const = 0;
  // The text of the item at 0-based `Index`; "" when there is none.
  virtual std::string List(int32_t Index) const = 0;
  // The 0-based position of the selected item; -1 when none is selected.
  virtual int32_t ListIndex() const = 0;
  // Selects the item at 0-based `Index` (-1: none).
  virtual void ListIndex(int32_t Index) = 0;
};

}  // namespace quorbex
