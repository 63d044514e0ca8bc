// DataLayer: the facade a client creates to work with relational data.
//
// A DataLayer is bound to a database (the binding is shared by every DataLayer of the thread), loads
// one SQL query into an in-memory offline recordset, moves a cursor over it, reads and writes fields by
// name, and writes every changed and new record back in one pass with Save, logging each change to the
// session log.
//
// Error convention: every operation catches its own failures, appends a text to ErrorStatus (numbered,
// shared by all DataLayers of the thread) and returns its failure value. Only SetStandardDBPathFile
// raises (AutomationError 4000).
//
// Thread safety: a DataLayer belongs to the thread that created it; its shared state is per thread.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "quorbex/byref.h"
#include "quorbex/clsOfflineField.h"
#include "quorbex/clsOfflineRecord.h"
#include "quorbex/clsOfflineRecordset.h"
#include "quorbex/collection.h"
#include "quorbex/engine.h"
#include "quorbex/variant.h"

namespace quorbex {

namespace internal {
class clsLog;
class SaveRun;
class UnfilteredCopy;
}  // namespace internal
class clsAnalyzer;
class clsExtractManager;
class clsImportManager;
class ExcelTools;
class ListControl;

class DataLayer : public Object, public std::enable_shared_from_this<DataLayer> {
 public:
  // Reads the "LogPath" setting into the thread's log folder and creates the session log.
  DataLayer();
  // Releases the recordset, the shared open engine recordset and the log session (its tail is written);
  // closes the shared database when bolCloseDBOnExit; shows the collected errors when DebugMode.
  ~DataLayer() override;
  DataLayer(const DataLayer&) = delete;
  DataLayer& operator=(const DataLayer&) = delete;

  // ---- Binding (shared by every DataLayer of the thread) ----------------------------------------
  // Takes an open database as the thread's current database. No check of the object.
  void SetDatabase(ByRef<std::shared_ptr<db::Database>> dbDatabase);
  // Opens the database at the path with the backend db::DBEngine picks for it. On failure reports
  // "Fehler beim Öffnen der angegebenen Datenbank: " + description; the previous binding stays.
  void SetDatabaseByPath(const std::string& DBPath);
  // As SetDatabaseByPath, after handing the non-empty workgroup path, user and password to the engine.
  void SetDatabaseByPathAndWorkgroup(const std::string& DBPath, const std::string& WorkGroupPath,
                                     const std::string& strUsername = "", const std::string& strPassword = "");
  // Stores the four settings "DBPath", "Workgroup", "Username", "Password" for later loads; raises
  // AutomationError 4000 "Standard DBpath is invalid" (source "Quorbex Data Layer") when no file exists
  // at the path (the settings are stored anyway).
  void SetStandardDBPathFile(const std::string& strDBPathAndFile, const std::string& strWorkgroupFilePath = "",
                             const std::string& strUsername = "", const std::string& strPassword = "");
  // Closes the thread's current database and marks the offline recordset read-only. The bound flag stays.
  void CloseDBConnection();

  // ---- Switches -----------------------------------------------------------------------------------
  bool bolCloseDBOnExit = false;  // close the shared database when this object ends
  bool DebugMode = false;         // show the collected errors in a message box when this object ends
  void SuppressAllMessages(bool value);  // messages go to ErrorStatus instead of a message box (thread)
  void DisableLog(bool value);           // switches the session log off (thread)
  void AllowStoreOfObjects(bool value);  // lets field values hold object references (thread)
  void Username(const std::string& value);  // the user name written into the session log (thread)
  // The "LogPath" setting (default: the folder of the running program); writing stores the setting and
  // makes it the thread's log folder.
  std::string LogPath() const;
  void LogPath(const std::string& value);
  // Whether this object's session log is being written: logging is on and its last write to the file
  // succeeded. A log that cannot be written never fails an operation; this is how a client learns of it.
  bool SessionLogWriting() const;
  // Why the session log is not being written ("The session log '<file>' cannot be written.", "The
  // session log is switched off."); "" while it is.
  std::string SessionLogError() const;
  bool DataChanged() const { return data_changed_; }
  void DataChanged(bool value) { data_changed_ = value; }
  // RecordsetIsReadOnly of the current offline recordset (False when none).
  bool ReadOnly() const;
  // The error channel: reading gives every text reported on this thread, each as CRLF + "n) " + text;
  // writing "" clears it, writing a text appends it ("Recordset not Loaded!" is dropped after a load that
  // returned no rows).
  std::string ErrorStatus() const;
  void ErrorStatus(const std::string& text);

