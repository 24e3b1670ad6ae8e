// The emulated machine: QEMU with the devices of a board file.
#include "machine.h"

#include "simboard/description.h"

#include <cerrno>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <fstream>
#include <stdexcept>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

namespace board
{

namespace
{

constexpr char emulator[] = "qemu-system-arm";
constexpr size_t eeprom_size = 65536;

// What the emulator has in the place of each type of the board file.
constexpr struct {
    const char *type;
    const char *model;
} models[] = {
    {"pca9548", "pca9548"},   {"at24c512", "at24c-eeprom"},
    {"tpa626", "tmp105"},   // a pointer register and 16-bit words, most significant byte first
    {"pca9554", "max7310"}, // the same registers 0 to 3
    {"registers", "adm1272"},
};

// These two belong to the machine.
bool is_built_in(const simboard::DeviceDescription &device)
{
    return device.parent < 0 && ((device.bus == 7 && device.address == 0x50) ||
                                 (device.bus == 8 && device.address == 0x4d));
}

std::string bus_of(const simboard::BoardDescription &board,
                   const simboard::DeviceDescription &device)
{
    if (device.parent < 0)
        return "aspeed.i2c.bus." + std::to_string(device.bus);
    const auto &parent = board.devices[static_cast<size_t>(device.parent)];
    return bus_of(board, parent) + "/" + parent.name + "/i2c." + std::to_string(device.channel);
}

void make_empty_eeprom(const std::string &file)
{
    std::ofstream stream(file, std::ios::binary | std::ios::trunc);
    stream << std::string(eeprom_size, '\xff');
    if (!stream.flush())
        throw std::runtime_error("cannot write " + file);
}

void add_device(std::vector<std::string> &arguments, const simboard::BoardDescription &board,
                const simboard::DeviceDescription &device)
{
    std::string model;
    for (const auto &row : models)
        if (device.type == row.type)
            model = row.model;
    if (model.empty())
        throw std::runtime_error("the emulator has nothing like a " + device.type);
    std::string value = model + ",id=" + device.name + ",bus=" + bus_of(board, device) +
                        ",address=" + std::to_string(device.address);
    if (device.type == "at24c512") {
        const std::string file = device.name + ".bin";
        make_empty_eeprom(file);
        arguments.insert(arguments.end(),
                         {"-drive", "if=none,format=raw,id=file-" + device.name + ",file=" + file});
        value += ",rom-size=" + std::to_string(eeprom_size) + ",drive=file-" + device.name;
    }
    arguments.insert(arguments.end(), {"-device", value});
}

[[noreturn]] void execute(const std::vector<std::string> &arguments)
{
    std::vector<char *> words;
    for (const std::string &argument : arguments)
        words.push_back(const_cast<char *>(argument.c_str()));
    words.push_back(nullptr);
    (void)execvp(words[0], words.data());
    const std::string text =
        std::string("board-host: ") + words[0] + ": " + std::strerror(errno) + "\n";
    (void)!write(STDERR_FILENO, text.data(), text.size());
    _exit(127);
}

// One end for this program; the other is the machine's and goes into its arguments.
int connect_to_machine(std::vector<std::string> &arguments, const std::string &name, Line &line)
{
    int ends[2];
    if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) != 0)
        throw std::runtime_error(std::string("socketpair: ") + std::strerror(errno));
    line.fd = ends[0];
    arguments.insert(arguments.end(),
                     {"-chardev", "socket,id=" + name + ",fd=" + std::to_string(ends[1])});
    return ends[1];
}

// The answer to a QMP command, past the events that come in between.
std::string monitor_answer(Machine &machine)
{
    const Clock::time_point until = Clock::now() + std::chrono::seconds(10);
    while (const auto line = next_line(machine.monitor, until)) {
        if (line->starts_with("{\"return\""))
            return "";
        if (line->starts_with("{\"error\""))
            return *line;
    }
    return "the monitor does not answer";
}

} // namespace

