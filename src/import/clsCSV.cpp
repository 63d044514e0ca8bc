// clsCSV: an import job that declares a virtual table in its DataLayer and adds one record per line of
// a ";"-separated file. The file is checked whole before anything is declared, so a refused file
// leaves the DataLayer as it was.
#include "quorbex/clsCSV.h"

#include <algorithm>
#include <exception>
#include <optional>
#include <stdexcept>
#include <string_view>

#include "import/csv_text.h"
#include "platform/files.h"
#include "quorbex/DataLayer.h"
#include "quorbex/frmProgress.h"
#include "quorbex/text.h"
#include "service/modService.h"
#include "value/failure.h"

namespace quorbex {

using namespace internal;

namespace {

constexpr const char* kPending = "CSVImport.CreateDatalayerFromFile: ";

// Lines added between two progress updates.
constexpr int32_t kProgressStep = 4096;

// A field name holding "," would be split in two by the virtual table's declaration (it takes ","
// as a separator as well); such a name is declared under a stand-in and renamed right after. The
// stand-in starts with a NUL byte, which no name read from a file can hold.
std::string StandIn(size_t position) { return std::string(1, '\0') + "csv field " + std::to_string(position); }

}  // namespace

clsCSV::clsCSV() = default;
clsCSV::~clsCSV() = default;

void clsCSV::Report(const std::string& text) const {
  if (auto parent = ParentDataLayer()) {
    parent->ErrorStatus(text);
  } else {
    AppendErrorStatus(text);
  }
}

void clsCSV::FileContainsHeader(bool value) {
  contains_header_ = value;
  header_given_ = true;
}

void clsCSV::Header(const std::string& value) {
  header_ = ReplaceText(value, ",", ";");
  header_given_ = true;
}

void clsCSV::ImportFilePath(const std::string& value) {
  if (platform::FolderExists(value)) {
    Report("CSVImport: Filename" + value + " not valid");
    return;
  }
  if (!platform::FileExists(value)) {
    Report("CSVImport: File " + value + " not found");
    return;
  }
  path_ = value;
}

void clsCSV::CreateDataLayerFromFile() {
  auto parent = ParentDataLayer();
  if (!parent) {
    AppendErrorStatus("CSVImport: the import job has no DataLayer to fill");
    return;
  }
  if (path_.empty()) {
    parent->ErrorStatus("CSVImport: No File set to import");
    return;
  }
  if (!header_given_) {
    parent->ErrorStatus("CSVImport: Missing Information: Headers! Please set the FileContainsHeader property!");
    return;
  }
  Success = false;
  LinesCount = 0;
  add_id_ = false;
  finished_ = false;
  field_names_.clear();

  std::string pending;
  try {
    Run(*parent);
  } catch (const std::exception& e) {
    pending = FailureDescription(e);
  }
  if (pending.empty()) {
    Success = true;
  } else {
    parent->ErrorStatus(kPending + pending);
  }
  if (add_id_) {
    // Every record gets its GUID, also after a failure that left some records in place.
    try {
      parent->SetAutoGuidColumn("ID", true);
    } catch (const std::exception& e) {
      Success = false;
      parent->ErrorStatus(kPending + FailureDescription(e));
    }
  }
}

void clsCSV::Run(DataLayer& parent) {
  const std::optional<std::string> content = platform::ReadFile(path_);
  if (!content) throw std::runtime_error("the file '" + path_ + "' cannot be read");
  const std::string_view text = WithoutByteOrderMark(*content);
  if (text.empty()) throw std::runtime_error("the file '" + path_ + "' is empty");
  if (std::string problem = CheckCsvText(text); !problem.empty()) throw std::runtime_error(problem);

  CsvLineReader lines(text);
  std::string_view line;
  int32_t lines_read = 0;
  // Line 1: the header (from the file or as given) and the table's declaration.
  if (contains_header_) {
    lines.Next(line);
    ++lines_read;
    header_ = std::string(line);
  }
  if (!contains_header_ && Trim(header_).empty()) {
    throw std::runtime_error("no field names: the file has no header line (FileContainsHeader False) and Header gave none");
  }
  std::vector<std::string> names;
  if (std::string problem = CheckCsvHeader(header_, names); !problem.empty()) throw std::runtime_error(problem);
  if (!table_name_set_) table_name_ = TableNameFromPath(path_);
  add_id_ = LCase(header_).find("id;") == std::string::npos;
  const int32_t offset = add_id_ ? 1 : 0;  // value k goes to field k + offset

  std::string declared = add_id_ ? "ID" : "";
  std::vector<std::pair<std::string, std::string>> renames;
  for (size_t k = 0; k < names.size(); ++k) {
    std::string name = names[k];
    if (name.find(',') != std::string::npos) {
      renames.emplace_back(StandIn(k), name);
      name = StandIn(k);
    }
    if (!declared.empty()) declared += ';';
    declared += name;
  }
  std::string table = table_name_;
  parent.CreateNewVirtualOfflineTable(table, declared);
  for (const auto& [stand_in, name] : renames) parent.RenameVirtualField(stand_in, name);
  if (add_id_) field_names_.push_back("ID");
  field_names_.insert(field_names_.end(), names.begin(), names.end());

  // Every further line (and without a header line, line 1 as well) is a record.
  std::shared_ptr<frmProgress> progress;
  int32_t total_kb = static_cast<int32_t>(std::min<size_t>(text.size() / 1024 + 1, INT32_MAX));
  if (show_progress_) {
    progress = std::make_shared<frmProgress>();
    progress->Show();
  }
  const std::string description = "Importing " + table_name_;
  const size_t field_count = names.size();
  std::vector<std::string_view> values;
  int64_t overfull_lines = 0;
  int32_t first_overfull = 0;
  int32_t data_lines = 0;
  const std::shared_ptr<clsOfflineRecordset> records = parent.GetOfflineRecordset();
  bool changed = false;
  while (lines.Next(line)) {
    if (lines_read == INT32_MAX) throw std::runtime_error("the file has more lines than a recordset holds");
    ++lines_read;
    ++data_lines;
    SplitCsvLine(line, values);
    if (values.size() > field_count && overfull_lines++ == 0) first_overfull = lines_read;
    try {
      parent.AddNew();
      const size_t n = std::min(values.size(), field_count);
      // What SetFieldValue by position does (value, the field's and the record's change marks,
      // DataChanged), with the new record looked up once per line instead of once per value.
      auto record = n > 0 ? records->Records(parent.RecordCount()) : nullptr;
      for (size_t k = 0; k < n; ++k) {
        const int32_t position = static_cast<int32_t>(k) + 1 + offset;
        clsOfflineField* field = record ? record->FieldAt(position) : nullptr;
        if (!field) {
          parent.SetFieldValue("", Variant(std::string(values[k])), position);  // reports the miss
          continue;
        }
        field->Value(Variant(std::string(values[k])));
        field->HasChanged = true;
        record->HasChanged = true;
        changed = true;
      }
    } catch (const std::exception& e) {
      if (changed) parent.DataChanged(true);
      parent.ErrorStatus("CSV.ADDRecord: " + FailureDescription(e));
      LinesCount = data_lines;
      throw std::runtime_error("the import stopped at line " + std::to_string(lines_read));
    }
    if (progress && data_lines % kProgressStep == 0) {
      int32_t done = static_cast<int32_t>(lines.Offset() / 1024);
      progress->SetProgress(done, total_kb, description);
    }
  }
  if (changed) parent.DataChanged(true);
  LinesCount = data_lines;
  finished_ = true;
  if (progress) progress->Unload();
  if (overfull_lines > 0) {
    throw std::runtime_error(std::to_string(overfull_lines) + " line(s) held more values than the header has fields; "
                             "the values beyond were not imported (first: line " + std::to_string(first_overfull) + ")");
  }
}

}  // namespace quorbex
