// The handlers, by family. Each is called with a body of a length that its row in dispatch.cpp allows, and an answer that
// says CMD_OK; false means that it was refused, for the reason that the client's handle has kept.
#ifndef CACHET_TOOLS_ZTMANAGER_REQUESTS_HANDLERS_H
#define CACHET_TOOLS_ZTMANAGER_REQUESTS_HANDLERS_H

#include "ztmanager/requests/dispatch.h"

namespace manager {

using Handler = bool (*)(Client& client, const Request& request, Answer& answer);

namespace transactions {
bool begin(Client& client, const Request& request, Answer& answer);
bool commit(Client& client, const Request& request, Answer& answer);
bool roll_back(Client& client, const Request& request, Answer& answer);
bool lock(Client& client, const Request& request, Answer& answer);
bool unlock(Client& client, const Request& request, Answer& answer);
bool reset(Client& client, const Request& request, Answer& answer);
}  // namespace transactions

namespace records {
bool insert(Client& client, const Request& request, Answer& answer);
bool update(Client& client, const Request& request, Answer& answer);
bool erase(Client& client, const Request& request, Answer& answer);
bool remote_add(Client& client, const Request& request, Answer& answer);
bool remote_update(Client& client, const Request& request, Answer& answer);
}  // namespace records

namespace files {
bool restore_database(Client& client, const Request& request, Answer& answer);
bool load_folder(Client& client, const Request& request, Answer& answer);
bool load_table(Client& client, const Request& request, Answer& answer);
bool back_up_database(Client& client, const Request& request, Answer& answer);
bool back_up_table(Client& client, const Request& request, Answer& answer);
}  // namespace files

namespace queries {
bool database(Client& client, const Request& request, Answer& answer);
bool table(Client& client, const Request& request, Answer& answer);
bool column(Client& client, const Request& request, Answer& answer);
bool index(Client& client, const Request& request, Answer& answer);
bool index_column(Client& client, const Request& request, Answer& answer);
bool table_summary(Client& client, const Request& request, Answer& answer);
bool table_data(Client& client, const Request& request, Answer& answer);
}  // namespace queries

namespace sessions {
bool query(Client& client, const Request& request, Answer& answer);
bool clear(Client& client, const Request& request, Answer& answer);
}  // namespace sessions

}  // namespace manager

#endif
