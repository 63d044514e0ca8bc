// XMLWrapper: stands between a DataLayer and the XML data-file component (platform/xmlfile.h).
//
// It hands the component the DataLayer's offline recordset and query text to write, and collects what
// a read produced: the root element's name, the query text, a new offline recordset and the error
// text. The adapters that present a clsOfflineRecordset to the component live here, so the platform
// layer never needs the offline model.
//
// A wrapper is made for one call of SaveAsXML or LoadFromXML and dropped afterwards. Its routines
// never throw: a failure, the component's or its own, ends up in ErrorText.
#pragma once

#include <memory>
#include <string>

#include "quorbex/clsOfflineRecordset.h"

namespace quorbex {
class DataLayer;
}  // namespace quorbex

namespace quorbex::internal {


class XMLWrapper {
 public:
  // Takes from `parent` what a write needs: its offline recordset and the SQL text in use. No reference
  // to the DataLayer itself is kept.
  void DataLayer(const quorbex::DataLayer& parent);
  // The same from explicit parts (the DataLayer's own members, or a recordset of a test).
  void Data(std::shared_ptr<clsOfflineRecordset> recordset, std::string query);

  // Writes the recordset to `path` under a root element named `root`. ErrorText: "" or the failure.
  void WriteXML(const std::string& path, const std::string& root, bool disable_progress);
  // Reads `path` into a new offline recordset (Tag "AllowAttach", so that a DataLayer may attach it) and
  // takes the root element's name and the query text. On failure ORS is empty and ErrorText says why.
  void ReadXML(const std::string& path, bool disable_progress);

  // The recordset read; nullptr before a successful ReadXML.
  std::shared_ptr<clsOfflineRecordset> ORS() const { return read_; }
  const std::string& RootElement() const { return root_; }
  const std::string& Query() const { return query_; }
  const std::string& ErrorText() const { return error_; }

 private:
  std::shared_ptr<clsOfflineRecordset> data_;
  std::string data_query_;
  std::shared_ptr<clsOfflineRecordset> read_;
  std::string root_;
  std::string query_;
  std::string error_;
};

}  // namespace quorbex::internal
