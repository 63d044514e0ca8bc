// The spreadsheet application as a private LibreOffice Calc instance driven over UNO.
//
// Each application is its own office process group (OfficeProcess: private profile, watchdog) that
// listens on a named pipe; we connect to it with retries until it accepts. Every call into it is
// announced to the watchdog with a time limit, so a hanging office is ended and the call fails with a
// clear text instead of blocking the client.
//
// Notes on the office's model, where it differs from what our callers expect:
// - References to cells are written "$Sheet1.$A$1"; NameReference builds "Sheet1!$A$1" from the
//   range's address instead of rewriting that text.
// - Dates and truth values are numbers with a number format; the format decides how a cell reads.
// - Macro code runs in the office's compatibility mode for the original application's object model.
#include <signal.h>

#include <algorithm>
#include <cctype>
#include <chrono>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <map>
#include <mutex>
#include <stdexcept>
#include <thread>

#include <com/sun/star/beans/NamedValue.hpp>
#include <com/sun/star/beans/PropertyValue.hpp>
#include <com/sun/star/beans/XPropertySet.hpp>
#include <com/sun/star/bridge/UnoUrlResolver.hpp>
#include <com/sun/star/connection/NoConnectException.hpp>
#include <com/sun/star/container/XIndexAccess.hpp>
#include <com/sun/star/container/XNameAccess.hpp>
#include <com/sun/star/container/XNameContainer.hpp>
#include <com/sun/star/container/XNamed.hpp>
#include <com/sun/star/document/MacroExecMode.hpp>
#include <com/sun/star/frame/Desktop.hpp>
#include <com/sun/star/frame/XController.hpp>
#include <com/sun/star/frame/XDesktop2.hpp>
#include <com/sun/star/frame/XFrame.hpp>
#include <com/sun/star/frame/XModel.hpp>
#include <com/sun/star/frame/XStorable.hpp>
#include <com/sun/star/lang/Locale.hpp>
#include <com/sun/star/lang/XComponent.hpp>
#include <com/sun/star/lang/XMultiServiceFactory.hpp>
#include <com/sun/star/awt/XWindow.hpp>
#include <com/sun/star/script/XLibraryContainer.hpp>
#include <com/sun/star/script/provider/XScript.hpp>
#include <com/sun/star/script/provider/XScriptProvider.hpp>
#include <com/sun/star/script/provider/XScriptProviderSupplier.hpp>
#include <com/sun/star/script/vba/XVBACompatibility.hpp>
#include <com/sun/star/sheet/FormulaResult.hpp>
#include <com/sun/star/sheet/XCellFormatRangesSupplier.hpp>
#include <com/sun/star/sheet/XCellRangeAddressable.hpp>
#include <com/sun/star/sheet/XCellRangeData.hpp>
#include <com/sun/star/sheet/XCellRangeReferrer.hpp>
#include <com/sun/star/sheet/XNamedRange.hpp>
#include <com/sun/star/sheet/XNamedRanges.hpp>
#include <com/sun/star/sheet/XSheetCellCursor.hpp>
#include <com/sun/star/sheet/XSheetCellRangeContainer.hpp>
#include <com/sun/star/sheet/XSpreadsheet.hpp>
#include <com/sun/star/sheet/XSpreadsheetDocument.hpp>
#include <com/sun/star/sheet/XSpreadsheets.hpp>
#include <com/sun/star/sheet/XUsedAreaCursor.hpp>
#include <com/sun/star/table/CellContentType.hpp>
#include <com/sun/star/table/CellRangeAddress.hpp>
#include <com/sun/star/table/XCell.hpp>
#include <com/sun/star/table/XCellRange.hpp>
#include <com/sun/star/table/XColumnRowRange.hpp>
#include <com/sun/star/table/XTableColumns.hpp>
#include <com/sun/star/text/XTextRange.hpp>
#include <com/sun/star/uno/XComponentContext.hpp>
#include <com/sun/star/util/Date.hpp>
#include <com/sun/star/util/NumberFormat.hpp>
#include <com/sun/star/util/XCloseable.hpp>
#include <com/sun/star/util/XModifiable.hpp>
#include <com/sun/star/util/XNumberFormatTypes.hpp>
#include <com/sun/star/util/XNumberFormats.hpp>
#include <com/sun/star/util/XNumberFormatsSupplier.hpp>
#include <cppuhelper/bootstrap.hxx>
#include <cppuhelper/exc_hlp.hxx>
#include <rtl/ustring.hxx>

#include "platform/spreadsheet/office_process.h"
#include "platform/spreadsheet/spreadsheet.h"
#include "platform/spreadsheet/uno/uno_spreadsheet.h"

