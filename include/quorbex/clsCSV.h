// clsCSV: one import job that fills its DataLayer from a ";"-separated text file.
//
// Use: take the manager from DataLayer::Import(), add a job, say where the field names come from and
// which file to read, and run it:
//     auto import = layer->Import();
//     auto job = import->CSVImport(import->AddCSVImport());
//     job->FileContainsHeader(true);        // or job->Header("Name,City") for a file without one
//     job->ImportFilePath("/data/customers.csv");
//     job->CreateDataLayerFromFile();       // layer now holds one new record per data line
//
// The parent DataLayer must be fresh (nothing loaded, no virtual table): the job declares a virtual
// offline table in it (DataLayer::CreateNewVirtualOfflineTable) named after the file (the name after
// the last "/" or "\", without its extension, trimmed; "undefined" when that is empty; TableName
// overrides it) and adds one record per data line through AddNew, each value stored with the change
// marks SetFieldValue sets, so a later Save inserts the records into the table of that name.
//
// How a file is read:
// - Text is UTF-8. A byte-order mark at the start is skipped. Lines end at LF; a CR right before it
//   (or at the very end of the file) is not part of the line. A last line without a line break is
//   read; a line break at the very end adds no line. An empty line in the middle is a data line
//   without values: it adds a record whose fields stay empty.
// - A line is cut at every ";" and the values are taken from the first up to the first empty one:
//   there is no quoting, a ";" always separates, and an empty value ends the line (the values after
//   it are dropped, so "a;;c" gives only "a"). A trailing ";" therefore does no harm. Values stay
//   text exactly as written (no trimming, no number or date conversion: "0,05" stays "0,05").
// - Field names: the first line when FileContainsHeader(true), otherwise the Header given. Names are
//   trimmed. When the names, in lower case, do not contain "id;" the job puts a field "ID" in front
//   and, after the last line, fills it with a new GUID per record (DataLayer::SetAutoGuidColumn, which
//   also makes later AddNew calls on this thread fill "ID"). The test is on the text: a header
//   "BundeslandID;Name" contains "id;" and gets no "ID", and "Name;ID" (no ";" after "ID") gets one in
//   front of its own. When "ID" was put in front, the values of a line still go to the fields of the
//   names they stand under: value 1 to the first name of the header, not to "ID".
// - Lines beginning with "#" or other comment lines are not skipped: they are data (or, as line 1,
//   the header). A file with comment lines before its header is imported by first writing a copy
//   without those lines (keeping the byte-order mark, if any), then importing the copy.
//
// Refused files (nothing is declared or added, Success stays False, and ErrorStatus receives
// "CSVImport.CreateDatalayerFromFile: " + the reason): a file that cannot be read, an empty file, a
// file holding a NUL byte (not text), text that is not valid UTF-8 (the line and byte are named; a
// Windows-1252 file must be converted first), a line longer than 1 MB (1,048,576 bytes), a header
// without names, with an empty name between two others ("a;;c": "c" would be lost), or with the same
// name twice (names compare without regard to case, as DataLayer::FieldID does).
//
// A data line with more values than the header has names: its first values are imported, the rest are
// dropped, and the import reports "CSVImport.CreateDatalayerFromFile: <n> line(s) held more values
// than the header has fields; the values beyond were not imported (first: line <k>)" and ends with
// Success False, the records all being in place.
//
// The file is read into memory whole; a record costs what any offline record costs.
//
// ParentDataLayer is a back reference that never keeps the DataLayer alive; with no living parent
// CreateDataLayerFromFile does nothing and reports to the thread's error channel.
//
// Thread safety: none; a job belongs to the thread of its DataLayer.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "quorbex/variant.h"

namespace quorbex {

class DataLayer;

class clsCSV : public Object {
 public:
  clsCSV();
  ~clsCSV() override;
  clsCSV(const clsCSV&) = delete;
  clsCSV& operator=(const clsCSV&) = delete;

  // The number of data lines read by the last import (a header line not counted).
  int32_t LinesCount = 0;
  // True after an import that ended without an error; False before and after a failed one.
  bool Success = false;

  // The DataLayer the job fills and reports to; empty once it has gone.
  std::shared_ptr<DataLayer> ParentDataLayer() const { return parent_.lock(); }
  void ParentDataLayer(const std::shared_ptr<DataLayer>& value) { parent_ = value; }

  // True: line 1 of the file holds the field names. Either value counts as header information given.
  void FileContainsHeader(bool value);
  // The field names of a file without a header line, separated by ";" or "," (every "," becomes ";").
  void Header(const std::string& value);
  // The file to read. When no file of that name exists the path is not kept and ErrorStatus receives
  // "CSVImport: File " + path + " not found"; a folder is not kept either ("CSVImport: Filename" +
  // path + " not valid").
  void ImportFilePath(const std::string& value);
  // Always "CSV".
  std::string ImportType() const { return "CSV"; }

  // The name of the virtual table (and so of the database table a Save writes to): set here, or else
  // taken from the file name when the import runs. "" before either.
  std::string TableName() const { return table_name_; }
  void TableName(const std::string& value) {
    table_name_ = value;
    table_name_set_ = true;
  }
  // True: shows the progress window (frmProgress) while the lines are added. False at first.
  void ShowProgress(bool value) { show_progress_ = value; }

  // Runs the import (see the header comment). Reports "CSVImport: No File set to import" without a
  // path and "CSVImport: Missing Information: Headers! Please set the FileContainsHeader property!"
  // without header information, changing nothing; every other failure as
  // "CSVImport.CreateDatalayerFromFile: " + description, Success then False.
  void CreateDataLayerFromFile();

  // The field names the last import gave the table, in field order ("ID" first when it was added).
  const std::vector<std::string>& FieldNames() const { return field_names_; }
  // Whether the last import put an "ID" field in front.
  bool AddedIDColumn() const { return add_id_; }
  // Whether the last import read its file to the end.
  bool Finished() const { return finished_; }

 private:
  void Report(const std::string& text) const;
  void Run(DataLayer& parent);

  std::weak_ptr<DataLayer> parent_;
  std::string path_;
  std::string header_;
  bool contains_header_ = false;
  bool header_given_ = false;
  bool add_id_ = false;
  bool finished_ = false;
  bool show_progress_ = false;
  std::string table_name_;
  bool table_name_set_ = false;
  std::vector<std::string> field_names_;
};

}  // namespace quorbex
