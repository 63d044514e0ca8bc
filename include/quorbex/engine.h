// The database engine interface: DBEngine, Database, Recordset, Field, TableDef, QueryDef, Index.
//
// This is the one way the library (and a client that hands a database to DataLayer.SetDatabase) talks
// to a relational database. The object model and the numeric codes are those of the classic desktop
// data-access objects, so ported client code reads line for line; the work is done by a backend chosen
// by DBEngine::OpenDatabase from the name (a server connection string) or the first bytes of the file
// (SQLite, or read-only Jet/ACE files). Nothing here includes a backend's header.
//
// Errors: every failure of an engine operation throws db::EngineError, whose what() is the engine's
// description of the problem (the text the library puts after "...: " in its messages). No other
// exception type leaves this interface, except std::bad_alloc.
//
// Positions: unlike the library's own 1-based collections, the engine's collections (Fields, TableDefs,
// QueryDefs, Indexes) are 0-based, as the classic engine numbers them. Names are matched without regard
// to letter case.
//
// Values travel as quorbex::Variant. Reading restores the kind from the column's declared type: Date
// for date columns (stored as ISO-8601 text "YYYY-MM-DD HH:MM:SS"), Boolean for yes/no columns (stored
// 1/0), Currency for currency columns, Byte/Integer/Long/Single/Double by their codes, String for texts;
// a column without a declared type gives the stored kind as it is. Binary values are Strings holding the
// raw bytes.
//
// Thread safety: an engine object belongs to the thread that created it. DBEngine::Default() is one
// object per thread. Two threads may use two Database objects on the same file at the same time; they
// then meet the database's own locking (see BusyTimeout).
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "quorbex/variant.h"

namespace quorbex::db {

// ---- Codes ---------------------------------------------------------------------------------------

// Field type codes (Field::Type, TableDef::CreateField).
enum DataTypeEnum : int32_t {
  dbBoolean = 1,
  dbByte = 2,
  dbInteger = 3,  // 16-bit
  dbLong = 4,     // 32-bit
  dbCurrency = 5,
  dbSingle = 6,
  dbDouble = 7,
  dbDate = 8,
  dbText = 10,
  dbLongBinary = 11,
  dbMemo = 12,
  dbGUID = 15,
};

// Field attributes (Field::Attributes). dbVariableField is accepted on creation and has no effect.
inline constexpr int32_t dbFixedField = 1;
inline constexpr int32_t dbVariableField = 2;
inline constexpr int32_t dbAutoIncrField = 16;
inline constexpr int32_t dbUpdatableField = 32;

// TableDef::Attributes of a table the engine keeps for itself.
inline constexpr int32_t dbSystemObject = static_cast<int32_t>(0x80000002u);

// Recordset types (OpenRecordset's Type). A dynaset is updatable when the rules of Recordset::Updatable
// allow; a snapshot and a forward-only recordset never are. dbOpenTable is read as dbOpenDynaset.
enum RecordsetTypeEnum : int32_t {
  dbOpenTable = 1,
  dbOpenDynaset = 2,
  dbOpenSnapshot = 4,
  dbOpenForwardOnly = 8,
};

// Recordset and Execute options. dbReadOnly makes a recordset not updatable; the others are accepted
// for compatibility and have no effect (every failure already raises).
inline constexpr int32_t dbDenyWrite = 1;
inline constexpr int32_t dbReadOnly = 4;
inline constexpr int32_t dbFailOnError = 128;
inline constexpr int32_t dbSeeChanges = 512;

// Recordset::EditMode.
inline constexpr int32_t dbEditNone = 0;
inline constexpr int32_t dbEditInProgress = 1;
inline constexpr int32_t dbEditAdd = 2;

// DBEngine::CreateDatabase: the locale and format arguments the classic engine takes. A SQLite database
// has no per-file sort locale and one file format, so both are accepted and have no effect.
inline constexpr const char* dbLangGeneral = ";LANGID=0x0409;CP=1252;COUNTRY=0";
inline constexpr int32_t dbVersion40 = 64;

// Relation attributes (Relation::Attributes), as the classic engine stores them.
inline constexpr int32_t dbRelationUnique = 1;
inline constexpr int32_t dbRelationDontEnforce = 2;
inline constexpr int32_t dbRelationUpdateCascade = 256;
inline constexpr int32_t dbRelationDeleteCascade = 4096;

// ---- Errors --------------------------------------------------------------------------------------

// What kind of failure an EngineError reports, for callers that react to some of them.
enum class ErrorKind {
  General,           // anything not listed below
  FileNotFound,      // OpenDatabase / CompactDatabase: no such file
  AlreadyExists,     // the file, table, query or index to create exists already
  NotADatabase,      // the file is not a database (or is damaged)
  NotSupported,      // a known format or an operation this backend does not offer (yet)
  Busy,              // another connection holds a lock and did not let go within the busy timeout
  ReadOnly,          // writing to a database opened read-only or a write-protected file
  Syntax,            // the SQL text is not valid
  NoSuchObject,      // the SQL names a table, view, column or index that does not exist
  ItemNotFound,      // a collection has no item of that name or position
  Constraint,        // a key, NOT NULL, CHECK or UNIQUE rule refused the change
  Conversion,        // a value cannot be stored in the column's type
  NoCurrentRecord,   // a move or a field access with no current record (BOF, EOF, deleted row)
  NotUpdatable,      // a write on a recordset that is not updatable
  InvalidOperation,  // an operation in the wrong state (Update without AddNew or Edit, ...)
  Closed,            // the database or recordset was closed
};

class EngineError : public std::runtime_error {
 public:
  EngineError(ErrorKind kind, const std::string& description)
      : std::runtime_error(description), kind_(kind) {}
  ErrorKind Kind() const noexcept { return kind_; }
  // The engine's description (same as what()).
  std::string Description() const { return what(); }