namespace quorbex::platform {

namespace {

namespace css = ::com::sun::star;
using css::uno::Any;
using css::uno::Reference;
using css::uno::Sequence;
using css::uno::UNO_QUERY;
using css::uno::UNO_QUERY_THROW;
using rtl::OUString;

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

constexpr milliseconds kStartLimit{60000};
constexpr milliseconds kQuitLimit{10000};
// The temporary cell a constant name is evaluated in: the last column of the first row.
constexpr int32_t kScratchColumn = 1023;

OUString U(const std::string& text) { return OStringToOUString(rtl::OString(text.data(), text.size()), RTL_TEXTENCODING_UTF8); }

std::string S(const OUString& text) {
  const rtl::OString utf8 = OUStringToOString(text, RTL_TEXTENCODING_UTF8);
  return std::string(utf8.getStr(), utf8.getLength());
}

css::beans::PropertyValue Property(const char* name, const Any& value) {
  css::beans::PropertyValue property;
  property.Name = OUString::createFromAscii(name);
  property.Value = value;
  return property;
}

std::string Lower(std::string text) {
  for (char& c : text) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  return text;
}

std::string Extension(const std::string& path) { return Lower(std::filesystem::path(path).extension().string()); }

// The office's export filter for a file extension.
const char* FilterFor(const std::string& path) {
  const std::string extension = Extension(path);
  if (extension == ".ods") return "calc8";
  if (extension == ".xlsx") return "Calc MS Excel 2007 XML";
  if (extension == ".xlsm") return "Calc MS Excel 2007 VBA XML";
  if (extension == ".xls") return "MS Excel 97";
  throw std::runtime_error("cannot save as '" + path + "': the extension names no workbook format (.ods, .xlsx, .xlsm, .xls)");
}

std::string FileUrl(const std::string& path) {
  std::string absolute = std::filesystem::absolute(path).lexically_normal().string();
  static const char* hex = "0123456789ABCDEF";
  std::string url = "file://";
  for (unsigned char c : absolute) {
    if (std::isalnum(c) || strchr("/-._~", c)) {
      url += static_cast<char>(c);
    } else {
      url += '%';
      url += hex[c >> 4];
      url += hex[c & 15];
    }
  }
  return url;
}

// The client side of UNO, made once per process. The bootstrap variable must point at the office's
// fundamentalrc before the first bootstrap, or the bootstrap crashes.
Reference<css::uno::XComponentContext> LocalContext() {
  static std::once_flag once;
  static Reference<css::uno::XComponentContext>* context = nullptr;
  static std::string failure;
  std::call_once(once, [] {
    setenv("URE_BOOTSTRAP", "vnd.sun.star.pathname:" QUORBEX_LIBREOFFICE_PROGRAM "/fundamentalrc", 1);
    // A write to a pipe whose office has gone must fail with an error, not end this process.
    struct sigaction current {};
    if (sigaction(SIGPIPE, nullptr, &current) == 0 && current.sa_handler == SIG_DFL) signal(SIGPIPE, SIG_IGN);
    try {
      // Kept for the life of the process: the UNO runtime is not meant to be torn down and set up again.
      context = new Reference<css::uno::XComponentContext>(cppu::defaultBootstrap_InitialComponentContext());
    } catch (const css::uno::Exception& e) {
      failure = S(e.Message);
    }
  });
  if (!context || !context->is()) throw std::runtime_error("the UNO runtime could not be started: " + failure);
  return *context;
}

bool HasUserInterface() {
  std::error_code error;
  for (const auto& entry : std::filesystem::directory_iterator(QUORBEX_LIBREOFFICE_PROGRAM, error)) {
    if (entry.path().filename().string().rfind("libvclplug_", 0) == 0) return true;
  }
  return false;
}

bool HasDisplay() {
  const char* x = std::getenv("DISPLAY");
  const char* wayland = std::getenv("WAYLAND_DISPLAY");
  return (x && *x) || (wayland && *wayland);
}

std::string ExceptionText() {
  const Any caught = cppu::getCaughtException();
  css::uno::Exception exception;
  std::string text;
  if (caught >>= exception) text = S(exception.Message);
  // The office often adds its source location after the text: keep the text alone.
  for (const char* location : {" at /", " at ./"}) {
    if (auto at = text.find(location); at != std::string::npos) text.erase(at);
  }
  if (auto at = text.find("\n"); at != std::string::npos && at > 0) text.erase(at);
  if (text.empty()) text = S(caught.getValueTypeName());
  return text;
}

enum class CellKind { Other, Number, Date, DateTime, Boolean };

class UnoApplication;

class UnoWorkbook : public Workbook {
 public:
  UnoWorkbook(std::shared_ptr<UnoApplication> app, Reference<css::lang::XComponent> document, std::string path)
      : app_(std::move(app)), document_(std::move(document)), path_(std::move(path)) {}
  ~UnoWorkbook() override;

  std::string FullName() override { return path_; }
  std::vector<std::string> SheetNames() override;
  void AddSheet(const std::string& name) override;
  int32_t MaxRows() override;
  CellBlock ReadCells(const std::string& sheet, int32_t top, int32_t left, int32_t rows, int32_t columns) override;
  void WriteCells(const std::string& sheet, int32_t top, int32_t left, const CellBlock& cells) override;
  CellBlock ReadUsedRange(const std::string& sheet) override;
  std::vector<std::string> Names() override;
  std::string NameReference(const std::string& name) override;
  Variant NameValue(const std::string& name) override;
  CellBlock NameCells(const std::string& name) override;
  std::string AddModule(const std::string& code) override;
  void RunMacro(const std::string& macro) override;
  void Save() override;
  void SaveAs(const std::string& path, const std::string& password) override;
  void Close(bool save) override;

  // Closes without saving and without asking the office to do anything when it has gone.
  void Abandon();
  void Show(bool visible);

 private:
  template <class F>
  auto Call(F&& body);
  Reference<css::lang::XComponent> Document();
  Reference<css::sheet::XSpreadsheet> Sheet(const std::string& name);
  Reference<css::sheet::XNamedRange> FindName(const std::string& name, Reference<css::sheet::XSpreadsheet>* scope);
  CellBlock ReadRange(const Reference<css::table::XCellRange>& range);
  Variant EvaluateName(const std::string& name, const Reference<css::sheet::XSpreadsheet>& scope);
  CellKind KindOfFormat(int32_t key);
  int32_t StandardFormat(int16_t type);
  void CloseDocument(bool save);

  std::shared_ptr<UnoApplication> app_;
  Reference<css::lang::XComponent> document_;
  std::string path_;
  double date_offset_ = 0;  // this workbook's day 0 minus 1899-12-30, in days
  bool date_offset_read_ = false;
  std::map<int32_t, CellKind> format_kinds_;
};

class UnoApplication : public SpreadsheetApplication, public std::enable_shared_from_this<UnoApplication> {
 public:
  UnoApplication();
  ~UnoApplication() override { Quit(); }

  std::shared_ptr<Workbook> Open(const std::string& path, const std::optional<std::string>& password,
                                 bool read_only) override;
  std::shared_ptr<Workbook> New() override;
  bool Visible() override { return visible_; }
  void Visible(bool value) override;
  bool CanShow() override { return can_show_; }
  void Quit() override;
  bool Running() override { return process_ && !gone_ && process_->Alive(); }

  // Runs `body` as one call into the office under the time limit, turning the office's exceptions into
  // std::runtime_error with a plain text.
  template <class F>
  auto Call(F&& body, milliseconds limit = milliseconds{0}) {
    if (!process_ || gone_) throw std::runtime_error("the spreadsheet application has been closed");
    const milliseconds used = limit.count() > 0 ? limit : call_limit_;
    const auto start = Clock::now();
    process_->BeginCall(used);
    struct End {
      OfficeProcess* process;
      ~End() { process->EndCall(); }
    } end{process_.get()};
    try {
      return body();
    } catch (const css::uno::Exception&) {
      throw std::runtime_error(Explain(ExceptionText(), Clock::now() - start, used));
    }
  }

