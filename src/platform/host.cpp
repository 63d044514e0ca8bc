// The host's plugs (quorbex/host.h), installed into the platform adapters.
#include "quorbex/host.h"

#include <memory>
#include <utility>

#include "platform/message_box.h"
#include "platform/text_viewer.h"

namespace quorbex {


void SetMessageBoxHandler(MessageBoxFunction handler) {
  platform::Install(handler ? platform::MakeMessageBoxHandler(std::move(handler))
                            : std::shared_ptr<platform::MessageBoxHandler>());
}

namespace {
class FunctionTextViewer final : public platform::TextViewer {
 public:
  explicit FunctionTextViewer(TextViewerFunction open) : open_(std::move(open)) {}
  bool Open(const std::string& path) override { return open_(path); }

 private:
  TextViewerFunction open_;
};
}  // namespace

void SetTextViewer(TextViewerFunction viewer) {
  platform::Install(viewer ? std::make_shared<FunctionTextViewer>(std::move(viewer))
                           : std::shared_ptr<platform::TextViewer>());
}

}  // namespace quorbex
