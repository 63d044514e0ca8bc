#include "platform/message_box.h"

#include <cstdio>
#include <utility>

namespace quorbex::platform {

namespace {

class StderrHandler final : public MessageBoxHandler {
 public:
  int32_t Show(const std::string& text, int32_t style, const std::string& title) override {
    // One write per prompt so that prompts from several threads do not interleave mid-line.
    std::string line = "[" + title + "] " + text + "\n";
    std::fwrite(line.data(), 1, line.size(), stderr);
    std::fflush(stderr);
    return DefaultButton(style);
  }
};

class FunctionHandler final : public MessageBoxHandler {
 public:
  explicit FunctionHandler(std::function<int32_t(const std::string&, int32_t, const std::string&)> show)
      : show_(std::move(show)) {}
  int32_t Show(const std::string& text, int32_t style, const std::string& title) override {
    return show_ ? show_(text, style, title) : DefaultButton(style);
  }

 private:
  std::function<int32_t(const std::string&, int32_t, const std::string&)> show_;
};

Installed<MessageBoxHandler>& Slot() {
  static Installed<MessageBoxHandler> slot(StderrMessageBoxHandler());
  return slot;
}

}  // namespace

int32_t DefaultButton(int32_t style) {
  // Rows: button sets; columns: default button 1, 2, 3. A set without a third button answers with its
  // first one, as if no valid default had been chosen.
  static constexpr int32_t kButtons[6][3] = {
      {vbOK, vbOK, vbOK},               // vbOKOnly
      {vbOK, vbCancel, vbOK},           // vbOKCancel
      {vbAbort, vbRetry, vbIgnore},     // vbAbortRetryIgnore
      {vbYes, vbNo, vbCancel},          // vbYesNoCancel
      {vbYes, vbNo, vbYes},             // vbYesNo
      {vbRetry, vbCancel, vbRetry},     // vbRetryCancel
  };
  int32_t set = style & 0x0F;
  if (set > vbRetryCancel) set = vbOKOnly;
  int32_t which = (style & 0x300) >> 8;  // 3 is no valid choice: first button
  if (which > 2) which = 0;
  return kButtons[set][which];
}

std::shared_ptr<MessageBoxHandler> StderrMessageBoxHandler() {
  static const auto handler = std::make_shared<StderrHandler>();
  return handler;
}

std::shared_ptr<MessageBoxHandler> MakeMessageBoxHandler(
    std::function<int32_t(const std::string& text, int32_t style, const std::string& title)> show) {
  return std::make_shared<FunctionHandler>(std::move(show));
}

std::shared_ptr<MessageBoxHandler> Install(std::shared_ptr<MessageBoxHandler> handler) {
  return Slot().Set(std::move(handler));
}

int32_t MsgBox(const std::string& text, int32_t style, const std::string& title) {
  try {
    return Slot().Get()->Show(text, style, title);
  } catch (...) {
    return DefaultButton(style);
  }
}

}  // namespace quorbex::platform