 private:
  ErrorKind kind_;
};

// ---- Capabilities --------------------------------------------------------------------------------

// What a backend offers; ask with Database::Supports instead of testing for a backend.
enum class Feature {
  UpdatableRecordsets,  // AddNew/Edit/Delete on recordsets (false for the read-only Jet mirror)
  SchemaChanges,        // TableDefs/Fields/Indexes Append and Delete, renaming fields
  StoredQueries,        // named QueryDefs kept in the database
  TemporaryQueries,     // CreateQueryDef(name, sql, true): a named query that lives only as long as the connection
  Compaction,           // DBEngine::CompactDatabase
  Transactions,         // BeginTrans / CommitTrans / Rollback and savepoints
};

class Database;
class Recordset;
class Field;
class TableDef;
class QueryDef;
class Index;

// ---- Collections ---------------------------------------------------------------------------------

// The fields of a recordset, a table definition or an index. Item raises ItemNotFound ("Item not found
// in this collection: <name or position>") for a position outside 0..Count()-1 or an unknown name.
class Fields {
 public:
  virtual ~Fields() = default;
  virtual int32_t Count() const = 0;
  virtual std::shared_ptr<Field> Item(int32_t index) const = 0;
  virtual std::shared_ptr<Field> Item(std::string_view name) const = 0;
  // The 0-based position of the field `name`, or -1 when there is none (never raises).
  virtual int32_t IndexOf(std::string_view name) const = 0;
  // Table definition and index fields only: appends a field made by CreateField. On a table that
  // exists in the database this adds the column at once. Recordset fields raise InvalidOperation.
  virtual void Append(std::shared_ptr<Field> field);
  // Table definition and index fields only: removes the field (on an existing table, drops the column;
  // a key or indexed column cannot be dropped). Recordset fields raise InvalidOperation.
  virtual void Delete(std::string_view name);
};

// The tables of a database, system tables first, so position 0 is never a user table; user tables
// follow in alphabetical order (letter case ignored). Views are not tables (see QueryDefs).
class TableDefs {
 public:
  virtual ~TableDefs() = default;
  virtual int32_t Count() const = 0;
  virtual std::shared_ptr<TableDef> Item(int32_t index) const = 0;         // raises ItemNotFound
  virtual std::shared_ptr<TableDef> Item(std::string_view name) const = 0;  // raises ItemNotFound
  // Creates the table described by a TableDef from Database::CreateTableDef (with at least one field;
  // otherwise InvalidOperation "No field defined--cannot append TableDef or Index."), with its
  // indexes, all or nothing. A name already in use raises AlreadyExists with the engine's text.
  virtual void Append(std::shared_ptr<TableDef> table) = 0;
  // Drops the table; raises ItemNotFound when there is none.
  virtual void Delete(std::string_view name) = 0;
};

// The stored queries (views) of a database, in alphabetical order, including the temporary ones of
// this connection.
class QueryDefs {
 public:
  virtual ~QueryDefs() = default;
  virtual int32_t Count() const = 0;
  virtual std::shared_ptr<QueryDef> Item(int32_t index) const = 0;         // raises ItemNotFound
  virtual std::shared_ptr<QueryDef> Item(std::string_view name) const = 0;  // raises ItemNotFound
  // Removes the stored query; raises ItemNotFound when there is none.
  virtual void Delete(std::string_view name) = 0;
};

// The indexes of a table definition.
class Indexes {
 public:
  virtual ~Indexes() = default;
  virtual int32_t Count() const = 0;
  virtual std::shared_ptr<Index> Item(int32_t index) const = 0;         // raises ItemNotFound
  virtual std::shared_ptr<Index> Item(std::string_view name) const = 0;  // raises ItemNotFound
  // Creates the index made by TableDef::CreateIndex (at once when the table exists, otherwise when
  // the table is appended). An index without fields raises InvalidOperation.
  virtual void Append(std::shared_ptr<Index> index) = 0;
  // Drops the index; raises ItemNotFound when there is none.
  virtual void Delete(std::string_view name) = 0;
};

// A relationship between two tables: the values of ForeignTable's ForeignFields refer to the row of
// Table whose Fields hold them (Table's key or a unique index). Fields and ForeignFields pair up by
// position. A plain value: Database::Relations hands out copies, Database::CreateRelation takes one.
struct Relation {
  std::string Name;
  std::string Table;
  std::string ForeignTable;
  int32_t Attributes = 0;  // dbRelationUpdateCascade, dbRelationDeleteCascade, dbRelationDontEnforce
  std::vector<std::string> Fields;
  std::vector<std::string> ForeignFields;
};

// ---- Objects -------------------------------------------------------------------------------------

// A column: of a recordset (with the current row's value), of a table definition (with its schema
// properties) or of an index (its name only). A property that does not apply to the kind of field
// raises InvalidOperation.
class Field : public Object {
 public:
  // The column name (a recordset field: its name in the result, alias included).
  virtual const std::string& Name() const = 0;
  // Renames: a field of a table that exists renames the column at once; a field not yet appended just
  // takes the name. Recordset fields raise InvalidOperation.
  virtual void Name(const std::string& strName);
  // The type code (DataTypeEnum). A recordset column without a declared type (an expression) reports
  // the code of its first non-Null value: 4 for integers, 7 for reals, 10 for texts, 11 for binary data
  // (10 while there is none). A table column declared without a type reports 0.
  virtual int32_t Type() const = 0;
  // Before the field is appended only; otherwise InvalidOperation.
  virtual void Type(int32_t lngType);
  // The declared size of a text column (255 when none was declared); 0 for other types.
  virtual int32_t Size() const;
  virtual void Size(int32_t lngSize);
  // Recordset fields: the current row's value (during AddNew/Edit, the edit buffer). Raises
  // NoCurrentRecord at BOF/EOF or on a deleted row. Other fields raise InvalidOperation.
  virtual Variant Value() const;
  // Recordset fields, during AddNew or Edit only (otherwise InvalidOperation "Update or CancelUpdate
  // without AddNew or Edit."): sets the edit buffer; Update writes it. Values are converted to the
  // column's type on Update.
  virtual void Value(const Variant& varValue);
  // Recordset fields: the base table the column comes from; empty for an expression.
  virtual std::string SourceTable() const;
  // Recordset fields: the base table's column name; empty for an expression.
  virtual std::string SourceField() const;
  // dbAutoIncrField (16) for an auto-increment key, dbVariableField (2) for texts and binaries,
  // dbFixedField (1) for the others; recordset fields add dbUpdatableField (32) when writable.
  virtual int32_t Attributes() const;
  // Before append: dbAutoIncrField on a Long field makes it the table's INTEGER PRIMARY KEY
  // AUTOINCREMENT; other bits are accepted and ignored.
  virtual void Attributes(int32_t lngAttributes);
  // Whether a text column accepts the empty text (true unless set to false before append, which adds a
  // CHECK rule). Ignored for non-text types.
  virtual bool AllowZeroLength() const;
  virtual void AllowZeroLength(bool bolAllow);
  // Whether the column refuses Null (NOT NULL).
  virtual bool Required() const;
  virtual void Required(bool bolRequired);

