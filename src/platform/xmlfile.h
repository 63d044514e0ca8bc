// XmlDataFile: the XML data-file component that writes a table of records to an XML file and reads it
// back.
//
// The component knows nothing of the offline recordset: it writes whatever an XmlDataSource presents
// (records of named, typed fields with their change marks, plus the query text) and reads into an
// XmlDataSink. The DataLayer's XMLWrapper adapts clsOfflineRecordset to both; XmlTable is a plain
// in-memory table that serves as either side when no adapter is given.
//
// The document layout is described in docs/xml-format.md. Every kind of value comes back exactly:
// Empty and Null stay apart from the empty text, numbers keep their kind and every bit (doubles are
// written in their shortest exact decimal form), and texts keep every byte, including characters that
// XML 1.0 cannot carry and broken UTF-8 (such texts are written with a backslash escape and marked so).
//
// Failures never throw: WriteXML and ReadXML leave a text in ErrorStatus (empty on success). A file
// that is not well-formed, truncated, or not of this format is rejected as a whole; the sink is then
// told to Discard what it got, so nothing is loaded.
//
// Thread safety: an XmlDataFile belongs to the thread that uses it.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "quorbex/variant.h"

namespace quorbex::platform {

// The marks a field carries besides its value.
struct XmlFieldMarks {
  bool changed = false;     // the field's HasChanged
  bool status_set = false;  // a status was assigned ...
  bool status = false;      // ... and this is it
};

// The marks a record carries.
struct XmlRecordMarks {
  bool changed = false;      // HasChanged
  bool newly_added = false;  // NewlyAdded
};

// What WriteXML reads. Records and fields are 1-based; a record may have its own number of fields.
class XmlDataSource {
 public:
  struct FieldView {
    std::string_view name;
    int32_t type = 0;                 // the engine type code of the column
    const Variant* value = nullptr;   // the stored value, Null kept; nullptr counts as Empty
    XmlFieldMarks marks;
  };

  virtual ~XmlDataSource() = default;
  // The query text written with the data.
  virtual std::string Query() const = 0;
  virtual int32_t RecordCount() const = 0;
  virtual int32_t FieldCount(int32_t record) const = 0;
  virtual XmlRecordMarks RecordMarks(int32_t record) const = 0;
  // One field; the views stay valid until the source changes.
  virtual FieldView Field(int32_t record, int32_t field) const = 0;
};

// What ReadXML fills: Begin once, then per record BeginRecord followed by its fields, then End. On a
// failure part-way Discard is called instead of End, and the sink must forget everything it got.
class XmlDataSink {
 public:
  virtual ~XmlDataSink() = default;
  virtual void Begin(std::string_view query, int32_t record_count) = 0;
  virtual void BeginRecord(int32_t field_count, const XmlRecordMarks& marks) = 0;
  virtual void AddField(std::string_view name, int32_t type, Variant value, const XmlFieldMarks& marks) = 0;
  virtual void End() = 0;
  virtual void Discard() = 0;
};

// A plain in-memory table, usable as the source of a write and the sink of a read.
class XmlTable final : public XmlDataSource, public XmlDataSink {
 public:
  struct Cell {
    std::string name;
    int32_t type = 0;
    Variant value;
    XmlFieldMarks marks;
  };
  struct Row {
    XmlRecordMarks marks;
    std::vector<Cell> cells;
  };

  std::string query;
  std::vector<Row> rows;

  std::string Query() const override { return query; }
  int32_t RecordCount() const override { return static_cast<int32_t>(rows.size()); }
  int32_t FieldCount(int32_t record) const override;
  XmlRecordMarks RecordMarks(int32_t record) const override;
  FieldView Field(int32_t record, int32_t field) const override;

  void Begin(std::string_view query_text, int32_t record_count) override;
  void BeginRecord(int32_t field_count, const XmlRecordMarks& marks) override;
  void AddField(std::string_view name, int32_t type, Variant value, const XmlFieldMarks& marks) override;
  void End() override {}
  void Discard() override;
};

class XmlDataFile {
 public:
  // Suppresses the progress bar that WriteXML and ReadXML otherwise draw through the installed
  // progress renderer.
  void DisableProgressBar(bool value) { disable_progress_ = value; }
  bool DisableProgressBar() const { return disable_progress_; }
  // The file to write or read.
  void XMLFilePath(std::string value) { path_ = std::move(value); }
  const std::string& XMLFilePath() const { return path_; }
  // The name of the document's root element: set before writing (a valid XML name without a colon),
  // read after reading.
  void RootElement(std::string value) { root_ = std::move(value); }
  const std::string& RootElement() const { return root_; }
  // The data WriteXML writes.
  void OutputDataBinding(std::shared_ptr<const XmlDataSource> source) { output_ = std::move(source); }
  // Where ReadXML puts the records; a new XmlTable when none was bound.
  void InputDataBinding(std::shared_ptr<XmlDataSink> sink) { input_ = std::move(sink); }

  // Writes the bound data to XMLFilePath, replacing the file. ErrorStatus: "" on success, else
  // "WriteXML: ..." naming the problem (no data bound, an invalid root name, a file that cannot be
  // written).
  void WriteXML();
  // Reads XMLFilePath into the input binding and sets RootElement and InputQuery. ErrorStatus: "" on
  // success, else "ReadXML: ..." naming the file and the problem (missing, not well-formed with the
  // parser's reason and byte offset, not a data file of this format, an unsupported version, a record
  // count that does not match, a value that does not read as its kind); the sink is then discarded.
  void ReadXML();

  // The sink that ReadXML filled (the bound one, or the XmlTable it made).
  std::shared_ptr<XmlDataSink> InputData() const { return input_; }
  // The query text stored in the file last read.
  const std::string& InputQuery() const { return query_; }
  // "" after a successful WriteXML or ReadXML, else the failure text.
  const std::string& ErrorStatus() const { return error_; }

  // The format mark on the root element, and the version written and read.
  static constexpr std::string_view kFormat = "quorbex-datalayer";
  static constexpr std::string_view kVersion = "1";

 private:
  bool disable_progress_ = false;
  std::string path_;
  std::string root_;
  std::shared_ptr<const XmlDataSource> output_;
  std::shared_ptr<XmlDataSink> input_;
  std::string query_;
  std::string error_;
};

// True when `name` can be the name of an XML element: a letter, "_" or any non-ASCII character first,
// then also digits, "-" and "."; no colon, no blanks, not empty.
bool IsXmlElementName(std::string_view name);

}  // namespace quorbex::platform
