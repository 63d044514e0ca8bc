// Terminal helpers: the cells a text takes, and cutting a text to a width.
#include <gtest/gtest.h>

#include "platform/terminal.h"

namespace quorbex::platform {
namespace {

TEST(Terminal, WidthCountsCellsNotBytes) {
  EXPECT_EQ(DisplayWidth(""), 0u);
  EXPECT_EQ(DisplayWidth("Köln"), 4u);
  EXPECT_EQ(DisplayWidth("Flensburg – Schleswig"), 21u);
  EXPECT_EQ(DisplayWidth("日本語"), 6u);
  EXPECT_EQ(DisplayWidth("e\xCC\x81"), 1u);  // e + combining acute
  EXPECT_EQ(DisplayWidth("a\xFF" "b"), 3u);   // an invalid byte takes one cell
}

TEST(Terminal, FitCutsWithAnEllipsisOnACharacterBoundary) {
  EXPECT_EQ(FitToWidth("Österreich", 10), "Österreich");
  EXPECT_EQ(FitToWidth("Österreich", 6), "Öster…");
  EXPECT_EQ(DisplayWidth(FitToWidth("Österreich", 6)), 6u);
  // A wide character that does not fit whole is left out, never split.
  EXPECT_EQ(FitToWidth("日本語", 4), "日…");
  EXPECT_EQ(FitToWidth("a\nb\tc", 5), "a b c");
  EXPECT_EQ(FitToWidth("abc", 0), "");
  EXPECT_EQ(FitToWidth("abc", 1), "…");
}

}  // namespace
}  // namespace quorbex::platform
