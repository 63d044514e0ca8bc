// libFuzzer target for the CSV import. The first byte picks where the field names come from (the
// file's first line, or a Header given with commas), the rest is the file. Besides "no crash, no hang,
// no undefined behaviour" it checks the import against a plain reading of the same bytes: a file it
// takes gives one record per line, each holding the line's values up to the first empty one, in the
// fields named above them, and nothing else.
#include <sys/mman.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

#include "quorbex/DataLayer.h"
#include "quorbex/clsCSV.h"
#include "quorbex/clsImportManager.h"
#include "service/thread_state.h"

namespace {

void Check(bool condition) {
  if (!condition) std::abort();
}

// A file in memory, named by a path the import can open.
struct MemoryFile {
  int fd = ::memfd_create("csv", 0);
  std::string path = "/proc/self/fd/" + std::to_string(fd);
  void Set(const void* data, size_t size) {
    Check(::ftruncate(fd, 0) == 0);
    Check(size == 0 || ::pwrite(fd, data, size, 0) == static_cast<ssize_t>(size));
  }
};

// The lines of the text as the import documents them.
std::vector<std::string> Lines(std::string text) {
  if (text.rfind("\xEF\xBB\xBF", 0) == 0) text.erase(0, 3);
  std::vector<std::string> lines;
  size_t start = 0;
  while (start < text.size()) {
    size_t end = text.find('\n', start);
    const bool last = end == std::string::npos;
    if (last) end = text.size();
    std::string line = text.substr(start, end - start);
    if (!line.empty() && line.back() == '\r') line.pop_back();
    lines.push_back(line);
    start = end + 1;
  }
  return lines;
}

std::vector<std::string> Values(const std::string& line) {
  std::vector<std::string> values;
  size_t start = 0;
  for (;;) {
    const size_t end = line.find(';', start);
    std::string part = line.substr(start, end == std::string::npos ? std::string::npos : end - start);
    if (part.empty()) break;
    values.push_back(part);
    if (end == std::string::npos) break;
    start = end + 1;
  }
  return values;
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  // No settings file of the user's is read or written.
  setenv("QUORBEX_SETTINGS", "/dev/null", 1);
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size == 0) return 0;
  static MemoryFile file;
  const bool contains_header = data[0] & 1;
  const std::string text(reinterpret_cast<const char*>(data + 1), size - 1);
  file.Set(text.data(), text.size());
  quorbex::internal::State() = quorbex::internal::ThreadState{};

  auto layer = std::make_shared<quorbex::DataLayer>();
  layer->DisableLog(true);
  auto manager = layer->Import();
  auto job = manager->CSVImport(manager->AddCSVImport());
  if (contains_header) {
    job->FileContainsHeader(true);
  } else {
    job->Header("Name,City;Note");
  }
  job->ImportFilePath(file.path);
  job->CreateDataLayerFromFile();
  Check(job->ImportType() == "CSV");
  if (!job->Finished()) {
    Check(!job->Success);
    Check(layer->RecordCount() == 0 || !layer->ErrorStatus().empty());
    return 0;
  }

  // Read to the end: compare with the plain reading.
  const std::vector<std::string> lines = Lines(text);
  const size_t first_data = contains_header ? 1 : 0;
  Check(job->LinesCount == static_cast<int32_t>(lines.size() - first_data));
  Check(layer->RecordCount() == job->LinesCount);
  const auto& names = job->FieldNames();
  const int32_t offset = job->AddedIDColumn() ? 1 : 0;
  bool beyond = false;
  for (size_t i = first_data; i < lines.size(); ++i) {
    const std::vector<std::string> values = Values(lines[i]);
    auto record = layer->GetOfflineRecordset()->Records(static_cast<int32_t>(i - first_data + 1));
    Check(record && record->FieldCount() == static_cast<int32_t>(names.size()));
    for (int32_t j = 1; j <= record->FieldCount(); ++j) {
      const quorbex::clsOfflineField* field = record->FieldAt(j);
      Check(field->Description.str() == names[static_cast<size_t>(j - 1)]);
      if (j <= offset) {
        Check(field->varValue.IsString() && field->varValue.AsString().size() == 32);  // its GUID
        continue;
      }
      const size_t k = static_cast<size_t>(j - offset - 1);
      if (k < values.size()) {
        Check(field->varValue.IsString() && field->varValue.AsString() == values[k]);
      } else {
        Check(field->varValue.IsEmpty());
      }
    }
    if (values.size() + offset > names.size()) beyond = true;
  }
  Check(job->Success == !beyond);
  return 0;
}
