// ExcelTools: drives a spreadsheet application for a client: opens or creates one workbook, shows the
// application, adds macro code to the workbook and runs its macros, reads its defined names (Names),
// and closes it.
//
// The application is LibreOffice Calc, started privately for this object on first use (its own
// process group and temporary user profile) and ended by WBClose (unless KeepExcelOpen) or when this
// object ends; it also ends when the client process dies, and when a call into it hangs (after a time
// limit, with "the spreadsheet application did not answer within N s and was stopped"). A DataLayer
// hands out its own ExcelTools through DataLayer::Excel().
//
// Error convention: nothing is raised. A failing member puts a text into ErrorStatus (replacing what
// was there) and returns its failure value (False, nothing, Empty).
//
// Macros: InjectMacroByString and InjectMacroByFile add a new module (Module1, Module2, ...) to the
// workbook's macro project; the code is classic Basic with the original spreadsheet object model
// (Range("A1").Value = 1), which the application runs in its compatibility mode. Modules are kept when
// the workbook is saved as .ods; .xlsx and .xlsm files keep no macro modules.
//
// Thread safety: none; an ExcelTools belongs to the thread that created it.
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "quorbex/Workbook.h"
#include "quorbex/variant.h"

namespace quorbex {

namespace platform {
class SpreadsheetApplication;
}  // namespace platform
class clsNames;
class DataLayer;

class ExcelTools : public Object, public std::enable_shared_from_this<ExcelTools> {
 public:
  ExcelTools();
  // Closes an open workbook (without saving) and ends the application this object started.
  ~ExcelTools() override;
  ExcelTools(const ExcelTools&) = delete;
  ExcelTools& operator=(const ExcelTools&) = delete;

  // The last error text ("" when none).
  std::string ErrorStatus;

  // Opens the workbook at strPath (with strPassword when given; read-only when bolReadOnly), starting
  // the application first when this object has none. True on success; otherwise False with "WBOpen: "
  // + the reason ("the file '<path>' does not exist", "... is not a workbook", "... could not be opened
  // (wrong password?) ...", "The spreadsheet application could not be started ..."). A workbook opened
  // before stays open in the application until it ends.
  bool WBOpen(const std::string& strPath, const std::optional<std::string>& strPassword = std::nullopt,
              bool bolReadOnly = false);
  // Creates a new workbook (starting the application when needed). False with "WBNew: " + the reason.
  bool WBNew();
  // Closes the workbook, saved when bolWithSave is True (not saved when False or not given: there is no
  // one to ask), then ends the application unless KeepExcelOpen. Failures do not stop it; a failed
  // save is reported as "WBClose: " + the reason. Always Empty.
  Variant WBClose(std::optional<bool> bolWithSave = std::nullopt, bool KeepExcelOpen = false);
  // The open workbook (quorbex/Workbook.h); nothing, with "Workbook not loaded. Please open Workbook
  // before requesting Object!", when none is open.
  std::shared_ptr<Workbook> WBObject();
  bool IsWorkbookOpen() const { return workbook_open_; }
  // Shows or hides the application. Where it cannot be shown (no display, or an installation without a
  // user interface) it stays hidden and ErrorStatus says why ("ShowApp: ...").
  void ShowApp(bool value);
  // Runs a macro of the workbook ("Name", "Module.Name" or "Book!Module.Name"). A macro that does not
  // exist, or fails, leaves the reason in ErrorStatus. Always Empty.
  Variant RunMacro(const std::string& strMacro);
  // Adds a module with the code read from the file strPath. False with "InjectMacroByFile: Path '<path>'
  // existiert nicht!" when there is no such file, "InjectMacroByFile: Error: " + the reason otherwise.
  bool InjectMacroByFile(const std::string& strPath);
  // Adds a module with the code strMacro. False with "InjectMacroByString: " + the reason.
  bool InjectMacroByString(const std::string& strMacro);
  // ErrorStatus becomes "".
  void ClearErr() { ErrorStatus.clear(); }
  // The defined names of the workbook (a new clsNames whose Parent is this object).
  std::shared_ptr<clsNames> Names();

 private:
  friend class DataLayer;
  // The application, started when this object has none.
  std::shared_ptr<platform::SpreadsheetApplication> Application();
  void Quit();

  std::shared_ptr<platform::SpreadsheetApplication> application_;
  bool application_created_ = false;
  std::shared_ptr<Workbook> workbook_;
  bool workbook_open_ = false;
  std::vector<std::shared_ptr<Workbook>> earlier_;  // workbooks opened before the current one
};

}  // namespace quorbex
