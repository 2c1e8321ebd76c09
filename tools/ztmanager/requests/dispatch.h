// Which request is answered by whom.
#ifndef CACHET_TOOLS_ZTMANAGER_REQUESTS_DISPATCH_H
#define CACHET_TOOLS_ZTMANAGER_REQUESTS_DISPATCH_H

#include "ztmanager/folder.h"
#include "ztmanager/requests/request.h"
#include "ztmanager/session.h"

namespace manager {

// What a handler may use.
struct Client {
  Session& session;
  const Folder& folder;
};

// Carries a request out and writes its one answer: CMD_ERROR with the database's own code and text when it is refused.
// Returns whether it was carried out. `answer_message` may be the one that the request lies in.
bool carry_out(Client& client, const _VEMROMSG& message, _VEMROMSG& answer_message);

}  // namespace manager

#endif
