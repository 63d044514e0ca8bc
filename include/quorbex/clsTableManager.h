// clsTableManager: changes the structure of the thread's current database: creates database files,
// tables, fields, indexes and stored queries, runs action statements, lists tables and query fields,
// reads field types, hands out the update-script runner and compacts the database.
//
// The table manager has no database of its own. It works on the one database every DataLayer, table
// manager and update runner of the calling thread shares: opening a database here rebinds all of them,
// and a DataLayer bound earlier makes the table manager usable at once. When a table manager is created
// on a thread with no database, it opens the one named by the per-user settings ("DBPath", with
// "Workgroup", "Username" and "Password"), if any. When it ends it closes the shared database, unless
// KeepDBOpen is True.
//
// Failures: every member except CreateDatabase, CreateTable, CreateQueryDef, DBExecute and the two
// SetDatabase* members first checks that a database is bound, and raises AutomationError 40000 (source
// "QuorbexDataLayer.clsTableManager", "No Database set! You must either start the DataLayer itself or
// open Database first!") when none is. Otherwise nothing raises: a Boolean member returns False and,
// where noted, leaves the engine's description of the failure in ErrorStatus.
//
// Table look-ups (AppendField, SetIndex, RenameField, RemoveField) compare names exactly, letter case
// included, and never look at the engine's first table (always a system table). Names are handed to
// the engine as names, never pasted into SQL, so blanks, quotes, brackets and umlauts in them are safe.
//
// Thread safety: none; a table manager belongs to the thread that created it.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "quorbex/collection.h"
#include "quorbex/variant.h"

namespace quorbex {

class clsUpdateDB;

class clsTableManager : public Object, public std::enable_shared_from_this<clsTableManager> {
 public:
  // Binds the database of the per-user settings when the thread has none.
  clsTableManager();
  // Closes the thread's database unless KeepDBOpen.
  ~clsTableManager() override;
  clsTableManager(const clsTableManager&) = delete;
  clsTableManager& operator=(const clsTableManager&) = delete;

  // The last failure text of this object (the client may write it too).
  std::string ErrorStatus;
  // Keep the thread's database open when this object ends.
  bool KeepDBOpen = false;

  // ---- Binding -------------------------------------------------------------------------------------
  // Opens the database and makes it the thread's current one. On failure ErrorStatus reads "Fehler beim
  // Öffnen der angegebenen Datenbank: <description>" and the binding stays as it was. Returns Empty.
  Variant SetDatabaseByPath(const std::string& DBPath);
  // The same, after handing each non-empty workgroup path, user name and password to the engine (and
  // keeping them for the thread).
  Variant SetDatabaseByPathAndWorkgroup(const std::string& DBPath, const std::string& WorkGroupPath,
                                        const std::string& strUsername = "", const std::string& strPassword = "");
  // Creates a new database file (a SQLite database whatever the extension) and opens it. The name must
  // end in a three-letter extension ("CreateDatabase: No filename stated" otherwise, False). An existing
  // file is not touched: ErrorStatus reads "CreateDatabase: Database exists already", and the file is
  // opened and True returned all the same. Other failures: "CreateDatabase: <description>", False.
  bool CreateDatabase(const std::string& strPathAndFileName);

  // ---- Tables and fields ---------------------------------------------------------------------------
  // A new table with the auto-increment Long key "id" (no further index until SetIndex). False on
  // failure, without a text.
  bool CreateTable(const std::string& strTableName);
  // Drops the table; False with the description in ErrorStatus on failure.
  bool DeleteTable(const std::string& strTableName);
  // Appends a field of type code dbType (1 Boolean, 2 Byte, 3 Integer, 4 Long, 5 Currency, 6 Single,
  // 7 Double, 8 Date, 10 Text, 11 Binary, 12 Memo, 15 GUID; 32 a Long counter field). Text fields accept
  // the empty text and no field is required. False with the description in ErrorStatus on failure.
  bool AppendField(const std::string& strTable, const std::string& strField, int32_t dbType);
  // Renames a field; False with the description in ErrorStatus on failure.
  bool RenameField(const std::string& strTable, const std::string& strExistingField, const std::string& strNameAs);
  // Drops a field; False with the description in ErrorStatus on failure.
  bool RemoveField(const std::string& strTable, const std::string& strField);
  // An index named "index" + strField on that one field, the table's primary index when bolPrimary.
  // False on failure, without a text.
  bool SetIndex(const std::string& strTable, const std::string& strField, bool bolPrimary = false);
  // "bool", "zahl", "datum", "text" or "memo" for the type codes 1, 4, 8, 10 and 12; "" for every other
  // type. strTable may be a table or a stored query. A failure shows the message "Fehler in der Funktion
  // GetFieldType: " CR LF <description> (title "Quorbex DataLayer:clsTableManager") and returns "".
  std::string GetFieldType(const std::string& strTable, const std::string& strField);
  // The field's type code; 0 on failure.
  int32_t GetFieldTypeEnum(const std::string& strTable, const std::string& strField);
  // The names of every table of the database in the engine's order (its system tables first).
  std::shared_ptr<Collection<std::string>> TableList();

  // ---- Queries and statements ----------------------------------------------------------------------
  // A stored query; False on failure, without a text.
  bool CreateQueryDef(const std::string& strQueryName, const Variant& strQuery);
  // Drops a stored query; False on failure, without a text.
  bool DeleteQueryDef(const std::string& strQueryName);
  // Runs an action statement; a failure leaves its description in ErrorStatus. Returns Empty.
  Variant DBExecute(const std::string& strQuery);
  // One entry per field of the result of a query (a SQL text or a stored query's name), in field
  // order: "<source table>.<field name>" for a column of a table, the field name alone for an
  // expression. An empty collection when the query fails.
  std::shared_ptr<Collection<std::string>> ListQueryFields(const std::string& strQuery);

  // ---- Update scripts and compaction ---------------------------------------------------------------
  // The update-script runner of this table manager: created on the first call, the same object after.
  std::shared_ptr<clsUpdateDB> DBUpdate();
  // Compacts the thread's current database file in place: closes it, writes a compacted copy beside it,
  // keeps the original as "<name>_orig_<date and time><extension>" (see RenamedOriginalDatabaseName),
  // puts the copy under the original name and opens it again. A kill at any moment leaves a complete
  // database under the original name. True on success; otherwise False with the reason in ErrorStatus
  // and shown as a message: "Die Datenbank kann nicht komprimiert werden, da sie in einem anderen
  // Programm noch offen ist!" when another connection (of any process) has the file open, "Konnte die
  // Datenbank nicht erneut öffnen!" when it cannot be opened again, "COMPACTDB: <description>" for any
  // other failure, and "QuorbexDataLayser.clsTableManager: You must first set the DB in the Datalayer
  // class. Then you can use this method!" when the bound database is closed.
  Variant CompactDB();
  // Where the last successful CompactDB kept the original file; "" before.
  const std::string& RenamedOriginalDatabaseName() const { return renamed_original_; }

 private:
  void RequireDatabase() const;

  std::shared_ptr<clsUpdateDB> update_runner_;
  bool update_runner_made_ = false;
  std::string renamed_original_;
};

}  // namespace quorbex
