// clsExtract: a subset of a DataLayer's records with a cursor of its own.
//
// Extracts come only from clsExtractManager::ExtractRecords. An extract's record list holds the very
// record objects of its DataLayer's offline recordset: reading and writing through the extract reads
// and writes the DataLayer's records (SetFieldValue sets the shared record's change marks, so the
// DataLayer's Save writes them), while removing a record from the extract removes it from the subset
// only. Zoom(True) finally makes the subset the DataLayer's whole working set.
//
// The extract reaches its DataLayer through Parent()->ParentDL(). Once destroyed by its manager it has
// no Parent; it keeps its records, and the operations that need the DataLayer (marked "parent" below)
// then raise AutomationError 91 "Object variable or With block variable not set".
//
// Errors: reports go to the DataLayer's ErrorStatus with the texts given below. The extract has no
// error handlers of its own beyond those: a cursor outside the record list raises 9 "Subscript out of
// range" from the operations that read or remove the current record, and a missing list control
// raises 91. The cursor never moves outside by itself; MoveSpecific with a negative position and
// RemoveRecord of the last record are the ways to get it there.
//
// Thread safety: an extract belongs to the thread of its DataLayer.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "quorbex/byref.h"
#include "quorbex/clsOfflineRecord.h"
#include "quorbex/collection.h"
#include "quorbex/variant.h"

namespace quorbex {

class DataLayer;
class ListControl;
class clsAnalyzer;
class clsExtractManager;

class clsExtract : public Object, public std::enable_shared_from_this<clsExtract> {
 public:
  using RecordCollectionType = Collection<std::shared_ptr<clsOfflineRecord>>;

  // Only the manager can make the key, so only the manager makes extracts.
  class Key {
    friend class clsExtractManager;
    Key() = default;
  };
  explicit clsExtract(Key);
  // Lets go of the record list; the records live on in the DataLayer.
  ~clsExtract() override;
  clsExtract(const clsExtract&) = delete;
  clsExtract& operator=(const clsExtract&) = delete;

  // ---- Identity ---------------------------------------------------------------------------------------
  // The handle the manager gave this extract.
  int32_t ObjectHandle = 0;
  // The manager that made it; a back reference that never keeps it alive. Empty once destroyed.
  std::shared_ptr<clsExtractManager> Parent() const { return parent_.lock(); }
  void Parent(const std::shared_ptr<clsExtractManager>& value) { parent_ = value; }

  // ---- Records and cursor -----------------------------------------------------------------------------
  // Makes `value` the record list (the collection object itself, shared, not a copy) and puts the
  // cursor on 1. Nothing (nullptr) leaves the extract without records.
  void SetExtract(std::shared_ptr<RecordCollectionType> value);
  // The number of records in the list; 0 without a list.
  int32_t RecordCount() const noexcept;
  // The cursor: the 1-based position of the current record in the list (1 after SetExtract).
  int32_t ActualPosition() const noexcept { return cursor_; }
  // MoveFirst: 1. MoveLast: RecordCount (0 when empty). MoveNext and MovePrevious step by one unless
  // the cursor stands on RecordCount, respectively on 1 (so on an empty extract MoveNext goes to 2).
  // MoveSpecific: `Position` unless it is 0 or beyond RecordCount, then 1; a negative position is
  // stored as it is and the reads that follow raise 9. All return Empty and report nothing.
  Variant MoveFirst();
  Variant MoveLast();
  Variant MoveNext();
  Variant MovePrevious();
  Variant MoveSpecific(int32_t Position);
  // Removes the current record from the list (not from the DataLayer, nor from the database); the
  // cursor stays on its number. With ShowMessage, first the message routine (a message box with an
  // information icon, title "Message for you...") says "You cannot remove records in the DB from the
  // extract. Get the ID of the record and remove it in the DataLayer. Then create a new extract." CR LF
  // CR LF "Records will only be removed in the extract and not in the datalayer." Raises 9 when the
  // cursor stands on no record.
  void RemoveRecord(bool ShowMessage = false);
  // Removes from the list every record whose value of the field, read as FieldValue reads it (a Null
  // as "", a field the record lacks as Empty), is "=" / ">" / "<" / "<>" `varValue` by the classic
  // variant comparison (texts case-sensitively; a Null `varValue` matches nothing); any other operator
  // removes nothing. One pass over the list. The cursor ends on 1. Returns Empty. A comparison that
  // raises ends the call with that error: the matching records before it are gone, it and the rest stay.
  Variant SubductRecords(const std::string& strFieldname, const std::string& strOperator, const Variant& varValue);
  // Orders the list by one field (parent: FieldID resolves it; an unknown name does nothing) exactly as
  // the DataLayer's SortRecordset orders its records: text order on SortKeyText of each value's text,
  // or with bolNumberOnly number order in which a record whose value is not numeric holds its place.
  // Both directions True sorts ascending, both False too; the caller's variables are settled so.
  // WithProgressBar shows the progress display "Sortiere...". When a record lacks the field, the sort
  // stops early (as the DataLayer's does) and "Sortrecordset: FieldColumn Index is higher than
  // fieldcount!" is appended to the thread's error text. Returns Empty.
  Variant SortRecordset(const std::string& FieldName, ByRef<bool> bolAsc = false, ByRef<bool> bolDesc = false,
                        ByRef<bool> bolNumberOnly = false, ByRef<bool> WithProgressBar = false);

