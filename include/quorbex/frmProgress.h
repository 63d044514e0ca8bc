// frmProgress: the progress display of long loops (sorting, pivots, XML data files).
//
// A model of a small non-modal window with three labels: the bar lblProgress, whose width grows from
// 0 to 6615 twips, the caller's text lblDescription, and the percentage lblPercent ("50%"). The loop
// calls SetProgress once per step; the caller shows the window the first time and unloads it when
// done. Drawing is left to a Renderer: the default draws a one-line bar on stderr when stderr is a
// terminal and nothing otherwise; a host installs its own with InstallRenderer (a GUI dialog, a test
// recorder).
//
// Thread safety: none; a window belongs to the thread that drives it. InstallRenderer is
// process-wide and may be called from any thread.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "quorbex/byref.h"
#include "quorbex/variant.h"

namespace quorbex {

class frmProgress : public Object {
 public:
  // The full width of the bar in twips.
  static constexpr double kBarWidth = 6615.0;

  struct Label {
    double Width = 0.0;   // in twips; only the bar's width changes
    std::string Caption;  // empty for the bar
  };

  // Draws a window. Calls arrive on the thread that drives the window; a renderer shared by several
  // threads must guard itself. Implementations must not throw.
  class Renderer {
   public:
    virtual ~Renderer() = default;
    // The window appears, or is drawn anew with changed labels.
    virtual void Draw(const Label& lblProgress, const Label& lblDescription, const Label& lblPercent) = 0;
    // The window disappears.
    virtual void Close() = 0;
  };

  frmProgress();
  ~frmProgress() override;  // closes the window if it is still shown
  frmProgress(const frmProgress&) = delete;
  frmProgress& operator=(const frmProgress&) = delete;

  // Shows step `position` of `total`: a position beyond the total is set to the total (the caller's
  // variable too); the bar becomes 6615 / total * position twips wide, lblDescription shows
  // `description`, lblPercent position / total * 100 rounded half to even, followed by "%".
  // Raises AutomationError 11 "Division by zero" for a total of 0 and 380 "Invalid property value"
  // when the bar would get a negative width; the labels keep their previous state then.
  // While the window is shown, the renderer is asked to draw whenever the percentage, the
  // description or the bar's width in whole pixels (15 twips) changes.
  void SetProgress(ByRef<int32_t> position, ByRef<int32_t> total, const std::string& description);

  const Label& lblProgress() const noexcept { return progress_; }
  const Label& lblDescription() const noexcept { return description_; }
  const Label& lblPercent() const noexcept { return percent_; }

  // Shows the window (without waiting) and draws it; showing a shown window does nothing more.
  void Show();
  // Closes the window and returns the labels to their initial state, as a freshly loaded form.
  void Unload();
  // True between Show and Unload.
  bool Visible() const noexcept { return visible_; }

  // Installs the renderer every window draws with from now on (nullptr: the default) and returns the
  // previous one. A shown window keeps the renderer it was shown with.
  static std::shared_ptr<Renderer> InstallRenderer(std::shared_ptr<Renderer> renderer);

 private:
  void Draw();

  Label progress_;
  Label description_;
  Label percent_;
  bool visible_ = false;
  std::shared_ptr<Renderer> renderer_;  // the renderer of the shown window
  int64_t drawn_pixels_ = -1;            // bar width last drawn, in pixels
  int64_t percent_value_ = 0;            // the number in lblPercent
  bool percent_set_ = false;
  bool dirty_ = false;                   // labels changed since the last draw
};

}  // namespace quorbex
