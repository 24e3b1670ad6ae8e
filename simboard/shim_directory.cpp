// The preload shim's part for listings: /dev shows the board's buses instead of the machine's, and
// the directories of sysfs that list buses are the board's.
#include <dirent.h>
#include <errno.h>
#include <fcntl.h>
#include <glob.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>

#include "simboard/place.h"
#include "simboard/shim.h"

namespace simboard
{

namespace
{

using OpenDirectoryCall = DIR *(*)(const char *);
using OpenDescriptorCall = DIR *(*)(int);
using CloseDirectoryCall = int (*)(DIR *);
using GlobCall = int (*)(const char *, int, int (*)(const char *, int), glob_t *);
using RewindCall = void (*)(DIR *);

// Listings of /dev under way.
constexpr uint32_t kListings = 16;

struct Listing {
    std::atomic<DIR *> dir;
    const Attachment *board;
    uint32_t next_bus; // of those that follow the machine's own entries
    union {
        dirent entry;
        dirent64 entry64;
    };
};
Listing listings[kListings];
std::atomic<uint32_t> listing_count{0}; // slots ever used

Listing *find_listing(DIR *dir)
{
    const uint32_t count = listing_count.load(std::memory_order_acquire);
    for (uint32_t i = 0; i < count; i++) {
        if (listings[i].dir.load(std::memory_order_acquire) == dir) {
            return &listings[i];
        }
    }
    return nullptr;
}

// More listings at once than there is room for show the machine's /dev.
DIR *follow(DIR *dir)
{
    const Attachment *const board = dir != nullptr ? attach_board() : nullptr;
    for (uint32_t i = 0; i < kListings && board != nullptr; i++) {
        DIR *none = nullptr;
        if (listings[i].dir.compare_exchange_strong(none, dir)) {
            listings[i].board = board;
            listings[i].next_bus = 0;
            uint32_t count = listing_count.load();
            while (count < i + 1 && !listing_count.compare_exchange_weak(count, i + 1)) {
            }
            break;
        }
    }
    return dir;
}

bool is_bus_name(const char *name)
{
    return strncmp(name, "i2c-", 4) == 0 && name[4] >= '0' && name[4] <= '9';
}

template <typename Entry>
Entry *next_bus(Listing &listing, Entry &entry)
{
    const Bus *const buses = listing.board->state->buses;
    while (listing.next_bus < kBuses && buses[listing.next_bus].described == 0) {
        listing.next_bus++;
    }
    if (listing.next_bus >= kBuses) {
        return nullptr;
    }
    memset(&entry, 0, sizeof(entry));
    entry.d_ino = listing.next_bus + 1;
    entry.d_type = DT_CHR;
    entry.d_reclen = sizeof(entry);
    snprintf(entry.d_name, sizeof(entry.d_name), "i2c-%u", listing.next_bus++);
    return &entry;
}

template <typename Entry, typename Next>
Entry *read_entry(DIR *dir, Entry Listing::*own, Next next)
{
    Listing *const listing = find_listing(dir);
    if (listing == nullptr) {
        return next(dir);
    }
    Entry *entry = nullptr;
    while (listing->next_bus == 0 && (entry = next(dir)) != nullptr) {
        if (!is_bus_name(entry->d_name)) {
            return entry;
        }
    }
    return next_bus(*listing, listing->*own);
}

template <typename Entry>
using Choose = int (*)(const Entry *);
template <typename Entry>
using Compare = int (*)(const Entry **, const Entry **);
template <typename Entry>
using ScanCall = int (*)(const char *, Entry ***, Choose<Entry>, Compare<Entry>);

// A growing list of entries, as scandir gives them to be freed by the caller.
template <typename Entry>
struct Found {
    Entry **entries;
    size_t count;
    size_t room;
};

template <typename Entry>
bool keep(Found<Entry> &found, const Entry &entry)
{
    if (found.count == found.room) {
        const size_t room = found.room * 2 + 16;
        void *const larger = realloc(found.entries, room * sizeof(Entry *));
        if (larger == nullptr) {
            return false;
        }
        found.entries = static_cast<Entry **>(larger);
        found.room = room;
    }
    auto *const copy = static_cast<Entry *>(malloc(sizeof(Entry)));
    if (copy == nullptr) {
        return false;
    }
    *copy = entry;
    found.entries[found.count++] = copy;
    return true;
}

template <typename Entry>
int give_up(Found<Entry> &found, int error)
{
    while (found.count > 0) {
        free(found.entries[--found.count]);
    }
    free(found.entries);
    errno = error;
    return -1;
}

// scandir in terms of the calls of this file; libc's own does not pass through them.
template <typename Entry, typename Read>
int scan(const char *path, Entry ***list, Choose<Entry> choose, Compare<Entry> compare, Read read)
{
    DIR *const dir = opendir(path);
    if (dir == nullptr) {
        return -1;
    }
    const int saved = errno;
    Found<Entry> found = {nullptr, 0, 0};
    int error = 0;
    errno = 0;
    const Entry *entry;
    while (error == 0 && (entry = read(dir)) != nullptr) {
        if ((choose == nullptr || choose(entry) != 0) && !keep(found, *entry)) {
            error = ENOMEM;
        }
        errno = 0;
    }
    error = error != 0 ? error : errno;
    closedir(dir);
    if (error != 0) {
        return give_up(found, error);
    }
    if (compare != nullptr && found.count > 0) {
        qsort(found.entries, found.count, sizeof(Entry *),
              reinterpret_cast<int (*)(const void *, const void *)>(compare));
    }
    errno = saved;
    *list = found.entries;
    return static_cast<int>(found.count);
}

bool lists_board(const char *path)
{
    return reinterpret_cast<uintptr_t>(path) >= 4096 &&
           (strncmp(path, "/dev", 4) == 0 || strncmp(path, "/sys/", 5) == 0) && wants_board();
}

// libc looks for files by calls of its own, unless it is given others.
int match(GlobCall next, const char *pattern, int flags, int (*on_error)(const char *, int),
          glob_t *found)
{
    const bool may_be_ours = (flags & GLOB_ALTDIRFUNC) == 0 && (strncmp(pattern, "/dev/", 5) == 0 ||
                                                                strncmp(pattern, "/sys/", 5) == 0);
    if (!may_be_ours || !wants_board()) {
        return next(pattern, flags, on_error, found);
    }
    found->gl_opendir = [](const char *path) -> void * { return opendir(path); };
    found->gl_readdir = [](void *dir) { return readdir(static_cast<DIR *>(dir)); };
    found->gl_closedir = [](void *dir) { closedir(static_cast<DIR *>(dir)); };
    found->gl_stat = stat;
    found->gl_lstat = lstat;
    return next(pattern, flags | GLOB_ALTDIRFUNC, on_error, found);
}

} // namespace

} // namespace simboard

