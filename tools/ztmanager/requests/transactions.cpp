// Transactions, the client's lock, and the reset.
#include "ztmanager/requests/handlers.h"

namespace manager::transactions {

bool begin(Client& client, const Request&, Answer&) {
  client.session.begin();
  return !client.session.has_failed();
}

bool commit(Client& client, const Request&, Answer&) {
  client.session.commit();
  return !client.session.has_failed();
}

bool roll_back(Client& client, const Request&, Answer&) {
  client.session.roll_back();
  return !client.session.has_failed();
}

bool lock(Client& client, const Request&, Answer&) {
  return client.session.lock();
}

bool unlock(Client& client, const Request&, Answer&) {
  client.session.unlock();
  return true;
}

// The heads of the trees are made anew at their old places, so every other handle goes on as it is.
bool reset(Client& client, const Request&, Answer&) {
  return client.session.change([&] {
    ZtResetDb(client.session.handle());
    return !client.session.has_failed();
  });
}

}  // namespace manager::transactions
