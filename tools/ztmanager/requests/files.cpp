// Loading and saving images, by names inside the folder of the command line and nowhere else.
//
// An image of the whole database is taken only with the very tables that are there, and their trees stay in their
// places: every other handle goes on as it is.
#include "ztmanager/requests/handlers.h"

namespace manager::files {

namespace {

template <std::size_t size>
std::string_view text_in(const char (&field)[size]) {
  return {field, strnlen(field, size)};
}

bool outside(const Session& session) {
  return session.refuse(ZT_ERR_GENERAL, "the file is outside of the folder for files");
}

// Runs `use` with the file's path.
template <std::size_t size, class Use>
bool with_file(const Client& client, const char (&field)[size], const Use& use) {
  const std::string_view name = text_in(field);
  const std::optional<std::string> path = name.size() < size ? client.folder.file(name) : std::nullopt;
  return path.has_value() ? use(path->c_str()) : outside(client.session);
}

bool only_for_writers(const Session& session) {
  return session.may_write() || session.refuse(ZT_ERR_READ_ONLY, "a read-only client saves no images");
}

// Each table's file is a name of its own, and may be a link.
bool are_inside(const Client& client, const std::string& folder) {
  for (const ZtTable& table : client.session.handle()->database) {
    if (!client.folder.file(folder + "//" + table.name + ".table").has_value()) return false;
  }
  return true;
}

}  // namespace

bool restore_database(Client& client, const Request& request, Answer&) {
  const auto body = request.body<_RESTORE>();
  return with_file(client, body.filename, [&](const char* path) {
    return client.session.change([&] { return ZtReadDbFile(client.session.handle(), path); });
  });
}

bool load_folder(Client& client, const Request& request, Answer&) {
  const auto body = request.body<_LOADDIR>();
  const std::string_view name = text_in(body.path);
  const auto path = name.size() < sizeof body.path ? client.folder.folder(name) : std::nullopt;
  if (!path.has_value() || !are_inside(client, *path)) return outside(client.session);
  return client.session.change([&] { return ZtReadDbDir(client.session.handle(), path->c_str()); });
}

bool load_table(Client& client, const Request& request, Answer&) {
  const auto body = request.body<_BCPIN>();
  return with_file(client, body.filename, [&](const char* path) {
    return client.session.change([&] { return ZtReadDbTable(client.session.handle(), body.tableid, path); });
  });
}

bool back_up_database(Client& client, const Request& request, Answer&) {
  const auto body = request.body<_REMOTEBACKUPDATABASE>();
  return only_for_writers(client.session) && with_file(client, body.filename, [&](const char* path) {
           return client.session.read([&] { return ZtWriteDbFile(client.session.handle(), path); });
         });
}

bool back_up_table(Client& client, const Request& request, Answer&) {
  const auto body = request.body<_REMOTEBACKUPTABLE>();
  return only_for_writers(client.session) && with_file(client, body.filename, [&](const char* path) {
           return client.session.read(
               [&] { return ZtWriteDbTable(client.session.handle(), body.tableid, path); });
         });
}

}  // namespace manager::files
