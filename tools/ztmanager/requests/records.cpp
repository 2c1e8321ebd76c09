// Adding, changing and deleting records. What a client sends is a record's data part as it lies in the memory.
#include <array>
#include <vector>

#include "ztmanager/requests/handlers.h"
#include "ztmanager/requests/rows.h"

namespace manager::records {

namespace {

bool has_length_of(const Session& session, const ZtTable& table, std::string_view data) {
  return data.size() == static_cast<std::size_t>(table.recordlength) ||
         session.refuse(ZT_ERR_GENERAL, "the row has not the length of the table's records");
}

// Texts are read up to their NUL.
void end_texts(const ZtTable& table, char* data) {
  for (const ZtDataField& field : table.fielddescrible) {
    if (field.type == FIELD_STRING && field.length > 0) data[field.offset + field.length - 1] = 0;
  }
}

// The values are stored as they came: they were rounded when the row was filled.
bool store(const Session& session, int tableid, std::string_view data, const Row& row) {
  const ZtTable* const table = session.table(tableid);
  if (table == nullptr || !ZtNewRecord(session.handle(), tableid, row)) return false;
  if (!has_length_of(session, *table, data)) return false;
  data.copy(row->record->data, data.size());
  end_texts(*table, row->record->data);
  return ZtPutRecord(session.handle(), row);
}

// A value in a place of its own with as much room as the library reads.
class Value {
 public:
  Value(const ZtDataField& field, std::string_view bytes)
      : room_(std::size_t{field.length} + sizeof(double)) {
    bytes.copy(room_.data(), bytes.size());
  }
  const char* data() const { return room_.data(); }

 private:
  std::vector<char> room_;
};

std::string_view slot_of(const ZtDataField& field, const char* data) {
  return {data + field.offset, field.length};
}

// Sets the fields whose bytes differ, `indexed` ones or the others.
bool set_differing(ZtDbHandle handle, const ZtTable& table, const Row& row, const char* data,
                   unsigned char indexed) {
  for (int id = 0; const ZtDataField& field : table.fielddescrible) {
    const std::string_view wanted = slot_of(field, data);
    if (field.indexed == indexed && wanted != slot_of(field, row->record->data) &&
        !ZtSetField(handle, row, id, Value(field, wanted).data())) {
      return false;
    }
    ++id;
  }
  return true;
}

}  // namespace

bool insert(Client& client, const Request& request, Answer& answer) {
  const auto body = request.body<_INSERT>();
  const std::string_view data = request.behind(offsetof(_INSERT, data));
  Session& session = client.session;
  return session.change([&] {
    if (body.recordlen < 0 || data.size() != static_cast<std::size_t>(body.recordlen)) {
      return session.refuse(ZT_ERR_GENERAL, "the row's length is not that of the request");
    }
    const Row row(session.handle());
    if (!store(session, body.tableid, data, row)) return false;
    const cachet::FlatOffset offset = cachet::offset_of(&session.handle()->base, row->record);
    answer.set(CMD_INSERT_OK, _INSERT_OK{static_cast<std::uint64_t>(cachet::value_of(offset))});
    return true;
  });
}

bool update(Client& client, const Request& request, Answer&) {
  const auto body = request.body<_UPDATE>();
  const std::string_view data = request.behind(offsetof(_UPDATE, data));
  Session& session = client.session;
  return session.change([&] {
    const ZtTable* const table = session.table(body.tableid);
    if (table == nullptr) return false;
    const Row row(session.handle());
    find_to_change(session.handle(), body.tableid, body.rowid, row);
    const auto colid = static_cast<std::size_t>(body.colid);
    const bool known = body.colid >= 0 && colid < table->fielddescrible.size();
    const ZtDataField field = known ? table->fielddescrible[colid] : ZtDataField{};
    if (known && (data.size() != field.length || body.fieldlen != int{field.length})) {
      return session.refuse(ZT_ERR_GENERAL, "the value has not the length of the field");
    }
    return ZtSetField(session.handle(), row, body.colid, Value(field, known ? data : "").data());
  });
}

bool erase(Client& client, const Request& request, Answer&) {
  const auto body = request.body<_ERASE>();
  Session& session = client.session;
  return session.change([&] {
    const Row row(session.handle());
    find_to_change(session.handle(), body.tableid, body.rowid, row);
    ZtDeleteRecord(session.handle(), row);
    return !session.has_failed();
  });
}

bool remote_add(Client& client, const Request& request, Answer& answer) {
  const auto body = request.body<_REMOTEADD>();
  Session& session = client.session;
  return session.change([&] {
    const Row row(session.handle());
    if (!store(session, body.tableid, request.behind(offsetof(_REMOTEADD, data)), row)) return false;
    answer.set(CMD_REMOTEADDRESULT, _REMOTEADDRESULT{ZtGetRecordId(session.handle(), row)});
    return true;
  });
}

// Indexed fields do not change: a difference there is refused before the first other field is set.
bool remote_update(Client& client, const Request& request, Answer&) {
  const auto body = request.body<_REMOTEUPDATE>();
  std::string data(request.behind(offsetof(_REMOTEUPDATE, data)));
  Session& session = client.session;
  return session.change([&] {
    const ZtTable* const table = session.table(body.tableid);
    if (table == nullptr || !has_length_of(session, *table, data)) return false;
    end_texts(*table, data.data());
    const Row row(session.handle());
    find_to_change(session.handle(), body.tableid, body.recordid, row);
    if (row->record == nullptr) return ZtSetField(session.handle(), row, 0, data.data());
    return set_differing(session.handle(), *table, row, data.data(), 1) &&
           set_differing(session.handle(), *table, row, data.data(), 0);
  });
}

}  // namespace manager::records
