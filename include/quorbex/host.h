// What a host application plugs into the library: how message boxes are shown, how a text file is
// shown to the user, and where progress is drawn. Each replaces a process-wide default; pass an empty
// function (or nullptr) to go back to it.
//
// Defaults: message boxes are written as "[title] text" to stderr and answer with the default button;
// text files open in $VISUAL, $EDITOR or xdg-open; progress is a one-line bar on stderr when that is a
// terminal. The settings store is an INI file (QUORBEX_SETTINGS names another).
#pragma once

#include <cstdint>
#include <functional>
#include <string>

namespace quorbex {

// (text, style, title) -> the button pressed. Style and button values are the classic ones (vbOKOnly 0,
// vbYesNo 4, vbCritical 16, vbExclamation 48, vbInformation 64; vbOK 1, vbYes 6, vbNo 7).
using MessageBoxFunction = std::function<int32_t(const std::string& text, int32_t style, const std::string& title)>;
void SetMessageBoxHandler(MessageBoxFunction handler);

// Shows the file at `path`; returns false when it could not.
using TextViewerFunction = std::function<bool(const std::string& path)>;
void SetTextViewer(TextViewerFunction viewer);

}  // namespace quorbex