  // The default property of a field is its value.
  Variant DefaultValue() const override;
};

// A query result with a cursor. Rows are read from the database as the cursor advances and kept, so
// moving back and MoveFirst after MoveLast do not run the query again.
//
// Updatable when the database is writable, the recordset is a dynaset, and every column comes from one
// base table whose key (primary key, or a unique index) is among the columns. Writes are single
// INSERT / UPDATE / DELETE statements with bound parameters, identified by the key values read.
//
// A recordset whose rows were not all read holds a read lock on the database file until it reaches the
// end or is closed; close recordsets you no longer need.
class Recordset : public Object {
 public:
  // The SQL text or table name the recordset was opened on.
  virtual const std::string& Name() const = 0;
  virtual bool Updatable() const = 0;
  // The number of rows visited so far: 0 for an empty result, at least 1 after opening a result with
  // rows, complete after MoveLast. Rows added (AddNew+Update) count; deleted rows do not.
  virtual int32_t RecordCount() const = 0;
  // True when the cursor is after the last row (or the result is empty). Called EOF_ because EOF is a
  // macro of the C library.
  virtual bool EOF_() const = 0;
  // True when the cursor is before the first row (or the result is empty).
  virtual bool BOF() const = 0;
  // Moves to the first / last / next / previous row. MoveFirst and MoveLast on an empty result,
  // MoveNext at EOF and MovePrevious at BOF raise NoCurrentRecord ("No current record.").
  // A pending AddNew or Edit is cancelled.
  virtual void MoveFirst() = 0;
  virtual void MoveLast() = 0;
  virtual void MoveNext() = 0;
  virtual void MovePrevious() = 0;
  // The 0-based position of the current row (-1 at BOF, EOF or on a deleted row). Setting it moves to
  // that row, reading ahead as far as needed; a position outside the result raises NoCurrentRecord.
  // A pending AddNew or Edit is cancelled.
  virtual int32_t AbsolutePosition() const;
  virtual void AbsolutePosition(int32_t lngPosition);

