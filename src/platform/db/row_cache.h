// What every backend's recordset needs and no backend owns: the rows read so far, the cursor over
// them, the edit buffer of AddNew and Edit, and the field objects. A backend derives from RowCache and
// supplies only describing its columns (in its constructor), fetching rows, and writing one row.
//
// Rows are kept one after another in one vector of Variants; `pos_` runs from -1 (BOF) to Rows() (EOF
// once the backend has no more rows). An UPDATE does not read its row back: the written values stand in
// and the row is read again (ReadRow) the next time it is used, because a save never looks at it again.
//
// Thread safety: a recordset belongs to the thread of its database.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <span>
#include <string>
#include <unordered_map>
#include <unordered_set>
#include <vector>

#include "quorbex/engine.h"

namespace quorbex::db::internal {

// Something that must end when its database is closed (a recordset's rows).
class Closable {
 public:
  virtual ~Closable() = default;
  virtual void CloseFromDatabase() = 0;
};

// What a backend says about one result column.
struct ResultColumn {
  std::string name;
  int32_t decode_code = 0;  // the code values are decoded by (from the declared type); 0 keeps them as stored
  int32_t type_code = 0;    // what Field::Type reports (an expression: its first value's code)
  int32_t size = 0;
  int32_t attributes = 0;
  std::string schema;  // where the base table lives; empty for an expression
  std::string table;
  std::string origin;  // the base table's column name; empty for an expression
};

class RowCache : public Closable {
 public:
  explicit RowCache(std::string source) : source_(std::move(source)) {}
  ~RowCache() override = default;

  const std::string& Source() const { return source_; }
  const std::vector<ResultColumn>& Columns() const { return columns_; }
  bool Updatable() const { return updatable_; }
  int32_t RecordCount() const;
  bool Eof() const;
  bool Bof() const;
  void MoveFirst();
  void MoveLast();
  void MoveNext();
  void MovePrevious();
  int32_t AbsolutePosition() const;
  void AbsolutePosition(int32_t position);
  Variant Value(int column) const;
  void SetValue(int column, const Variant& value);
  void AddNew();
  void Edit();
  void Update();
  void CancelUpdate();
  int32_t EditMode() const { return edit_mode_; }
  void Delete();
  void Close();
  int32_t TakeRows(const std::function<void(std::span<Variant>)>& sink);
  void CloseFromDatabase() override { Close(); }
  void CheckOpen() const;

 protected:
  // ---- What a backend supplies ----
  // Reads the next row into `row` (Width() values; nullptr when the result has no columns). Returns
  // false at the end of the result, after letting go of what the read holds (locks, a cursor).
  virtual bool FetchRow(Variant* row) = 0;
  // Runs the query again from its start; the next FetchRow reads its first row.
  virtual void Rewind() = 0;
  // Ends a read that has not reached the end of the result.
  virtual void StopFetching() = 0;
  // Inserts a row with the columns `written` (positions) taken from `values`, and fills `row` with the
  // row as the database stored it (its generated key among the values).
  virtual void InsertRow(std::span<const size_t> written, const std::vector<Variant>& values, Variant* row) = 0;
  // Updates the row whose key values `row` holds with the columns `written` taken from `values`;
  // false when no row has that key.
  virtual bool UpdateRow(std::span<const size_t> written, const std::vector<Variant>& values, const Variant* row) = 0;
  // Deletes the row whose key values `row` holds; false when there is none.
  virtual bool DeleteRow(const Variant* row) = 0;
  // Reads the row whose key values `row` holds again, into `row`; false when it is gone.
  virtual bool ReadRow(Variant* row) const = 0;
  // Lets go of what the backend holds for this result (the statement).
  virtual void Release() = 0;

  // ---- What a backend describes in its constructor ----
  std::vector<ResultColumn> columns_;
  bool updatable_ = false;
  std::vector<int> key_columns_;  // result positions of the base table's key
  // Call once the columns are described: reads the first row.
  void Start();