  // ---- Fields of the current record ---------------------------------------------------------------
  // The value (Null reads as "") of the first field of the current record whose name, trimmed of
  // spaces and upper-cased, equals `strFieldname` trimmed and upper-cased; Empty when there is none,
  // without a report. Raises 9 when the cursor stands on no record.
  Variant FieldValue(const std::string& strFieldname);
  // Stores `varValue` in the first field of the current record whose name is exactly `strFieldname`
  // (case and blanks count: stricter than FieldValue), marks the field and the record HasChanged and
  // the parent DataChanged, and, when the thread's latest GetRecordset asked for real-time saving and
  // the record is not NewlyAdded, saves through the parent at once. An unknown name reports "Could not
  // save any value because the name <name> was not rekognized" and writes nothing. Returns Empty.
  // Raises 9 when the cursor stands on no record. (parent)
  Variant SetFieldValue(const std::string& strFieldname, const Variant& varValue);
  // Moves to the first record whose FieldValue equals `varCompareValue` (classic "=": texts exactly,
  // case-sensitive) and returns True; otherwise moves to 1 and returns False. A record without the
  // field never matches.
  bool FindRecord(const std::string& strFieldname, const Variant& varCompareValue);

  // ---- Whole columns ------------------------------------------------------------------------------
  // Stores `varValue` in the field (parent: FieldID resolves it) of every record of the extract whose
  // value reads as "" (or of all with bolOverwriteExistingValues), without setting any change mark. An
  // unknown name reports "FillField: Fieldname '<name>' not reckkognized" and writes nothing. As the
  // DataLayer's FillField, a Null met by the "" test raises 94 "Invalid use of Null" at that record,
  // the records before it filled.
  void FillField(const std::string& FieldName, const Variant& varValue, bool bolOverwriteExistingValues);
  // The sum of the field's numeric values (numeric texts count, others are skipped) over the extract,
  // the field found by the parent's FieldID (its position is used for every record); 0 when empty or
  // unknown. (parent)
  double CalcSum(const std::string& strFieldname);
  // CalcSum divided by RecordCount: every record counts, also those skipped as not numeric (2, "x", 4
  // average 2). 0 when empty. (parent)
  double CalcAverage(const std::string& strFieldname);
  // A new analyzer on every call, over this extract's record list (shared), with ParentDataLayer the
  // parent DataLayer and Parent this extract: its calculations touch only the extract's records.
  // (parent)
  std::shared_ptr<clsAnalyzer> Analyzer();

  // ---- Lists and output ---------------------------------------------------------------------------
  // Clears the control and adds one item per record: the value of strFieldname; when strFurtherField2
  // is given and its value is not "", ", " (bolUse1Comma2) or " " and that value; when
  // strFurtherField3 is given, ", " (bolUse2Comma3) or " " and its value, empty or not; then 96 blanks
  // and the value of strIDFieldName. Names are found as FieldValue finds them (unknown ones read as "").
  // The cursor is the same afterwards. Always returns False, filled or not. Raises 91 without a control.
  bool FillCBO(const std::shared_ptr<ListControl>& objCBO, const std::string& strFieldname,
               const std::string& strIDFieldName, const std::string& strFurtherField2 = "",
               const std::string& strFurtherField3 = "", bool bolUse1Comma2 = false, bool bolUse2Comma3 = false);
  // Writes one line per record, each field's value as text followed by " | ", to "Datalayer.txt" in the
  // folder of the environment variable "Temp" (replacing it), starts the text viewer on it without
  // waiting, and deletes the file right after. So a viewer that opens the file only later finds it
  // gone; a host that wants the dump shown installs a viewer that reads the file before its Open
  // returns (platform: TextViewer). Reports "VisualizeToTextFile: cannot write the file '<path>'" and
  // "VisualizeToTextFile: no text viewer could be started for '<path>'". Returns Empty.
  Variant VisualizeToTextFile();
  // With IknowWhatIdo False: changes nothing and reports "Extract.Zoom: Info: This function replaces
  // the data of the datalayer with the one in the extract." With True: the parent's offline recordset
  // takes the extract's records, in the extract's order, as its records (the same record objects; the
  // records that were not in the extract leave the working set, not the database), the parent moves to
  // its first record, and the manager destroys every extract, this one included. A failure on the way
  // ends the call and is reported as "Extract.Zoom: <description>".
  void Zoom(bool IknowWhatIdo);

 private:
  // The DataLayer through Parent()->ParentDL(); raises 91 when either has gone.
  std::shared_ptr<DataLayer> ParentLayer() const;
  // The record at `position` of the list: raises 9 when there is none, 91 without a list or for a
  // Nothing in it.
  clsOfflineRecord& RecordAt(int32_t position) const;
  // Appends a text to the parent's ErrorStatus, or to the thread's error text without a parent.
  void Report(const std::string& text) const;

  std::weak_ptr<clsExtractManager> parent_;
  std::shared_ptr<RecordCollectionType> records_;
  int32_t cursor_ = 1;
};

}  // namespace quorbex
