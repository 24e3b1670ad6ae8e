// The preload shim's part for bus semaphores: they get the board's own keys, and who holds them how
// long is noted.
#include <errno.h>
#include <sys/sem.h>
#include <time.h>

#include "simboard/attach.h"
#include "simboard/clock.h"
#include "simboard/judge.h"
#include "simboard/shim.h"

namespace simboard
{

namespace
{

using SemgetCall = int (*)(key_t, int, int);
using SemopCall = int (*)(int, sembuf *, size_t);
using SemtimedopCall = int (*)(int, sembuf *, size_t, const timespec *);

// The bus and EEPROM semaphores of a board have keys of its own, so that boards and users do not
// meet in them.
bool find_semaphore(key_t key, uint32_t &index)
{
    const uint32_t number = static_cast<uint32_t>(key);
    if (number >= 0x3060 && number <= 0x306f) {
        index = number - 0x3060;
        return true;
    }
    index = kSemaphoreKeys - 1;
    return number == 0x3001;
}

bool changes(const sembuf *operations, size_t count, bool up)
{
    for (size_t i = 0; i < count; i++) {
        if (up ? operations[i].sem_op > 0 : operations[i].sem_op < 0) {
            return true;
        }
    }
    return false;
}

// Operations on a semaphore; a bus's is held while it is not 0.
template <typename Call>
int operate(int id, const sembuf *operations, size_t count, Call call)
{
    uint32_t number = 0;
    const Attachment *const board = find_semaphore_board(id, number);
    if (board == nullptr || reinterpret_cast<uintptr_t>(operations) < 4096) {
        return call();
    }
    State &state = *board->state;
    Bus &bus = state.buses[number];
    if (changes(operations, count, false)) {
        judge_unlock(state, bus, Lock::semaphore);
    }
    const uint64_t asked_ns = now_ns();
    const int result = call();
    if (result >= 0 && changes(operations, count, true)) {
        judge_lock(state, bus, Lock::semaphore, asked_ns);
    }
    return result;
}

} // namespace

} // namespace simboard

using namespace simboard;

extern "C" {

int shim_semget(key_t key, int count, int flags) SHIM("semget");
int shim_semop(int id, sembuf *operations, size_t count) SHIM("semop");
int shim_semtimedop(int id, sembuf *operations, size_t count, const timespec *limit)
    SHIM("semtimedop");
int shim_semtimedop64(int id, sembuf *operations, size_t count, const timespec *limit)
    SHIM("__semtimedop64");

int shim_semget(key_t key, int count, int flags)
{
    const SemgetCall next = NEXT(SemgetCall, "semget");
    uint32_t index;
    if (!find_semaphore(key, index) || !wants_board()) {
        return next(key, count, flags);
    }
    const Attachment *const board = attach_board();
    if (board == nullptr) {
        return -1;
    }
    const int id =
        next(static_cast<key_t>(board->state->header.semaphore_base + index), count, flags);
    if (id >= 0 && index < kBuses) {
        board->semaphores[index].store(id + 1, std::memory_order_relaxed);
    }
    return id;
}

int shim_semop(int id, sembuf *operations, size_t count)
{
    const SemopCall next = NEXT(SemopCall, "semop");
    return operate(id, operations, count, [&] { return next(id, operations, count); });
}

int shim_semtimedop(int id, sembuf *operations, size_t count, const timespec *limit)
{
    const SemtimedopCall next = NEXT(SemtimedopCall, "semtimedop");
    return operate(id, operations, count, [&] { return next(id, operations, count, limit); });
}

int shim_semtimedop64(int id, sembuf *operations, size_t count, const timespec *limit)
{
    const SemtimedopCall next = NEXT(SemtimedopCall, "__semtimedop64");
    return operate(id, operations, count, [&] { return next(id, operations, count, limit); });
}

} // extern "C"