  void Forget(UnoWorkbook* book);
  void SetCallLimit(milliseconds limit) { call_limit_ = limit; }
  OfficeProcess* Process() { return process_.get(); }

 private:
  std::shared_ptr<Workbook> Adopt(Reference<css::lang::XComponent> document, std::string path);
  std::string Explain(const std::string& text, Clock::duration took, milliseconds limit);

  std::unique_ptr<OfficeProcess> process_;
  Reference<css::frame::XDesktop2> desktop_;
  std::vector<UnoWorkbook*> books_;
  milliseconds call_limit_{60000};
  bool can_show_ = false;
  bool visible_ = false;
  bool gone_ = false;
};

// ---- Application ---------------------------------------------------------------------------------------

UnoApplication::UnoApplication() {
  const char* program_override = std::getenv("QUORBEX_SOFFICE");
  const std::string program = program_override && *program_override ? program_override
                                                                      : QUORBEX_LIBREOFFICE_PROGRAM "/soffice";
  can_show_ = HasUserInterface() && HasDisplay();
  static int counter = 0;
  const std::string pipe = "quorbex_" + std::to_string(getpid()) + "_" + std::to_string(counter++) + "_" +
                           std::to_string(Clock::now().time_since_epoch().count() % 1000000007);
  std::vector<std::string> arguments{"--invisible", "--nologo", "--nodefault", "--norestore", "--nolockcheck",
                                     "--nofirststartwizard", "-env:UserInstallation={profile}",
                                     "--accept=pipe,name=" + pipe + ";urp;StarOffice.ComponentContext"};
  // Without a user interface (or a display) the office runs headless; then it can never be shown.
  if (!can_show_) arguments.insert(arguments.begin(), "--headless");
  Reference<css::uno::XComponentContext> local = LocalContext();
  process_ = std::make_unique<OfficeProcess>(program, arguments);

  const auto until = Clock::now() + kStartLimit;
  Reference<css::bridge::XUnoUrlResolver> resolver = css::bridge::UnoUrlResolver::create(local);
  const OUString url = U("uno:pipe,name=" + pipe + ";urp;StarOffice.ComponentContext");
  Reference<css::uno::XComponentContext> remote;
  for (;;) {
    std::string exit_text;
    if (!process_->Alive(&exit_text)) {
      process_->Stop();
      throw std::runtime_error("The spreadsheet application could not be started ('" + program + "'): " + exit_text);
    }
    try {
      process_->BeginCall(kStartLimit);
      remote.set(resolver->resolve(url), UNO_QUERY);
      process_->EndCall();
      if (remote.is()) break;
    } catch (const css::connection::NoConnectException&) {
      process_->EndCall();
    } catch (const css::uno::Exception&) {
      process_->EndCall();
      const std::string text = ExceptionText();
      process_->Stop();
      throw std::runtime_error("The spreadsheet application could not be started ('" + program + "'): " + text);
    }
    if (Clock::now() >= until) {
      process_->Stop();
      throw std::runtime_error("The spreadsheet application could not be started ('" + program +
                               "'): it did not accept a connection within " +
                               std::to_string(kStartLimit.count() / 1000) + " s");
    }
    std::this_thread::sleep_for(milliseconds(50));
  }
  try {
    desktop_ = Call([&] { return css::frame::Desktop::create(remote); });
  } catch (const std::exception& e) {
    process_->Stop();
    throw std::runtime_error(std::string("The spreadsheet application could not be started: ") + e.what());
  }
}

std::string UnoApplication::Explain(const std::string& text, Clock::duration took, milliseconds limit) {
  std::string exit_text;
  if (process_->Alive(&exit_text)) return text;
  gone_ = true;
  process_->Stop();
  if (took >= limit - milliseconds(100)) {
    return "the spreadsheet application did not answer within " + std::to_string((limit.count() + 999) / 1000) +
           " s and was stopped";
  }
  return "the spreadsheet application has ended (" + exit_text + ")";
}

std::shared_ptr<Workbook> UnoApplication::Adopt(Reference<css::lang::XComponent> document, std::string path) {
  auto book = std::make_shared<UnoWorkbook>(shared_from_this(), std::move(document), std::move(path));
  books_.push_back(book.get());
  if (visible_) book->Show(true);
  return book;
}

void UnoApplication::Forget(UnoWorkbook* book) { std::erase(books_, book); }

std::shared_ptr<Workbook> UnoApplication::Open(const std::string& path, const std::optional<std::string>& password,
                                               bool read_only) {
  std::error_code error;
  if (!std::filesystem::is_regular_file(path, error)) throw std::runtime_error("the file '" + path + "' does not exist");
  Sequence<css::beans::PropertyValue> arguments(password ? 4 : 3);
  auto* argument = arguments.getArray();
  argument[0] = Property("Hidden", Any(!visible_));
  argument[1] = Property("ReadOnly", Any(read_only));
  argument[2] = Property("MacroExecutionMode", Any(css::document::MacroExecMode::ALWAYS_EXECUTE_NO_WARN));
  if (password) argument[3] = Property("Password", Any(U(*password)));
  Reference<css::lang::XComponent> document;
  try {
    document = Call([&] {
      Reference<css::frame::XComponentLoader> loader(desktop_, UNO_QUERY_THROW);
      return loader->loadComponentFromURL(U(FileUrl(path)), "_blank", 0, arguments);
    });
  } catch (const std::exception& e) {
    if (!Running()) throw;
    std::string text = "the file '" + path + "' could not be opened";
    // Without an interaction handler the office refuses an encrypted file outright instead of asking.
    text += password ? " (wrong password?)" : " (is it protected by a password?)";
    throw std::runtime_error(text + ": " + e.what());
  }
  // The loader gives nothing back for a file none of its formats recognises.
  if (!document.is()) throw std::runtime_error("the file '" + path + "' is not a workbook");
  Reference<css::sheet::XSpreadsheetDocument> spreadsheet(document, UNO_QUERY);
  bool text_import = false;
  if (spreadsheet.is()) {
    // A file that is no workbook can still land in the office's spreadsheet as imported text.
    Reference<css::frame::XModel> model(document, UNO_QUERY);
    Call([&] {
      for (const auto& property : model->getArgs()) {
        OUString filter;
        if (property.Name == "FilterName" && (property.Value >>= filter)) {
          const std::string name = S(filter);
          text_import = name.rfind("Text - txt - csv", 0) == 0 && Extension(path) != ".csv" && Extension(path) != ".txt";
        }
      }
    });
  }
  if (!spreadsheet.is() || text_import) {
    try {
      Call([&] {
        Reference<css::util::XCloseable> closeable(document, UNO_QUERY);
        if (closeable.is()) closeable->close(true);
      });
    } catch (const std::exception&) {
      // It was never ours to use.
    }
    throw std::runtime_error("the file '" + path + "' is not a workbook");
  }
  return Adopt(document, path);
}

std::shared_ptr<Workbook> UnoApplication::New() {
  Sequence<css::beans::PropertyValue> arguments(1);
  arguments.getArray()[0] = Property("Hidden", Any(!visible_));
  Reference<css::lang::XComponent> document = Call([&] {
    Reference<css::frame::XComponentLoader> loader(desktop_, UNO_QUERY_THROW);
    return loader->loadComponentFromURL("private:factory/scalc", "_blank", 0, arguments);
  });
  if (!document.is()) throw std::runtime_error("the spreadsheet application made no new workbook");
  return Adopt(document, "");
}

void UnoApplication::Visible(bool value) {
  if (value && !can_show_) {
    throw std::runtime_error(HasUserInterface() ? "the spreadsheet application cannot be shown: there is no display"
                                                : "the spreadsheet application cannot be shown: this installation "
                                                  "has no user interface");
  }
  for (UnoWorkbook* book : books_) book->Show(value);
  visible_ = value;
}

void UnoApplication::Quit() {
  if (!process_) return;
  if (!gone_ && process_->Alive()) {
    for (UnoWorkbook* book : std::vector<UnoWorkbook*>(books_)) {
      try {
        book->Close(false);
      } catch (const std::exception&) {
        // Quitting discards what is left either way.
      }
    }
    try {
      Call([&] { desktop_->terminate(); }, kQuitLimit);
    } catch (const std::exception&) {
      // The office may drop the connection while it answers; it is ended below in any case.
    }
    process_->WaitForExit(milliseconds(5000));
  }
  for (UnoWorkbook* book : std::vector<UnoWorkbook*>(books_)) book->Abandon();
  books_.clear();
  desktop_.clear();
  gone_ = true;
  process_->Stop();
}

// ---- Workbook ----------------------------------------------------------------------------------------

UnoWorkbook::~UnoWorkbook() {
  // A workbook object let go while open is closed without saving, as its application would on quit.
  if (document_.is()) {
    try {
      CloseDocument(false);
    } catch (const std::exception&) {
    }
  }
}

template <class F>
auto UnoWorkbook::Call(F&& body) {
  Document();
  return app_->Call(std::forward<F>(body));
}

Reference<css::lang::XComponent> UnoWorkbook::Document() {
  if (!document_.is()) throw std::runtime_error("the workbook has been closed");
  return document_;
}

void UnoWorkbook::Abandon() {
  document_.clear();
  if (app_) app_->Forget(this);
}

void UnoWorkbook::Show(bool visible) {
  Call([&] {
    Reference<css::frame::XModel> model(document_, UNO_QUERY_THROW);
    Reference<css::frame::XController> controller = model->getCurrentController();
    if (controller.is()) controller->getFrame()->getContainerWindow()->setVisible(visible);
  });
}

Reference<css::sheet::XSpreadsheet> UnoWorkbook::Sheet(const std::string& name) {
  Reference<css::sheet::XSpreadsheetDocument> document(Document(), UNO_QUERY_THROW);
  Reference<css::container::XNameAccess> sheets(document->getSheets(), UNO_QUERY_THROW);
  if (!sheets->hasByName(U(name))) throw std::runtime_error("the sheet '" + name + "' does not exist");
  return Reference<css::sheet::XSpreadsheet>(sheets->getByName(U(name)), UNO_QUERY_THROW);
}

std::vector<std::string> UnoWorkbook::SheetNames() {
  return Call([&] {
    Reference<css::sheet::XSpreadsheetDocument> document(document_, UNO_QUERY_THROW);
    std::vector<std::string> names;
    for (const OUString& name : document->getSheets()->getElementNames()) names.push_back(S(name));
    return names;
  });
}

void UnoWorkbook::AddSheet(const std::string& name) {
  Call([&] {
    Reference<css::sheet::XSpreadsheetDocument> document(document_, UNO_QUERY_THROW);
    Reference<css::sheet::XSpreadsheets> sheets = document->getSheets();
    if (sheets->hasByName(U(name))) throw std::runtime_error("the sheet '" + name + "' exists already");
    const auto count = Reference<css::container::XIndexAccess>(sheets, UNO_QUERY_THROW)->getCount();
    sheets->insertNewByName(U(name), static_cast<int16_t>(count));
  });
}

int32_t UnoWorkbook::MaxRows() {
  return Call([&] {
    Reference<css::sheet::XSpreadsheetDocument> document(document_, UNO_QUERY_THROW);
    Reference<css::container::XIndexAccess> sheets(document->getSheets(), UNO_QUERY_THROW);
    // A whole column spans every row a sheet has.
    Reference<css::table::XColumnRowRange> sheet(sheets->getByIndex(0), UNO_QUERY_THROW);
    Reference<css::sheet::XCellRangeAddressable> column(sheet->getColumns()->getByIndex(0), UNO_QUERY_THROW);
    return static_cast<int32_t>(column->getRangeAddress().EndRow) + 1;
  });
}

int32_t UnoWorkbook::StandardFormat(int16_t type) {
  Reference<css::util::XNumberFormatsSupplier> supplier(document_, UNO_QUERY_THROW);
  Reference<css::util::XNumberFormatTypes> types(supplier->getNumberFormats(), UNO_QUERY_THROW);
  return types->getStandardFormat(type, css::lang::Locale());
}

CellKind UnoWorkbook::KindOfFormat(int32_t key) {
  if (auto known = format_kinds_.find(key); known != format_kinds_.end()) return known->second;
  Reference<css::util::XNumberFormatsSupplier> supplier(document_, UNO_QUERY_THROW);
  Reference<css::beans::XPropertySet> format = supplier->getNumberFormats()->getByKey(key);
  int16_t type = 0;
  if (format.is()) format->getPropertyValue("Type") >>= type;
  namespace nf = css::util::NumberFormat;
  CellKind kind = CellKind::Number;
  if (type & nf::LOGICAL) {
    kind = CellKind::Boolean;
  } else if ((type & nf::DATE) || (type & nf::TIME)) {
    kind = CellKind::DateTime;
  }
  format_kinds_[key] = kind;
  return kind;
}

CellBlock UnoWorkbook::ReadRange(const Reference<css::table::XCellRange>& range) {
  if (!date_offset_read_) {
    css::util::Date null_date;
    Reference<css::beans::XPropertySet>(document_, UNO_QUERY_THROW)->getPropertyValue("NullDate") >>= null_date;
    date_offset_ = DateSerial(null_date.Year, null_date.Month, null_date.Day).serial;
    date_offset_read_ = true;
  }
  Reference<css::sheet::XCellRangeData> data(range, UNO_QUERY_THROW);
  const Sequence<Sequence<Any>> rows = data->getDataArray();
  const int32_t row_count = rows.getLength();
  const int32_t column_count = row_count > 0 ? rows[0].getLength() : 0;
  CellBlock block(row_count, column_count);

  // Which cells hold dates and truth values: one query for the ranges of equal format, then one
  // look-up per distinct number format.
  std::vector<CellKind> kinds(static_cast<size_t>(row_count) * column_count, CellKind::Number);
  const auto origin = Reference<css::sheet::XCellRangeAddressable>(range, UNO_QUERY_THROW)->getRangeAddress();
  Reference<css::sheet::XCellFormatRangesSupplier> formats(range, UNO_QUERY);
  if (formats.is()) {
    Reference<css::container::XIndexAccess> parts = formats->getCellFormatRanges();
    for (int32_t i = 0, n = parts->getCount(); i < n; ++i) {
      Reference<css::beans::XPropertySet> part(parts->getByIndex(i), UNO_QUERY_THROW);
      int32_t key = 0;
      part->getPropertyValue("NumberFormat") >>= key;
      const CellKind kind = KindOfFormat(key);
      if (kind == CellKind::Number) continue;
      const auto address = Reference<css::sheet::XCellRangeAddressable>(part, UNO_QUERY_THROW)->getRangeAddress();
      for (int32_t r = std::max(address.StartRow, origin.StartRow); r <= std::min(address.EndRow, origin.EndRow); ++r) {
        for (int32_t c = std::max(address.StartColumn, origin.StartColumn);
             c <= std::min(address.EndColumn, origin.EndColumn); ++c) {
          kinds[static_cast<size_t>(r - origin.StartRow) * column_count + (c - origin.StartColumn)] = kind;
        }
      }
    }
  }

  auto& cells = block.Cells();
  for (int32_t r = 0; r < row_count; ++r) {
    const Sequence<Any>& row = rows[r];
    for (int32_t c = 0; c < column_count && c < row.getLength(); ++c) {
      const Any& value = row[c];
      Variant& cell = cells[static_cast<size_t>(r) * column_count + c];
      double number = 0;
      OUString text;
      if (value >>= number) {
        switch (kinds[static_cast<size_t>(r) * column_count + c]) {
          case CellKind::Boolean:
            cell = Variant(number != 0);
            break;
          case CellKind::Date:
          case CellKind::DateTime:
            cell = Variant(Date{number + date_offset_});
            break;
          default:
            cell = Variant(number);
        }
      } else if (value >>= text) {
        if (!text.isEmpty()) cell = Variant(S(text));
      }
    }
  }
  return block;
}

CellBlock UnoWorkbook::ReadCells(const std::string& sheet, int32_t top, int32_t left, int32_t rows, int32_t columns) {
  if (top < 1 || left < 1 || rows < 0 || columns < 0) throw std::runtime_error("the cell range is outside the sheet");
  if (rows == 0 || columns == 0) return CellBlock(rows, columns);
  return Call([&] {
    Reference<css::table::XCellRange> range =
        Sheet(sheet)->getCellRangeByPosition(left - 1, top - 1, left + columns - 2, top + rows - 2);
    return ReadRange(range);
  });
}

void UnoWorkbook::WriteCells(const std::string& sheet, int32_t top, int32_t left, const CellBlock& block) {
  if (top < 1 || left < 1) throw std::runtime_error("the cell range is outside the sheet");
  const int32_t rows = block.Rows();
  const int32_t columns = block.Columns();
  if (rows == 0 || columns == 0) return;
  if (!date_offset_read_) {
    Call([&] {
      css::util::Date null_date;
      Reference<css::beans::XPropertySet>(document_, UNO_QUERY_THROW)->getPropertyValue("NullDate") >>= null_date;
      date_offset_ = DateSerial(null_date.Year, null_date.Month, null_date.Day).serial;
      date_offset_read_ = true;
    });
  }
  // The values in the office's terms, and per kind of format the column runs that need it.
  Sequence<Sequence<Any>> data(rows);
  std::map<CellKind, std::vector<css::table::CellRangeAddress>> runs;
  std::vector<CellKind> previous(static_cast<size_t>(columns), CellKind::Other);
  auto* out_rows = data.getArray();
  for (int32_t r = 0; r < rows; ++r) {
    Sequence<Any> row(columns);
    Any* out = row.getArray();
    for (int32_t c = 0; c < columns; ++c) {
      const Variant& value = block.Cells()[static_cast<size_t>(r) * columns + c];
      CellKind kind = CellKind::Other;
      switch (value.Type()) {
        case VarType::Boolean:
          out[c] <<= (value.AsBoolean() ? 1.0 : 0.0);
          kind = CellKind::Boolean;
          break;
        case VarType::Date: {
          const double serial = value.AsDate().serial;
          out[c] <<= serial - date_offset_;
          kind = serial == std::floor(serial) ? CellKind::Date : CellKind::DateTime;
          break;
        }
        case VarType::Byte:
        case VarType::Integer:
        case VarType::Long:
        case VarType::Single:
        case VarType::Double:
        case VarType::Currency:
          out[c] <<= CDbl(value);
          kind = CellKind::Number;
          break;
        case VarType::Empty:
        case VarType::Null:
          out[c] <<= OUString();
          break;
        default:
          out[c] <<= U(value.IsObject() ? std::string() : CStr(value));
      }
      auto& list = runs[kind];
      if (kind != CellKind::Other && previous[c] == kind && !list.empty() &&
          list.back().StartColumn == left - 1 + c && list.back().EndRow == top - 2 + r) {
        list.back().EndRow = top - 1 + r;
      } else if (kind != CellKind::Other) {
        css::table::CellRangeAddress address;
        address.Sheet = 0;
        address.StartColumn = address.EndColumn = left - 1 + c;
        address.StartRow = address.EndRow = top - 1 + r;
        list.push_back(address);
      }
      previous[c] = kind;
    }
    out_rows[r] = row;
  }
  Call([&] {
    Reference<css::sheet::XSpreadsheet> target = Sheet(sheet);
    Reference<css::table::XCellRange> range =
        target->getCellRangeByPosition(left - 1, top - 1, left + columns - 2, top + rows - 2);
    Reference<css::sheet::XCellRangeData>(range, UNO_QUERY_THROW)->setDataArray(data);
    const int16_t sheet_index =
        Reference<css::sheet::XCellRangeAddressable>(range, UNO_QUERY_THROW)->getRangeAddress().Sheet;
    Reference<css::lang::XMultiServiceFactory> factory(document_, UNO_QUERY_THROW);
    namespace nf = css::util::NumberFormat;
    for (auto& [kind, addresses] : runs) {
      if (kind == CellKind::Other || addresses.empty()) continue;
      // A number written over a date keeps no date format, so numbers get the plain format too.
      const int16_t type = kind == CellKind::Boolean ? nf::LOGICAL
                           : kind == CellKind::Date  ? nf::DATE
                           : kind == CellKind::DateTime ? nf::DATETIME
                                                        : nf::NUMBER;
      for (auto& address : addresses) address.Sheet = sheet_index;
      Reference<css::sheet::XSheetCellRangeContainer> ranges(
          factory->createInstance("com.sun.star.sheet.SheetCellRanges"), UNO_QUERY_THROW);
      ranges->addRangeAddresses(Sequence<css::table::CellRangeAddress>(addresses.data(), addresses.size()), false);
      Reference<css::beans::XPropertySet>(ranges, UNO_QUERY_THROW)
          ->setPropertyValue("NumberFormat", Any(StandardFormat(type)));
    }
  });
}

CellBlock UnoWorkbook::ReadUsedRange(const std::string& sheet) {
  return Call([&] {
    Reference<css::sheet::XSpreadsheet> target = Sheet(sheet);
    Reference<css::sheet::XSheetCellCursor> cursor = target->createCursor();
    Reference<css::sheet::XUsedAreaCursor> used(cursor, UNO_QUERY_THROW);
    used->gotoStartOfUsedArea(false);
    used->gotoEndOfUsedArea(true);
    Reference<css::table::XCellRange> range(cursor, UNO_QUERY_THROW);
    const auto address = Reference<css::sheet::XCellRangeAddressable>(cursor, UNO_QUERY_THROW)->getRangeAddress();
    if (address.StartRow == address.EndRow && address.StartColumn == address.EndColumn) {
      // One cell is also what an empty sheet reports.
      Reference<css::table::XCell> cell = target->getCellByPosition(address.StartColumn, address.StartRow);
      if (cell->getType() == css::table::CellContentType_EMPTY) return CellBlock();
    }
    return ReadRange(target->getCellRangeByPosition(address.StartColumn, address.StartRow, address.EndColumn,
                                                    address.EndRow));
  });
}

std::vector<std::string> UnoWorkbook::Names() {
  return Call([&] {
    std::vector<std::string> names;
    Reference<css::beans::XPropertySet> properties(document_, UNO_QUERY_THROW);
    Reference<css::container::XNameAccess> global(properties->getPropertyValue("NamedRanges"), UNO_QUERY_THROW);
    for (const OUString& name : global->getElementNames()) names.push_back(S(name));
    Reference<css::sheet::XSpreadsheetDocument> document(document_, UNO_QUERY_THROW);
    Reference<css::container::XIndexAccess> sheets(document->getSheets(), UNO_QUERY_THROW);
    for (int32_t i = 0, n = sheets->getCount(); i < n; ++i) {
      Reference<css::beans::XPropertySet> sheet(sheets->getByIndex(i), UNO_QUERY_THROW);
      Reference<css::container::XNameAccess> local(sheet->getPropertyValue("NamedRanges"), UNO_QUERY);
      if (!local.is()) continue;
      const std::string sheet_name = S(Reference<css::container::XNamed>(sheet, UNO_QUERY_THROW)->getName());
      for (const OUString& name : local->getElementNames()) names.push_back(QuotedSheetName(sheet_name) + "!" + S(name));
    }
    return names;
  });
}

// The named range called `name` ("Name" or "Sheet!Name"); `scope` receives its sheet for a sheet's own
// name. A bare name that is not the workbook's is looked for among the sheets' names.
Reference<css::sheet::XNamedRange> UnoWorkbook::FindName(const std::string& name,
                                                         Reference<css::sheet::XSpreadsheet>* scope) {
  Reference<css::sheet::XSpreadsheetDocument> document(document_, UNO_QUERY_THROW);
  Reference<css::container::XIndexAccess> sheets(document->getSheets(), UNO_QUERY_THROW);
  const auto bang = name.rfind('!');
  if (bang == std::string::npos) {
    Reference<css::beans::XPropertySet> properties(document_, UNO_QUERY_THROW);
    Reference<css::container::XNameAccess> global(properties->getPropertyValue("NamedRanges"), UNO_QUERY_THROW);
    if (global->hasByName(U(name))) return Reference<css::sheet::XNamedRange>(global->getByName(U(name)), UNO_QUERY_THROW);
  }
  std::string sheet_part = bang == std::string::npos ? "" : name.substr(0, bang);
  const std::string local_name = bang == std::string::npos ? name : name.substr(bang + 1);
  if (sheet_part.size() >= 2 && sheet_part.front() == '\'' && sheet_part.back() == '\'') {
    std::string unquoted;
    for (size_t i = 1; i + 1 < sheet_part.size(); ++i) {
      unquoted += sheet_part[i];
      if (sheet_part[i] == '\'' && i + 2 < sheet_part.size() && sheet_part[i + 1] == '\'') ++i;
    }
    sheet_part = unquoted;
  }
  for (int32_t i = 0, n = sheets->getCount(); i < n; ++i) {
    Reference<css::beans::XPropertySet> sheet(sheets->getByIndex(i), UNO_QUERY_THROW);
    if (!sheet_part.empty() && S(Reference<css::container::XNamed>(sheet, UNO_QUERY_THROW)->getName()) != sheet_part) continue;
    Reference<css::container::XNameAccess> local(sheet->getPropertyValue("NamedRanges"), UNO_QUERY);
    if (local.is() && local->hasByName(U(local_name))) {
      if (scope) scope->set(sheet, UNO_QUERY_THROW);
      return Reference<css::sheet::XNamedRange>(local->getByName(U(local_name)), UNO_QUERY_THROW);
    }
  }
  throw std::runtime_error("the name '" + name + "' does not exist in the workbook");
}

std::string UnoWorkbook::NameReference(const std::string& name) {
  return Call([&] {
    Reference<css::sheet::XNamedRange> named = FindName(name, nullptr);
    Reference<css::table::XCellRange> cells = Reference<css::sheet::XCellRangeReferrer>(named, UNO_QUERY_THROW)->getReferredCells();
    if (!cells.is()) return S(named->getContent());
    const auto address = Reference<css::sheet::XCellRangeAddressable>(cells, UNO_QUERY_THROW)->getRangeAddress();
    Reference<css::sheet::XSpreadsheetDocument> document(document_, UNO_QUERY_THROW);
    Reference<css::container::XIndexAccess> sheets(document->getSheets(), UNO_QUERY_THROW);
    const std::string sheet =
        S(Reference<css::container::XNamed>(sheets->getByIndex(address.Sheet), UNO_QUERY_THROW)->getName());
    std::string reference = QuotedSheetName(sheet) + "!" + AbsoluteCell(address.StartRow + 1, address.StartColumn + 1);
    if (address.EndRow != address.StartRow || address.EndColumn != address.StartColumn) {
      reference += ":" + AbsoluteCell(address.EndRow + 1, address.EndColumn + 1);
    }
    return reference;
  });
}

// The value of a name that is no plain range: a formula "=name" in a scratch cell is computed, read
// and removed again, and the workbook's modified mark is put back as it was.
Variant UnoWorkbook::EvaluateName(const std::string& name, const Reference<css::sheet::XSpreadsheet>& scope) {
  Reference<css::sheet::XSpreadsheet> sheet = scope;
  if (!sheet.is()) {
    Reference<css::sheet::XSpreadsheetDocument> document(document_, UNO_QUERY_THROW);
    Reference<css::container::XIndexAccess> sheets(document->getSheets(), UNO_QUERY_THROW);
    sheet.set(sheets->getByIndex(0), UNO_QUERY_THROW);
  }
  const auto bang = name.rfind('!');
  const std::string bare = bang == std::string::npos ? name : name.substr(bang + 1);
  Reference<css::util::XModifiable> modifiable(document_, UNO_QUERY);
  const bool was_modified = modifiable.is() && modifiable->isModified();
  Reference<css::table::XCell> cell = sheet->getCellByPosition(kScratchColumn, 0);
  const OUString before = cell->getFormula();
  cell->setFormula(U("=" + bare));
  Variant value;
  const int32_t error = cell->getError();
  int32_t result = 0;
  Reference<css::beans::XPropertySet>(cell, UNO_QUERY_THROW)->getPropertyValue("FormulaResultType2") >>= result;
  if (error == 0 && result == css::sheet::FormulaResult::VALUE) {
    value = Variant(cell->getValue());
  } else if (error == 0 && result == css::sheet::FormulaResult::STRING) {
    value = Variant(S(Reference<css::text::XTextRange>(cell, UNO_QUERY_THROW)->getString()));
  }
  cell->setFormula(before);
  if (modifiable.is() && !was_modified) modifiable->setModified(false);
  if (error != 0 || result == css::sheet::FormulaResult::ERROR) {
    throw std::runtime_error("the name '" + name + "' does not give a value (error " + std::to_string(error) + ")");
  }
  return value;
}

Variant UnoWorkbook::NameValue(const std::string& name) {
  return Call([&] {
    Reference<css::sheet::XSpreadsheet> scope;
    Reference<css::sheet::XNamedRange> named = FindName(name, &scope);
    Reference<css::table::XCellRange> cells = Reference<css::sheet::XCellRangeReferrer>(named, UNO_QUERY_THROW)->getReferredCells();
    if (!cells.is()) return EvaluateName(name, scope);
    CellBlock block = ReadRange(cells);
    if (block.Rows() == 1 && block.Columns() == 1) return block.Item(1, 1);
    return Variant(std::make_shared<CellBlock>(std::move(block)));
  });
}

CellBlock UnoWorkbook::NameCells(const std::string& name) {
  return Call([&] {
    Reference<css::sheet::XSpreadsheet> scope;
    Reference<css::sheet::XNamedRange> named = FindName(name, &scope);
    Reference<css::table::XCellRange> cells = Reference<css::sheet::XCellRangeReferrer>(named, UNO_QUERY_THROW)->getReferredCells();
    if (cells.is()) return ReadRange(cells);
    CellBlock block(1, 1);
    block.Item(1, 1) = EvaluateName(name, scope);
    return block;
  });
}

std::string UnoWorkbook::AddModule(const std::string& code) {
  return Call([&] {
    Reference<css::beans::XPropertySet> properties(document_, UNO_QUERY_THROW);
    Reference<css::script::XLibraryContainer> libraries(properties->getPropertyValue("BasicLibraries"), UNO_QUERY_THROW);
    Reference<css::script::vba::XVBACompatibility> compatibility(libraries, UNO_QUERY);
    if (compatibility.is()) compatibility->setVBACompatibilityMode(true);
    if (!libraries->hasByName("Standard")) libraries->createLibrary("Standard");
    libraries->loadLibrary("Standard");
    Reference<css::container::XNameContainer> library(libraries->getByName("Standard"), UNO_QUERY_THROW);
    int number = 1;
    while (library->hasByName(U("Module" + std::to_string(number)))) ++number;
    const std::string module = "Module" + std::to_string(number);
    std::string text = code;
    if (Lower(text).find("option vbasupport") == std::string::npos) text = "Option VBASupport 1\n" + text;
    library->insertByName(U(module), Any(U(text)));
    return module;
  });
}

namespace {

// Whether a line of Basic code declares the procedure `name` (compared without regard to case).
bool DeclaresProcedure(std::string line, const std::string& name) {
  line = Lower(line);
  size_t at = line.find_first_not_of(" \t");
  if (at == std::string::npos) return false;
  line.erase(0, at);
  for (const char* prefix : {"public ", "private ", "static "}) {
    if (line.rfind(prefix, 0) == 0) line = line.substr(strlen(prefix));
    line.erase(0, line.find_first_not_of(" \t"));
  }
  for (const char* keyword : {"sub ", "function "}) {
    if (line.rfind(keyword, 0) != 0) continue;
    std::string rest = line.substr(strlen(keyword));
    rest.erase(0, rest.find_first_not_of(" \t"));
    const std::string wanted = Lower(name);
    if (rest.rfind(wanted, 0) != 0) return false;
    const char next = rest.size() > wanted.size() ? rest[wanted.size()] : ' ';
    return next == '(' || next == ' ' || next == '\t' || next == '\r';
  }
  return false;
}

}  // namespace

void UnoWorkbook::RunMacro(const std::string& macro) {
  std::string name = macro;
  if (auto bang = name.rfind('!'); bang != std::string::npos) name = name.substr(bang + 1);
  std::vector<std::string> parts;
  for (size_t start = 0;;) {
    const size_t dot = name.find('.', start);
    parts.push_back(name.substr(start, dot == std::string::npos ? std::string::npos : dot - start));
    if (dot == std::string::npos) break;
    start = dot + 1;
  }
  if (parts.size() > 3 || std::any_of(parts.begin(), parts.end(), [](const std::string& p) { return p.empty(); })) {
    throw std::runtime_error("'" + macro + "' is not a macro name");
  }
  Call([&] {
    Reference<css::beans::XPropertySet> properties(document_, UNO_QUERY_THROW);
    Reference<css::script::XLibraryContainer> libraries(properties->getPropertyValue("BasicLibraries"), UNO_QUERY_THROW);
    Reference<css::container::XNameAccess> library_names(libraries, UNO_QUERY_THROW);
    std::string library_name, module_name, procedure = parts.back();
    if (parts.size() == 3) library_name = parts[0];
    if (parts.size() >= 2) module_name = parts[parts.size() - 2];
    std::string found_library, found_module;
    for (const OUString& each : library_names->getElementNames()) {
      if (!library_name.empty() && Lower(S(each)) != Lower(library_name)) continue;
      libraries->loadLibrary(each);
      Reference<css::container::XNameAccess> library(library_names->getByName(each), UNO_QUERY);
      if (!library.is()) continue;
      for (const OUString& module : library->getElementNames()) {
        if (!module_name.empty() && Lower(S(module)) != Lower(module_name)) continue;
        OUString code;
        library->getByName(module) >>= code;
        const std::string text = S(code);
        for (size_t start = 0; start < text.size();) {
          size_t end = text.find('\n', start);
          if (end == std::string::npos) end = text.size();
          if (DeclaresProcedure(text.substr(start, end - start), procedure)) {
            found_library = S(each);
            found_module = S(module);
            break;
          }
          start = end + 1;
        }
        if (!found_module.empty()) break;
      }
      if (!found_module.empty()) break;
    }
    if (found_module.empty()) throw std::runtime_error("the macro '" + macro + "' does not exist in the workbook");
    Reference<css::script::provider::XScriptProviderSupplier> supplier(document_, UNO_QUERY_THROW);
    Reference<css::script::provider::XScript> script = supplier->getScriptProvider()->getScript(
        U("vnd.sun.star.script:" + found_library + "." + found_module + "." + procedure +
          "?language=Basic&location=document"));
    Sequence<int16_t> out_positions;
    Sequence<Any> out_values;
    script->invoke(Sequence<Any>(), out_positions, out_values);
  });
}

void UnoWorkbook::Save() {
  if (path_.empty()) throw std::runtime_error("the new workbook has no file yet (save it with SaveAs first)");
  Call([&] { Reference<css::frame::XStorable>(document_, UNO_QUERY_THROW)->store(); });
}

void UnoWorkbook::SaveAs(const std::string& path, const std::string& password) {
  const char* filter = FilterFor(path);
  Document();
  std::vector<css::beans::PropertyValue> arguments{Property("FilterName", Any(OUString::createFromAscii(filter))),
                                                   Property("Overwrite", Any(true))};
  if (!password.empty()) {
    if (Extension(path) == ".ods") {
      arguments.push_back(Property("Password", Any(U(password))));
    } else {
      Sequence<css::beans::NamedValue> encryption(2);
      encryption.getArray()[0] = css::beans::NamedValue("OOXPassword", Any(U(password)));
      encryption.getArray()[1] = css::beans::NamedValue("CryptoType", Any(OUString("Standard")));
      arguments.push_back(Property("EncryptionData", Any(encryption)));
    }
  }
  Call([&] {
    Reference<css::frame::XStorable>(document_, UNO_QUERY_THROW)
        ->storeAsURL(U(FileUrl(path)), Sequence<css::beans::PropertyValue>(arguments.data(), arguments.size()));
  });
  path_ = path;
}

void UnoWorkbook::CloseDocument(bool save) {
  std::string failure;
  if (save) {
    try {
      Save();
    } catch (const std::exception& e) {
      failure = e.what();
    }
  }
  if (app_->Running()) {
    app_->Call([&] {
      Reference<css::util::XModifiable> modifiable(document_, UNO_QUERY);
      if (modifiable.is()) modifiable->setModified(false);
      Reference<css::util::XCloseable> closeable(document_, UNO_QUERY);
      if (closeable.is()) {
        closeable->close(true);
      } else {
        document_->dispose();
      }
    });
  }
  Abandon();
  if (!failure.empty()) throw std::runtime_error(failure);
}

void UnoWorkbook::Close(bool save) {
  Document();
  CloseDocument(save);
}

}  // namespace

std::shared_ptr<SpreadsheetApplication> StartUnoSpreadsheetApplication() {
  return std::make_shared<UnoApplication>();
}

void SetUnoCallLimit(SpreadsheetApplication& application, std::chrono::milliseconds limit) {
  if (auto* uno = dynamic_cast<UnoApplication*>(&application)) uno->SetCallLimit(limit);
}

int UnoOfficeProcessGroup(SpreadsheetApplication& application) {
  auto* uno = dynamic_cast<UnoApplication*>(&application);
  return uno && uno->Process() ? uno->Process()->Pid() : -1;
}

}  // namespace quorbex::platform
