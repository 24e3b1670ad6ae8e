// Cancelled threads leave nothing behind: what a call has taken, it gives back first.
#ifndef QELI2C_BUS_CANCELLATION_H
#define QELI2C_BUS_CANCELLATION_H

#include <pthread.h>

// Libraries older than glibc 2.32 do not tell.
#if __has_include(<sys/single_threaded.h>)
#include <sys/single_threaded.h>
inline bool process_has_one_thread()
{
    return __libc_single_threaded != 0;
}
#else
inline bool process_has_one_thread()
{
    return false;
}
#endif

// While one lives, a cancellation of the calling thread is put off. A call has one from before it
// takes a lock, memory or a path until all of that is given back, or handed to the caller. Log
// lines, opens and waits in between would otherwise be points at which the thread ends. In a
// process of one thread it does nothing: the end of the thread is that of the process there, and
// gives everything back.
struct CancellationPutOff {
    CancellationPutOff() : put_off(!process_has_one_thread())
    {
        if (put_off)
            (void)pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &before);
    }
    ~CancellationPutOff()
    {
        if (put_off)
            (void)pthread_setcancelstate(before, nullptr);
    }
    CancellationPutOff(const CancellationPutOff &) = delete;
    CancellationPutOff &operator=(const CancellationPutOff &) = delete;

    const bool put_off;
    int before = PTHREAD_CANCEL_ENABLE;
};

#endif