using namespace simboard;

extern "C" {

DIR *shim_opendir(const char *path) SHIM("opendir");
DIR *shim_fdopendir(int fd) SHIM("fdopendir");
dirent *shim_readdir(DIR *dir) SHIM("readdir");
dirent64 *shim_readdir64(DIR *dir) SHIM("readdir64");
void shim_rewinddir(DIR *dir) SHIM("rewinddir");
int shim_closedir(DIR *dir) SHIM("closedir");
int shim_glob(const char *pattern, int flags, int (*on_error)(const char *, int), glob_t *found)
    SHIM("glob");
int shim_glob64(const char *pattern, int flags, int (*on_error)(const char *, int), glob_t *found)
    SHIM("glob64");
int shim_scandir(const char *path, dirent ***list, Choose<dirent> choose, Compare<dirent> compare)
    SHIM("scandir");
int shim_scandir64(const char *path, dirent64 ***list, Choose<dirent64> choose,
                   Compare<dirent64> compare) SHIM("scandir64");

DIR *shim_opendir(const char *path)
{
    const OpenDirectoryCall next = NEXT(OpenDirectoryCall, "opendir");
    const Place place = find_place(AT_FDCWD, path);
    if (place.kind == PlaceKind::sysfs) {
        StandIn stand_in;
        return find_stand_in(place, stand_in) ? next(stand_in.path) : nullptr;
    }
    const bool is_dev = reinterpret_cast<uintptr_t>(path) >= 4096 &&
                        (strcmp(path, "/dev") == 0 || strcmp(path, "/dev/") == 0);
    DIR *const dir = next(path);
    return is_dev && wants_board() ? follow(dir) : dir;
}

DIR *shim_fdopendir(int fd)
{
    DIR *const dir = NEXT(OpenDescriptorCall, "fdopendir")(fd);
    return dir != nullptr && wants_board() && is_device_directory(fd) ? follow(dir) : dir;
}

// On 32 bits this name's entries have a layout of their own; the machine's have to do there.
dirent *shim_readdir(DIR *dir)
{
    if (sizeof(long) != 8) {
        using Call = dirent *(*)(DIR *);
        return NEXT(Call, "readdir")(dir);
    }
    return read_entry(dir, &Listing::entry, [](DIR *from) {
        using Call = dirent *(*)(DIR *);
        return NEXT(Call, "readdir")(from);
    });
}

dirent64 *shim_readdir64(DIR *dir)
{
    return read_entry(dir, &Listing::entry64, [](DIR *from) {
        using Call = dirent64 *(*)(DIR *);
        return NEXT(Call, "readdir64")(from);
    });
}

void shim_rewinddir(DIR *dir)
{
    if (Listing *const listing = find_listing(dir)) {
        listing->next_bus = 0;
    }
    NEXT(RewindCall, "rewinddir")(dir);
}

int shim_closedir(DIR *dir)
{
    if (Listing *const listing = find_listing(dir)) {
        listing->dir.store(nullptr, std::memory_order_release);
    }
    return NEXT(CloseDirectoryCall, "closedir")(dir);
}

int shim_glob(const char *pattern, int flags, int (*on_error)(const char *, int), glob_t *found)
{
    if (sizeof(long) != 8) {
        return NEXT(GlobCall, "glob")(pattern, flags, on_error, found);
    }
    return match(NEXT(GlobCall, "glob"), pattern, flags, on_error, found);
}

int shim_glob64(const char *pattern, int flags, int (*on_error)(const char *, int), glob_t *found)
{
    return match(NEXT(GlobCall, "glob64"), pattern, flags, on_error, found);
}

int shim_scandir(const char *path, dirent ***list, Choose<dirent> choose, Compare<dirent> compare)
{
    if (sizeof(long) != 8 || !lists_board(path)) {
        return NEXT(ScanCall<dirent>, "scandir")(path, list, choose, compare);
    }
    return scan(path, list, choose, compare, shim_readdir);
}

int shim_scandir64(const char *path, dirent64 ***list, Choose<dirent64> choose,
                   Compare<dirent64> compare)
{
    if (!lists_board(path)) {
        return NEXT(ScanCall<dirent64>, "scandir64")(path, list, choose, compare);
    }
    return scan(path, list, choose, compare, shim_readdir64);
}

} // extern "C"