std::vector<std::string> machine_arguments(const std::string &directory)
{
    std::vector<simboard::DescriptionError> errors;
    const std::string file = directory + "/board.json";
    const simboard::BoardDescription board = simboard::load_board_description(file, errors);
    if (!errors.empty())
        throw std::runtime_error(simboard::to_string(file, errors.front()));
    std::vector<std::string> arguments = {emulator,
                                          "-M",
                                          "ast2600-evb",
                                          "-m",
                                          "1G",
                                          "-accel",
                                          "tcg",
                                          "-nodefaults",
                                          "-net",
                                          "none",
                                          "-display",
                                          "none",
                                          "-no-reboot",
                                          "-kernel",
                                          directory + "/kernel.uimage",
                                          "-dtb",
                                          directory + "/board.dtb",
                                          "-initrd",
                                          directory + "/initramfs.cpio"};
    for (const auto &device : board.devices)
        if (!is_built_in(device))
            add_device(arguments, board, device);
    return arguments;
}

// mem= keeps the owner table's memory out of the kernel's hands, iomem= lets /dev/mem map the
// controllers. Tests of ciphers and reading of certificates would take half of the boot.
constexpr char kernel_line[] =
    "console=ttyS4,115200n8 mem=512M iomem=relaxed panic=-1 quiet cryptomgr.notests "
    "initcall_blacklist=load_system_certificate_list";

Machine start_machine(const std::vector<std::string> &given, const std::string &prefix)
{
    Machine machine;
    std::vector<std::string> arguments = given;
    const int theirs[] = {connect_to_machine(arguments, "results", machine.results),
                          connect_to_machine(arguments, "qtest", machine.qtest),
                          connect_to_machine(arguments, "monitor", machine.monitor)};
    arguments.insert(arguments.end(),
                     {"-append", std::string(kernel_line) + " board=cases:" + prefix, "-chardev",
                      "file,id=console,path=console.log", "-serial", "chardev:console", "-serial",
                      "chardev:results", "-object", "qtest,id=outside,chardev=qtest,log=none",
                      "-mon", "chardev=monitor,mode=control"});
    const pid_t parent = getpid();
    machine.process = fork();
    if (machine.process == 0) {
        (void)prctl(PR_SET_PDEATHSIG, SIGKILL);
        for (const int fd : theirs)
            (void)fcntl(fd, F_SETFD, 0);
        const int log = open("qemu.log", O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
        (void)dup2(log, STDOUT_FILENO);
        (void)dup2(log, STDERR_FILENO);
        if (getppid() == parent)
            execute(arguments);
        _exit(127);
    }
    for (const int fd : theirs)
        (void)close(fd);
    (void)send_line(machine.monitor, R"({"execute":"qmp_capabilities"})");
    if (const std::string why = monitor_answer(machine); !why.empty())
        throw std::runtime_error("the emulator does not start: " + why);
    return machine;
}

void become_machine(std::vector<std::string> arguments)
{
    arguments.insert(arguments.end(), {"-append", std::string(kernel_line) + " board=shell",
                                       "-serial", "mon:stdio", "-serial", "null"});
    execute(arguments);
}

std::string qtest(Machine &machine, const std::string &command)
{
    const Clock::time_point until = Clock::now() + std::chrono::seconds(10);
    if (!send_line(machine.qtest, command))
        return "FAIL no connection";
    while (const auto line = next_line(machine.qtest, until))
        if (!line->starts_with("IRQ"))
            return *line;
    return "FAIL no answer";
}

std::string set_property(Machine &machine, const std::string &device, const std::string &property,
                         const std::string &value)
{
    (void)send_line(machine.monitor,
                    R"({"execute":"qom-set","arguments":{"path":"/machine/peripheral/)" + device +
                        R"(","property":")" + property + R"(","value":)" + value + "}}");
    return monitor_answer(machine);
}

bool end_machine(Machine &machine, Clock::time_point until)
{
    int status = 0;
    while (waitpid(machine.process, &status, WNOHANG) == 0) {
        if (Clock::now() >= until) {
            (void)kill(machine.process, SIGKILL);
            (void)waitpid(machine.process, &status, 0);
            return false;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    return WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

} // namespace board
