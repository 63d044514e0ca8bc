// Drawing the progress window.
//
// frmProgress keeps the model (bar width, description, percentage) and hands it to the installed
// renderer. The default renderer draws a one-line bar on stderr when stderr is a terminal and stays
// silent otherwise, so batch runs and logs never fill with bars. A host installs its own renderer
// through frmProgress::InstallRenderer (public) or Install here.
#pragma once

#include <cstdio>
#include <memory>

#include "quorbex/frmProgress.h"

namespace quorbex::platform {

using ProgressRenderer = frmProgress::Renderer;

// The default: a StreamProgressRenderer on stderr when stderr is a terminal, else one that draws
// nothing.
std::shared_ptr<ProgressRenderer> DefaultProgressRenderer();

// Draws on `stream` whatever it is: "\r[#####.....]  50% description", cut to `columns`
// characters, and on Close clears the line. Writes nothing until the first draw.
std::shared_ptr<ProgressRenderer> MakeStreamProgressRenderer(std::FILE* stream, int columns = 80);

// Installs `renderer` process-wide (nullptr: the default) and returns the previous one.
std::shared_ptr<ProgressRenderer> Install(std::shared_ptr<ProgressRenderer> renderer);

// The renderer installed now.
std::shared_ptr<ProgressRenderer> CurrentProgressRenderer();

}  // namespace quorbex::platform
