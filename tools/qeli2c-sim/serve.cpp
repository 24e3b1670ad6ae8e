// qeli2c-sim serve: the board's buses as character devices of this machine, through CUSE. Programs
// that no preload reaches, static or set-user-id ones, see them too.
#include "chosen_board.h"
#include "cuse_requests.h"
#include "simboard/fault.h"
#include "simboard/i2c_dev.h"
#include "simboard/process.h"

#include <array>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <iostream>
#include <memory>
#include <poll.h>
#include <stdexcept>
#include <sys/eventfd.h>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>

namespace runner
{

namespace
{

constexpr char kControlDevice[] = "/dev/cuse";
constexpr std::chrono::seconds kPatience(10); // for a device's node

std::runtime_error system_error(const std::string &what)
{
    return std::runtime_error(what + ": " + std::strerror(errno));
}

// One bus as a device.
struct ServedBus {
    simboard::BoardView *view = nullptr;
    uint32_t bus = 0;
    std::string node; // its path
    fuse_session *session = nullptr;
    std::thread thread;
};

ServedBus &served_by(fuse_req_t request)
{
    return *static_cast<ServedBus *>(fuse_req_userdata(request));
}

// The requests of a device are answered in the name of the task that made them. Looking it up
// takes longer than a transfer, so one that asks again soon is taken to be the same: its number
// cannot have come round to another.
void take_identity(fuse_req_t request)
{
    using Clock = std::chrono::steady_clock;
    thread_local pid_t last = 0;
    thread_local Clock::time_point looked_up;
    const pid_t task = fuse_req_ctx(request)->pid;
    const Clock::time_point now = Clock::now();
    if (task != last || now - looked_up > std::chrono::milliseconds(500)) {
        simboard::act_for(*served_by(request).view->state, task);
        last = task;
        looked_up = now;
    }
}

int device_of(const fuse_file_info *file)
{
    return static_cast<int>(file->fh);
}

void open_bus(fuse_req_t request, fuse_file_info *file)
{
    const ServedBus &served = served_by(request);
    const std::string stand_in = served.view->directory + "/i2c-" + std::to_string(served.bus);
    const int fd = open(stand_in.c_str(), (file->flags & O_ACCMODE) | O_CLOEXEC);
    simboard::Descriptor descriptor;
    descriptor.board = served.view->state->header.id;
    descriptor.bus = static_cast<uint8_t>(served.bus);
    if (fd < 0 || !simboard::write_descriptor(fd, descriptor)) {
        const int error = errno;
        if (fd >= 0)
            close(fd);
        fuse_reply_err(request, error);
        return;
    }
    file->fh = static_cast<uint64_t>(fd);
    if (fuse_reply_open(request, file) == -ENOENT) // the caller was killed meanwhile
        close(fd);
}

void release_bus(fuse_req_t request, fuse_file_info *file)
{
    close(device_of(file));
    fuse_reply_err(request, 0);
}

// read or write; the answer is `answer`'s affair when the transfer was made.
template <class Answer>
void plain_transfer(fuse_req_t request, const fuse_file_info *file, bool reading, void *bytes,
                    size_t size, Answer answer)
{
    take_identity(request);
    simboard::Descriptor descriptor;
    const int fd = device_of(file);
    const long result = simboard::read_descriptor(fd, descriptor)
                            ? simboard::plain_transfer(*served_by(request).view->state, fd,
                                                       descriptor, reading, bytes, size)
                            : -EBADF;
    if (result < 0)
        fuse_reply_err(request, static_cast<int>(-result));
    else
        answer(static_cast<size_t>(result));
}

void read_bus(fuse_req_t request, size_t size, off_t, fuse_file_info *file)
{
    std::array<char, simboard::kMaxMessageLength> bytes;
    plain_transfer(request, file, true, bytes.data(), std::min(size, bytes.size()),
                   [&](size_t done) { fuse_reply_buf(request, bytes.data(), done); });
}

void write_bus(fuse_req_t request, const char *bytes, size_t size, off_t, fuse_file_info *file)
{
    plain_transfer(request, file, false, const_cast<char *>(bytes), size,
                   [&](size_t done) { fuse_reply_write(request, done); });
}

void control_bus(fuse_req_t request, int number, void *argument, fuse_file_info *file,
                 unsigned flags, const void *fetched, size_t fetched_size, size_t room)
{
    take_identity(request);
    answer_ioctl({request, *served_by(request).view->state, device_of(file),
                  static_cast<unsigned>(number),
                  static_cast<uint64_t>(reinterpret_cast<uintptr_t>(argument)),
                  (flags & FUSE_IOCTL_COMPAT) != 0, static_cast<const uint8_t *>(fetched),
                  fetched_size, room});
}

// Always ready, as i2c-dev's devices are, unless a fault has it otherwise.
void poll_bus(fuse_req_t request, fuse_file_info *file, fuse_pollhandle *handle)
{
    if (handle != nullptr)
        fuse_pollhandle_destroy(handle); // nothing changes while somebody waits
    const ServedBus &served = served_by(request);
    simboard::State &state = *served.view->state;
    simboard::Bus &bus = state.buses[served.bus];
    simboard::Descriptor descriptor;
    const bool unready = simboard::has_faults(state, bus, simboard::kInWaits) &&
                         simboard::read_descriptor(device_of(file), descriptor) &&
                         simboard::strike_wait(state, bus, descriptor.address);
    fuse_reply_poll(request, unready ? 0 : POLLIN | POLLOUT | POLLRDNORM | POLLWRNORM);
}

constexpr cuse_lowlevel_ops operations()
{
    cuse_lowlevel_ops ops = {};
    ops.open = open_bus;
    ops.release = release_bus;
    ops.read = read_bus;
    ops.write = write_bus;
    ops.ioctl = control_bus;
    ops.poll = poll_bus;
    return ops;
}

void make_session(ServedBus &served)
{
    static const cuse_lowlevel_ops ops = operations();
    const std::string name = "DEVNAME=" + served.node.substr(std::strlen("/dev/"));
    const char *info_argument = name.c_str();
    cuse_info info = {};
    info.dev_info_argc = 1;
    info.dev_info_argv = &info_argument;
    info.flags = CUSE_UNRESTRICTED_IOCTL;
    char program[] = "qeli2c-sim";
    char *arguments[] = {program, nullptr};
    fuse_args args = FUSE_ARGS_INIT(1, arguments);
    served.session = cuse_lowlevel_new(&args, &info, &ops, &served);
    fuse_opt_free_args(&args);
    if (served.session == nullptr)
        throw std::runtime_error("cannot make a device of bus " + std::to_string(served.bus));
    const int fd = open(kControlDevice, O_RDWR | O_CLOEXEC);
    if (fd < 0)
        throw system_error(std::string("cannot open ") + kControlDevice +
                           " (it takes root, and a kernel with the module cuse)");
    if (fuse_session_mount(served.session, ("/dev/fd/" + std::to_string(fd)).c_str()) != 0) {
        close(fd);
        throw std::runtime_error("cannot serve bus " + std::to_string(served.bus));
    }
}

// Answers until `stop` becomes readable.
void answer_requests(ServedBus &served, int stop)
{
    fuse_buf buffer = {};
    pollfd sources[] = {{fuse_session_fd(served.session), POLLIN, 0}, {stop, POLLIN, 0}};
    while (fuse_session_exited(served.session) == 0) {
        if (poll(sources, 2, -1) < 0 && errno != EINTR)
            break;
        if (sources[1].revents != 0)
            break;
        if (sources[0].revents == 0)
            continue;
        const int size = fuse_session_receive_buf(served.session, &buffer);
        if (size == -EINTR || size == -EAGAIN)
            continue;
        if (size <= 0)
            break;
        fuse_session_process_buf(served.session, &buffer);
    }
    std::free(buffer.mem);
}

bool exists(const std::string &path)
{
    struct stat status;
    return lstat(path.c_str(), &status) == 0;
}

// All buses, from construction to destruction.
class Service
{
public:
    Service(simboard::BoardView &view, uint32_t first)
        : stop_(eventfd(0, EFD_CLOEXEC)), buses_(simboard::kBuses)
    {
        try {
            start(view, first);
        } catch (...) {
            end();
            throw;
        }
    }
    ~Service() { end(); }
    Service(const Service &) = delete;
    Service &operator=(const Service &) = delete;

private:
    void start(simboard::BoardView &view, uint32_t first)
    {
        if (stop_ < 0)
            throw system_error("eventfd");
        for (uint32_t bus = 0; bus < simboard::kBuses; bus++) {
            if (view.state->buses[bus].described == 0)
                continue;
            ServedBus &served = buses_[bus];
            served.view = &view;
            served.bus = bus;
            served.node = "/dev/i2c-" + std::to_string(first + bus);
            if (exists(served.node))
                throw std::runtime_error(served.node + " exists already; --first N numbers the "
                                                       "board's buses from N on");
            make_session(served);
            served.thread = std::thread([&served, this] { answer_requests(served, stop_); });
        }
        for (const ServedBus &served : buses_)
            if (served.session != nullptr)
                wait_for(served.node);
    }

