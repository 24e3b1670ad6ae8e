// The preload shim's part for waits: a device that a fault keeps from becoming ready is left out of
// them, so that they last as long as the caller allows and what else is waited for still counts.
#include <errno.h>
#include <poll.h>
#include <signal.h>
#include <string.h>
#include <sys/mman.h>
#include <sys/select.h>

#include "simboard/attach.h"
#include "simboard/fault.h"
#include "simboard/i2c_dev.h"
#include "simboard/open_devices.h"
#include "simboard/shim.h"

namespace simboard
{

namespace
{

using SelectCall = int (*)(int, fd_set *, fd_set *, fd_set *, timeval *);
using PselectCall = int (*)(int, fd_set *, fd_set *, fd_set *, const timespec *, const sigset_t *);
using PollCall = int (*)(pollfd *, nfds_t, int);
using PpollCall = int (*)(pollfd *, nfds_t, const timespec *, const sigset_t *);
using CheckedPollCall = int (*)(pollfd *, nfds_t, int, size_t);
using CheckedPpollCall = int (*)(pollfd *, nfds_t, const timespec *, const sigset_t *, size_t);

// Which board a descriptor is of takes a system call to find out, and hardly a board has faults for
// waits.
bool may_strike()
{
    const Attachment *board = attached_boards();
    if (board == nullptr) {
        return true; // an inherited device, whose board has not been looked for
    }
    for (; board != nullptr; board = board->next) {
        for (const Bus &bus : board->state->buses) {
            if (has_faults(*board->state, bus, kInWaits)) {
                return true;
            }
        }
    }
    return false;
}

bool stays_unready(int fd)
{
    if (!may_be_device(fd) || !may_strike()) {
        return false;
    }
    const int saved = errno;
    Descriptor descriptor;
    const Attachment *const board =
        confirm_device(fd, descriptor) ? attached_board(descriptor.board) : nullptr;
    bool unready = false;
    if (board != nullptr) {
        Bus &bus = board->state->buses[descriptor.bus];
        unready = has_faults(*board->state, bus, kInWaits) &&
                  strike_wait(*board->state, bus, descriptor.address);
    }
    errno = saved;
    return unready;
}

void leave_out(int count, fd_set *reading, fd_set *writing)
{
    for (int fd = 0; fd < count && fd < FD_SETSIZE; fd++) {
        if (fd % 32 == 0 && device_marks[fd / 32].load(std::memory_order_relaxed) == 0) {
            fd += 31; // no devices among these
            continue;
        }
        const bool waited = (reading != nullptr && FD_ISSET(fd, reading)) ||
                            (writing != nullptr && FD_ISSET(fd, writing));
        if (waited && stays_unready(fd)) {
            if (reading != nullptr) {
                FD_CLR(fd, reading);
            }
            if (writing != nullptr) {
                FD_CLR(fd, writing);
            }
        }
    }
}

// The caller's list with the unready devices left out: a copy, since other threads may read it.
struct PollList {
    pollfd *entries; // the caller's own when nothing is left out
    size_t mapped;
    pollfd few[32];
};

bool make_room(PollList &list, const pollfd *from, nfds_t count)
{
    list.entries = list.few;
    if (count > sizeof(list.few) / sizeof(list.few[0])) {
        list.mapped = count * sizeof(pollfd);
        void *const area =
            mmap(nullptr, list.mapped, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
        if (area == MAP_FAILED) {
            return false;
        }
        list.entries = static_cast<pollfd *>(area);
    }
    memcpy(list.entries, from, count * sizeof(pollfd));
    return true;
}

bool leave_out(PollList &list, pollfd *from, nfds_t count)
{
    list.entries = from;
    list.mapped = 0;
    for (nfds_t i = 0; i < count && !is_bad(from); i++) {
        if (stays_unready(from[i].fd)) {
            if (list.entries == from && !make_room(list, from, count)) {
                return false;
            }
            list.entries[i].fd = -1;
        }
    }
    return true;
}

template <typename Wait>
int wait_for(pollfd *from, nfds_t count, Wait wait)
{
    PollList list;
    if (!leave_out(list, from, count)) {
        errno = ENOMEM;
        return -1;
    }
    const int result = wait(list.entries);
    if (list.entries != from) {
        for (nfds_t i = 0; i < count; i++) {
            from[i].revents = list.entries[i].revents;
        }
        if (list.mapped != 0) {
            const int saved = errno;
            munmap(list.entries, list.mapped);
            errno = saved;
        }
    }
    return result;
}

} // namespace

} // namespace simboard

using namespace simboard;

extern "C" {

int shim_select(int count, fd_set *reading, fd_set *writing, fd_set *other, timeval *timeout)
    SHIM("select");
int shim_select_alias(int count, fd_set *reading, fd_set *writing, fd_set *other, timeval *timeout)
    SHIM("__select");
int shim_select_time64(int count, fd_set *reading, fd_set *writing, fd_set *other, timeval *timeout)
    SHIM("__select64");
int shim_pselect(int count, fd_set *reading, fd_set *writing, fd_set *other,
                 const timespec *timeout, const sigset_t *mask) SHIM("pselect");
int shim_pselect_time64(int count, fd_set *reading, fd_set *writing, fd_set *other,
                        const timespec *timeout, const sigset_t *mask) SHIM("__pselect64");
int shim_poll(pollfd *entries, nfds_t count, int timeout) SHIM("poll");
int shim_poll_alias(pollfd *entries, nfds_t count, int timeout) SHIM("__poll");
int shim_ppoll(pollfd *entries, nfds_t count, const timespec *timeout, const sigset_t *mask)
    SHIM("ppoll");
int shim_ppoll_time64(pollfd *entries, nfds_t count, const timespec *timeout, const sigset_t *mask)
    SHIM("__ppoll64");
int shim_poll_chk(pollfd *entries, nfds_t count, int timeout, size_t room) SHIM("__poll_chk");
int shim_ppoll_chk(pollfd *entries, nfds_t count, const timespec *timeout, const sigset_t *mask,
                   size_t room) SHIM("__ppoll_chk");

int shim_select(int count, fd_set *reading, fd_set *writing, fd_set *other, timeval *timeout)
{
    leave_out(count, reading, writing);
    return NEXT(SelectCall, "select")(count, reading, writing, other, timeout);
}

int shim_select_alias(int count, fd_set *reading, fd_set *writing, fd_set *other, timeval *timeout)
{
    return shim_select(count, reading, writing, other, timeout);
}

// The times of these are wider on 32 bits, which is the next definition's affair.
int shim_select_time64(int count, fd_set *reading, fd_set *writing, fd_set *other, timeval *timeout)
{
    leave_out(count, reading, writing);
    return NEXT(SelectCall, "__select64")(count, reading, writing, other, timeout);
}

int shim_pselect_time64(int count, fd_set *reading, fd_set *writing, fd_set *other,
                        const timespec *timeout, const sigset_t *mask)
{
    leave_out(count, reading, writing);
    return NEXT(PselectCall, "__pselect64")(count, reading, writing, other, timeout, mask);
}

int shim_ppoll_time64(pollfd *entries, nfds_t count, const timespec *timeout, const sigset_t *mask)
{
    return wait_for(entries, count, [=](pollfd *list) {
        return NEXT(PpollCall, "__ppoll64")(list, count, timeout, mask);
    });
}

int shim_pselect(int count, fd_set *reading, fd_set *writing, fd_set *other,
                 const timespec *timeout, const sigset_t *mask)
{
    leave_out(count, reading, writing);
    return NEXT(PselectCall, "pselect")(count, reading, writing, other, timeout, mask);
}

int shim_poll(pollfd *entries, nfds_t count, int timeout)
{
    return wait_for(entries, count,
                    [=](pollfd *list) { return NEXT(PollCall, "poll")(list, count, timeout); });
}

int shim_poll_alias(pollfd *entries, nfds_t count, int timeout)
{
    return shim_poll(entries, count, timeout);
}

int shim_ppoll(pollfd *entries, nfds_t count, const timespec *timeout, const sigset_t *mask)
{
    return wait_for(entries, count, [=](pollfd *list) {
        return NEXT(PpollCall, "ppoll")(list, count, timeout, mask);
    });
}

int shim_poll_chk(pollfd *entries, nfds_t count, int timeout, size_t room)
{
    if (room / sizeof(pollfd) < count) {
        return NEXT(CheckedPollCall, "__poll_chk")(entries, count, timeout, room);
    }
    return shim_poll(entries, count, timeout);
}

int shim_ppoll_chk(pollfd *entries, nfds_t count, const timespec *timeout, const sigset_t *mask,
                   size_t room)
{
    if (room / sizeof(pollfd) < count) {
        return NEXT(CheckedPpollCall, "__ppoll_chk")(entries, count, timeout, mask, room);
    }
    return shim_ppoll(entries, count, timeout, mask);
}

} // extern "C"
