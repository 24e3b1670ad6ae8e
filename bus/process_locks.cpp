// The library's mutexes, and their state after fork.
#include "bus/process_locks.h"

#include <cerrno>
#include <pthread.h>

#include "bus/lock_order.h"

namespace
{

pthread_mutex_t registry_mutex = PTHREAD_MUTEX_INITIALIZER;
pthread_mutex_t first_use_mutex = PTHREAD_MUTEX_INITIALIZER;
bool forks_handled = false;

// A thread that forks may do so while another one is inside a lock. In the child that thread is
// gone, and what it left is whole: records, descriptors and ids are put in place by one store, when
// they are complete.
void reset_in_child()
{
    registry_mutex = PTHREAD_MUTEX_INITIALIZER;
    first_use_mutex = PTHREAD_MUTEX_INITIALIZER;
    forget_locks();
}

void handle_forks()
{
    if (__atomic_load_n(&forks_handled, __ATOMIC_RELAXED))
        return;
    // Threads that arrive together may each register it; once more does no harm.
    if (pthread_atfork(nullptr, nullptr, reset_in_child) == 0)
        __atomic_store_n(&forks_handled, true, __ATOMIC_RELAXED);
}

} // namespace

bool lock_registry()
{
    handle_forks();
    return pthread_mutex_lock(&registry_mutex) == 0;
}

void unlock_registry()
{
    (void)pthread_mutex_unlock(&registry_mutex);
}

bool lock_first_use()
{
    handle_forks();
    const int error = pthread_mutex_lock(&first_use_mutex);
    if (error != 0)
        errno = error;
    return error == 0;
}

void unlock_first_use()
{
    (void)pthread_mutex_unlock(&first_use_mutex);
}
