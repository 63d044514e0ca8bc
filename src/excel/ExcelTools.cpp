// ExcelTools: one workbook in a spreadsheet application, driven for a client.
#include "quorbex/ExcelTools.h"

#include <exception>

#include "platform/files.h"
#include "platform/spreadsheet/spreadsheet.h"
#include "quorbex/clsNames.h"
#include "value/failure.h"

namespace quorbex {

using internal::FailureDescription;

namespace {

constexpr const char* kNotLoaded = "Workbook not loaded. Please open Workbook before requesting Object!";

}  // namespace

ExcelTools::ExcelTools() = default;

ExcelTools::~ExcelTools() {
  if (workbook_open_) WBClose(false, true);
  if (application_created_) Quit();
}

std::shared_ptr<platform::SpreadsheetApplication> ExcelTools::Application() {
  if (!application_created_ || !application_ || !application_->Running()) {
    application_ = platform::StartSpreadsheetApplication();
    application_created_ = true;
  }
  return application_;
}

void ExcelTools::Quit() {
  earlier_.clear();
  if (application_) application_->Quit();
  application_.reset();
  application_created_ = false;
}

bool ExcelTools::WBOpen(const std::string& strPath, const std::optional<std::string>& strPassword,
                        bool bolReadOnly) {
  try {
    auto book = Application()->Open(strPath, strPassword, bolReadOnly);
    if (workbook_) earlier_.push_back(std::move(workbook_));
    workbook_ = std::move(book);
    workbook_open_ = true;
    return true;
  } catch (const std::exception& e) {
    ErrorStatus = "WBOpen: " + FailureDescription(e);
    return false;
  }
}

bool ExcelTools::WBNew() {
  try {
    auto book = Application()->New();
    if (workbook_) earlier_.push_back(std::move(workbook_));
    workbook_ = std::move(book);
    workbook_open_ = true;
    return true;
  } catch (const std::exception& e) {
    ErrorStatus = "WBNew: " + FailureDescription(e);
    return false;
  }
}

Variant ExcelTools::WBClose(std::optional<bool> bolWithSave, bool KeepExcelOpen) {
  if (workbook_) {
    try {
      workbook_->Close(bolWithSave.value_or(false));
    } catch (const std::exception& e) {
      if (bolWithSave.value_or(false)) ErrorStatus = "WBClose: " + FailureDescription(e);
    }
  }
  workbook_.reset();
  workbook_open_ = false;
  if (!KeepExcelOpen) Quit();
  return {};
}

std::shared_ptr<Workbook> ExcelTools::WBObject() {
  if (!workbook_open_) {
    ErrorStatus = kNotLoaded;
    return nullptr;
  }
  return workbook_;
}

void ExcelTools::ShowApp(bool value) {
  try {
    Application()->Visible(value);
  } catch (const std::exception& e) {
    ErrorStatus = "ShowApp: " + FailureDescription(e);
  }
}

Variant ExcelTools::RunMacro(const std::string& strMacro) {
  try {
    if (!workbook_open_) throw std::runtime_error("no workbook is open");
    workbook_->RunMacro(strMacro);
  } catch (const std::exception& e) {
    ErrorStatus = FailureDescription(e);
  }
  return {};
}

bool ExcelTools::InjectMacroByFile(const std::string& strPath) {
  if (!platform::FileExists(strPath)) {
    ErrorStatus = "InjectMacroByFile: Path '" + strPath + "' existiert nicht!";
    return false;
  }
  try {
    if (!workbook_open_) throw std::runtime_error("no workbook is open");
    const std::optional<std::string> code = platform::ReadFile(strPath);
    if (!code) throw std::runtime_error("the file '" + strPath + "' cannot be read");
    workbook_->AddModule(*code);
    return true;
  } catch (const std::exception& e) {
    ErrorStatus = "InjectMacroByFile: Error: " + FailureDescription(e);
    return false;
  }
}

bool ExcelTools::InjectMacroByString(const std::string& strMacro) {
  try {
    if (!workbook_open_) throw std::runtime_error("no workbook is open");
    workbook_->AddModule(strMacro);
    return true;
  } catch (const std::exception& e) {
    ErrorStatus = "InjectMacroByString: " + FailureDescription(e);
    return false;
  }
}

std::shared_ptr<clsNames> ExcelTools::Names() {
  auto names = std::make_shared<clsNames>();
  names->Parent(shared_from_this());
  return names;
}

}  // namespace quorbex