  // ---- Loading ------------------------------------------------------------------------------------
  // Runs a SELECT and copies its rows into a new offline recordset. Always returns False: success shows
  // as RecordCount() > 0 and an untouched ErrorStatus. Refuses texts starting with INSERT or UPDATE; a
  // second load on a loaded object does nothing. When no database is bound, binds the one named by the
  // "DBPath" setting. With WithRealtimeSave, every SetFieldValue by name saves at once.
  bool GetRecordset(const std::string& strSQL, ByRef<bool> WithRealtimeSave = false);
  // The SQL text of the last load or attach; "" before.
  std::string SQLStringInUse() const { return sql_; }
  // The current offline recordset itself (shared); empty before the first load.
  std::shared_ptr<clsOfflineRecordset> GetOfflineRecordset() const { return recordset_; }
  // Adopts an offline recordset built elsewhere (read-only from then on). Refused unless
  // bolAreYouReallySureWhatYouDo is True, strQuery is not empty, the object is not loaded and the
  // recordset's Tag is "AllowAttach"; each refusal reports its own text.
  Variant AttachOfflineRecordset(ByRef<std::shared_ptr<clsOfflineRecordset>> objOfflineRecordsetToAttach,
                                 const std::string& strQuery, const Variant& bolAreYouReallySureWhatYouDo);

  // ---- Cursor -------------------------------------------------------------------------------------
  // The moves clamp to the first and last record; when nothing is loaded they report
  // "Recordset not Loaded!". MoveSpecific clamps without that check (0 with no records).
  Variant MoveFirst();
  Variant MoveLast();
  Variant MoveNext();
  Variant MovePrevious();
  Variant MoveSpecific(int32_t lngRecordPos);
  int32_t ActualPosition() const { return cursor_; }
  int32_t RecordCount() const;

  // ---- Fields of the current record -----------------------------------------------------------------
  // The 1-based position of a field: first in the loaded query's field names (lower-case match), then
  // in the current record (trimmed upper-case match). 0 with "Recordset not Loaded!", "No Records set!"
  // or "FieldID: Fieldname '<name>' not found (or error: )".
  int32_t FieldID(const std::string& FieldName);
  // The value of the named field (or of position Index when FieldName is ""); Null reads as "".
  // Empty when nothing matches or nothing is loaded ("Recordset not Loaded!").
  Variant FieldValue(const std::string& FieldName, int32_t Index = 0);
  // Stores a value and marks the field, the record and DataChanged. By name with real-time saving on,
  // saves the record at once. An unknown name reports
  // "Could not save any value because the name <name> was not rekognized".
  Variant SetFieldValue(const std::string& FieldName, const Variant& varValue, int32_t Index = 0);
  // The field object itself (changes through it bypass the change marks); empty when nothing matches.
  std::shared_ptr<clsOfflineField> FieldObject(const std::string& FieldName, int32_t Index = 0);
  // FieldValue, with False read as "Nein" and True as "Ja".
  Variant FieldValueConvertedYesNo(const std::string& FieldName);

  // ---- Writing back -------------------------------------------------------------------------------
  // Writes every changed record (inserting the new ones and reading back their keys) in one
  // transaction, with one session-log entry per changed field. False when nothing was changed, when the
  // recordset is read-only ("Recordset is readonly"), or when a record fails: the records before it stay
  // written and unmarked, it and the later ones keep their marks, DataChanged stays True. While another
  // connection writes to the database, Save waits for it up to db::DBEngine::BusyTimeout (5 s).
  bool Save();
  // Appends a record marked NewlyAdded with the fields of the others (or of the loaded query); it reaches
  // the database at the next Save once one of its fields has been written.
  Variant AddNew();
  // Removes the current record from the offline recordset, and first from the database when
  // bolDeleteAlsoInDB (by its "id"). False when the database delete fails.
  bool RemoveRecord(ByRef<bool> bolDeleteAlsoInDB);
  // A SELECT used instead of the loaded query as the base of RemoveRecord's delete and its log entry.
  void AlternativeSelectQueryForRemove(const std::string& value);

  // ---- Refresh publishing -------------------------------------------------------------------------
  // True while this object's refresh timer runs; a Save then publishes a new refresh token for its query
  // in sys_quorbexdatalayer_refresh. The timer itself is driven by RefreshTimer.
  bool RefreshTimerActive() const { return refresh_timer_active_; }
  // The refresh token this object last wrote or saw for its query.
  std::string RefreshToken() const { return refresh_token_; }

  // ---- Sorting ------------------------------------------------------------------------------------
  // Sorts the records by one field (text order through SortKeyText, or number order where a non-numeric
  // value holds its place). Both directions True means ascending, both False ascending too; the
  // caller's variables are settled accordingly. Always Empty.
  Variant SortRecordset(const std::string& strFieldname, ByRef<bool> bolAsc, ByRef<bool> bolDesc,
                        ByRef<bool> bolNumberOnly = false, ByRef<bool> WithProgressBar = false);
  // Orders the records inside each run of equal values of the first field by the second. Always Empty.
  Variant SortRecordsetNextInside(const std::string& strFieldnameLastSorted, const std::string& strFieldnameToSort,
                                  ByRef<bool> bolAsc, ByRef<bool> bolDesc);