    static void wait_for(const std::string &node)
    {
        const auto until = std::chrono::steady_clock::now() + kPatience;
        while (!exists(node)) {
            if (std::chrono::steady_clock::now() > until)
                throw std::runtime_error("the kernel does not make " + node);
            std::this_thread::sleep_for(std::chrono::milliseconds(5));
        }
    }

    void end()
    {
        if (stop_ >= 0)
            (void)eventfd_write(stop_, 1);
        for (ServedBus &served : buses_) {
            if (served.thread.joinable())
                served.thread.join();
            if (served.session != nullptr)
                fuse_session_destroy(served.session);
        }
        if (stop_ >= 0)
            close(stop_);
    }

    int stop_;
    std::vector<ServedBus> buses_;
};

int serve(const std::string &name, uint64_t first)
{
    ChosenBoard board(name);
    sigset_t ends;
    sigemptyset(&ends);
    for (const int number : {SIGINT, SIGTERM, SIGHUP})
        sigaddset(&ends, number);
    pthread_sigmask(SIG_BLOCK, &ends, nullptr); // the threads inherit it
    const Service service(board.view(), static_cast<uint32_t>(first));
    std::cout << "serving board " << board.view().state->header.name << " from /dev/i2c-" << first
              << " on; ended by Ctrl-C" << std::endl;
    int number = 0;
    sigwait(&ends, &number);
    return kDone;
}

} // namespace

void add_serve(CLI::App &app, Runner &runner)
{
    struct Arguments {
        std::string name;
        std::optional<uint64_t> first;
    };
    const auto arguments = std::make_shared<Arguments>();
    CLI::App &command = add_command(
        app, runner, "serve", "Make the buses devices of this machine, through CUSE",
        "Needs root and the kernel's module cuse. Every program on the machine sees the\n"
        "devices, static and set-user-id ones too, until the command is ended.",
        [arguments] {
            const uint64_t first = arguments->first.value_or(0);
            if (first > 1000)
                throw UsageError("--first takes 0 to 1000");
            return serve(arguments->name, first);
        });
    add_board_argument(command, arguments->name);
    add_number(command, "--first", arguments->first, "N",
               "Number of the device that bus 0 becomes; else 0");
}

} // namespace runner