 private:
  size_t Width() const { return columns_.size(); }
  int64_t Rows() const;
  bool Fetch();
  void FetchAll();
  void Restart();
  int64_t CurrentRow() const;
  // The base columns the edit buffer changes, each once (when two result columns name the same one,
  // the later value wins).
  std::vector<size_t> WrittenColumns() const;
  void RefreshRow(int64_t row) const;
  void RefreshAll() const;
  Variant* RowAt(int64_t row) const { return &rows_[static_cast<size_t>(row) * Width()]; }

  std::string source_;
  mutable std::vector<Variant> rows_;
  mutable std::unordered_set<int64_t> stale_rows_;
  int64_t rows_without_columns_ = 0;
  bool done_ = false;      // the backend has no more rows
  bool released_ = false;  // TakeRows handed the rows away
  int32_t taken_ = 0;
  int64_t pos_ = 0;
  bool on_deleted_ = false;
  bool closed_ = false;

  int32_t edit_mode_ = 0;
  std::vector<Variant> buffer_;
  std::vector<bool> dirty_;
};

// The fields and the recordset over a RowCache; the same for every backend.
class CachedField : public Field {
 public:
  CachedField(std::shared_ptr<RowCache> rows, int column) : rows_(std::move(rows)), column_(column) {}
  const std::string& Name() const override { return Column().name; }
  using Field::Name;
  int32_t Type() const override;
  using Field::Type;
  int32_t Size() const override { return Column().size; }
  using Field::Size;
  Variant Value() const override { return rows_->Value(column_); }
  void Value(const Variant& varValue) override { rows_->SetValue(column_, varValue); }
  std::string SourceTable() const override { return Column().table; }
  std::string SourceField() const override { return Column().origin; }
  int32_t Attributes() const override { return Column().attributes; }
  using Field::Attributes;

 private:
  const ResultColumn& Column() const { return rows_->Columns()[static_cast<size_t>(column_)]; }
  std::shared_ptr<RowCache> rows_;
  int column_;
};

class CachedFields : public db::Fields {
 public:
  explicit CachedFields(const std::shared_ptr<RowCache>& rows);
  int32_t Count() const override { return static_cast<int32_t>(fields_.size()); }
  std::shared_ptr<Field> Item(int32_t index) const override;
  std::shared_ptr<Field> Item(std::string_view name) const override;
  int32_t IndexOf(std::string_view name) const override;

 private:
  std::vector<std::shared_ptr<Field>> fields_;
  std::unordered_map<std::string, int32_t> by_name_;  // lower-case name -> first position
};

class CachedRecordset : public Recordset {
 public:
  explicit CachedRecordset(std::shared_ptr<RowCache> rows);
  const std::string& Name() const override { return rows_->Source(); }
  bool Updatable() const override;
  int32_t RecordCount() const override { return rows_->RecordCount(); }
  bool EOF_() const override { return rows_->Eof(); }
  bool BOF() const override { return rows_->Bof(); }
  void MoveFirst() override { rows_->MoveFirst(); }
  void MoveLast() override { rows_->MoveLast(); }
  void MoveNext() override { rows_->MoveNext(); }
  void MovePrevious() override { rows_->MovePrevious(); }
  int32_t AbsolutePosition() const override { return rows_->AbsolutePosition(); }
  void AbsolutePosition(int32_t lngPosition) override { rows_->AbsolutePosition(lngPosition); }
  std::shared_ptr<db::Fields> Fields() const override;
  using Recordset::Fields;
  void AddNew() override { rows_->AddNew(); }
  void Edit() override { rows_->Edit(); }
  void Update() override { rows_->Update(); }
  void CancelUpdate() override { rows_->CancelUpdate(); }
  int32_t EditMode() const override;
  void Delete() override { rows_->Delete(); }
  void Close() override { rows_->Close(); }
  int32_t TakeRows(const std::function<void(std::span<Variant>)>& sink) override { return rows_->TakeRows(sink); }

 private:
  std::shared_ptr<RowCache> rows_;
  std::shared_ptr<CachedFields> fields_;
};

}  // namespace quorbex::db::internal
