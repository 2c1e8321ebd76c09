// The table of requests. A body outside of its row's bounds reaches no handler.
#include "ztmanager/requests/dispatch.h"

#include <algorithm>
#include <array>

#include "ztmanager/requests/handlers.h"

namespace manager {

namespace {

bool refuse_schema_change(Client& client, const Request&, Answer&) {
  return client.session.refuse(ZT_ERR_GENERAL, "the tables of an attached database do not change");
}

struct Row {
  char command;
  int least_bytes;
  int most_bytes;
  Handler handler;
};

constexpr int id_bytes = sizeof(int);
constexpr int longest = VEMRO_BODY_BYTES;

template <class Body>
constexpr Row exactly(char command, Handler handler) {
  return {command, sizeof(Body), sizeof(Body), handler};
}
constexpr Row ids(char command, int count, Handler handler) {
  return {command, count * id_bytes, count * id_bytes, handler};
}
constexpr Row with_data(char command, std::size_t fixed_bytes, Handler handler) {
  return {command, static_cast<int>(fixed_bytes), longest, handler};
}

constexpr std::array rows = {
    ids(CMD_BEGINTRANS, 0, transactions::begin),
    ids(CMD_COMMITTRANS, 0, transactions::commit),
    ids(CMD_ROLLBACKTRANS, 0, transactions::roll_back),
    with_data(CMD_INSERT, offsetof(_INSERT, data), records::insert),
    with_data(CMD_UPDATE, offsetof(_UPDATE, data), records::update),
    exactly<_ERASE>(CMD_ERASE, records::erase),
    exactly<_RESTORE>(CMD_RESTORE, files::restore_database),
    exactly<_LOADDIR>(CMD_LOADDIR, files::load_folder),
    exactly<_SET_VERSION>(CMD_SET_VERSION, refuse_schema_change),
    exactly<_ADD_TABLE>(CMD_ADD_TABLE, refuse_schema_change),
    exactly<_ADD_COL>(CMD_ADD_COL, refuse_schema_change),
    exactly<_ADD_INDEX>(CMD_ADD_INDEX, refuse_schema_change),
    exactly<_ADD_INDEX_COL>(CMD_ADD_INDEX_COL, refuse_schema_change),
    exactly<_BCPIN>(CMD_BCPIN, files::load_table),
    ids(CMD_CONNECT_OK, 0, transactions::reset),
    ids(CMD_LOCK, 0, transactions::lock),
    ids(CMD_UNLOCK, 0, transactions::unlock),
    ids(CMD_QUERYDBRESULT, 0, queries::database),
    ids(CMD_QUERYTABLERESULT, 1, queries::table),
    ids(CMD_QUERYCOLRESULT, 2, queries::column),
    ids(CMD_QUERYINDEXRESULT, 2, queries::index),
    ids(CMD_QUERYINDEXCOLRESULT, 3, queries::index_column),
    exactly<_QUERYTABLEDATA>(CMD_QUERYTABLEDATA, queries::table_data),
    ids(CMD_QUERYTABLESUMMARY, 1, queries::table_summary),
    with_data(CMD_REMOTEADD, offsetof(_REMOTEADD, data), records::remote_add),
    exactly<_REMOTEDELETE>(CMD_REMOTEDELETE, records::erase),
    with_data(CMD_REMOTEUPDATE, offsetof(_REMOTEUPDATE, data), records::remote_update),
    exactly<_REMOTEBACKUPDATABASE>(CMD_REMOTEBACKUPDATABASE, files::back_up_database),
    exactly<_REMOTERESTOREDATABASE>(CMD_REMOTERESTOREDATABASE, files::restore_database),
    exactly<_REMOTEBACKUPTABLE>(CMD_REMOTEBACKUPTABLE, files::back_up_table),
    exactly<_REMOTERESTORETABLE>(CMD_REMOTERESTORETABLE, files::load_table),
    ids(CMD_QUERYDBTRANSINFO, 2, sessions::query),
    exactly<_CLEARWILDTRANS>(CMD_CLEARWILDTRANS, sessions::clear),
};

// Two commands share a handler, which reads the one's body.
static_assert(sizeof(_ERASE) == sizeof(_REMOTEDELETE) && sizeof(_RESTORE) == sizeof(_REMOTERESTOREDATABASE));
static_assert(sizeof(_BCPIN) == sizeof(_REMOTERESTORETABLE));

bool run(Client& client, const Request& request, Answer& answer) {
  const auto row =
      std::ranges::find_if(rows, [&](const Row& each) { return each.command == request.command(); });
  if (row == rows.end()) return client.session.refuse(ZT_ERR_GENERAL, "unknown or damaged request");
  if (request.length() < row->least_bytes || request.length() > row->most_bytes) {
    return client.session.refuse(ZT_ERR_GENERAL, "wrong length of the request");
  }
  return row->handler(client, request, answer);
}

}  // namespace

bool carry_out(Client& client, const _VEMROMSG& message, _VEMROMSG& answer_message) {
  client.session.forget_error();
  const Request request(message);
  _VEMROMSG result;
  Answer answer(result);
  const bool done = run(client, request, answer);
  if (!done) {
    if (!client.session.has_failed()) client.session.refuse(ZT_ERR_GENERAL, "the request failed");
    answer.set_error(client.session.handle()->lasterrno, client.session.handle()->lasterrmsg);
  }
  std::memcpy(&answer_message, &result, sizeof result.head + static_cast<std::size_t>(result.head.length));
  return done;
}

}  // namespace manager