  // ---- Filters and search ---------------------------------------------------------------------------
  // Keeps the records for which the mirrored test is False ("=" keeps the equal ones, ">" those >= the
  // value, ...); a non-additional filter first undoes an active one and keeps an unfiltered copy. The
  // filter is added to the thread's filter list unless bolNoAddCollection. Always Empty.
  Variant Filter(const std::string& strFieldname, std::string strOperator, Variant varCompareValue,
                 bool bolAdditionalFilter, bool bolNoAddCollection = false);
  // Puts the unfiltered copy back (changes made while filtered are lost). Always Empty. Running out of
  // memory is reported ("DeleteFilter: Out of memory") and leaves the filter active.
  Variant DeleteFilter();
  // Removes for good every record whose field satisfies the test; "DataLayer.RemoveRecordsIF: " on error.
  void RemoveOfflineRecordsIf(const std::string& FieldName, const std::string& Operator, const Variant& varMatch);
  // Moves to the first record whose field equals the value (True); otherwise to record 1 (False).
  bool FindRecord(const std::string& strFieldname, const Variant& varCompareValue);
  // The positions of the records where a search word occurs in one of the fields (or, with
  // strHitListFields, one ";"-joined line of those fields per hit). Of several words the last is not
  // searched, as the word splitter has always done.
  std::shared_ptr<Collection<Variant>> FullTextSearch(const std::string& strSearchString,
                                                      const std::string& strLimitToFieldNames = "",
                                                      const std::string& strHitListFields = "");
  // Sorts by the field and keeps the first record of every run of equal values. Always Empty.
  Variant RemoveMultipleEntries(const std::string& strField);

  // ---- Virtual tables and fields --------------------------------------------------------------------
  // Declares a table without a database ("SELECT * FROM <TableDescription>", fields split at ";" or
  // ","); raises 40000 without fields or when a table exists; False (and reported) without an ID field.
  bool CreateNewVirtualOfflineTable(ByRef<std::string> TableDescription, ByRef<std::string> FieldsDividedBySemicolon);
  // Adds a field at the end of every record and of the field names.
  void AddVirtualField(const std::string& FieldName);
  // Removes the field's name; the records lose the field only when it is their last one.
  void RemoveVirtualField(const std::string& FieldName);
  // Gives the field a new name in every record and in the field names.
  void RenameVirtualField(const std::string& OldName, const std::string& NewName);
  // Names the column AddNew fills with a new GUID text (thread-wide); optionally fills empty values now.
  bool SetAutoGuidColumn(const std::string& strFieldname, bool bolUpdateVirtualTableNow = false);
  // 32 upper-case hexadecimal digits; "" when the platform cannot make a GUID.
  std::string NewGUID();
  // Stores the value in every record where the field is empty text (or in all); a Null raises 94.
  void FillField(const std::string& FieldName, const Variant& varValue, bool bolOverwriteExistingValues);
  // Trims the blanks around every text of the field, marking the records changed.
  void TrimField(const std::string& strFieldname);
  // Appends a copy of the current record (values and status marks) with IDFieldName set to NewID.
  Variant CopyCurrentRecord(const std::string& IDFieldName, std::optional<Variant> NewID = std::nullopt);
  // Gives records whose field count differs the fields of the model record, in its order.
  bool RepairRecords(const Variant& RecordIDtoUse);
  // Whether the field is in the field names or in the current record.
  bool CheckContainsFieldName(const std::string& FieldName);

  // ---- XML persistence ------------------------------------------------------------------------------
  // Writes the records, their field names, types and values and the query text to an XML file (layout:
  // docs/xml-format.md); False with the reason in ErrorStatus.
  bool SaveAsXML(const std::string& XMLFilePath, const std::string& RootElement, bool bolDisableProgressBar = false);
  // Loads such a file into an unloaded object (read-only, as attached); False with the reason.
  bool LoadFromXML(const std::string& XMLFilePath, bool bolDisableProgressBar = false);