  // The fields, in result order.
  virtual std::shared_ptr<db::Fields> Fields() const = 0;
  // Shortcuts for Fields()->Item(...).
  std::shared_ptr<Field> Fields(int32_t index) const { return Fields()->Item(index); }
  std::shared_ptr<Field> Fields(std::string_view name) const { return Fields()->Item(name); }

  // Starts a new row: the fields read Null until set. Update inserts it with the fields that were set
  // (the database applies its defaults to the others) and makes it the current row, with the values the
  // database gave it (the generated key among them); it is counted and is the last row. Raises
  // NotUpdatable on a recordset that is not updatable.
  virtual void AddNew() = 0;
  // Starts changing the current row (NoCurrentRecord without one, NotUpdatable when not updatable).
  virtual void Edit() = 0;
  // Writes the pending AddNew or Edit; InvalidOperation "Update or CancelUpdate without AddNew or
  // Edit." without one. An Edit whose row no longer exists raises NoCurrentRecord ("Record is
  // deleted."). On failure the edit stays pending, so the caller can correct it or CancelUpdate.
  virtual void Update() = 0;
  // Drops a pending AddNew or Edit (nothing happens without one).
  virtual void CancelUpdate() = 0;
  // dbEditNone, dbEditInProgress (Edit) or dbEditAdd (AddNew).
  virtual int32_t EditMode() const = 0;
  // Deletes the current row in the database. The cursor stays on the deleted position (its fields
  // then raise "Record is deleted."); MoveNext goes to the row after it.
  virtual void Delete() = 0;
  // Ends the recordset; every later call raises Closed. Closing twice does nothing.
  virtual void Close() = 0;

