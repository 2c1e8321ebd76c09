// One exchange with the manager: a request into the mailbox, its answer out of it, and the judgement.
//
// A handle carries on one exchange at a time. A failed one undoes nothing: whether the manager did what it was asked for
// is not known then.
#ifndef CACHET_CPP_CACHE_EXCHANGE_H
#define CACHET_CPP_CACHE_EXCHANGE_H

#include "caches.h"
#include "vemroprotocol.h"

namespace cachet {

// What becomes of an answer that is not the expected one.
enum class Refusal {
  told_by_manager,  // it is an error with the manager's own code and text
  mismatch          // whatever it says, it is the wrong command
};

// A request in host order; the rest of the body is undefined.
void begin_request(_VEMROMSG& message, char command, int body_bytes);

// Sends the request and leaves the answer in its place. Success is judged by the command alone, on purpose also when the
// answer's check is wrong. False, reported, otherwise; a manager that was there and is gone ends the wait.
bool exchange(ZtDbHandle database, _VEMROMSG& message, char success, Refusal refusal);

// The same over TCP, without a judgement: the mailbox is not known yet.
bool exchange_over_tcp(ZtDbHandle database, _VEMROMSG& message);

}  // namespace cachet

#endif
