// clsOfflineRecordset::FillFromDAORecordset: copying an engine recordset into offline records.
//
// The engine hands the rows over once (Recordset::TakeRows) and each value is moved into its offline
// field, so a loaded table exists once in memory rather than twice. That also stands in for the
// MoveLast / MoveFirst pair that makes the classic engine's RecordCount complete: the records are
// created as the rows arrive, which gives the same N records of F fields.
#include <vector>

#include "quorbex/clsOfflineRecordset.h"
#include "quorbex/engine.h"

namespace quorbex {


bool clsOfflineRecordset::FillFromDAORecordset(ByRef<std::shared_ptr<db::Recordset>> rstRecordset,
                                               bool bolWithClose, bool SetSuccessIf0Records) {
  std::shared_ptr<db::Recordset>& source = rstRecordset.get();
  bool result = false;
  try {
    if (!source) return false;
    RecordsetIsReadOnly = !source->Updatable();

    auto fields = source->Fields();
    const int32_t field_count = fields->Count();
    // One shared name per column, assigned to every record's field of that column.
    std::vector<InternedName> names;
    std::vector<int32_t> types;
    names.reserve(static_cast<size_t>(field_count));
    types.reserve(static_cast<size_t>(field_count));
    for (int32_t j = 0; j < field_count; ++j) {
      auto field = fields->Item(j);
      names.emplace_back(field->Name());
      types.push_back(field->Type());
    }

    auto& records = *records_;
    int32_t copied = 0;
    source->TakeRows([&](std::span<Variant> row) {
      auto record = std::make_shared<clsOfflineRecord>();
      record->Add(field_count);
      for (int32_t j = 0; j < field_count; ++j) {
        clsOfflineField* field = record->FieldAt(j + 1);
        field->varValue = std::move(row[static_cast<size_t>(j)]);
        field->Description = names[static_cast<size_t>(j)];
        field->lngFieldType = types[static_cast<size_t>(j)];
      }
      records.Add(std::move(record));
      // What was copied so far stays, counted, should a later row fail.
      record_count_ += 1;
      ++copied;
    });
    result = copied == 0 ? SetSuccessIf0Records : true;
  } catch (...) {
    return false;
  }
  if (bolWithClose) {
    try {
      source->Close();
    } catch (...) {
    }
    source.reset();
  }
  return result;
}

}  // namespace quorbex
