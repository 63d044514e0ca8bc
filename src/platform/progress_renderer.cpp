#include "platform/progress_renderer.h"

#include <unistd.h>

#include <algorithm>
#include <string>

#include "platform/installable.h"
#include "platform/terminal.h"

namespace quorbex::platform {

namespace {

constexpr int kBarColumns = 30;

class SilentRenderer final : public ProgressRenderer {
 public:
  void Draw(const frmProgress::Label&, const frmProgress::Label&, const frmProgress::Label&) override {}
  void Close() override {}
};

class StreamRenderer final : public ProgressRenderer {
 public:
  StreamRenderer(std::FILE* stream, int columns) : stream_(stream), columns_(std::max(columns, 20)) {}

  void Draw(const frmProgress::Label& bar, const frmProgress::Label& description,
            const frmProgress::Label& percent) override {
    if (!stream_) return;
    double fraction = bar.Width / frmProgress::kBarWidth;
    fraction = std::clamp(fraction, 0.0, 1.0);
    const int filled = static_cast<int>(fraction * kBarColumns + 0.5);
    std::string line = "\r[";
    line.append(static_cast<size_t>(filled), '#');
    line.append(static_cast<size_t>(kBarColumns - filled), '.');
    line += "] ";
    std::string pct = percent.Caption.substr(0, 8);
    if (pct.size() < 4) line.append(4 - pct.size(), ' ');
    line += pct;
    line += ' ';
    // Room left on the line, counted in characters; never cut a UTF-8 sequence apart.
    const size_t used = 1 + 1 + kBarColumns + 2 + std::max<size_t>(pct.size(), 4) + 1;
    size_t room = columns_ > static_cast<int>(used) + 1 ? static_cast<size_t>(columns_) - used - 1 : 0;
    for (size_t i = 0; i < description.Caption.size(); ++i) {
      const unsigned char c = static_cast<unsigned char>(description.Caption[i]);
      const bool continuation = (c & 0xC0) == 0x80;
      if (!continuation) {
        if (room == 0) break;
        --room;
      }
      // Control characters would move the cursor; show them as blanks.
      line += c < 0x20 || c == 0x7F ? ' ' : static_cast<char>(c);
    }
    line += "\x1b[K";
    std::fwrite(line.data(), 1, line.size(), stream_);
    std::fflush(stream_);
    drawn_ = true;
  }

  void Close() override {
    if (!stream_ || !drawn_) return;
    static constexpr char kClear[] = "\r\x1b[K";
    std::fwrite(kClear, 1, sizeof kClear - 1, stream_);
    std::fflush(stream_);
    drawn_ = false;
  }

 private:
  std::FILE* stream_;
  int columns_;
  bool drawn_ = false;
};

Installed<ProgressRenderer>& Slot() {
  static Installed<ProgressRenderer> slot(DefaultProgressRenderer());
  return slot;
}

}  // namespace

std::shared_ptr<ProgressRenderer> DefaultProgressRenderer() {
  static const std::shared_ptr<ProgressRenderer> renderer = []() -> std::shared_ptr<ProgressRenderer> {
    const int fd = fileno(stderr);
    if (fd >= 0 && isatty(fd)) return std::make_shared<StreamRenderer>(stderr, TerminalColumns(fd));
    return std::make_shared<SilentRenderer>();
  }();
  return renderer;
}

std::shared_ptr<ProgressRenderer> MakeStreamProgressRenderer(std::FILE* stream, int columns) {
  return std::make_shared<StreamRenderer>(stream, columns);
}

std::shared_ptr<ProgressRenderer> Install(std::shared_ptr<ProgressRenderer> renderer) {
  return Slot().Set(std::move(renderer));
}

std::shared_ptr<ProgressRenderer> CurrentProgressRenderer() { return Slot().Get(); }

}  // namespace quorbex::platform
