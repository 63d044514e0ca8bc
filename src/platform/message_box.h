// Message boxes: the one way the library asks its user something.
//
// The library never draws a dialog itself. It hands (text, style, title) to the installed
// MessageBoxHandler and gets back the button that was pressed. A desktop host installs a handler that
// shows a real dialog; the default writes "[title] text" to stderr and answers with the style's
// default button, so unattended programs never block on a question.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>

#include "platform/installable.h"

namespace quorbex::platform {

// Button sets (style & 0x0F).
inline constexpr int32_t vbOKOnly = 0;
inline constexpr int32_t vbOKCancel = 1;
inline constexpr int32_t vbAbortRetryIgnore = 2;
inline constexpr int32_t vbYesNoCancel = 3;
inline constexpr int32_t vbYesNo = 4;
inline constexpr int32_t vbRetryCancel = 5;
// Icons (style & 0x70).
inline constexpr int32_t vbCritical = 16;
inline constexpr int32_t vbQuestion = 32;
inline constexpr int32_t vbExclamation = 48;
inline constexpr int32_t vbInformation = 64;
// Default button (style & 0x300).
inline constexpr int32_t vbDefaultButton1 = 0;
inline constexpr int32_t vbDefaultButton2 = 256;
inline constexpr int32_t vbDefaultButton3 = 512;

// Buttons a handler answers with.
inline constexpr int32_t vbOK = 1;
inline constexpr int32_t vbCancel = 2;
inline constexpr int32_t vbAbort = 3;
inline constexpr int32_t vbRetry = 4;
inline constexpr int32_t vbIgnore = 5;
inline constexpr int32_t vbYes = 6;
inline constexpr int32_t vbNo = 7;

class MessageBoxHandler {
 public:
  virtual ~MessageBoxHandler() = default;
  // Shows `text` under `title` with the buttons and icon of `style`; returns the button pressed
  // (vbOK ... vbNo). Must not throw.
  virtual int32_t Show(const std::string& text, int32_t style, const std::string& title) = 0;
};

// The button a style preselects: the first button of its set, or the second/third with
// vbDefaultButton2/3 when the set has that many. An unknown button set counts as vbOKOnly.
int32_t DefaultButton(int32_t style);

// The default handler: "[title] text" on stderr, answer DefaultButton(style).
std::shared_ptr<MessageBoxHandler> StderrMessageBoxHandler();

// Wraps a plain function as a handler, for hosts that do not want to write a class.
std::shared_ptr<MessageBoxHandler> MakeMessageBoxHandler(
    std::function<int32_t(const std::string& text, int32_t style, const std::string& title)> show);

// Installs `handler` process-wide (nullptr: the default) and returns the previous one.
std::shared_ptr<MessageBoxHandler> Install(std::shared_ptr<MessageBoxHandler> handler);
using MessageBoxScope = InstallScope<MessageBoxHandler>;

// Asks the installed handler. A handler that throws counts as the default button.
int32_t MsgBox(const std::string& text, int32_t style = vbOKOnly, const std::string& title = "");

}  // namespace quorbex::platform
