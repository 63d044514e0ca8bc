// DataLayer: sums and averages over a field, filling list controls and collections, and writing the
// records out as a text dump or a CSV file.
#include <exception>
#include <string_view>

#include "datalayer/list_entry.h"
#include "datalayer/datalayer_internal.h"
#include "platform/environment.h"
#include "platform/files.h"
#include "platform/text_viewer.h"
#include "quorbex/DataLayer.h"
#include "quorbex/ListControl.h"
#include "quorbex/text.h"
#include "service/modService.h"
#include "value/failure.h"

namespace quorbex {

using namespace internal;

namespace {

// The blanks FillCBO puts between an item's display text and its identifier: enough to push the
// identifier out of sight in any list box, while SetCBOPos can still read it back.

// The file VisualizeToTextFile writes into the temporary folder.
constexpr const char* kDumpFileName = "Datalayer.txt";

}  // namespace

double DataLayer::CalcSum(const std::string& strFieldname) {
  // One position for every record, the one FieldID gives; values that are not numeric are skipped.
  const int32_t position = FieldID(strFieldname);
  if (position == 0 || !recordset_) return 0.0;
  double sum = 0.0;
  const int32_t count = RecordCount();
  for (int32_t i = 1; i <= count; ++i) {
    auto record = recordset_->Records(i);
    const clsOfflineField* field = record ? record->FieldAt(position) : nullptr;
    if (!field) continue;
    const Variant value = field->Value();
    if (!IsNumeric(value)) continue;
    try {
      sum += CDbl(value);
    } catch (const std::exception&) {
      // A value that says it is numeric but will not convert is skipped like any other.
    }
  }
  return sum;
}

double DataLayer::CalcAverage(const std::string& strFieldname) {
  // The divisor counts every record, also those whose value was skipped as not numeric.
  const int32_t count = RecordCount();
  if (count == 0) return 0.0;
  return CalcSum(strFieldname) / static_cast<double>(count);
}

bool DataLayer::FillCBO(const std::shared_ptr<ListControl>& objCBO, const std::string& strFieldname,
                        const std::string& strIDFieldName, const std::string& strFurtherField2,
                        const std::string& strFurtherField3, bool bolUse1Comma2, bool bolUse2Comma3) {
  if (!objCBO) {
    ErrorStatus("FillCBO: no list control given");
    return false;
  }
  if (!IsLoaded()) {
    ErrorStatus(kNotLoaded);
    return false;
  }
  const int32_t saved = cursor_;
  bool filled = false;
  try {
    const int32_t count = RecordCount();
    if (count > 0) {
      // Unknown names are refused before the control is touched, rather than filling it with blanks.
      cursor_ = 1;
      for (const std::string* name : {&strFieldname, &strIDFieldName, &strFurtherField2, &strFurtherField3}) {
        if (name == &strFurtherField2 || name == &strFurtherField3) {
          if (name->empty()) continue;
        }
        if (FindFieldInCurrentRecord(*name) == 0) {
          cursor_ = saved;
          ErrorStatus("FillCBO: Fieldname '" + *name + "' not found");
          return false;
        }
      }
    }
    objCBO->Clear();
    const auto field_value = [this](const std::string& name) { return FieldValue(name); };
    for (int32_t i = 1; i <= count; ++i) {
      cursor_ = i;
      objCBO->AddItem(ListEntryText(field_value, strFieldname, strIDFieldName, strFurtherField2, strFurtherField3,
                                    bolUse1Comma2, bolUse2Comma3));
    }
    filled = true;
  } catch (const std::exception& e) {
    ErrorStatus(internal::OperationError("FillCBO", e));
  }
  cursor_ = saved;
  return filled;
}

bool DataLayer::SetCBOPos(const std::shared_ptr<ListControl>& objCBO, const Variant& varID) {
  if (!objCBO) {
    ErrorStatus("SetCBOPos: no list control given");
    return false;
  }
  try {
    // The identifier is what follows the gap at the end of the item, as FillCBO wrote it.
    const std::string wanted = kListIdentifierGap + ToText(varID);
    const int32_t count = objCBO->ListCount();
    for (int32_t i = 0; i < count; ++i) {
      const std::string item = objCBO->List(i);
      if (item.size() >= wanted.size() && std::string_view(item).substr(item.size() - wanted.size()) == wanted) {
        objCBO->ListIndex(i);
        return true;
      }
    }
  } catch (const std::exception& e) {
    ErrorStatus(internal::OperationError("SetCBOPos", e));
  }
  return false;
}

std::shared_ptr<Collection<Variant>> DataLayer::FillCollection(const std::string& strFieldname) {
  auto values = std::make_shared<Collection<Variant>>();
  const int32_t position = FieldID(strFieldname);
  if (position == 0 || !recordset_) return values;
  const int32_t count = RecordCount();
  values->Reserve(static_cast<size_t>(count));
  for (int32_t i = 1; i <= count; ++i) {
    auto record = recordset_->Records(i);
    const clsOfflineField* field = record ? record->FieldAt(position) : nullptr;
    values->Add(field ? field->Value() : Variant());
  }
  return values;
}

// Writes every record as one line, each field's value as text followed by " | ", into Datalayer.txt
// in the temporary folder (replacing it) and starts the text viewer on it without waiting.
//
// The file is left in place rather than deleted right after starting the viewer: the viewer starts
// asynchronously and would find the file gone. The fixed name means at most one such file exists; the
// next call replaces it.
Variant DataLayer::VisualizeToTextFile() {
  if (!IsLoaded() || !recordset_) {
    ErrorStatus(kNotLoaded);
    return {};
  }
  try {
    std::string folder = platform::TempFolder();
    if (!folder.empty() && folder.back() == '/') folder.pop_back();
    const std::string path = folder + "/" + kDumpFileName;
    std::string text;
    const int32_t count = RecordCount();
    for (int32_t i = 1; i <= count; ++i) {
      auto record = recordset_->Records(i);
      const int32_t fields = record ? record->FieldCount() : 0;
      for (int32_t j = 1; j <= fields; ++j) {
        if (const clsOfflineField* field = record->FieldAt(j)) text += ToText(field->Value());
        text += " | ";
      }
      text += '\n';
    }
    if (!platform::WriteFile(path, text)) {
      ErrorStatus("VisualizeToTextFile: cannot write the file '" + path + "'");
      return {};
    }
    if (!platform::ShowTextFile(path)) {
      ErrorStatus("VisualizeToTextFile: no text viewer could be started for '" + path + "'");
    }
  } catch (const std::exception& e) {
    ErrorStatus(internal::OperationError("VisualizeToTextFile", e));
  }
  return {};
}

// Writes the records as a ";"-separated text file with a header line of field names, in UTF-8 with LF
// line ends, so that the CSV import can read it back. That import knows no quoting and ends a line at
// its first empty value, so the values are written in a form it reads:
// - every value, and every header name, is followed by ";" (so a header whose "id" column comes last
//   still shows "id;" to the import, which then adds no ID column of its own);
// - a value whose text is empty (Empty, Null, "") is written as one blank;
// - a ";" inside a value becomes ",", and each line break (CR LF, CR or LF) one blank;
// - an empty field name becomes "Field" followed by its position.
// Values that had to be changed (the last two cases) are counted and reported through ErrorStatus
// with the first place it happened; the file is written all the same. Numbers, dates and Booleans are
// written as their text in the current locale. True when the file was written.
bool DataLayer::WriteDataToCSV(const std::string& strFilePath) {
  if (strFilePath.empty()) {
    ErrorStatus("WriteDataToCSV: no file path given");
    return false;
  }
  if (!IsLoaded() || !recordset_) {
    ErrorStatus(kNotLoaded);
    return false;
  }
  try {
    int64_t changed = 0;
    std::string first_change;
    // Appends the import-readable form of `text`; returns true when it had to be altered.
    const auto append = [](std::string& out, std::string_view text) {
      if (text.empty()) {
        out += ' ';
        return false;
      }
      bool altered = false;
      for (size_t k = 0; k < text.size(); ++k) {
        const char c = text[k];
        if (c == ';') {
          out += ',';
          altered = true;
        } else if (c == '\r' || c == '\n') {
          if (c == '\r' && k + 1 < text.size() && text[k + 1] == '\n') ++k;
          out += ' ';
          altered = true;
        } else {
          out += c;
        }
      }
      return altered;
    };

    std::string out;
    auto first = recordset_->Records(1);
    const int32_t header_count = first ? first->FieldCount() : field_names_.Count();
    for (int32_t j = 1; j <= header_count; ++j) {
      std::string name = first ? (first->FieldAt(j) ? first->FieldAt(j)->Description.str() : std::string())
                               : field_names_.Item(j);
      if (Trim(name).empty()) {
        name = "Field" + std::to_string(j);
        if (changed++ == 0) first_change = "header, field " + std::to_string(j);
      }
      if (append(out, name) && changed++ == 0) first_change = "header, field '" + name + "'";
      out += ';';
    }
    out += '\n';

    const int32_t count = RecordCount();
    for (int32_t i = 1; i <= count; ++i) {
      auto record = recordset_->Records(i);
      const int32_t fields = record ? record->FieldCount() : 0;
      for (int32_t j = 1; j <= fields; ++j) {
        const clsOfflineField* field = record->FieldAt(j);
        const std::string text = field ? ToText(field->Value()) : std::string();
        if (append(out, text) && changed++ == 0) {
          first_change = "record " + std::to_string(i) + ", field '" + (field ? field->Description.str() : "") + "'";
        }
        out += ';';
      }
      out += '\n';
    }

    if (!platform::WriteFile(strFilePath, out)) {
      ErrorStatus("WriteDataToCSV: cannot write the file '" + strFilePath + "'");
      return false;
    }
    if (changed > 0) {
      ErrorStatus("WriteDataToCSV: " + std::to_string(changed) +
                  " value(s) held \";\", line breaks or an empty field name, which the CSV import cannot read; "
                  "they were written with \",\" for \";\", a blank for each line break and \"Field\" + position for "
                  "an empty name (first: " + first_change + ")");
    }
    return true;
  } catch (const std::exception& e) {
    ErrorStatus(internal::OperationError("WriteDataToCSV", e));
    return false;
  }
}

}  // namespace quorbex
