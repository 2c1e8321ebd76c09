/*
 * cachet: a small relational database in System V shared memory, shared by the processes of one host.
 *
 * CAVEATS, before anything else
 *
 *   - One handle, and everything made with it, belongs to one thread at a time. Open one handle per thread.
 *   - A child made by fork() must not use an inherited handle, except to delete it; deleting it there
 *     releases none of the parent's locks and rolls nothing of the parent's back. Open a new one instead.
 *   - ZtCreateDb and ZtOpenDb return HOLDING the file lock. Everybody who calls them calls ZtUnLockDb when
 *     the database is ready, or nobody else gets in.
 *   - Write inside transactions. A write outside of one leaves its marks (a table's after an insert, a
 *     record's after an update) until the next commit of that handle, or its end, and read-only readers WAIT
 *     for that. ZtBeginTransaction is also what keeps two writers apart.
 *   - A read-write handle reads the shared memory itself, without validation. Read under ZtLockDb or inside a
 *     transaction when somebody else may write; read-only handles validate by themselves.
 *   - Records are never freed: a delete marks, an update writes in place, and the memory only fills until
 *     ZtResetDb.
 *   - The database lives as long as somebody is attached. The last ZtDeleteDb removes memory and key files.
 *   - The lock file's lock is a POSIX record lock of the process. The library keeps the levels of all handles
 *     of one process apart, but a program that itself opens and closes the lock file drops the lock.
 *   - Some conditions end the process by design: exhausted heap or shared memory (status 0), misuse of a tree
 *     (status 1), an error callback that returns false (status 255).
 *   - All messages are Chinese texts in GBK.
 *
 * ERRORS are reported by the result (false, null, 0) and kept in the handle: ZtGetError reads code and text,
 * ZtSetErrorHandle gives every error to a callback. Without a callback each error prints one line on standard
 * output. A call that fails changes nothing unless its description says so.
 *
 * ISOLATED HANDLES (ZtOpenDb with `isolate`) cannot harm the database: the kernel refuses every write of their process to
 * it. They search and read the memory themselves. In ZT_MODE_READ_WRITE inserts, changes, deletes, transactions, the reset
 * and the loading of images (by file names of the manager's side, at most 255 bytes) are sent to the manager, one at a
 * time, and wait for its answer without limit; a manager that dies ends the wait. A load that fails returns false. Any
 * other change that fails, or is refused, is reported and then ENDS THE PROCESS with status 0: whether it was made is
 * not known. A changed field is seen by this handle too only when the manager has stored it. A row of more than 8184
 * bytes does not fit a request. The manager rolls back the open transaction of a client that goes away.
 *
 * NAMES. A database is named by a directory and a name; its files are "DIR//NAME" (the lock file) and
 * "DIR//NAME" followed by "00.data", "01.data", ..., ".lk", "_session_shmname" and ".1.r.s0.sem" and its like
 * (empty key files of the System V objects). "DIR//NAME" may have at most 79 bytes.
 */
#ifndef CACHET_H
#define CACHET_H

#include <stdbool.h>
#include <stddef.h>
#include <stdint.h>

#if defined(__GNUC__)
#define CACHET_API __attribute__((visibility("default")))
#else
#define CACHET_API
#endif

