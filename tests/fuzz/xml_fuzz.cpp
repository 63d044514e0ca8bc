// libFuzzer target for the XML data-file reader. Besides "no crash, no hang, no undefined behaviour"
// it checks what must hold for any input: a file the reader takes is well-formed XML, and what it read
// is written and read back to the same table (so no value is altered on the way).
#include <sys/mman.h>
#include <unistd.h>

#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <string>

#include "platform/xml_wellformed.h"
#include "platform/xmlfile.h"

namespace {

using quorbex::platform::XmlDataFile;
using quorbex::platform::XmlTable;

void Check(bool condition) {
  if (!condition) std::abort();
}

// A file in memory, named by a path the reader can open.
struct MemoryFile {
  int fd = ::memfd_create("xml", 0);
  std::string path = "/proc/self/fd/" + std::to_string(fd);
  void Set(const void* data, size_t size) {
    Check(::ftruncate(fd, 0) == 0);
    Check(::pwrite(fd, data, size, 0) == static_cast<ssize_t>(size));
  }
};

std::shared_ptr<XmlTable> Read(const std::string& path, std::string& error) {
  XmlDataFile file;
  file.DisableProgressBar(true);
  file.XMLFilePath(path);
  auto table = std::make_shared<XmlTable>();
  file.InputDataBinding(table);
  file.ReadXML();
  error = file.ErrorStatus();
  if (!error.empty()) return nullptr;
  table->query = file.InputQuery();
  return table;
}

// The same value, NaNs included (by their bits: the format keeps a NaN's sign and payload).
bool Same(const quorbex::Variant& a, const quorbex::Variant& b) {
  using quorbex::VarType;
  if (a.Type() != b.Type()) return false;
  switch (a.Type()) {
    case VarType::Double: return std::bit_cast<uint64_t>(a.AsDouble()) == std::bit_cast<uint64_t>(b.AsDouble());
    case VarType::Single: return std::bit_cast<uint32_t>(a.AsSingle()) == std::bit_cast<uint32_t>(b.AsSingle());
    case VarType::Date:
      return std::bit_cast<uint64_t>(a.AsDate().serial) == std::bit_cast<uint64_t>(b.AsDate().serial);
    default: return a.SameAs(b);
  }
}

bool SameTable(const XmlTable& a, const XmlTable& b) {
  if (a.query != b.query || a.rows.size() != b.rows.size()) return false;
  for (size_t r = 0; r < a.rows.size(); ++r) {
    const auto& x = a.rows[r];
    const auto& y = b.rows[r];
    if (x.cells.size() != y.cells.size()) return false;
    for (size_t c = 0; c < x.cells.size(); ++c) {
      if (x.cells[c].name != y.cells[c].name || x.cells[c].type != y.cells[c].type ||
          !Same(x.cells[c].value, y.cells[c].value)) {
        return false;
      }
    }
  }
  return true;
}

// Files are written whole (beside the target, then renamed), which a memory file's path cannot take.
const std::string& OutputPath() {
  static const std::string path = [] {
    std::string p = std::string(::access("/dev/shm", W_OK) == 0 ? "/dev/shm" : "/tmp") + "/quorbex-xml-fuzz-" +
                    std::to_string(::getpid()) + ".xml";
    static std::string remove_at_exit = p;
    std::atexit([] { ::unlink(remove_at_exit.c_str()); });
    return p;
  }();
  return path;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static MemoryFile input;
  input.Set(data, size);
  std::string error;
  auto table = Read(input.path, error);
  if (!table) return 0;
  Check(!quorbex::platform::XmlWellFormednessProblem(std::string_view(reinterpret_cast<const char*>(data), size)));

  XmlDataFile writer;
  writer.DisableProgressBar(true);
  writer.XMLFilePath(OutputPath());
  writer.RootElement("Fuzz");
  writer.OutputDataBinding(table);
  writer.WriteXML();
  if (!writer.ErrorStatus().empty()) return 0;  // e.g. a name the format cannot hold
  auto again = Read(OutputPath(), error);
  Check(again != nullptr);
  Check(SameTable(*table, *again));
  return 0;
}
