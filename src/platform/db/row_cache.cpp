#include "platform/db/row_cache.h"

#include <algorithm>
#include <climits>

#include "platform/db/errors.h"
#include "quorbex/text.h"
#include "value/text_util.h"

namespace quorbex::db::internal {

// ---- Reading -------------------------------------------------------------------------------------

void RowCache::Start() {
  pos_ = 0;
  Fetch();
}

int64_t RowCache::Rows() const {
  return Width() == 0 ? rows_without_columns_ : static_cast<int64_t>(rows_.size() / Width());
}

void RowCache::CheckOpen() const {
  if (closed_) Raise(ErrorKind::Closed, text::kRecordsetClosed);
}

bool RowCache::Fetch() {
  if (done_) return false;
  const size_t at = rows_.size();
  rows_.resize(at + Width());
  bool more;
  try {
    more = FetchRow(Width() ? &rows_[at] : nullptr);
  } catch (...) {
    rows_.resize(at);
    done_ = true;  // the backend ended the read; reading again would start over
    throw;
  }
  if (!more) {
    rows_.resize(at);
    done_ = true;
    return false;
  }
  if (Width() == 0) ++rows_without_columns_;
  return true;
}

void RowCache::FetchAll() {
  while (Fetch()) {
  }
}

void RowCache::Restart() {
  Rewind();
  rows_.clear();
  stale_rows_.clear();
  rows_without_columns_ = 0;
  done_ = false;
  released_ = false;
  taken_ = 0;
  on_deleted_ = false;
  pos_ = 0;
  Fetch();
}

int32_t RowCache::RecordCount() const {
  CheckOpen();
  if (released_) return taken_;
  return static_cast<int32_t>(std::min<int64_t>(Rows(), INT32_MAX));
}

bool RowCache::Eof() const {
  CheckOpen();
  if (released_) return true;
  return done_ && pos_ >= Rows();
}

bool RowCache::Bof() const {
  CheckOpen();
  if (released_) return taken_ == 0;
  return pos_ < 0 || (done_ && Rows() == 0);
}

int64_t RowCache::CurrentRow() const {
  CheckOpen();
  if (released_ || pos_ < 0 || pos_ >= Rows()) Raise(ErrorKind::NoCurrentRecord, text::kNoCurrentRecord);
  if (on_deleted_) Raise(ErrorKind::NoCurrentRecord, text::kRecordDeleted);
  return pos_;
}

// ---- Moving --------------------------------------------------------------------------------------

void RowCache::MoveFirst() {
  CheckOpen();
  CancelUpdate();
  if (released_) Restart();
  on_deleted_ = false;
  if (Rows() == 0) Fetch();
  pos_ = 0;
  if (Rows() == 0) Raise(ErrorKind::NoCurrentRecord, text::kNoCurrentRecord);
}

void RowCache::MoveLast() {
  CheckOpen();
  CancelUpdate();
  if (released_) Restart();
  FetchAll();
  on_deleted_ = false;
  if (Rows() == 0) {
    pos_ = 0;
    Raise(ErrorKind::NoCurrentRecord, text::kNoCurrentRecord);
  }
  pos_ = Rows() - 1;
}

int32_t RowCache::AbsolutePosition() const {
  CheckOpen();
  if (released_ || on_deleted_ || pos_ < 0 || pos_ >= Rows()) return -1;
  return static_cast<int32_t>(pos_);
}

void RowCache::AbsolutePosition(int32_t position) {
  CheckOpen();
  CancelUpdate();
  if (released_) Restart();
  while (Rows() <= position && Fetch()) {
  }
  if (position < 0 || position >= Rows()) Raise(ErrorKind::NoCurrentRecord, text::kNoCurrentRecord);
  on_deleted_ = false;
  pos_ = position;
}

void RowCache::MoveNext() {
  CheckOpen();
  CancelUpdate();
  if (released_) Raise(ErrorKind::NoCurrentRecord, text::kNoCurrentRecord);
  if (on_deleted_) {
    on_deleted_ = false;  // the next row has moved up into the deleted one's place
  } else {
    if (Eof()) Raise(ErrorKind::NoCurrentRecord, text::kNoCurrentRecord);
    ++pos_;
  }
  if (pos_ >= Rows()) Fetch();
}

void RowCache::MovePrevious() {
  CheckOpen();
  CancelUpdate();
  if (released_) {
    Restart();
    FetchAll();
    pos_ = Rows();
  }
  if (on_deleted_) {
    on_deleted_ = false;
    --pos_;
    return;
  }
  if (Bof()) Raise(ErrorKind::NoCurrentRecord, text::kNoCurrentRecord);
  --pos_;
}

// ---- Values and the edit buffer ------------------------------------------------------------------

Variant RowCache::Value(int column) const {
  CheckOpen();
  if (column < 0 || static_cast<size_t>(column) >= Width()) RaiseItemNotFound(column);
  if (edit_mode_ != dbEditNone) return buffer_[static_cast<size_t>(column)];
  const int64_t row = CurrentRow();
  RefreshRow(row);
  return RowAt(row)[column];
}

void RowCache::SetValue(int column, const Variant& value) {
  CheckOpen();
  if (column < 0 || static_cast<size_t>(column) >= Width()) RaiseItemNotFound(column);
  if (edit_mode_ == dbEditNone) Raise(ErrorKind::InvalidOperation, text::kUpdateWithoutEdit);
  buffer_[static_cast<size_t>(column)] = value;
  dirty_[static_cast<size_t>(column)] = true;
}

void RowCache::AddNew() {
  CheckOpen();
  if (!updatable_) Raise(ErrorKind::NotUpdatable, text::kNotUpdatable);
  CancelUpdate();
  buffer_.assign(Width(), Variant(Null));
  dirty_.assign(Width(), false);
  edit_mode_ = dbEditAdd;
}

void RowCache::Edit() {
  CheckOpen();
  if (!updatable_) Raise(ErrorKind::NotUpdatable, text::kNotUpdatable);
  const int64_t row = CurrentRow();
  CancelUpdate();
  RefreshRow(row);
  buffer_.assign(RowAt(row), RowAt(row) + Width());
  dirty_.assign(Width(), false);
  edit_mode_ = dbEditInProgress;
}

void RowCache::CancelUpdate() {
  edit_mode_ = dbEditNone;
  buffer_.clear();
  dirty_.clear();
}

std::vector<size_t> RowCache::WrittenColumns() const {
  std::vector<size_t> written;
  for (size_t j = 0; j < Width(); ++j) {
    if (!dirty_[j]) continue;
    std::erase_if(written,
                  [&](size_t k) { return quorbex::internal::SameName(columns_[k].origin, columns_[j].origin); });
    written.push_back(j);
  }
  return written;
}

void RowCache::Update() {
  CheckOpen();
  if (edit_mode_ == dbEditNone) Raise(ErrorKind::InvalidOperation, text::kUpdateWithoutEdit);
  // The result is read to its end first: what a running read sees of a write on the same connection
  // is up to the engine, and a new row belongs after all existing ones.
  FetchAll();
  const std::vector<size_t> written = WrittenColumns();
  if (edit_mode_ == dbEditAdd) {
    std::vector<Variant> row(Width());
    InsertRow(written, buffer_, row.data());
    for (auto& value : row) rows_.push_back(std::move(value));
    pos_ = Rows() - 1;
    on_deleted_ = false;
  } else if (!written.empty()) {
    const int64_t row = CurrentRow();
    if (!UpdateRow(written, buffer_, RowAt(row))) Raise(ErrorKind::NoCurrentRecord, text::kRecordDeleted);
    Variant* target = RowAt(row);
    for (size_t j : written) target[j] = buffer_[j];
    stale_rows_.insert(row);
  }
  CancelUpdate();
}

void RowCache::RefreshRow(int64_t row) const {
  if (stale_rows_.erase(row) == 0) return;
  // Gone meanwhile: keep what was written.
  std::vector<Variant> fresh(RowAt(row), RowAt(row) + Width());
  if (ReadRow(fresh.data())) std::move(fresh.begin(), fresh.end(), RowAt(row));
}

void RowCache::RefreshAll() const {
  while (!stale_rows_.empty()) RefreshRow(*stale_rows_.begin());
}

void RowCache::Delete() {
  CheckOpen();
  if (!updatable_) Raise(ErrorKind::NotUpdatable, text::kNotUpdatable);
  CurrentRow();
  CancelUpdate();
  FetchAll();
  RefreshAll();  // positions shift below: settle every row first
  const int64_t row = CurrentRow();
  if (!DeleteRow(RowAt(row))) Raise(ErrorKind::NoCurrentRecord, text::kRecordDeleted);
  auto first = rows_.begin() + static_cast<std::ptrdiff_t>(static_cast<size_t>(row) * Width());
  rows_.erase(first, first + static_cast<std::ptrdiff_t>(Width()));
  on_deleted_ = true;
}

void RowCache::Close() {
  if (closed_) return;
  closed_ = true;
  CancelUpdate();
  Release();
  std::vector<Variant>().swap(rows_);
  stale_rows_.clear();
}

int32_t RowCache::TakeRows(const std::function<void(std::span<Variant>)>& sink) {
  CheckOpen();
  CancelUpdate();
  if (released_) Restart();
  RefreshAll();
  int64_t count = 0;
  auto finish = [&] {
    std::vector<Variant>().swap(rows_);
    rows_without_columns_ = 0;
    if (!done_) {
      StopFetching();
      done_ = true;
    }
    released_ = true;
    on_deleted_ = false;
    taken_ = static_cast<int32_t>(std::min<int64_t>(count, INT32_MAX));
  };
  try {
    std::vector<Variant> row(Width());
    const int64_t cached = Rows();
    for (int64_t r = 0; r < cached; ++r) {
      Variant* source = Width() ? RowAt(r) : nullptr;
      for (size_t j = 0; j < Width(); ++j) row[j] = std::move(source[j]);
      sink(std::span<Variant>(row));
      ++count;
    }
    std::vector<Variant>().swap(rows_);  // what was handed over is gone; free it before reading on
    while (!done_) {
      bool more;
      try {
        more = FetchRow(Width() ? row.data() : nullptr);
      } catch (...) {
        done_ = true;
        throw;
      }
      if (!more) {
        done_ = true;
        break;
      }
      sink(std::span<Variant>(row));
      ++count;
    }
  } catch (...) {
    finish();
    throw;
  }
  finish();
  return taken_;
}

// ---- Fields and recordset ------------------------------------------------------------------------

int32_t CachedField::Type() const {
  const int32_t code = Column().type_code;
  return code == 0 ? 10 : code;
}

CachedFields::CachedFields(const std::shared_ptr<RowCache>& rows) {
  const auto& columns = rows->Columns();
  for (size_t j = 0; j < columns.size(); ++j) {
    fields_.push_back(std::make_shared<CachedField>(rows, static_cast<int>(j)));
    by_name_.try_emplace(LCase(columns[j].name), static_cast<int32_t>(j));
  }
}

std::shared_ptr<Field> CachedFields::Item(int32_t index) const {
  if (index < 0 || index >= Count()) RaiseItemNotFound(index);
  return fields_[static_cast<size_t>(index)];
}

int32_t CachedFields::IndexOf(std::string_view name) const {
  for (size_t j = 0; j < fields_.size(); ++j) {
    if (fields_[j]->Name() == name) return static_cast<int32_t>(j);
  }
  auto it = by_name_.find(LCase(name));
  return it == by_name_.end() ? -1 : it->second;
}

std::shared_ptr<Field> CachedFields::Item(std::string_view name) const {
  const int32_t j = IndexOf(name);
  if (j < 0) RaiseItemNotFound("'" + std::string(name) + "'");
  return fields_[static_cast<size_t>(j)];
}

CachedRecordset::CachedRecordset(std::shared_ptr<RowCache> rows)
    : rows_(std::move(rows)), fields_(std::make_shared<CachedFields>(rows_)) {}

bool CachedRecordset::Updatable() const {
  rows_->CheckOpen();
  return rows_->Updatable();
}

std::shared_ptr<db::Fields> CachedRecordset::Fields() const {
  rows_->CheckOpen();
  return fields_;
}

int32_t CachedRecordset::EditMode() const {
  rows_->CheckOpen();
  return rows_->EditMode();
}

}  // namespace quorbex::db::internal
