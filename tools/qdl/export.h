#pragma once

#include <string>

namespace quorbex::qdl {

struct ExportOptions {
  std::string database;  // path (or connection string) of the database
  std::string sql;       // the SELECT whose rows are written
  std::string output;    // OUT.csv (DataLayer::WriteDataToCSV) or OUT.xml (DataLayer::SaveAsXML)
};

// Loads the query into a DataLayer and writes its records to the output file, chosen by the file's
// extension. Values the CSV file cannot hold are written as WriteDataToCSV says and reported as a
// warning. A query without rows writes no file (the writers take loaded records only) and fails.
// Returns the exit code; a failure prints one line.
int RunExport(const ExportOptions& options);

}  // namespace quorbex::qdl
