// Making and deleting boards.
#include "simboard/board.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/mman.h>
#include <sys/random.h>
#include <sys/sem.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <functional>
#include <stdexcept>

#include "simboard/attach.h"
#include "simboard/build_state.h"
#include "simboard/trace.h"

namespace simboard
{

namespace
{

constexpr off_t kPhysicalMemory = off_t{1} << 32; // what a 32-bit board can address
constexpr time_t kUnfinishedSeconds = 60;

// Status registers of the bus controllers.
constexpr off_t kFirstStatus = 0x1e78a088;
constexpr off_t kStatusDistance = 0x80;

[[noreturn]] void fail(const std::string &what)
{
    throw std::runtime_error(what + ": " + std::strerror(errno));
}

bool is_private_directory(const std::string &path)
{
    struct stat status;
    return lstat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode) &&
           status.st_uid == geteuid() && (status.st_mode & 077) == 0;
}

// Whether `path` is, or has become, a directory for boards.
bool make_private_directory(const std::string &path)
{
    return (mkdir(path.c_str(), 0700) == 0 || errno == EEXIST) && is_private_directory(path);
}

struct File {
    int fd;
    ~File()
    {
        if (fd >= 0) {
            close(fd);
        }
    }
};

int make_file(const std::string &path, off_t size)
{
    const int fd = open(path.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
    if (fd < 0) {
        fail(path);
    }
    if (ftruncate(fd, size) < 0) {
        const int saved = errno;
        close(fd);
        errno = saved;
        fail(path);
    }
    return fd;
}

void make_directory(const std::string &path)
{
    if (mkdir(path.c_str(), 0700) < 0) {
        fail(path);
    }
}

void write_file(const std::string &path, const std::string &text)
{
    const File file = {make_file(path, 0)};
    for (size_t done = 0; done < text.size();) {
        const ssize_t size = write(file.fd, text.data() + done, text.size() - done);
        if (size < 0 && errno != EINTR) {
            fail(path);
        }
        done += size > 0 ? static_cast<size_t>(size) : 0;
    }
}

// Keys that no semaphore has, so that a new board does not find another's.
uint32_t choose_semaphore_base()
{
    for (int tries = 0; tries < 100; tries++) {
        uint32_t base = 0;
        if (getrandom(&base, sizeof(base), 0) != sizeof(base)) {
            fail("random number");
        }
        base = base << 5 | 0x00100000; // clear of the keys it stands for
        bool unused = true;
        for (uint32_t i = 0; i < kSemaphoreKeys; i++) {
            unused = unused && semget(static_cast<key_t>(base + i), 0, 0) < 0 && errno == ENOENT;
        }
        if (unused) {
            return base;
        }
    }
    throw std::runtime_error("no semaphore keys are free");
}

void remove_semaphores(uint32_t base)
{
    for (uint32_t i = 0; i < kSemaphoreKeys; i++) {
        const int id = semget(static_cast<key_t>(base + i), 0, 0);
        if (id >= 0) {
            semctl(id, 0, IPC_RMID);
        }
    }
}

// A full file system would otherwise strike later, as SIGBUS in somebody's program.
void check_space(const std::string &directory, uint64_t size)
{
    struct statvfs space;
    if (statvfs(directory.c_str(), &space) == 0 && space.f_blocks != 0 &&
        uint64_t{space.f_bavail} * space.f_frsize < size) {
        throw std::runtime_error(directory + ": a board needs " + std::to_string(size >> 20) +
                                 " MiB, and less is free");
    }
}

void make_state(const std::string &directory, const BoardDescription &description,
                const BoardOptions &options)
{
    const uint64_t size = state_size(description);
    check_space(directory, size);
    const File file = {make_file(directory + "/state", static_cast<off_t>(size))};
    void *const area =
        mmap(nullptr, static_cast<size_t>(size), PROT_READ | PROT_WRITE, MAP_SHARED, file.fd, 0);
    if (area == MAP_FAILED) {
        fail(directory + "/state");
    }
    State &state = *static_cast<State *>(area);
    int error = 0;
    try {
        state.header.semaphore_base = choose_semaphore_base();
        if (getrandom(&state.header.id, sizeof(state.header.id), 0) < 0) {
            fail("random number");
        }
        state.header.seed = options.seed;
        error = build_state(state, description, options.has_speed ? &options.bit_ns : nullptr);
    } catch (...) {
        munmap(area, static_cast<size_t>(size));
        throw;
    }
    munmap(area, static_cast<size_t>(size));
    if (error != 0) {
        errno = error;
        fail("shared mutex");
    }
}

int lock_owner(const std::string &directory, int flags)
{
    const int fd = open((directory + "/owner").c_str(), O_RDWR | O_CLOEXEC | flags, 0600);
    if (fd >= 0 && flock(fd, LOCK_EX | LOCK_NB) < 0) {
        close(fd);
        return -1;
    }
    return fd;
}

// What listing tools read of a bus: the entries of sysfs that i2c-dev and its adapters have.
void describe_adapter(const std::string &directory, const std::string &board, uint32_t bus)
{
    const std::string name = "i2c-" + std::to_string(bus);
    const std::string adapter = directory + "/class/i2c-adapter/" + name;
    const std::string device = directory + "/class/i2c-dev/" + name;
    const std::string text = board + " bus " + std::to_string(bus) + "\n";
    make_directory(adapter);
    make_directory(device);
    write_file(adapter + "/name", text);
    write_file(device + "/name", text);
    write_file(device + "/dev", "89:" + std::to_string(bus) + "\n");
    const std::string upward = "../../i2c-adapter/" + name;
    const std::string across = "../../../class/i2c-adapter/" + name;
    if (symlink(upward.c_str(), (device + "/device").c_str()) < 0 ||
        symlink(across.c_str(), (directory + "/bus/i2c/devices/" + name).c_str()) < 0) {
        fail(device);
    }
}

void describe_adapters(const std::string &directory, const BoardDescription &description)
{
    for (const char *name : {"", "/class", "/class/i2c-adapter", "/class/i2c-dev", "/bus",
                             "/bus/i2c", "/bus/i2c/devices"}) {
        make_directory(directory + name);
    }
    for (const uint32_t bus : description.buses) {
        describe_adapter(directory, description.name, bus);
    }
}

int fill_directory(const std::string &directory, const BoardDescription &description,
                   const std::string &text, const BoardOptions &options)
{
    make_state(directory, description, options);
    for (const uint32_t bus : description.buses) {
        close(make_file(directory + "/i2c-" + std::to_string(bus), 0));
    }
    close(make_file(directory + "/mem", kPhysicalMemory));
    write_bus_status(directory, description);
    write_file(directory + "/board.json", text);
    describe_adapters(directory + "/sys", description);
    if (!options.name.empty()) {
        return -1;
    }
    const int owner = lock_owner(directory, O_CREAT | O_EXCL);
    if (owner < 0) {
        fail(directory + "/owner");
    }
    return owner;
}

std::string make_unfinished_directory()
{
    for (int tries = 0; tries < 100; tries++) {
        std::string path = boards_directory() + "/.new-XXXXXX";
        if (mkdtemp(path.data()) != nullptr) {
            return path;
        }
        if (errno !=
            ENOENT) { // somebody deleted the last board, and the directory of boards with it
            fail(path);
        }
    }
    fail(boards_directory());
}

std::string final_directory(const std::string &unfinished, const std::string &name)
{
    const std::string base = unfinished.substr(0, unfinished.rfind('/'));
    return base + "/" +
           (name.empty() ? "run-" + unfinished.substr(unfinished.rfind('-') + 1) : name);
}

void for_each_entry(const std::string &directory,
                    const std::function<void(const std::string &)> &use)
{
    DIR *const dir = opendir(directory.c_str());
    if (dir == nullptr) {
        return;
    }
    std::vector<std::string> names;
    while (const dirent *entry = readdir(dir)) {
        names.emplace_back(entry->d_name);
    }
    closedir(dir);
    for (const std::string &name : names) {
        use(name);
    }
}

// Where boards are, without making the directory. Empty when there is none.
std::string existing_boards_directory();

void sweep(const std::string &base, const std::string &name)
{
    const std::string directory = base + "/" + name;
    struct stat status;
    if (name.compare(0, 5, ".new-") == 0) {
        if (stat(directory.c_str(), &status) == 0 &&
            status.st_mtime + kUnfinishedSeconds < std::time(nullptr)) {
            delete_board(directory);
        }
        return;
    }
    if (name.compare(0, 4, "run-") != 0) {
        return;
    }
    const int owner = lock_owner(directory, 0);
    if (owner >= 0) {
        delete_board(directory);
        close(owner);
    }
}

std::vector<std::string> candidate_directories()
{
    if (const char *given = secure_getenv("QELI2C_SIM_DIR"); given != nullptr && *given != '\0') {
        return {given};
    }
    std::vector<std::string> candidates;
    // Kept by su: another user's is no place for this one, whoever owns what would lie in it.
    if (const char *run = secure_getenv("XDG_RUNTIME_DIR");
        run != nullptr && *run == '/' && is_private_directory(run)) {
        candidates.push_back(std::string(run) + "/qeli2c-sim");
    }
    const std::string name = "/qeli2c-sim-" + std::to_string(geteuid());
    candidates.push_back("/dev/shm" + name);
    candidates.push_back("/tmp" + name);
    return candidates;
}

std::string existing_boards_directory()
{
    for (const std::string &candidate : candidate_directories()) {
        if (is_private_directory(candidate)) {
            return candidate;
        }
    }
    return {};
}

} // namespace

std::string boards_directory()
{
    std::string tried;
    for (const std::string &candidate : candidate_directories()) {
        if (make_private_directory(candidate)) {
            return candidate;
        }
        tried += (tried.empty() ? "" : ", ") + candidate;
    }
    throw std::runtime_error("no private directory for boards (tried " + tried +
                             "): it must belong to this user, with mode 0700");
}

NewBoard create_board(const BoardDescription &description, const std::string &description_text,
                      const BoardOptions &options)
{
    if (!options.name.empty() && !is_board_name(options.name)) {
        throw std::runtime_error("\"" + options.name + "\" is no name for a board");
    }
    sweep_boards();
    const std::string unfinished = make_unfinished_directory();
    NewBoard board;
    try {
        board.owner_fd = fill_directory(unfinished, description, description_text, options);
        board.directory = final_directory(unfinished, options.name);
        if (rename(unfinished.c_str(), board.directory.c_str()) < 0) {
            if (errno == EEXIST || errno == ENOTEMPTY) {
                throw std::runtime_error("board \"" + options.name + "\" already exists");
            }
            fail(board.directory);
        }
    } catch (...) {
        if (board.owner_fd >= 0) {
            close(board.owner_fd);
        }
        delete_board(unfinished);
        throw;
    }
    return board;
}

void write_bus_status(const std::string &directory, const BoardDescription &description)
{
    const std::string path = directory + "/mem";
    const File file = {open(path.c_str(), O_WRONLY | O_CLOEXEC)};
    for (size_t i = 0; i < description.buses.size(); i++) {
        const off_t at = kFirstStatus + kStatusDistance * description.buses[i];
        const uint32_t status = description.status[i].value_or(0);
        if (status != 0 && pwrite(file.fd, &status, sizeof(status), at) != sizeof(status)) {
            fail(path);
        }
    }
}

void clear_memory(const std::string &directory, const BoardDescription &description)
{
    const std::string path = directory + "/mem";
    const File file = {open(path.c_str(), O_RDWR | O_CLOEXEC)};
    if (fallocate(file.fd, FALLOC_FL_PUNCH_HOLE | FALLOC_FL_KEEP_SIZE, 0, kPhysicalMemory) < 0) {
        fail(path);
    }
    write_bus_status(directory, description);
}

void delete_board(const std::string &directory)
{
    const char *reason = nullptr;
    if (State *const state = map_board(directory.c_str(), reason); state != nullptr) {
        state->deleted.store(1);
        call_followers(*state);
        unmap_board(state);
    }
    Header header = {};
    const int fd = open((directory + "/state").c_str(), O_RDONLY | O_CLOEXEC);
    if (fd >= 0) {
        const bool whole = read(fd, &header, sizeof(header)) == ssize_t{sizeof(header)};
        close(fd);
        if (whole && header.magic == kStateMagic && is_private_directory(directory)) {
            remove_semaphores(header.semaphore_base);
        }
    }
    for (uint32_t bus = 0; bus < kBuses; bus++) {
        unlink((directory + "/i2c-" + std::to_string(bus)).c_str());
    }
    std::error_code error; // what cannot be removed shows when the directory cannot be
    std::filesystem::remove_all(directory + "/sys", error);
    for (const char *name :
         {"/mem", "/board.json", "/state", "/owner"}) { // who holds the owner may delete
        unlink((directory + name).c_str());
    }
    if (rmdir(directory.c_str()) < 0 && errno != ENOENT) {
        fail(directory);
    }
    const char *const given = secure_getenv("QELI2C_SIM_DIR");
    if (given == nullptr || *given == '\0') {
        rmdir(directory.substr(0, directory.rfind('/'))
                  .c_str()); // stays while there are other boards
    }
}

void sweep_boards()
{
    const std::string base = existing_boards_directory();
    for_each_entry(base, [&base](const std::string &name) {
        try {
            sweep(base, name);
        } catch (const std::runtime_error &) { // somebody else is at it, or will be
        }
    });
}

std::vector<ListedBoard> list_boards()
{
    const std::string base = existing_boards_directory();
    std::vector<ListedBoard> boards;
    for_each_entry(base, [&](const std::string &name) {
        const std::string directory = base + "/" + name;
        if (name[0] == '.' || access((directory + "/state").c_str(), R_OK) < 0) {
            return;
        }
        const bool throwaway = access((directory + "/owner").c_str(), F_OK) == 0;
        boards.push_back({throwaway ? "" : name, directory});
    });
    return boards;
}

std::string named_board_directory(const std::string &name)
{
    return existing_boards_directory() + "/" + name;
}

bool is_board_name(const std::string &name)
{
    const char *const allowed = "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789-_";
    return !name.empty() && name.size() <= 63 && name[0] != '-' &&
           name.compare(0, 4, "run-") != 0 && name.find_first_not_of(allowed) == std::string::npos;
}

} // namespace simboard
