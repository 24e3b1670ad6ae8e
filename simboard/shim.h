// How the shim defines a libc name, and goes on to the next definition of it.
#ifndef SIMBOARD_SHIM_H
#define SIMBOARD_SHIM_H

#include <dlfcn.h>

#include <atomic>

// Headers give several of these names attributes and aliases of their own, so they are defined by
// symbol.
#define SHIM(symbol) __asm__(symbol) __attribute__((visibility("default")))

namespace simboard
{

// The next definition of a libc name, looked up once. Threads that look it up together find the
// same.
template <typename Call>
Call next_call(std::atomic<void *> &cache, const char *name)
{
    void *call = cache.load(std::memory_order_acquire);
    if (call == nullptr) {
        call = dlsym(RTLD_NEXT, name);
        cache.store(call, std::memory_order_release);
    }
    return reinterpret_cast<Call>(call);
}

#define NEXT(type, name)                                                                           \
    ([] {                                                                                          \
        static std::atomic<void *> cache;                                                          \
        return next_call<type>(cache, name);                                                       \
    }())

} // namespace simboard

#endif
