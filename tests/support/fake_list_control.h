// A list control that keeps its items in memory, for tests of the list-filling operations.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "quorbex/ListControl.h"

namespace quorbex::test {


class FakeListControl final : public ListControl {
 public:
  void Clear() override {
    items.clear();
    index = -1;
    ++clears;
  }
  void AddItem(const std::string& Item) override { items.push_back(Item); }
  int32_t ListCount() const override { return static_cast<int32_t>(items.size()); }
  std::string List(int32_t Index) const override {
    return Index >= 0 && Index < ListCount() ? items[static_cast<size_t>(Index)] : std::string();
  }
  int32_t ListIndex() const override { return index; }
  void ListIndex(int32_t Index) override { index = Index; }

  std::vector<std::string> items;
  int32_t index = -1;
  int clears = 0;  // how often Clear was called
};

}  // namespace quorbex::test
