// The two texts of a session entry. Every lock and unlock needs them, so each thread keeps the last one of each kind.
// What must stay true: a kept text is the one that would be made now. A session id is that of two numbers, whoever asks
// (a forked child has other numbers), and a time that of a second.
#ifndef CACHET_CPP_DBSESSIONS_SESSION_TEXTS_H
#define CACHET_CPP_DBSESSIONS_SESSION_TEXTS_H

#include <array>

#include "base/thread_identity.h"
#include "dbsessions.h"

namespace cachet {

using SidText = std::array<char, sizeof(TransInfo::sid)>;    // without a terminator
using TimeText = std::array<char, sizeof(TransInfo::info)>;  // 14 digits, then zeros

// Valid until this thread's next call, as is the time.
const SidText& sid_of(const ThreadIdentity& thread);

// The local time, by the second.
const TimeText& local_time();

}  // namespace cachet

#endif