  // Hands every row, from the first, to `sink` once, as many values as Fields()->Count(); the sink may
  // move the values away. Meant for copying a whole result into another structure without keeping a
  // second copy here. Afterwards the cursor is at EOF and RecordCount is the number of rows; the rows
  // are not kept, so a later MoveFirst reads the query again. Returns the number of rows.
  // Not pure: this version walks the cursor and copies each value; backends override it with one that
  // reads the result once.
  virtual int32_t TakeRows(const std::function<void(std::span<Variant> row)>& sink);
};

// A stored query (a view), or an unnamed query definition that lives only in this object.
class QueryDef : public Object {
 public:
  // The name; empty for an unnamed query definition.
  virtual const std::string& Name() const = 0;
  virtual const std::string& SQL() const = 0;
  // Replaces the SQL text (a stored query is redefined at once).
  virtual void SQL(const std::string& strSQL) = 0;
  // Opens a recordset on the query (see Database::OpenRecordset for the arguments).
  virtual std::shared_ptr<Recordset> OpenRecordset(int32_t Type = dbOpenDynaset, int32_t Options = 0) = 0;
  // Runs the query as an action statement (see Database::Execute).
  virtual void Execute(int32_t Options = 0) = 0;
  // Releases the object; the stored query stays in the database. Later calls raise Closed.
  virtual void Close() = 0;
  // Empty when the query can be opened. Otherwise why it cannot: a stored query of a read-only legacy
  // file that has no SQL form (it asks for parameters, reads a form's controls, or is a crosstab, action,
  // pass-through or data-definition query). OpenRecordset and Execute then raise NotSupported with it.
  virtual std::string Unavailable() const { return std::string(); }
};

// An index of a table definition.
class Index : public Object {
 public:
  virtual const std::string& Name() const = 0;
  // Before the index is appended only; otherwise InvalidOperation.
  virtual void Name(const std::string& strName) = 0;
  // The indexed fields, in key order; append fields made with CreateField before appending the index.
  virtual std::shared_ptr<db::Fields> Fields() const = 0;
  // A field to append to Fields(); it names the table column to index.
  virtual std::shared_ptr<Field> CreateField(const std::string& Name) = 0;
  // A primary index is created as a unique index (the table's key cannot be changed after creation;
  // a unique index also makes recordsets over the table updatable).
  virtual bool Primary() const = 0;
  virtual void Primary(bool bolPrimary) = 0;
  virtual bool Unique() const = 0;
  virtual void Unique(bool bolUnique) = 0;
};

// A table: one that exists in the database (from TableDefs) or a new one from CreateTableDef, which
// exists only after TableDefs()->Append.
class TableDef : public Object {
 public:
  virtual const std::string& Name() const = 0;
  // Renames the table (at once when it exists).
  virtual void Name(const std::string& strName) = 0;
  // dbSystemObject for the engine's own tables, otherwise 0.
  virtual int32_t Attributes() const = 0;
  virtual std::shared_ptr<db::Fields> Fields() const = 0;
  virtual std::shared_ptr<db::Indexes> Indexes() const = 0;
  // A new field for Fields()->Append. Type defaults to dbText; Size (texts) to 255.
  virtual std::shared_ptr<Field> CreateField(const std::string& Name = "", int32_t Type = dbText,
                                             int32_t Size = 0) = 0;
  // A new index for Indexes()->Append.
  virtual std::shared_ptr<Index> CreateIndex(const std::string& Name = "") = 0;
};

// An open database.
class Database : public Object {
 public:
  // The path (or connection string) it was opened with.
  virtual const std::string& Name() const = 0;
  // False once Close was called.
  virtual bool IsOpen() const = 0;
  // False when the database was opened read-only or the file is write-protected.
  virtual bool Updatable() const = 0;
  // Closes the recordsets opened on it, then the database; later calls on it and them raise Closed.
  // Closing twice does nothing.
  virtual void Close() = 0;
  // What this backend offers.
  virtual bool Supports(Feature feature) const = 0;
  // `name` as a quoted identifier of this database's SQL, fit to stand for a table, query or column in
  // a statement whatever characters it holds (blanks, quotes, brackets, umlauts). The default is the
  // standard form: in double quotes, with inner double quotes doubled.
  virtual std::string QuoteName(std::string_view name) const;

