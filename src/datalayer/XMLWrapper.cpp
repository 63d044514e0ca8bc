#include "datalayer/XMLWrapper.h"

#include <exception>
#include <vector>

#include "platform/xmlfile.h"
#include "quorbex/DataLayer.h"
#include "value/failure.h"

namespace quorbex::internal {

namespace {

// Presents an offline recordset to the component: records 1 to RecordCount, each with its own fields.
class RecordsetSource final : public platform::XmlDataSource {
 public:
  RecordsetSource(std::shared_ptr<clsOfflineRecordset> recordset, std::string query)
      : recordset_(std::move(recordset)), records_(recordset_->RecordCollection()), query_(std::move(query)) {}

  std::string Query() const override { return query_; }

  int32_t RecordCount() const override {
    // A count above the collection (a caller forgot SetRecordCount) writes what is there.
    const auto available = static_cast<int32_t>(records_->Items().size());
    return std::min(recordset_->RecordCount(), available);
  }

  int32_t FieldCount(int32_t record) const override {
    const clsOfflineRecord* r = At(record);
    return r ? r->FieldCount() : 0;
  }

  platform::XmlRecordMarks RecordMarks(int32_t record) const override {
    const clsOfflineRecord* r = At(record);
    return r ? platform::XmlRecordMarks{r->HasChanged, r->NewlyAdded} : platform::XmlRecordMarks{};
  }

  FieldView Field(int32_t record, int32_t field) const override {
    const clsOfflineRecord* r = At(record);
    const clsOfflineField* f = r ? r->FieldAt(field) : nullptr;
    if (!f) return {};
    return FieldView{f->Description.view(), f->lngFieldType, &f->varValue,
                     platform::XmlFieldMarks{static_cast<bool>(f->HasChanged), f->IsStatusSet(), f->Status()}};
  }

 private:
  const clsOfflineRecord* At(int32_t record) const {
    const auto& items = records_->Items();
    if (record < 1 || static_cast<size_t>(record) > items.size()) return nullptr;
    return items[static_cast<size_t>(record - 1)].get();
  }

  std::shared_ptr<clsOfflineRecordset> recordset_;
  std::shared_ptr<clsOfflineRecordset::RecordCollectionType> records_;
  std::string query_;
};

// Builds a new offline recordset from what the component reads.
class RecordsetSink final : public platform::XmlDataSink {
 public:
  std::shared_ptr<clsOfflineRecordset> Result() const { return recordset_; }

  void Begin(std::string_view, int32_t record_count) override {
    recordset_ = std::make_shared<clsOfflineRecordset>();
    recordset_->RecordCollection()->Reserve(static_cast<size_t>(std::max(record_count, 0)));
    names_.clear();
  }

  void BeginRecord(int32_t field_count, const platform::XmlRecordMarks& marks) override {
    auto record = std::make_shared<clsOfflineRecord>();
    record->Add(field_count);
    record->HasChanged = marks.changed;
    record->NewlyAdded = marks.newly_added;
    current_ = record.get();
    next_field_ = 1;
    recordset_->RecordCollection()->Add(std::move(record));
  }

  void AddField(std::string_view name, int32_t type, Variant value, const platform::XmlFieldMarks& marks) override {
    clsOfflineField* field = current_ ? current_->FieldAt(next_field_) : nullptr;
    const auto position = static_cast<size_t>(next_field_ - 1);
    ++next_field_;
    if (!field) return;
    field->varValue = std::move(value);
    // Every record names the same columns: share the stored name of the record before.
    if (position >= names_.size()) names_.resize(position + 1);
    if (names_[position].view() != name) names_[position] = name;
    field->Description = names_[position];
    field->lngFieldType = type;
    field->HasChanged = marks.changed;
    if (marks.status_set) field->FieldStatus(marks.status);
  }

  void End() override {
    recordset_->SetRecordCount(recordset_->RecordCollection()->Count());
    recordset_->Tag = "AllowAttach";
  }

  void Discard() override {
    recordset_.reset();
    names_.clear();
    current_ = nullptr;
  }

 private:
  std::shared_ptr<clsOfflineRecordset> recordset_;
  std::vector<InternedName> names_;
  clsOfflineRecord* current_ = nullptr;
  int32_t next_field_ = 1;
};

}  // namespace

void XMLWrapper::DataLayer(const quorbex::DataLayer& parent) {
  Data(parent.GetOfflineRecordset(), parent.SQLStringInUse());
}

void XMLWrapper::Data(std::shared_ptr<clsOfflineRecordset> recordset, std::string query) {
  data_ = std::move(recordset);
  data_query_ = std::move(query);
}

void XMLWrapper::WriteXML(const std::string& path, const std::string& root, bool disable_progress) {
  error_.clear();
  try {
    if (!data_) {
      error_ = "XMLWrapper: no recordset to write";
      return;
    }
    platform::XmlDataFile component;
    component.DisableProgressBar(disable_progress);
    component.RootElement(root);
    component.XMLFilePath(path);
    component.OutputDataBinding(std::make_shared<RecordsetSource>(data_, data_query_));
    component.WriteXML();
    error_ = component.ErrorStatus();
  } catch (const std::exception& e) {
    error_ = internal::OperationError("WriteXML", e);
  }
}

void XMLWrapper::ReadXML(const std::string& path, bool disable_progress) {
  error_.clear();
  read_.reset();
  try {
    auto sink = std::make_shared<RecordsetSink>();
    platform::XmlDataFile component;
    component.DisableProgressBar(disable_progress);
    component.XMLFilePath(path);
    component.InputDataBinding(sink);
    component.ReadXML();
    error_ = component.ErrorStatus();
    if (!error_.empty()) return;
    root_ = component.RootElement();
    query_ = component.InputQuery();
    read_ = sink->Result();
  } catch (const std::exception& e) {
    error_ = internal::OperationError("ReadXML", e);
    read_.reset();
  }
}

}  // namespace quorbex::internal
