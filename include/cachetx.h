/*
 * Extensions of cachet.h, for programs that ask for them. None of them changes what a call of cachet.h does.
 *
 * Errors are reported as everywhere: a false result, code and text in the handle.
 */
#ifndef CACHETX_H
#define CACHETX_H

#include "cachet.h"

#ifdef __cplusplus
extern "C" {
#endif

/* ------------------------------------------------------------------------------------------------------- */
/* Recovery                                                                                                */
/* ------------------------------------------------------------------------------------------------------- */

/*
 * Turns session tracking and the shared rollback store on for a read-write handle, as ZtOpenDb does for
 * `dbsesion_mode` and `shmrcset_mode` 1: from then on ZtClearDBWildTrans of a survivor can undo what this
 * process leaves when it dies. For handles of ZtCreateDb and the like; call it before the handle's first
 * transaction. Repeatable.
 * Errors: -1008 on a read-only handle, inside a transaction, after a write that was not committed, with a
 * position lock held, without the lock page, and when the store cannot be made (a process has one per
 * database).
 */
CACHET_API bool ZtxEnableRecovery(ZtDbHandle database);

/* ------------------------------------------------------------------------------------------------------- */
/* Search                                                                                                  */
/* ------------------------------------------------------------------------------------------------------- */

/*
 * ZtFindRecord for `count` conditions of one table, each with its own index and key: every cursor is placed as
 * ZtFindRecord(database, tableid, conditions[i], op) would place it, and found[i] is what that would return. 16
 * searches go down the trees at a time, so that a program which needs many rows waits for memory once where it would
 * wait 16 times. On a read-only handle all searches see the table in one state; `count` searches are repeated when a
 * writer interferes, so some dozens are better than some thousands. A condition may stand in `conditions` once.
 * True also when nothing was found. Errors: those of ZtFindRecord, for any of the conditions; no cursor has moved then,
 * and `found` is as it was.
 */
CACHET_API bool ZtxFindRecords(ZtDbHandle database, int tableid, const ZtConditionHandle* conditions,
                               int count, int op, bool* found);

/* ------------------------------------------------------------------------------------------------------- */
/* Image files                                                                                             */
/* ------------------------------------------------------------------------------------------------------- */

/*
 * ZtWriteDbFile of a live database: waits for the writer that holds the transactions' lock, keeps others out
 * while it writes the image, and lets them in again. Inside a transaction of this handle, which holds the
 * lock already, the image has the changes made so far. A writer that uses no transactions is not kept out.
 * Errors: -1008 as ZtWriteDbFile, on a read-only handle, which cannot keep writers out, and when the lock cannot
 * be taken.
 */
CACHET_API bool ZtxWriteDbFileLocked(ZtDbHandle database, const char* filename);

/*
 * Whether ZtReadDbFile would load this image into the attached database. Changes nothing, and a read-only
 * handle may ask too. Errors: -1010 for an image of another version, -1008 for one that does not fit, is
 * truncated or cannot be opened.
 */
CACHET_API bool ZtxCheckDbFile(ZtDbHandle database, const char* filename);

/* ------------------------------------------------------------------------------------------------------- */
/* Memory                                                                                                  */
/* ------------------------------------------------------------------------------------------------------- */

/*
 * Makes the whole database resident, however little of it is used so far: as much memory is taken from the system
 * as the database is large. Then no first touch waits for a page to be made, in any process; and where the kernel
 * has huge pages to give (Linux 6.1 and newer), fewer address translations are missed. Best called once by the
 * creator, before the database fills: handles that attach later map the huge pages by themselves. Read-only handles
 * may call it too; every call sets up the caller's own mapping. Needs no privilege and changes no data; what the
 * kernel lacks or refuses is left out, without an error. The memory is the segments' own and goes with them.
 * Errors: -1008 on a handle that is not attached.
 */
CACHET_API bool ZtxWarmUp(ZtDbHandle database);

/*
 * Sets how many bytes this process may use, over all its handles, to remember where in a unique index it has
 * found which key: 64 MiB unless told otherwise, 16 bytes a key. Later searches for the same full key go there
 * directly. 0 or less switches this off; what was used for it is given back when the handles search next, or
 * end. No result depends on it. Any thread, any time.
 */
CACHET_API void ZtxSetHintLimit(ZTINT8 bytes);

#ifdef __cplusplus
}
#endif

#endif