  // Frees the space of deleted rows while the database stays open, where the backend does that in place
  // (a server's VACUUM); raises NotSupported where compacting means writing a new file
  // (DBEngine::CompactDatabase).
  virtual void CompactInPlace();

  // Runs one or more action statements (separated by ";"). A SELECT raises InvalidOperation
  // ("Cannot execute a select query."). Options are accepted and have no effect.
  virtual void Execute(const std::string& Query, int32_t Options = 0) = 0;
  // Runs one action statement whose "?" placeholders take `Parameters` in order: the values travel as
  // bound parameters, never as SQL text (an INSERT into a table without a key, which no recordset can
  // add to). Backends without parameters raise NotSupported (the default).
  virtual void Execute(const std::string& Query, std::span<const Variant> Parameters, int32_t Options = 0);
  // The rows changed by the last Execute.
  virtual int32_t RecordsAffected() const = 0;

  // Opens a recordset on a SQL text or on the name of a table or stored query. Type: dbOpenDynaset
  // (updatable where possible) or dbOpenSnapshot / dbOpenForwardOnly (read-only); Options: dbReadOnly
  // also makes it read-only. Raises Syntax / NoSuchObject / Busy with the engine's text, Syntax for
  // text after the first statement, and InvalidOperation for a statement that changes data (a
  // recordset only reads).
  virtual std::shared_ptr<Recordset> OpenRecordset(const std::string& Name, int32_t Type = dbOpenDynaset,
                                                   int32_t Options = 0) = 0;
  // Opens a recordset on a SQL text whose "?" placeholders take `Parameters` in order: the values travel
  // as bound parameters, never as SQL text, and a backend may keep the prepared statement for the next
  // call with the same text. Backends without parameters raise NotSupported.
  virtual std::shared_ptr<Recordset> OpenRecordset(const std::string& Name, std::span<const Variant> Parameters,
                                                   int32_t Type = dbOpenDynaset, int32_t Options = 0);

  // A query definition. With a name: a stored query (a view) created at once; raises AlreadyExists when
  // a table or query has the name, and the engine's error when the SQL is not a query or names a
  // missing table or column. With `temporary`, the view lives only as long as this connection, so a
  // crash cannot leave it behind. Without a name: a query that is never stored, only held by the
  // returned object (its SQL may also be an action statement for Execute).
  virtual std::shared_ptr<QueryDef> CreateQueryDef(const std::string& Name = "", const std::string& SQLText = "",
                                                   bool temporary = false) = 0;
  virtual std::shared_ptr<db::QueryDefs> QueryDefs() = 0;

  virtual std::shared_ptr<db::TableDefs> TableDefs() = 0;
  // A new table definition, created in the database by TableDefs()->Append.
  virtual std::shared_ptr<TableDef> CreateTableDef(const std::string& Name = "") = 0;

  // The relationships between the tables (their foreign keys), ordered by foreign table. The default:
  // none.
  virtual std::vector<Relation> Relations();
  // Makes the relationship a foreign key of its ForeignTable (Feature::SchemaChanges). The tables and
  // fields must exist; the rows already there are not checked. Raises NotSupported where the backend
  // cannot (the default), ItemNotFound for a missing table, InvalidOperation for a relationship
  // without fields or with unpaired ones.
  virtual void CreateRelation(const Relation& relation);

