// Cancelled threads leave nothing behind: what a call has taken, it gives back first.
#ifndef QELI2C_BUS_CANCELLATION_H
#define QELI2C_BUS_CANCELLATION_H

#include <pthread.h>

// While one lives, a cancellation of the calling thread is put off. A call has one from before it
// takes a lock, memory or a path until all of that is given back, or handed to the caller. Log
// lines, opens and waits in between would otherwise be points at which the thread ends.
struct CancellationPutOff {
    CancellationPutOff() { (void)pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &before); }
    ~CancellationPutOff() { (void)pthread_setcancelstate(before, nullptr); }
    CancellationPutOff(const CancellationPutOff &) = delete;
    CancellationPutOff &operator=(const CancellationPutOff &) = delete;

    int before = PTHREAD_CANCEL_ENABLE;
};

#endif
