#include "quorbex/byref.h"
#include "quorbex/collection.h"

#include <gtest/gtest.h>

#include <string>

namespace quorbex {

namespace {

TEST(Collection, IsOneBasedWithBeforeAndAfterInsertion) {
  Collection<std::string> c;
  c.Add("b");
  c.Add("a", 1);          // before 1
  c.Add("c", std::nullopt, 2);  // after 2
  ASSERT_EQ(c.Count(), 3);
  EXPECT_EQ(c.Item(1), "a");
  EXPECT_EQ(c.Item(2), "b");
  EXPECT_EQ(c.Item(3), "c");
  std::string joined;
  for (const auto& s : c) joined += s;
  EXPECT_EQ(joined, "abc");
  c.Remove(2);
  EXPECT_EQ(c.Item(2), "c");
}

TEST(Collection, BadPositionsRaiseTheClassicErrors) {
  Collection<int> c;
  c.Add(1);
  try {
    c.Item(0);
    FAIL();
  } catch (const AutomationError& e) {
    EXPECT_EQ(e.Number(), 9);
    EXPECT_EQ(e.Description(), "Subscript out of range");
  }
  EXPECT_THROW(c.Item(2), AutomationError);
  EXPECT_THROW(c.Remove(2), AutomationError);
  EXPECT_THROW(c.Add(5, 3), AutomationError);
  EXPECT_EQ(c.Count(), 1);
}

void Bump(ByRef<int> n) { *n += 1; }

TEST(ByRef, BindsToVariablesAndCopiesLiterals) {
  int x = 1;
  Bump(x);
  EXPECT_EQ(x, 2);
  Bump(41);  // a literal gets a temporary, as in Basic
  long other = 5;
  Bump(static_cast<int>(other));
  EXPECT_EQ(other, 5);
}

}  // namespace
}  // namespace quorbex
