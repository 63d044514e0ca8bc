#include <cmath>

#include "platform/progress_renderer.h"
#include "quorbex/errors.h"
#include "quorbex/frmProgress.h"
#include "value/number_text.h"

namespace quorbex {

using namespace internal;

namespace {

// One pixel at the usual 96 dpi; finer changes of the bar are not worth a redraw.
constexpr double kTwipsPerPixel = 15.0;

}  // namespace

frmProgress::frmProgress() = default;

frmProgress::~frmProgress() {
  if (visible_ && renderer_) {
    try {
      renderer_->Close();
    } catch (...) {
      // A renderer that fails while the window goes away has nothing left to show.
    }
  }
}

void frmProgress::SetProgress(ByRef<int32_t> position, ByRef<int32_t> total, const std::string& description) {
  int32_t& pos = position.get();
  const int32_t tot = total.get();
  if (pos > tot) pos = tot;
  if (tot == 0) RaiseRuntimeError(errnum::kDivisionByZero);
  // The same order of operations as the width and percentage are defined with, so that halves round
  // the same way.
  const double width = kBarWidth / tot * pos;
  if (width < 0) RaiseRuntimeError(errnum::kInvalidPropertyValue);
  const double percent = internal::RoundHalfEven(static_cast<double>(pos) / tot * 100.0);

  progress_.Width = width;
  if (description_.Caption != description) {
    description_.Caption = description;
    dirty_ = true;
  }
  const auto percent_value = static_cast<int64_t>(percent);
  if (!percent_set_ || percent_value != percent_value_) {
    percent_value_ = percent_value;
    percent_set_ = true;
    percent_.Caption = std::to_string(percent_value) + "%";
    dirty_ = true;
  }
  if (static_cast<int64_t>(width / kTwipsPerPixel) != drawn_pixels_) dirty_ = true;
  if (visible_ && dirty_) Draw();
}

void frmProgress::Show() {
  if (!visible_) {
    visible_ = true;
    renderer_ = platform::CurrentProgressRenderer();
    Draw();
  } else if (dirty_) {
    Draw();
  }
}

void frmProgress::Unload() {
  if (visible_ && renderer_) {
    try {
      renderer_->Close();
    } catch (...) {
      // Closing is best effort; the model is reset either way.
    }
  }
  visible_ = false;
  renderer_.reset();
  progress_ = Label{};
  description_ = Label{};
  percent_ = Label{};
  drawn_pixels_ = -1;
  percent_value_ = 0;
  percent_set_ = false;
  dirty_ = false;
}

void frmProgress::Draw() {
  dirty_ = false;
  drawn_pixels_ = static_cast<int64_t>(progress_.Width / kTwipsPerPixel);
  if (!renderer_) return;
  try {
    renderer_->Draw(progress_, description_, percent_);
  } catch (...) {
    // A failing renderer must not stop the loop it reports on.
  }
}

std::shared_ptr<frmProgress::Renderer> frmProgress::InstallRenderer(std::shared_ptr<Renderer> renderer) {
  return platform::Install(std::move(renderer));
}

}  // namespace quorbex