#ifdef __cplusplus
extern "C" {
#endif

/* ------------------------------------------------------------------------------------------------------- */
/* Types and constants                                                                                     */
/* ------------------------------------------------------------------------------------------------------- */

typedef struct ZtDb* ZtDbHandle;               /* an attached database */
typedef struct ZtRecordRow* ZtRecordHandle;    /* a row being built, or a stored row */
typedef struct ZtCondition* ZtConditionHandle; /* a search key and the cursor of its results */

typedef long long ZTINT8;      /* a value of a FIELD_INT8 */
typedef char ZTCHAR;           /* of a FIELD_CHAR */
typedef unsigned char ZTUCHAR; /* of a FIELD_UCHAR */
typedef char* ZTSTRING;        /* of a FIELD_STRING */

/*
 * Called with every error of a handle. `errmsg` (GBK, at most 299 bytes) lives until the callback returns.
 * True lets the program carry on; false ends the process with status 255.
 */
typedef bool (*ZtErrorHandle)(int errcode, const char* errmsg);

/* Field types. The length given to ZtAddField is the width in bytes named here. */
enum {
  FIELD_SHORT = 1,  /* int16_t, 2 */
  FIELD_INT = 2,    /* int32_t, 4 */
  FIELD_CHAR = 3,   /* signed 8-bit character, 1 */
  FIELD_USHORT = 4, /* uint16_t, 2 */
  FIELD_UINT = 5,   /* uint32_t, 4 */
  FIELD_UCHAR = 6,  /* unsigned 8-bit character, 1 */
  FIELD_STRING = 7, /* NUL-terminated text, the slot's width with its NUL */
  FIELD_DOUBLE = 8, /* double, 8 */
  FIELD_INT8 = 9    /* int64_t, 8 */
};

/* Comparison operators of ZtFindRecord. */
enum { ZT_OP_LESS = 1, ZT_OP_LESS_EQUAL = 2, ZT_OP_EQUAL = 3, ZT_OP_GREATER_EQUAL = 4, ZT_OP_GREATER = 5 };

/* Access modes of ZtOpenDb. */
enum { ZT_MODE_READ_ONLY = 1, ZT_MODE_READ_WRITE = 2 };

/* Modes of ZtLockDb. */
enum { ZT_LOCK_SHARED = 1, ZT_LOCK_EXCLUSIVE = 2 };

/* Index types of ZtAddIndex; any value but ZT_INDEX_UNIQUE allows equal keys. */
enum { ZT_INDEX_DUPLICATES = 0, ZT_INDEX_UNIQUE = 1 };

/* Error codes. */
enum {
  ZT_OK = 0,
  ZT_ERR_NO_MEMORY = -1003,     /* the free shared memory is too small for the record */
  ZT_ERR_READ_ONLY = -1004,     /* a write on a read-only handle, or a change of an indexed field */
  ZT_ERR_BAD_OPERATOR = -1007,  /* an unknown comparison operator */
  ZT_ERR_GENERAL = -1008,       /* every other failure; the text says which */
  ZT_ERR_DUPLICATE_KEY = -1009, /* a live record has the same key in a unique index */
  ZT_ERR_IMAGE_VERSION = -1010  /* an image of another version */
};

/* Size of the buffer that ZtGetError fills, in bytes. */
enum { ZT_ERRMSG_SIZE = 300 };

/* ------------------------------------------------------------------------------------------------------- */
/* Lifecycle and errors                                                                                    */
/* ------------------------------------------------------------------------------------------------------- */

/*
 * Creates the database `path`//`name` with `size` bytes of shared memory (192 bytes to 100 GiB; the memory is
 * sparse until touched) and takes the exclusive file lock, so that nobody can open it before its tables
 * exist.
 *
 *   ZtCreateDb -> ZtAddTable, ZtAddField, ZtAddIndex, ZtAddIndexField ... -> ZtSaveDbInfo -> ZtLoadDb
 *              -> ZtUnLockDb -> use -> ZtDeleteDb
 *
 * `version`: at most 22 bytes are kept; an opener must give the same text.
 * `dbsesion_mode`: 1 enters every holder and waiter of the lock in the session table, 0 does not.
 * The handle is stored in *database also on failure, and is ended with ZtDeleteDb in both cases.
 *
 * Unattached shared memory left by a crashed database of this name is replaced.
 * Blocks while another process holds the file lock.
 * Errors, all -1008: the lock cannot be created, which is also how a database in use is refused; the file
 * lock fails; the memory cannot be made (the text has the file and errno; also a name over 79 bytes or a size
 * out of range).
 */
CACHET_API bool ZtCreateDb(ZtDbHandle* database, const char* path, const char* name, const char* version,
                           ZTINT8 size, int dbsesion_mode);

/*
 * Attaches an existing database and returns holding the shared file lock; waits for the creator's exclusive
 * lock to go.
 *
 *   ZtOpenDb -> ZtLoadDbInfo -> ZtLoadDb -> ZtUnLockDb -> use -> ZtDeleteDb
 *
 * `mode`: ZT_MODE_READ_ONLY maps the memory read-only, ZT_MODE_READ_WRITE writable.
 * `port`, `isolate`: with `isolate` the memory is mapped read-only, and the handle logs in to the manager that
 *   listens on 127.0.0.1:`port`. In ZT_MODE_READ_WRITE every change then goes to the manager, see ISOLATED HANDLES
 *   above; in ZT_MODE_READ_ONLY only position locks do.
 * `reuse_shmmap`: nonzero reuses the process's first attachment instead of a new one; it must be this very
 *   database, still attached. Such a handle detaches nothing; it must not outlive the one that attached.
 * `shmrcset_mode`: 0 keeps rollback copies in process memory; 1 keeps them in shared memory, from where a
 *   survivor can roll back for this process. A process has one such handle per database.
 * `dbsesion_mode`: as for ZtCreateDb.
 * The handle is stored in *database also on failure, and is ended with ZtDeleteDb in both cases.
 *
 * Errors, all -1008, file lock released: the file lock; the memory (no such database, or one that cannot be
 * attached); the version, after the memory was attached; and for a read-write handle a lock page that cannot
 * be opened: a read-only handle opens without it, and its lock calls return false. With `isolate` also: no manager
 * listens; the login fails, which is reported twice, with its own reason first.
 */
CACHET_API bool ZtOpenDb(ZtDbHandle* database, const char* path, const char* name, const char* version,
                         int mode, int port, bool isolate, int reuse_shmmap, int shmrcset_mode,
                         int dbsesion_mode);

/*
 * Ends a handle and frees it, also one whose opening failed. A local handle inside a transaction rolls it
 * back and releases its locks first. The last process to leave removes the shared memory and the key files.
 * Conditions and rows are not freed: close them before. A null handle is ignored.
 */
CACHET_API void ZtDeleteDb(ZtDbHandle database);

/*
 * Makes the tree heads of every table and index (creator), or finds them (everybody else). Once per handle,
 * after ZtSaveDbInfo or ZtLoadDbInfo. Ends the process with status 0 when the memory has no room for them.
 */
CACHET_API void ZtLoadDb(ZtDbHandle database);

/*
 * Empties the whole database in place; the tables stay. Other processes see the empty tables at once.
 * Takes no lock: hold ZtLockDb(database, ZT_LOCK_EXCLUSIVE) and let no cursor live across it. Before-images
 * that this handle keeps are dropped with the records they belong to.
 * Errors: -1008 on a read-only handle.
 */
CACHET_API void ZtResetDb(ZtDbHandle database);

/*
 * Takes the file lock (byte 1 of the lock file), shared or exclusive, waiting for other processes. The lock
 * belongs to the process: handles of one process never block one another, and each keeps its own level.
 * False for another mode, or when the system refuses (a deadlock between two upgrades, for example).
 */
CACHET_API bool ZtLockDb(ZtDbHandle database, int mode);

/* Releases this handle's file lock; other handles of the process keep theirs. */
CACHET_API void ZtUnLockDb(ZtDbHandle database);

/*
 * Copies the last error's code to *errcode and its text with its NUL to `errmsg` (ZT_ERRMSG_SIZE bytes). Code
 * 0 and an empty text before the first error. The error is not cleared.
 */
CACHET_API void ZtGetError(ZtDbHandle database, int* errcode, char* errmsg);

/* Gives every further error of this handle to `callback`; null prints them on standard output again. */
CACHET_API void ZtSetErrorHandle(ZtDbHandle database, ZtErrorHandle callback);

/* The library's build text. Static storage; any thread. */
CACHET_API const char* ZtGetLibVersion(void);

/*
 * The version text given at creation, inside the shared memory: valid until ZtDeleteDb. Null when not
 * attached.
 */
CACHET_API const char* ZtGetDbVersion(ZtDbHandle database);

/*
 * `size`: all bytes of the database; `used`: bytes taken by header, catalog, tree nodes and records. Reads
 * two counters without a lock. Both are 0 on a handle that is not attached.
 */
CACHET_API void ZtMemoryInfo(ZtDbHandle database, ZTINT8* size, ZTINT8* used);

/* ------------------------------------------------------------------------------------------------------- */
/* Catalog                                                                                                 */
/* ------------------------------------------------------------------------------------------------------- */

/*
 * Writes the handle's tables into the shared catalog, once, by the creator, after the schema calls and before
 * ZtLoadDb. Everything stored before is abandoned.
 * Errors: -1008 when the handle may not write, or when the catalog does not fit the first segment (nothing is
 * written then).
 */
CACHET_API void ZtSaveDbInfo(ZtDbHandle database);

/*
 * Appends the tables of the shared catalog to the handle, once, after ZtOpenDb.
 * Errors: -1008 when the catalog contradicts itself (nothing is appended then).
 */
CACHET_API void ZtLoadDbInfo(ZtDbHandle database);

/* ------------------------------------------------------------------------------------------------------- */
/* Schema: only between ZtCreateDb and ZtSaveDbInfo. Ids are positions, from 0 in order of definition.     */
/* An id out of range, a negative length or a null name reports -1008 and adds nothing.                    */
/* ------------------------------------------------------------------------------------------------------- */

/* Adds a table; its id is the number of tables before. `name`: at most 78 bytes. */
CACHET_API void ZtAddTable(ZtDbHandle database, const char* name);

/*
 * Adds a field behind the table's last one. `name`: at most 79 bytes. `type`: a FIELD_ code; others are
 * stored as raw bytes that no key compares. `length`: width in bytes, not checked against the type.
 * `decimal`: for
 * FIELD_DOUBLE the places that values are rounded to, -1 for none. A field must start within the first 32767
 * bytes of the record.
 */
CACHET_API void ZtAddField(ZtDbHandle database, int tableid, const char* name, int type, int length,
                           int decimal);

/*
 * Adds an index to the table. `name`: at most 79 bytes. `indextype`: ZT_INDEX_UNIQUE or ZT_INDEX_DUPLICATES.
 */
CACHET_API void ZtAddIndex(ZtDbHandle database, int tableid, const char* name, int indextype);

/*
 * Adds a field to an index, most significant first; at most 127 to one index. The field of a stored record
 * cannot be changed from then on.
 */
CACHET_API void ZtAddIndexField(ZtDbHandle database, int tableid, int indexid, int fieldid);

/* ------------------------------------------------------------------------------------------------------- */
/* Record handles                                                                                          */
/* ------------------------------------------------------------------------------------------------------- */

/* Makes an empty record handle; the caller ends it with ZtCloseRecord. Process-local; needs no database. */
CACHET_API void ZtCreateRecord(ZtRecordHandle* record);

/*
 * Makes `destination` name the same row as `source`. Both share one buffer: close only one of them with it.
 */
CACHET_API void ZtDupRecord(ZtRecordHandle source, ZtRecordHandle destination);

/*
 * Frees the handle; with a read-only database also the private copy in it. A row from ZtNewRecord that was
 * never stored is not freed by it: store it, or let it go.
 */
CACHET_API void ZtCloseRecord(ZtDbHandle database, ZtRecordHandle record);

/*
 * Puts a new row of table `tableid` into the handle: all bytes 0, in process memory, until ZtPutRecord.
 * Errors: -1004 on a read-only handle, -1008 for a bad table id; the handle stays as it was.
 */
CACHET_API bool ZtNewRecord(ZtDbHandle database, int tableid, ZtRecordHandle record);

/* ------------------------------------------------------------------------------------------------------- */
/* Fields                                                                                                  */
/* ------------------------------------------------------------------------------------------------------- */

/*
 * Sets a field from `data`, which holds the value in its stored form: as many bytes as the field is wide (a
 * FIELD_DOUBLE 8, a FIELD_STRING the whole slot). A text's last byte becomes 0; a double is rounded to its
 * decimals. In a stored record the change is made in place at once, after its before-image was kept.
 * Errors: -1004 on a read-only handle, or for an indexed field of a stored record; -1008 for a bad field id
 * or a handle without a record. Takes no lock.
 */
CACHET_API bool ZtSetField(ZtDbHandle database, ZtRecordHandle record, int fieldid, const void* data);

/*
 * The address of the field's bytes, unaligned, inside the row, and its type in *fieldtype. In a read-write
 * handle this is the shared memory itself; never write through it. Null, and *fieldtype as it was, when the
 * handle holds no record; null with -1008 for a bad field id.
 */
CACHET_API char* ZtGetField(ZtDbHandle database, ZtRecordHandle record, int fieldid, int* fieldtype);

/* The low 32 bits of the row's record id; -1 for a row not yet stored. 0 with -1008 without a record. */
CACHET_API int ZtGetRecordId(ZtDbHandle database, ZtRecordHandle record);

/* The number of columns of the row's table. */
CACHET_API int ZtGetCols(ZtDbHandle database, ZtRecordHandle record);

/* A column's name, owned by the database handle. Null with -1008 for a bad column. */
CACHET_API char* ZtGetColName(ZtDbHandle database, ZtRecordHandle record, int col);

/* A column's type code, width in bytes, and decimals. 0 with -1008 for a bad column. */
CACHET_API int ZtGetColType(ZtDbHandle database, ZtRecordHandle record, int col);
CACHET_API int ZtGetColSize(ZtDbHandle database, ZtRecordHandle record, int col);
CACHET_API int ZtGetColDecimal(ZtDbHandle database, ZtRecordHandle record, int col);

/* The column's bytes in the row, as ZtGetField. Null with -1008 for a bad column or without a record. */
CACHET_API char* ZtGetColData(ZtDbHandle database, ZtRecordHandle record, int col);

/* ------------------------------------------------------------------------------------------------------- */
/* Records                                                                                                 */
/* ------------------------------------------------------------------------------------------------------- */

/*
 * Stores the new row in the handle, in shared memory and in every index; the handle then names the stored
 * record.
 * True at once for a row that is already stored. Marks the table until the next commit. Takes no lock: call
 * it inside a transaction.
 * Errors: -1004 on a read-only handle; -1003 when less than 81920 bytes are free or the insert would not fit
 * (nothing changed, the row stays in the handle); -1009 for a key that a live record has in a unique index
 * (the row is released: ZtNewRecord before the handle is used again); -1008 for a new row that is gone.
 */
CACHET_API bool ZtPutRecord(ZtDbHandle database, ZtRecordHandle record);

/*
 * Marks the stored record deleted; it keeps its place in memory and its id is never given again. Deleting
 * twice changes nothing. Takes no lock.
 * Errors: -1004 on a read-only handle; -1008 for a handle without a stored record.
 */
CACHET_API void ZtDeleteRecord(ZtDbHandle database, ZtRecordHandle record);

/* ------------------------------------------------------------------------------------------------------- */
/* Conditions and search                                                                                   */
/* ------------------------------------------------------------------------------------------------------- */

/*
 * Makes an empty condition with room for `fieldcount` key fields (0 to 127). The caller ends it with
 * ZtCloseCondition. It is a search key and a cursor at once; process-local.
 *
 *   ZtCreateCondition(1, &c) -> ZtSetConditionIndex(c, index) -> ZtAddConditionIndexItem(c, FIELD_INT, 4,
 *   &key)
 *     -> ZtFindRecord(db, table, c, ZT_OP_GREATER_EQUAL) -> ZtGetRecord, ZtNextRecord ... -> ZtCloseCondition
 */
CACHET_API void ZtCreateCondition(int fieldcount, ZtConditionHandle* condition);

/* Frees the condition and its key. */
CACHET_API void ZtCloseCondition(ZtConditionHandle condition);

/* Selects an index (or, with a negative number, the table's list of records) and empties the key. */
CACHET_API void ZtSetConditionIndex(ZtConditionHandle condition, int index);

/*
 * Appends the next key field: `type` as in the schema, `len` bytes copied from `value`. Fewer fields than the
 * index has make a prefix key. Fields beyond the capacity are dropped, and the next ZtFindRecord reports
 * -1008.
 */
CACHET_API void ZtAddConditionIndexItem(ZtConditionHandle condition, int type, int len, const void* value);

/* Copies key and cursor of `source`, all but the place within the current key, into `destination`. */
CACHET_API void ZtDupCondition(ZtConditionHandle source, ZtConditionHandle destination);

/*
 * Searches the condition's index and stands on the first match, in ascending key order; records of equal keys
 * come in the order of insertion. False without an error when nothing matches.
 * Errors: -1007 for an unknown operator; -1008 for a bad table or index, or a key that lost fields.
 */
CACHET_API bool ZtFindRecord(ZtDbHandle database, int tableid, ZtConditionHandle condition, int op);

/* ------------------------------------------------------------------------------------------------------- */
/* Cursors: false without an error means that there is no further record.                                  */
/* On a read-only handle they wait while a writer has the table marked; ZtFirstRecord and ZtLastRecord do  */
/* so only when they have to step on.                                                                      */
/* ------------------------------------------------------------------------------------------------------- */

/* Goes to the first, the last, the next, the previous record of the result. */
CACHET_API bool ZtFirstRecord(ZtDbHandle database, ZtConditionHandle condition);
CACHET_API bool ZtNextRecord(ZtDbHandle database, ZtConditionHandle condition);
CACHET_API bool ZtPrevRecord(ZtDbHandle database, ZtConditionHandle condition);
CACHET_API bool ZtLastRecord(ZtDbHandle database, ZtConditionHandle condition);

/* Stands on the record with id `rowid`, or on the next live one if it is deleted; walks by record id. */
CACHET_API bool ZtGotoRecord(ZtDbHandle database, int tableid, int rowid, ZtConditionHandle condition);

/* Stands on the first record of the whole index (of the whole table, with a negative index number). */
CACHET_API bool ZtListRecord(ZtDbHandle database, int tableid, ZtConditionHandle condition);

/*
 * Hands out the cursor's record. A read-write handle gets the shared record itself, a read-only one a private
 * copy that no writer touched half-way, valid until the next ZtGetRecord into this handle or ZtCloseRecord.
 * Errors: -1008 when the cursor stands nowhere.
 */
CACHET_API bool ZtGetRecord(ZtDbHandle database, ZtConditionHandle condition, ZtRecordHandle record);

/* ------------------------------------------------------------------------------------------------------- */
/* Transactions                                                                                            */
/* ------------------------------------------------------------------------------------------------------- */

/*
 * Begins a transaction; a read-write handle waits for other writers. An open transaction is committed first.
 * Readers are never waited for.
 */
CACHET_API void ZtBeginTransaction(ZtDbHandle database);

/*
 * Makes the changes final, lets read-only readers in, and lets the next writer go. Nothing without a begin.
 */
CACHET_API void ZtCommitTransaction(ZtDbHandle database);

/*
 * Takes every change since the last commit back. Inserted records stay in memory as deleted ones; record ids
 * are not reused. Nothing without a begin. Errors: -1003 when a record that returns to life cannot be put
 * back into its index for want of memory.
 */
CACHET_API void ZtRollbackTransaction(ZtDbHandle database);

/* ------------------------------------------------------------------------------------------------------- */
/* Sessions of dead processes                                                                              */
/* ------------------------------------------------------------------------------------------------------- */

/*
 * Clears what every dead process left: its transaction is rolled back from its shared store, or its commit
 * finished, its unfinished work on the trees completed, its locks and waits taken back. Works for processes
 * that had session tracking and the shared store on. A process counts as dead when its id is gone: not as a
 * zombie, and not while another process has the id. Once nobody else is attached, the stores of dead processes
 * are removed as well. May wait for a live writer.
 * False when something is left as it is: a dead writer on a read-only handle, or without its whole store, or
 * without tracking; a load that somebody died in.
 */
CACHET_API bool ZtClearDBWildTrans(ZtDbHandle database);

/*
 * The same for one session: `stype` 0 waiting to read, 1 reading, 2 waiting to write, 3 writing; process and thread
 * id as in the table. Nothing for a live process. A session that is not in the table takes a count back all the same.
 */
CACHET_API bool ZtClearWildTrans(ZtDbHandle database, int stype, unsigned long pid, unsigned long tid);

/* ------------------------------------------------------------------------------------------------------- */
/* Table files: one table as lines of `name=value` pairs. Nothing is escaped: a text with ";" or a line    */
/* break in it is read back wrongly. No call takes a lock.                                                 */
/* ------------------------------------------------------------------------------------------------------- */

/*
 * Write the table's live records, in ascending order of record id: as text, one line each, or as binary lines
 * with their length before them. The file is made or emptied, and written straight.
 * Errors: -1008 for a bad table id, when the file cannot be opened, or when it could not be written whole.
 */
CACHET_API bool ZtWriteTableTxt(ZtDbHandle database, int tableid, const char* filename);
CACHET_API bool ZtWriteTableBinary(ZtDbHandle database, int tableid, const char* filename);

/*
 * Insert a record for every line of the file, each with ZtPutRecord through the handle `record`. A field that
 * a line does not name stays 0. A refused record is reported and the import goes on; a line of more than
 * 10240 bytes ends it, with true. Call them inside a transaction, as every insert. Errors: -1004 on a
 * read-only handle; -1008 for a bad table id, or when the file cannot be opened or read. Records stored
 * before a failure stay.
 */
CACHET_API bool ZtReadTableTxt(ZtDbHandle database, int tableid, ZtRecordHandle record, const char* filename);
CACHET_API bool ZtReadTableBinary(ZtDbHandle database, int tableid, ZtRecordHandle record,
                                  const char* filename);

/*
 * Writes a picture of the table for an engineer's eyes: the keys of every index with the ids of their
 * records, by the list of all records ever stored and by the list that cursors have tidied, then all records,
 * deleted ones too. Errors as ZtWriteTableTxt.
 */
CACHET_API bool ZtDumpTable(ZtDbHandle database, int tableid, const char* filename);

/* ------------------------------------------------------------------------------------------------------- */
/* Image files: the whole database as its bytes, or the records of one table. No call takes a lock; an     */
/* image of a live database is consistent only while writers are kept out: begin a transaction around it.  */
/* An image under its final name is always whole: it is written beside it and renamed, unless the name is  */
/* a symbolic link or no regular file, or the folder admits no temporary.                                  */
/* ------------------------------------------------------------------------------------------------------- */

/*
 * Writes the whole database, byte for byte. Errors: -1008 when the file cannot be opened or not be written
 * whole; what the file held before is then still there.
 */
CACHET_API bool ZtWriteDbFile(ZtDbHandle database, const char* filename);

/*
 * Replaces the whole database by an image of the same size and tables (any tables, when this one has none
 * yet: load them then with ZtLoadDbInfo and ZtLoadDb). The database keeps its name; marks of changes under
 * way are cleared; everything else comes from the image. Hold ZtLockDb(database, ZT_LOCK_EXCLUSIVE), and let
 * no cursor and no row live across it. Before-images that this handle keeps are dropped. Errors: -1010 for
 * another version; -1008 on a read-only handle, when the file cannot be opened, or when it is truncated or
 * does not fit the database. Nothing has changed then, unless the disk fails in the middle.
 */
CACHET_API bool ZtReadDbFile(ZtDbHandle database, const char* filename);

/*
 * Writes one image of records per table into the folder `path`, which is made if it is missing:
 * "PATH//TABLE.table". Errors: -1008 when a file cannot be opened or not be written whole; those written
 * before stay.
 */
CACHET_API bool ZtWriteDbDir(ZtDbHandle database, const char* path);

/*
 * Empties the database and loads the records of every table from "PATH//TABLE.table". They get new record
 * ids. The memory of the records before is not given back (ZtResetDb does that). Hold the exclusive file
 * lock, and let no cursor and no row live across it. Errors: -1008 on a read-only handle, or when a file is
 * missing or has no header: nothing has changed then; -1003 when a record finds no memory: those before it
 * stay.
 */
CACHET_API bool ZtReadDbDir(ZtDbHandle database, const char* path);

/*
 * Writes the data of the table's live records, in ascending order of record id, behind the database's version
 * in 32 bytes. Errors: -1008 as ZtWriteDbFile, and for a bad table id.
 */
CACHET_API bool ZtWriteDbTable(ZtDbHandle database, int tableid, const char* tablefile);

/*
 * Adds the records of a table image to the table, under new record ids. Neither the version nor unique keys
 * are checked, and a rollback does not take them back; a tail that is no whole record is ignored. Takes no
 * lock: call it inside a transaction. Errors: -1004 on a read-only handle; -1008 for a bad table id, when the
 * file cannot be opened, or when it has no header or shrinks meanwhile; -1003 when a record finds no memory.
 * Records loaded before a failure stay.
 */
CACHET_API bool ZtReadDbTable(ZtDbHandle database, int tableid, const char* tablefile);

/*
 * Stores the number of records ever inserted into the table in `count` and an estimate of the shared memory
 * they take in `size`. Errors: -1008 for a bad table id; both are 0 then.
 */
#ifdef __cplusplus
CACHET_API void ZtTableSize(ZtDbHandle database, int tableid, const long& count, const long& size);
#else
CACHET_API void ZtTableSize(ZtDbHandle database, int tableid, const long* count, const long* size);
#endif

#ifdef __cplusplus
}
#endif

#endif
