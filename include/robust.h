// Process-shared mutexes whose owner may die.
#ifndef CACHET_ROBUST_H
#define CACHET_ROBUST_H

#include <pthread.h>

namespace cachet {

// Locks the mutex, spinning a little before it sleeps. True when its last owner died holding it: the caller sees to
// what that one left and then calls pthread_mutex_consistent.
bool lock_robust(pthread_mutex_t& mutex);

}  // namespace cachet

#endif
