// qdl export: a SELECT's rows into a CSV or XML data file, through the DataLayer's own writers.
#include "tools/qdl/export.h"

#include <cstdio>
#include <memory>
#include <string>

#include "quorbex/DataLayer.h"
#include "quorbex/text.h"
#include "tools/qdl/common.h"

namespace quorbex::qdl {

namespace {
// The root element of the XML data files qdl writes.
constexpr const char* kRootElement = "Data";
}  // namespace

int RunExport(const ExportOptions& options) {
  const std::string extension = LCase(options.output.size() >= 4 ? options.output.substr(options.output.size() - 4) : "");
  if (extension != ".csv" && extension != ".xml") {
    return Fail("export", "the output file must end in .csv or .xml: '" + options.output + "'");
  }
  auto layer = std::make_shared<DataLayer>();
  layer->DisableLog(true);
  // The library's message boxes become ErrorStatus texts, so that a failure stays one line.
  layer->SuppressAllMessages(true);
  layer->ErrorStatus("");
  layer->SetDatabaseByPath(options.database);
  if (!layer->ErrorStatus().empty()) return Fail("export", Reports(layer->ErrorStatus()));
  layer->GetRecordset(options.sql);
  if (!layer->ErrorStatus().empty()) return Fail("export", Reports(layer->ErrorStatus()));
  // The writers take loaded records only.
  if (layer->RecordCount() == 0) return Fail("export", "the query returned no rows; no file was written");

  const bool written = extension == ".csv" ? layer->WriteDataToCSV(options.output)
                                           : layer->SaveAsXML(options.output, kRootElement, /*bolDisableProgressBar=*/true);
  if (!written) return Fail("export", Reports(layer->ErrorStatus()));
  if (!layer->ErrorStatus().empty()) {
    std::fprintf(stderr, "qdl export: warning: %s\n", OneLine(Reports(layer->ErrorStatus())).c_str());
  }
  std::printf("qdl export: %d record(s) written to %s\n", layer->RecordCount(), options.output.c_str());
  return 0;
}

}  // namespace quorbex::qdl
