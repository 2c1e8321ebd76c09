// What an isolated handle asks its manager for: one function for each request, each one body and one exchange.
//
// A name or a row that does not fit its body is refused before anything is sent.
#include <cstring>

#include "cache/error.h"
#include "cache/exchange.h"

using namespace cachet;

namespace {

bool ask(ZtDbHandle database, char command) {
  _VEMROMSG message;
  begin_request(message, command, 0);
  return exchange(database, message, CMD_OK, Refusal::mismatch);
}

// Copies a file name into its place in a body.
template <std::size_t N>
bool put_name(ZtDbHandle database, char (&field)[N], const char* name) {
  const std::size_t length = std::strlen(or_empty(name));
  if (length >= N) return report(database, ZT_ERR_GENERAL, message::name_too_long, static_cast<int>(length));
  std::memset(field, 0, N);
  std::memcpy(field, or_empty(name), length);
  return true;
}

// Begins a request whose body ends with `data`.
template <std::size_t FixedBytes>
bool begin_with_data(ZtDbHandle database, _VEMROMSG& message, char command, const char* data,
                     int data_bytes) {
  if (data_bytes < 0 || data_bytes > VEMRO_BODY_BYTES - static_cast<int>(FixedBytes)) {
    return report(database, ZT_ERR_GENERAL, message::row_too_long, data_bytes);
  }
  begin_request(message, command, static_cast<int>(FixedBytes) + data_bytes);
  if (data_bytes > 0)
    std::memcpy(message.body.buffer + FixedBytes, data, static_cast<std::size_t>(data_bytes));
  return true;
}

}  // namespace

bool ZtLoginRemote(ZtDbHandle database) {
  _VEMROMSG message;
  begin_request(message, CMD_CONNECT, sizeof(_CONNECT));
  message.body.connect = {database->base.pid, database->base.mode};
  if (!exchange_over_tcp(database, message)) return false;
  if (message.head.cmd != CMD_CONNECT_OK) {
    return report(database, ZT_ERR_GENERAL, message::mismatched_command);
  }
  _CONNECT_OK mailbox = message.body.connectok;
  mailbox.name[sizeof mailbox.name - 1] = 0;
  const bool complete = message.head.length >= static_cast<int>(sizeof mailbox);
  if (complete && database->base.memchanel.Open(mailbox.name, mailbox.keyid)) return true;
  return report(database, ZT_ERR_GENERAL, message::mailbox_failed);
}

bool ZtRemoteBeginTransaction(ZtDbHandle database) {
  return ask(database, CMD_BEGINTRANS);
}

bool ZtRemoteCommitTransaction(ZtDbHandle database) {
  return ask(database, CMD_COMMITTRANS);
}

bool ZtRemoteRollbackTransaction(ZtDbHandle database) {
  return ask(database, CMD_ROLLBACKTRANS);
}

bool ZtRemoteInsert(ZtDbHandle database, int tableid, int recordlen, char* data, unsigned long* offset) {
  _VEMROMSG message;
  if (!begin_with_data<offsetof(_INSERT, data)>(database, message, CMD_INSERT, data, recordlen)) return false;
  message.body.insert.tableid = tableid;
  message.body.insert.recordlen = recordlen;
  if (!exchange(database, message, CMD_INSERT_OK, Refusal::told_by_manager)) return false;
  *offset = message.body.insert_ok.offset;
  return true;
}

bool ZtRemoteUpdate(ZtDbHandle database, int tableid, int rowid, int colid, int collength, char* data) {
  _VEMROMSG message;
  if (!begin_with_data<offsetof(_UPDATE, data)>(database, message, CMD_UPDATE, data, collength)) return false;
  message.body.update.tableid = tableid;
  message.body.update.rowid = rowid;
  message.body.update.colid = colid;
  message.body.update.fieldlen = collength;
  return exchange(database, message, CMD_OK, Refusal::told_by_manager);
}

bool ZtRemoteDelete(ZtDbHandle database, int tableid, int rowid) {
  _VEMROMSG message;
  begin_request(message, CMD_ERASE, sizeof(_ERASE));
  message.body.erase = {tableid, rowid};
  return exchange(database, message, CMD_OK, Refusal::mismatch);
}

bool ZtRemoteResetDb(ZtDbHandle database) {
  // The request has the login answer's code, on purpose: the two never travel in the same direction.
  return ask(database, CMD_CONNECT_OK);
}

bool ZtRemoteReadDbDir(ZtDbHandle database, char* path) {
  _VEMROMSG message;
  begin_request(message, CMD_LOADDIR, sizeof(_LOADDIR));
  return put_name(database, message.body.loaddir.path, path) &&
         exchange(database, message, CMD_OK, Refusal::told_by_manager);
}

bool ZtRemoteReadDbTable(ZtDbHandle database, int tableid, char* tablefile) {
  _VEMROMSG message;
  begin_request(message, CMD_BCPIN, sizeof(_BCPIN));
  message.body.bcpin.tableid = tableid;
  return put_name(database, message.body.bcpin.filename, tablefile) &&
         exchange(database, message, CMD_OK, Refusal::told_by_manager);
}

bool ZtRemoteReadDbFile(ZtDbHandle database, char* filename) {
  _VEMROMSG message;
  begin_request(message, CMD_RESTORE, sizeof(_RESTORE));
  return put_name(database, message.body.restore.filename, filename) &&
         exchange(database, message, CMD_OK, Refusal::told_by_manager);
}

bool ZtRemoteLock(ZtDbHandle database) {
  return ask(database, CMD_LOCK);
}

bool ZtRemoteUnLock(ZtDbHandle database) {
  return ask(database, CMD_UNLOCK);
}
