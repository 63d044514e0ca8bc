// Showing a text file to the user in a viewer program, without waiting for it.
//
// The default starts the first of $VISUAL, $EDITOR and xdg-open that names a program found on the
// PATH, with the file as its one argument, in the background: the call returns at once and the viewer
// lives on by itself (no zombie is left behind). The variables may hold a command with arguments
// ("code -w"); they are split at blanks, never interpreted by a shell, so a file name cannot inject
// commands. A host or a test installs its own viewer.
#pragma once

#include <memory>
#include <string>

#include "platform/installable.h"

namespace quorbex::platform {

class TextViewer {
 public:
  virtual ~TextViewer() = default;
  // Starts showing the file and returns at once; false when no viewer could be started.
  virtual bool Open(const std::string& path) = 0;
};

// The Linux default described above.
std::shared_ptr<TextViewer> SystemTextViewer();

// Installs `viewer` process-wide (nullptr: the default) and returns the previous one.
std::shared_ptr<TextViewer> Install(std::shared_ptr<TextViewer> viewer);
using TextViewerScope = InstallScope<TextViewer>;

// Shows `path` in the installed viewer; false when none could be started. Never throws.
bool ShowTextFile(const std::string& path);

}  // namespace quorbex::platform
