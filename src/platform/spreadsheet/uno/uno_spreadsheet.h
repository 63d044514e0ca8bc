// The LibreOffice Calc implementation of the spreadsheet application (see uno_spreadsheet.cpp).
//
// Each call of StartUnoSpreadsheetApplication starts a private office instance: its own process group
// (killed when the application quits, when this process dies, or when a call overruns its time limit),
// its own temporary user profile (removed at the end), and a named pipe we connect to. The office
// program is QUORBEX_SOFFICE when that is set, else the installation's soffice. The office runs
// headless unless the installation has a user interface and there is a display: only then can it be
// shown.
#pragma once

#include <chrono>
#include <memory>

#include "platform/spreadsheet/spreadsheet.h"

namespace quorbex::platform {

// Starts a new instance and connects to it; throws "The spreadsheet application could not be started
// ('<program>'): <reason>" when it does not come up within a minute.
std::shared_ptr<SpreadsheetApplication> StartUnoSpreadsheetApplication();

// The time limit of each call into the application (60 s unless set); a call that overruns it ends the
// application, and fails with "the spreadsheet application did not answer within N s and was stopped".
// No effect on other implementations.
void SetUnoCallLimit(SpreadsheetApplication& application, std::chrono::milliseconds limit);

// The process group of the office of a UNO application (-1 for others or once it has ended).
int UnoOfficeProcessGroup(SpreadsheetApplication& application);

}  // namespace quorbex::platform
