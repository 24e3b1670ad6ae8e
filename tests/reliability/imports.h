// The library's calls to the platform and the kernel, counted on their way and, at one of them,
// something done. The definitions in the test program come before those of the shared objects.
#ifndef TESTS_RELIABILITY_IMPORTS_H
#define TESTS_RELIABILITY_IMPORTS_H

#include <atomic>

namespace imports
{

// From now on this thread does `action` in front of its call number `at`, counted from 1.
void trap(long at, void (*action)());
// How many calls this thread has made since then.
long made();

// Of the whole process, since its start.
struct Created {
    std::atomic<int> devices{0}; // opened
    std::atomic<int> semaphores{0};
    std::atomic<int> maps{0}; // of the owner table
};
extern Created created;

} // namespace imports

#endif