  // ---- Aggregates, lists and output -----------------------------------------------------------------
  // The sum of the field's numeric values; the average divides it by all records. 0 when empty.
  double CalcSum(const std::string& strFieldname);
  double CalcAverage(const std::string& strFieldname);
  // Fills a list control with one item per record: the field (and up to two more), 96 blanks and the id.
  bool FillCBO(const std::shared_ptr<ListControl>& objCBO, const std::string& strFieldname,
               const std::string& strIDFieldName, const std::string& strFurtherField2 = "",
               const std::string& strFurtherField3 = "", bool bolUse1Comma2 = false, bool bolUse2Comma3 = false);
  // Selects the list item whose id (after the 96 blanks) is varID; False when there is none.
  bool SetCBOPos(const std::shared_ptr<ListControl>& objCBO, const Variant& varID);
  // The field's values in record order.
  std::shared_ptr<Collection<Variant>> FillCollection(const std::string& strFieldname);
  // Writes the records to Datalayer.txt in the temp folder (" | " between values) and opens a viewer.
  Variant VisualizeToTextFile();
  // Writes a ";"-separated file with a header line that the CSV import reads back; values the import
  // cannot hold (";", line breaks, empty texts) are substituted and reported through ErrorStatus.
  bool WriteDataToCSV(const std::string& strFilePath);

  // ---- Analysis -------------------------------------------------------------------------------------
  // The analyzer over this object's records (its record collection and back references set).
  std::shared_ptr<clsAnalyzer> Analyzer();

  // ---- Extracts -------------------------------------------------------------------------------------
  // The extract manager of this object (clsExtractManager.h), made on first use with this object as its
  // ParentDL, and kept until this object ends.
  std::shared_ptr<clsExtractManager> Extract();

  // ---- Import ---------------------------------------------------------------------------------------
  // The import manager of this object (made on first use and kept); its jobs fill this object.
  std::shared_ptr<clsImportManager> Import();

  // ---- Spreadsheets ---------------------------------------------------------------------------------
  // The spreadsheet tools of this object (ExcelTools.h), made on first use and kept until this object
  // ends, which ends their application too.
  std::shared_ptr<ExcelTools> Excel();
  // Writes the records into a new workbook of Excel()'s application: a header row of field names, then
  // one row per record, numbers, dates, truth values and texts as such (Null and Empty as empty cells),
  // in one bulk write per sheet; records beyond a sheet's last row continue on further sheets. The
  // application is shown where it can be (a display and an installation with a user interface). The
  // workbook stays open in Excel() for the client (WBObject, WBClose). False with "VisualizeToExcel: " +
  // the reason, or "Recordset not Loaded!".
  bool VisualizeToExcel();
  // Fills this object, which must hold no table yet, with a table of the workbook at strPath (opened
  // read-only in Excel()'s application and closed again; "" reads Excel()'s open workbook): the used
  // range of the sheet strSheetOrName, or of the first sheet when it is "", or else the range of the
  // defined name strSheetOrName. The first row gives the field names (an empty one becomes "Field<n>"),
  // every further row one record, the cells' values typed as the workbook holds them. As the CSV import
  // does, a table without an "ID" column gets one in front, filled with new GUIDs. The records are new
  // and marked changed. False with "ImportExcelTable: " + the reason.
  bool ImportExcelTable(const std::string& strPath, const std::string& strSheetOrName = "");

 protected:
  // Turns the refresh-token publishing of Save on or off; the refresh timer uses it.
  void SetRefreshTimerActive(bool active) { refresh_timer_active_ = active; }

 private:
  friend class DataLayerTestAccess;
  friend class internal::SaveRun;

  bool IsLoaded() const { return loaded_; }
  std::shared_ptr<clsOfflineRecord> CurrentRecord() const;
  // The position of the first field of the current record whose trimmed upper-case Description
  // matches the trimmed upper-case name; 0 when none.
  int32_t FindFieldInCurrentRecord(const std::string& name) const;
  // The message routine: a message box, or ErrorStatus when messages are suppressed.
  int32_t Message(const std::string& text, int32_t style, const std::string& title);
  void OpenDatabase(const std::string& path, bool set_bound_flag);
  void PublishRefreshToken();
  void WriteLog(std::string action, const std::string& query, const std::string& deleted_record,
                const std::string& field_name, const std::string& old_value, const std::string& new_value);

  std::shared_ptr<clsOfflineRecordset> recordset_;
  int32_t cursor_ = 0;
  std::string sql_;
  bool data_changed_ = false;
  bool loaded_ = false;
  bool empty_result_ = false;
  std::unique_ptr<internal::clsLog> log_;
  Collection<std::string> field_names_;  // the loaded query's field names, in query order
  std::string alternative_remove_query_;
  bool refresh_timer_active_ = false;
  std::string refresh_token_;
  // Filters: whether one is active, and the records as they were before the first one.
  bool filter_active_ = false;
  std::unique_ptr<internal::UnfilteredCopy> unfiltered_;
  std::shared_ptr<clsAnalyzer> analyzer_;
  std::shared_ptr<clsExtractManager> extract_manager_;
  std::shared_ptr<clsImportManager> import_manager_;
  std::shared_ptr<ExcelTools> excel_tools_;
};

}  // namespace quorbex