  // Transactions (Feature::Transactions). BeginTrans takes the write lock at once, waiting for another
  // writer up to the busy timeout (DBEngine::BusyTimeout), so a transaction never fails later because
  // another connection wrote meanwhile. BeginTrans inside a transaction, CommitTrans or Rollback
  // without one raise InvalidOperation.
  virtual void BeginTrans() = 0;
  virtual void CommitTrans() = 0;
  virtual void Rollback() = 0;
  // Named savepoints inside or outside a transaction.
  virtual void Savepoint(const std::string& name) = 0;
  virtual void ReleaseSavepoint(const std::string& name) = 0;
  virtual void RollbackToSavepoint(const std::string& name) = 0;
};

// The entry point: opens, creates and compacts databases. DBEngine::Default() is the calling thread's
// engine; its SystemDB / DefaultUser / DefaultPassword / BusyTimeout apply to databases it opens later.
class DBEngine : public Object {
 public:
  DBEngine();
  ~DBEngine() override;

  // The calling thread's engine (created on first use).
  static std::shared_ptr<DBEngine> Default();

  // Opens an existing database. A connection string opens a server database: a postgresql:// or
  // postgres:// URI, or a libpq key=value string that starts with host= or dbname= (every libpq
  // parameter passes through; DefaultUser and DefaultPassword apply where it names none; Name() is the
  // string without its password). Otherwise the backend is chosen by the file's first bytes:
  // "SQLite format 3" opens SQLite; a Jet/ACE file ("Standard Jet DB" / "Standard ACE DB" at offset 4) opens read-only
  // (Updatable false, every write raises ReadOnly naming `qdl migrate`; a damaged, encrypted or unreadable
  // one raises NotADatabase "The file '<path>' is damaged, encrypted or not a readable Jet/ACE database
  // (...)."), or, in a build without the Jet backend, raises NotSupported ("Jet and ACE database files
  // (.mdb, .accdb) are not supported yet: '<path>'."). A missing file raises FileNotFound
  // ("Could not find file '<path>'."); a folder, an empty file or anything else NotADatabase
  // ("Unrecognized database format '<path>'."); a damaged SQLite file NotADatabase as well. Exclusive keeps the file locked against other connections while open; ReadOnly opens it
  // for reading only. Connect is kept for server backends.
  virtual std::shared_ptr<Database> OpenDatabase(const std::string& Name, bool Exclusive = false,
                                                 bool ReadOnly = false, const std::string& Connect = "");
  // Creates a new SQLite database whatever the extension and opens it. Locale and Options (the classic
  // sort locale and file format, e.g. dbLangGeneral, dbVersion40) are accepted and have no effect. An
  // existing file raises AlreadyExists ("Database already exists: '<path>'").
  virtual std::shared_ptr<Database> CreateDatabase(const std::string& Name, const std::string& Locale = dbLangGeneral,
                                                   int32_t Options = 0);
  // Writes a compacted copy of SrcName to DstName (SQLite: VACUUM INTO). Raises FileNotFound for a
  // missing source, AlreadyExists for an existing destination, and Busy ("Could not use '<path>'; file
  // already in use.") when another connection holds a lock on the source beyond the busy timeout.
  virtual void CompactDatabase(const std::string& SrcName, const std::string& DstName);

  // The workgroup file, default user and password of the classic engine: kept and handed to server
  // backends; a SQLite file has no users and ignores them.
  virtual const std::string& SystemDB() const;
  virtual void SystemDB(const std::string& strPath);
  virtual const std::string& DefaultUser() const;
  virtual void DefaultUser(const std::string& strUser);
  virtual const std::string& DefaultPassword() const;
  virtual void DefaultPassword(const std::string& strPassword);

  // How long (milliseconds) an operation waits for another connection's lock before it raises Busy
  // ("... locked by another connection, waited <n> ms", the time it really waited). 5000 by default;
  // it applies to databases opened afterwards.
  virtual int32_t BusyTimeout() const;
  virtual void BusyTimeout(int32_t lngMilliseconds);

 private:
  std::string system_db_;
  std::string default_user_;
  std::string default_password_;
  int32_t busy_timeout_ms_ = 5000;
};

}  // namespace quorbex::db
