// Recordsets over SQLite: a cursor that steps the statement as it moves and keeps the rows it has read,
// and the writes of an updatable recordset.
#pragma once

#include <memory>
#include <string>
#include <unordered_map>
#include <unordered_set>
#include <vector>

#include "platform/db/sqlite/sqlite_connection.h"

namespace quorbex::db::sqlite {

// What the statement says about one result column.
struct ResultColumn {
  std::string name;
  int32_t decode_code = 0;  // from the declared type; 0 keeps stored values as they are
  int32_t type_code = 0;    // what Field::Type reports (for an expression: its first value's code)
  int32_t size = 0;
  int32_t attributes = 0;
  std::string schema;  // "main" / "temp" of the base table; empty for an expression
  std::string table;
  std::string origin;
};

// The state behind a recordset and its fields. The rows read so far are kept row after row in one
// vector; `pos_` runs from -1 (BOF) to Rows() (EOF once the statement is done).
class Cursor : public Closable {
 public:
  Cursor(std::shared_ptr<Connection> conn, std::string source, Stmt stmt, bool allow_updates);

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

 private:
  size_t Width() const { return columns_.size(); }
  int64_t Rows() const { return width_ == 0 ? rows_without_columns_ : static_cast<int64_t>(rows_.size() / width_); }
  void Describe(bool allow_updates);
  // Whether each result row stands for one row of the base table (no self-join, nothing folded).
  bool OneRowPerTableRow() const;
  void FindKey();
  // Reads one more row into rows_; false at the end of the result.
  bool Fetch();
  void FetchAll();
  void Restart();
  void DecodeInto(Variant* out);
  int64_t CurrentRow() const;
  void Insert();
  void WriteBack();
  // Reads a row that an update left stale (see WriteBack) again; RefreshAll does every such row.
  void RefreshRow(int64_t row) const;
  void RefreshAll() const;
  std::string Target() const;
  std::string ReturningList() const;
  void BindKey(sqlite3_stmt* stmt, int first_index, int64_t row) const;

  std::shared_ptr<Connection> conn_;
  std::string source_;
  Stmt stmt_;
  std::vector<ResultColumn> columns_;
  size_t width_ = 0;
  std::vector<int> undecided_types_;  // expression columns whose type is still unknown
  bool updatable_ = false;
  std::vector<int> key_columns_;  // result positions of the base table's key

  mutable std::vector<Variant> rows_;
  mutable std::unordered_set<int64_t> stale_rows_;
  int64_t rows_without_columns_ = 0;
  bool done_ = false;      // the statement has no more rows
  bool released_ = false;  // TakeRows handed the rows away
  int32_t taken_ = 0;
  int64_t pos_ = 0;
  bool on_deleted_ = false;
  bool closed_ = false;

  int32_t edit_mode_ = 0;
  std::vector<Variant> buffer_;
  std::vector<bool> dirty_;
};

class SqliteRecordset;

class RecordsetField : public Field {
 public:
  RecordsetField(std::shared_ptr<Cursor> cursor, int column) : cursor_(std::move(cursor)), column_(column) {}
  const std::string& Name() const override { return Column().name; }
  using Field::Name;
  int32_t Type() const override;
  using Field::Type;
  int32_t Size() const override { return Column().size; }
  using Field::Size;
  Variant Value() const override { return cursor_->Value(column_); }
  void Value(const Variant& varValue) override { cursor_->SetValue(column_, varValue); }
  std::string SourceTable() const override { return Column().table; }
  std::string SourceField() const override { return Column().origin; }
  int32_t Attributes() const override;
  using Field::Attributes;

 private:
  const ResultColumn& Column() const { return cursor_->Columns()[static_cast<size_t>(column_)]; }
  std::shared_ptr<Cursor> cursor_;
  int column_;
};

class RecordsetFields : public db::Fields {
 public:
  explicit RecordsetFields(std::shared_ptr<Cursor> cursor);
  int32_t Count() const override { return static_cast<int32_t>(fields_.size()); }
  std::shared_ptr<Field> Item(int32_t index) const override;
  std::shared_ptr<Field> Item(std::string_view name) const override;
  int32_t IndexOf(std::string_view name) const override;

 private:
  std::vector<std::shared_ptr<Field>> fields_;
  std::unordered_map<std::string, int32_t> by_name_;  // lower-case name -> first position
};

class SqliteRecordset : public Recordset {
 public:
  explicit SqliteRecordset(std::shared_ptr<Cursor> cursor);
  const std::string& Name() const override { return cursor_->Source(); }
  bool Updatable() const override;
  int32_t RecordCount() const override;
  bool EOF_() const override;
  bool BOF() const override;
  void MoveFirst() override { cursor_->MoveFirst(); }
  void MoveLast() override { cursor_->MoveLast(); }
  void MoveNext() override { cursor_->MoveNext(); }
  void MovePrevious() override { cursor_->MovePrevious(); }
  int32_t AbsolutePosition() const override { return cursor_->AbsolutePosition(); }
  void AbsolutePosition(int32_t lngPosition) override { cursor_->AbsolutePosition(lngPosition); }
  std::shared_ptr<db::Fields> Fields() const override;
  using Recordset::Fields;
  void AddNew() override { cursor_->AddNew(); }
  void Edit() override { cursor_->Edit(); }
  void Update() override { cursor_->Update(); }
  void CancelUpdate() override { cursor_->CancelUpdate(); }
  int32_t EditMode() const override;
  void Delete() override { cursor_->Delete(); }
  void Close() override { cursor_->Close(); }
  int32_t TakeRows(const std::function<void(std::span<Variant>)>& sink) override { return cursor_->TakeRows(sink); }

 private:
  std::shared_ptr<Cursor> cursor_;
  std::shared_ptr<RecordsetFields> fields_;
};

// Prepares `sql`, binds `parameters` to its placeholders in order, and opens a recordset on it
// (positioned on the first row).
std::shared_ptr<Recordset> OpenCursor(const std::shared_ptr<Connection>& conn, const std::string& source,
                                      const std::string& sql, bool allow_updates,
                                      std::span<const Variant> parameters = {});

}  // namespace quorbex::db::sqlite
