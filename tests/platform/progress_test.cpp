#include "quorbex/frmProgress.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <string>
#include <vector>

#include "platform/progress_renderer.h"

namespace quorbex {

namespace {

class RecordingRenderer : public frmProgress::Renderer {
 public:
  void Draw(const frmProgress::Label& bar, const frmProgress::Label& description,
            const frmProgress::Label& percent) override {
    calls.push_back("draw " + std::to_string(static_cast<int>(bar.Width)) + " " + percent.Caption + " " +
                    description.Caption);
  }
  void Close() override { calls.push_back("close"); }
  std::vector<std::string> calls;
};

class RendererScope {
 public:
  explicit RendererScope(std::shared_ptr<frmProgress::Renderer> r)
      : previous_(frmProgress::InstallRenderer(std::move(r))) {}
  ~RendererScope() { frmProgress::InstallRenderer(previous_); }

 private:
  std::shared_ptr<frmProgress::Renderer> previous_;
};

TEST(frmProgress, BarAndPercentageFollowPosition) {
  frmProgress form;
  form.SetProgress(5, 10, "Pivotieren....");
  EXPECT_DOUBLE_EQ(form.lblProgress().Width, 3307.5);
  EXPECT_EQ(form.lblPercent().Caption, "50%");
  EXPECT_EQ(form.lblDescription().Caption, "Pivotieren....");

  // Halves round to the even neighbour.
  form.SetProgress(1, 8, "x");
  EXPECT_EQ(form.lblPercent().Caption, "12%");
  form.SetProgress(3, 8, "x");
  EXPECT_EQ(form.lblPercent().Caption, "38%");  // 37.5
  form.SetProgress(1, 3, "x");
  EXPECT_EQ(form.lblPercent().Caption, "33%");
  form.SetProgress(0, 3, "");
  EXPECT_EQ(form.lblPercent().Caption, "0%");
  EXPECT_DOUBLE_EQ(form.lblProgress().Width, 0);
}

TEST(frmProgress, PositionBeyondTotalIsClampedForTheCallerToo) {
  frmProgress form;
  int32_t position = 12;
  int32_t total = 10;
  form.SetProgress(position, total, "Sortieren");
  EXPECT_EQ(position, 10);
  EXPECT_EQ(total, 10);
  EXPECT_DOUBLE_EQ(form.lblProgress().Width, frmProgress::kBarWidth);
  EXPECT_EQ(form.lblPercent().Caption, "100%");
}

TEST(frmProgress, ImpossibleValuesRaiseAndKeepTheLabels) {
  frmProgress form;
  form.SetProgress(2, 4, "a");
  int32_t position = 3;
  int32_t total = 0;
  try {
    form.SetProgress(position, total, "b");
    FAIL() << "a total of 0 must raise";
  } catch (const AutomationError& e) {
    EXPECT_EQ(e.Number(), 11);
    EXPECT_EQ(e.Description(), "Division by zero");
  }
  EXPECT_EQ(position, 0);  // clamped before the division failed
  try {
    form.SetProgress(-1, 4, "c");
    FAIL() << "a negative bar must raise";
  } catch (const AutomationError& e) {
    EXPECT_EQ(e.Number(), 380);
  }
  EXPECT_EQ(form.lblPercent().Caption, "50%");
  EXPECT_EQ(form.lblDescription().Caption, "a");
  // Extreme but valid numbers stay finite.
  form.SetProgress(INT32_MAX, INT32_MAX, "d");
  EXPECT_EQ(form.lblPercent().Caption, "100%");
  form.SetProgress(INT32_MIN, -1, "e");
  EXPECT_GT(form.lblProgress().Width, 0);
}

TEST(frmProgress, RendererDrawsOnlyVisibleChanges) {
  auto recorder = std::make_shared<RecordingRenderer>();
  RendererScope scope(recorder);
  frmProgress form;
  form.SetProgress(1, 1000, "Pivotieren....");
  EXPECT_TRUE(recorder->calls.empty());  // not shown yet
  form.Show();
  EXPECT_TRUE(form.Visible());
  for (int32_t i = 2; i <= 1000; ++i) {
    form.SetProgress(i, 1000, "Pivotieren....");
    form.Show();
  }
  // At most one draw per pixel of the bar (441) or percent step (100), and the last state is drawn.
  EXPECT_GT(recorder->calls.size(), 100u);
  EXPECT_LE(recorder->calls.size(), 545u);
  EXPECT_EQ(recorder->calls.back(), "draw 6615 100% Pivotieren....");
  form.Unload();
  EXPECT_EQ(recorder->calls.back(), "close");
  EXPECT_FALSE(form.Visible());
  EXPECT_EQ(form.lblPercent().Caption, "");
  EXPECT_DOUBLE_EQ(form.lblProgress().Width, 0);
  // A window that goes away while shown closes its display.
  {
    frmProgress other;
    other.SetProgress(1, 2, "x");
    other.Show();
  }
  EXPECT_EQ(recorder->calls.back(), "close");
}

TEST(frmProgress, StreamRendererWritesOneLine) {
  std::FILE* out = std::tmpfile();
  ASSERT_NE(out, nullptr);
  auto renderer = platform::MakeStreamProgressRenderer(out, 60);
  frmProgress::Label bar{3307.5, ""};
  frmProgress::Label description{0, "Pivotieren \xC3\xA4\xC3\xB6\xC3\xBC and a very long tail that does not fit\n"};
  frmProgress::Label percent{0, "50%"};
  renderer->Draw(bar, description, percent);
  renderer->Close();
  std::rewind(out);
  std::string text;
  for (int c; (c = std::fgetc(out)) != EOF;) text += static_cast<char>(c);
  std::fclose(out);
  EXPECT_EQ(text.rfind("\r[###############...............]  50% Pivotieren \xC3\xA4\xC3\xB6\xC3\xBC", 0), 0u) << text;
  EXPECT_EQ(text.find('\n'), std::string::npos);
  EXPECT_NE(text.find("\x1b[K\r\x1b[K"), std::string::npos);  // closing clears the line
  // 60 columns: the visible characters stop before the last column.
  const size_t visible = text.find("\x1b[K") - 1;
  EXPECT_LE(visible, 59u + 6u);  // six bytes of the three umlauts count as three characters
}

}  // namespace
}  // namespace quorbex
