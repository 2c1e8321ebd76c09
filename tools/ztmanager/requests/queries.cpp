// What there is: the database, its tables, columns and indexes, and the records of a table.
//
// A request names by ids what it asks for and is answered with the command it came with. The first id that does not exist
// is refused, which is how a list ends.
#include <algorithm>

#include "ztmanager/requests/handlers.h"
#include "ztmanager/requests/rows.h"

namespace manager::queries {

namespace {

struct Ids {
  int first;
  int second;
  int third;
};

// Null, reported, for an id out of range.
template <class Item>
const Item* at(const Session& session, const std::vector<Item>& items, int id) {
  if (id >= 0 && static_cast<std::size_t>(id) < items.size()) return &items[static_cast<std::size_t>(id)];
  session.refuse(ZT_ERR_GENERAL, "there is no such id");
  return nullptr;
}

const ZtIndexDescrible* index_at(const Session& session, int tableid, int indexid) {
  const ZtTable* const table = session.table(tableid);
  return table != nullptr ? at(session, table->indexdescrible, indexid) : nullptr;
}

struct Size {
  long records = 0;
  long bytes = 0;
};

Size size_of(const Session& session, int tableid) {
  Size size;
  ZtTableSize(session.handle(), tableid, size.records, size.bytes);
  return size;
}

}  // namespace

bool database(Client& client, const Request&, Answer& answer) {
  const ZtDbHandle handle = client.session.handle();
  _QUERYDBRESULT result{};
  put_text(result.name, handle->base.memory->name);
  put_text(result.codeversion, ZtGetLibVersion());
  put_text(result.dbversion, ZtGetDbVersion(handle));
  ZTINT8 size = 0;
  ZTINT8 used = 0;
  ZtMemoryInfo(handle, &size, &used);
  result.size = size;
  result.freespace = size - used;
  answer.set(CMD_QUERYDBRESULT, result);
  return true;
}

bool table(Client& client, const Request& request, Answer& answer) {
  const int id = request.body<Ids>().first;
  const ZtTable* const table = client.session.table(id);
  if (table == nullptr) return false;
  const Size size = size_of(client.session, id);
  _QUERYTABLERESULT result{};
  put_text(result.name, table->name);
  result.datasize = size.bytes;
  result.recordcount = static_cast<int>(size.records);
  answer.set(CMD_QUERYTABLERESULT, result);
  return true;
}

bool column(Client& client, const Request& request, Answer& answer) {
  const Ids ids = request.body<Ids>();
  const ZtTable* const table = client.session.table(ids.first);
  const ZtDataField* const field =
      table != nullptr ? at(client.session, table->fielddescrible, ids.second) : nullptr;
  if (field == nullptr) return false;
  _QUERYCOLRESULT result{ids.first, {}, field->type, field->length, field->decimal};
  put_text(result.name, field->name);
  answer.set(CMD_QUERYCOLRESULT, result);
  return true;
}

bool index(Client& client, const Request& request, Answer& answer) {
  const Ids ids = request.body<Ids>();
  const ZtIndexDescrible* const index = index_at(client.session, ids.first, ids.second);
  if (index == nullptr) return false;
  _QUERYINDEXRESULT result{ids.first, {}, index->indextype};
  put_text(result.name, index->name);
  answer.set(CMD_QUERYINDEXRESULT, result);
  return true;
}

bool index_column(Client& client, const Request& request, Answer& answer) {
  const Ids ids = request.body<Ids>();
  const ZtIndexDescrible* const index = index_at(client.session, ids.first, ids.second);
  const int* const colid = index != nullptr ? at(client.session, index->indexdescrible, ids.third) : nullptr;
  if (colid == nullptr) return false;
  answer.set(CMD_QUERYINDEXCOLRESULT, _QUERYINDEXCOLRESULT{ids.first, ids.second, *colid});
  return true;
}

bool table_summary(Client& client, const Request& request, Answer& answer) {
  const int id = request.body<Ids>().first;
  if (client.session.table(id) == nullptr) return false;
  const auto count = static_cast<int>(size_of(client.session, id).records);
  answer.set(CMD_QUERYTABLESUMMARY, _QUERYTABLESUMMARY{count});
  return true;
}

// As many live records as are wanted and fit, each as its id and its data, in the order of their ids. None at the end.
bool table_data(Client& client, const Request& request, Answer& answer) {
  const auto body = request.body<_QUERYTABLEDATA>();
  const Session& session = client.session;
  const ZtTable* const table = session.table(body.tableid);
  if (table == nullptr) return false;
  if (body.fetchcount < 1) return session.refuse(ZT_ERR_GENERAL, "no records are wanted");
  const auto length = static_cast<std::size_t>(table->recordlength);
  const std::size_t entry_bytes = offsetof(_QUERYTABLEDATARESULT, data) + length;
  if (entry_bytes > VEMRO_BODY_BYTES)
    return session.refuse(ZT_ERR_GENERAL, "a record does not fit an answer");
  const std::size_t most =
      std::min(VEMRO_BODY_BYTES / entry_bytes, static_cast<std::size_t>(body.fetchcount)) * entry_bytes;

  return client.session.read([&] {
    const Place place;
    const Row row(session.handle());
    std::size_t bytes = 0;
    const int first = std::max(int{body.recordid}, 0);
    bool more = ZtGotoRecord(session.handle(), body.tableid, first, place);
    while (more && bytes < most && ZtGetRecord(session.handle(), place, row)) {
      const int id = ZtGetRecordId(session.handle(), row);
      std::memcpy(answer.body() + bytes, &id, sizeof id);
      std::memcpy(answer.body() + bytes + sizeof id, row->record->data, length);
      bytes += entry_bytes;
      more = bytes < most && ZtNextRecord(session.handle(), place);
    }
    answer.set_head(CMD_QUERYTABLEDATARESULT, bytes);
    return !session.has_failed();
  });
}

}  // namespace manager::queries
