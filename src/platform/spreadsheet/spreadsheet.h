// The spreadsheet application: starting it, opening and creating workbooks in it, showing it, quitting.
//
// The library drives a real spreadsheet application (it runs macros, evaluates names, reads and writes
// the workbook formats) through this small interface. The default starts a private instance of
// LibreOffice Calc and talks to it over UNO (uno/); it exists only when the library was built with the
// LibreOffice SDK, otherwise starting fails with a clear text. Tests install a starter that hands out a
// fake or a shared instance.
//
// Failures are std::runtime_error with a plain description (see quorbex/Workbook.h).
#pragma once

#include <memory>
#include <optional>
#include <string>

#include "platform/installable.h"
#include "quorbex/Workbook.h"

namespace quorbex::platform {

class SpreadsheetApplication {
 public:
  virtual ~SpreadsheetApplication() = default;
  // Opens the workbook at `path` (a password only when given; read-only when asked). Throws with "the
  // file '<path>' does not exist", "... is not a workbook", a wrong-password text, ...
  virtual std::shared_ptr<Workbook> Open(const std::string& path, const std::optional<std::string>& password,
                                         bool read_only) = 0;
  // A new workbook with one sheet.
  virtual std::shared_ptr<Workbook> New() = 0;
  // Whether the application window is shown.
  virtual bool Visible() = 0;
  // Shows or hides the application; throws when it cannot be shown (no display, or a build of the
  // application without a user interface).
  virtual void Visible(bool value) = 0;
  // Whether Visible(true) can work here.
  virtual bool CanShow() = 0;
  // Ends the application: its workbooks are closed without saving, its processes end. Never throws;
  // further calls on it or its workbooks throw.
  virtual void Quit() = 0;
  // Whether the application is still there (not quit, not gone).
  virtual bool Running() = 0;
};

// How the library gets an application: the default starts a new one per call.
class SpreadsheetStarter {
 public:
  virtual ~SpreadsheetStarter() = default;
  virtual std::shared_ptr<SpreadsheetApplication> Start() = 0;
};

// Whether this build has a real spreadsheet application (the LibreOffice SDK was found).
bool HaveSpreadsheetApplication();

// Starts the default application: a private LibreOffice instance (see uno/uno_spreadsheet.h). Throws
// "The spreadsheet application could not be started: ..." when it cannot.
std::shared_ptr<SpreadsheetApplication> StartDefaultSpreadsheetApplication();

// Installs `starter` process-wide (nullptr: the default) and returns the previous one.
std::shared_ptr<SpreadsheetStarter> Install(std::shared_ptr<SpreadsheetStarter> starter);
using SpreadsheetStarterScope = InstallScope<SpreadsheetStarter>;

// Starts an application through the installed starter.
std::shared_ptr<SpreadsheetApplication> StartSpreadsheetApplication();

// "A" for 1, "Z" for 26, "AA" for 27, ...
std::string ColumnLetters(int32_t column);
// "$A$1" for (1, 1).
std::string AbsoluteCell(int32_t row, int32_t column);
// A sheet name as a reference writes it: quoted ('My Sheet', with ' doubled) unless it is a plain word.
std::string QuotedSheetName(const std::string& sheet);

}  // namespace quorbex::platform
