// qeli2c eeprom: whole EEPROMs and parts of them, from and to files.
#include "command_line.h"
#include "eeprom_pages.h"
#include "failure.h"
#include "interrupt.h"
#include "number.h"
#include "output.h"
#include "progress.h"
#include "tool.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <unistd.h>

namespace tool
{

namespace
{

constexpr uint32_t kUsualSize = 65536; // of an AT24C512, for one the board file does not describe
constexpr uint32_t kUsualPage = 128;

struct EepromArguments {
    std::string device, file = "-", offset = "0", length, fill = "0xff";
    bool update = false, no_verify = false, fast = false;
};

struct Job {
    Eeprom eeprom;
    uint32_t offset = 0;
    uint32_t length = 0; // 0: as much as there is
    std::chrono::steady_clock::time_point start = std::chrono::steady_clock::now();
};

struct Result {
    uint32_t bytes = 0;   // of the job
    uint32_t written = 0; // of those
    uint32_t pages = 0, equal_pages = 0;
    bool verified = false;
};

Job make_job(const EepromArguments &arguments, const Options &options)
{
    Job job;
    job.eeprom.target = resolve(load_board(options.board_file), arguments.device);
    job.eeprom.memory = memory_of(job.eeprom.target);
    if (!job.eeprom.memory.size) {
        if (!job.eeprom.target.type.empty())
            throw usage_error(to_string(job.eeprom.target) + " is no EEPROM but of type " +
                              job.eeprom.target.type);
        job.eeprom.memory = {kUsualSize, kUsualPage};
    }
    const uint32_t size = job.eeprom.memory.size;
    job.eeprom.pace = arguments.fast ? Pace::fast : Pace::safe;
    job.offset = number_in(arguments.offset, 0, size - 1, "--offset");
    if (!arguments.length.empty())
        job.length = number_in(arguments.length, 1, size - job.offset, "--length");
    return job;
}

class File
{
public:
    File(const std::string &name, int flags)
        : name_(name != "-"         ? name
                : flags == O_RDONLY ? "standard input"
                                    : "standard output"),
          standard_(name == "-")
    {
        fd_ = name == "-" ? (flags == O_RDONLY ? STDIN_FILENO : STDOUT_FILENO)
                          : open(name.c_str(), flags | O_CLOEXEC, 0666);
        if (fd_ < 0)
            throw operation_failed(name + ": " + std::strerror(errno));
    }
    ~File()
    {
        if (!standard_)
            close(fd_);
    }
    File(const File &) = delete;
    File &operator=(const File &) = delete;

    const std::string &name() const { return name_; }

    // At most `most` + 1 bytes, so that more than wanted is seen to be too much.
    std::vector<uint8_t> read_all(size_t most) const
    {
        std::vector<uint8_t> bytes(most + 1);
        size_t done = 0;
        ssize_t got = 1;
        while (done < bytes.size() && got != 0 && !interrupted()) {
            got = read(fd_, bytes.data() + done, bytes.size() - done);
            if (got < 0)
                throw operation_failed(name_ + ": " + std::strerror(errno));
            done += static_cast<size_t>(got);
        }
        bytes.resize(done);
        return bytes;
    }

    void write_all(const std::vector<uint8_t> &bytes) const
    {
        for (size_t done = 0; done < bytes.size();) {
            const ssize_t put = write(fd_, bytes.data() + done, bytes.size() - done);
            if (put < 0)
                throw operation_failed(name_ + ": " + std::strerror(errno));
            done += static_cast<size_t>(put);
        }
    }

private:
    std::string name_;
    bool standard_;
    int fd_ = -1;
};

// The image to write or to compare with.
std::vector<uint8_t> load_image(Job &job, const std::string &name_given)
{
    const uint32_t room = job.eeprom.memory.size - job.offset;
    const File file(name_given, O_RDONLY);
    const std::string &name = file.name();
    std::vector<uint8_t> image = file.read_all(job.length ? job.length : room);
    if (image.empty())
        throw operation_failed(name + " is empty");
    if (!job.length && image.size() > room)
        throw operation_failed(name + " is too long: " + std::to_string(room) +
                               " bytes fit at this offset");
    if (job.length > image.size())
        throw operation_failed(name + " has " + std::to_string(image.size()) + " bytes, not " +
                               std::to_string(job.length));
    if (job.length)
        image.resize(job.length);
    job.length = static_cast<uint32_t>(image.size());
    return image;
}

// Bytes from the job's offset on, fewer when interrupted.
std::vector<uint8_t> read_bytes(const Job &job, const Options &options, const char *doing)
{
    std::vector<uint8_t> bytes(job.length);
    Progress progress(options, doing, job.length);
    uint32_t done = 0;
    while (done < job.length && !interrupted()) {
        const uint32_t count = page_part(job.eeprom, job.offset + done, job.length - done);
        read_page(job.eeprom, job.offset + done, bytes.data() + done, count);
        done += count;
        progress.at(done);
    }
    bytes.resize(done);
    return bytes;
}

void write_bytes(const Job &job, const Options &options, const std::vector<uint8_t> &image,
                 bool update, Result &result)
{
    std::vector<uint8_t> present(job.eeprom.memory.page);
    Progress progress(options, "writing", image.size());
    while (result.bytes < image.size() && !interrupted()) {
        const uint32_t offset = job.offset + result.bytes;
        const uint8_t *wanted = image.data() + result.bytes;
        const uint32_t count = page_part(job.eeprom, offset, image.size() - result.bytes);
        if (update)
            read_page(job.eeprom, offset, present.data(), count);
        if (update && std::equal(wanted, wanted + count, present.data())) {
            result.equal_pages++;
        } else {
            write_page(job.eeprom, offset, wanted, count);
            result.written += count;
        }
        result.pages++;
        result.bytes += count;
        progress.at(result.bytes);
    }
}

// Fails with the first byte that differs.
void compare(const Job &job, const std::vector<uint8_t> &image, const std::vector<uint8_t> &found)
{
    size_t wrong = 0;
    size_t first = 0;
    for (size_t i = 0; i < found.size(); i++) {
        if (found[i] == image[i])
            continue;
        if (wrong++ == 0)
            first = i;
    }
    if (wrong == 0)
        return;
    throw operation_failed(to_string(job.eeprom.target) + " differs in " + std::to_string(wrong) +
                           (wrong == 1 ? " byte" : " bytes") + ", first at " +
                           hex(job.offset + static_cast<uint32_t>(first), 4) + ": " +
                           hex(found[first], 2) + " instead of " + hex(image[first], 2));
}

double seconds_of(const Job &job)
{
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - job.start).count();
}

void print_summary(const Options &options, const Job &job, const Result &result, const char *done)
{
    const double seconds = seconds_of(job);
    if (options.json) {
        Json::Value json = json_of(job.eeprom.target);
        json["offset"] = job.offset;
        json["bytes"] = result.bytes;
        json["written"] = result.written;
        json["pages"] = result.pages;
        json["equal_pages"] = result.equal_pages;
        json["verified"] = result.verified;
        json["seconds"] = seconds;
        print_json(json);
    } else if (!options.quiet) {
        std::string text = std::string(done) + " " + amount(result.bytes) + " at " +
                           hex(job.offset, 4) + " of " + to_string(job.eeprom.target);
        if (result.equal_pages)
            text += ", " + std::to_string(result.equal_pages) + " of " +
                    std::to_string(result.pages) + " pages were equal";
        if (result.verified && result.pages)
            text += ", verified";
        char time[64];
        std::snprintf(time, sizeof time, ", in %.1f s (%s/s)", seconds,
                      amount(result.bytes / std::max(seconds, 1e-3)).c_str());
        tell(text + time);
    }
}

void program(const Job &job, const Options &options, const std::vector<uint8_t> &image,
             const EepromArguments &arguments, const char *done)
{
    char place[64];
    std::snprintf(place, sizeof place, "%zu bytes at 0x%04x", image.size(), job.offset);
    announce(options, std::string(done[0] == 'e' ? "erase " : "write ") + place +
                          " of the EEPROM " + to_string(job.eeprom.target));
    defer_interrupts();
    Result result;
    const EepromLock lock;
    try {
        write_bytes(job, options, image, arguments.update, result);
    } catch (Failure &failure) {
        failure.message += "; " + std::to_string(result.bytes) + " of " +
                           std::to_string(image.size()) + " bytes are written";
        throw;
    }
    if (!interrupted() && !arguments.no_verify) {
        const std::vector<uint8_t> found = read_bytes(job, options, "verifying");
        compare(job, image, found);
        result.verified = found.size() == image.size();
    }
    if (interrupted() && !result.verified)
        throw operation_failed("interrupted: " + std::to_string(result.bytes) + " of " +
                               std::to_string(image.size()) + " bytes are " +
                               (result.bytes == image.size()
                                    ? "written, but not all verified"
                                    : "written; --update goes on from here"));
    print_summary(options, job, result, done);
}

void write(const EepromArguments &arguments, const Options &options)
{
    Job job = make_job(arguments, options);
    const std::vector<uint8_t> image = load_image(job, arguments.file);
    program(job, options, image, arguments, "wrote");
}

void erase(const EepromArguments &arguments, const Options &options)
{
    Job job = make_job(arguments, options);
    const uint32_t fill = number_in(arguments.fill, 0, 0xff, "--fill");
    if (!job.length)
        job.length = job.eeprom.memory.size - job.offset;
    program(job, options, std::vector<uint8_t>(job.length, static_cast<uint8_t>(fill)), arguments,
            "erased");
}

void read(const EepromArguments &arguments, const Options &options)
{
    Job job = make_job(arguments, options);
    if (!job.length)
        job.length = job.eeprom.memory.size - job.offset;
    const bool to_output = arguments.file == "-";
    if (to_output && options.json)
        throw usage_error("--json and the bytes cannot both go to standard output: name a FILE");
    defer_interrupts();
    const File file(arguments.file, O_WRONLY | O_CREAT | O_TRUNC);
    Result result;
    std::vector<uint8_t> bytes;
    {
        const EepromLock lock;
        bytes = read_bytes(job, options, "reading");
    }
    result.bytes = static_cast<uint32_t>(bytes.size());
    if (to_output && isatty(STDOUT_FILENO))
        print_dump(job.offset, 4, {bytes.begin(), bytes.end()}, 1);
    else
        file.write_all(bytes);
    if (interrupted())
        throw operation_failed("interrupted: " + std::to_string(bytes.size()) + " of " +
                               std::to_string(job.length) + " bytes are read");
    print_summary(options, job, result, "read");
}

void verify(const EepromArguments &arguments, const Options &options)
{
    Job job = make_job(arguments, options);
    const std::vector<uint8_t> image = load_image(job, arguments.file);
    defer_interrupts();
    std::vector<uint8_t> found;
    {
        const EepromLock lock;
        found = read_bytes(job, options, "verifying");
    }
    compare(job, image, found);
    if (interrupted())
        throw operation_failed("interrupted: " + std::to_string(found.size()) + " of " +
                               std::to_string(image.size()) + " bytes are verified");
    Result result;
    result.bytes = job.length;
    result.verified = true;
    print_summary(options, job, result, "verified");
}

void add(CLI::App &group, Tool &tool, const char *name, const char *description, const char *footer,
         void (*run)(const EepromArguments &, const Options &))
{
    const auto [command, arguments] = add_command(group, tool, name, description, footer, run);
    add_device(command, arguments.device);
    if (run != erase)
        add_file(command, arguments.file);
    add_option(command, "--offset", arguments.offset, "N", "Where to begin, 0 if not given");
    add_option(command, "--length", arguments.length, "N", "How many bytes");
    add_flag(command, "--fast", arguments.fast, "Whole pages, polling for write cycles");
    if (run != write && run != erase)
        return;
    add_flag(command, "--update", arguments.update, "Skip pages that are equal already");
    add_flag(command, "--no-verify", arguments.no_verify, "Do not read back what was written");
    if (run == erase)
        add_option(command, "--fill", arguments.fill, "BYTE", "Instead of 0xff");
}

} // namespace

void add_eeprom(CLI::App &app, Tool &tool)
{
    CLI::App &group =
        add_group(app, "eeprom", "Program, read and compare EEPROMs",
                  "Without --fast, transfers stay within 32 bytes with a pause after each, 25 ms\n"
                  "after writes, which suits every EEPROM with two address bytes: 64 KiB take\n"
                  "about a minute. --fast is for AT24C512: pages of 128 bytes, and polling for\n"
                  "the end of each write cycle. Ctrl-C ends after the running page.");
    add(group, tool, "read", "Read into a file",
        "To a terminal the bytes are shown as a grid. After Ctrl-C the file holds what\n"
        "was read till then.",
        read);
    add(group, tool, "write", "Write a file, then verify it",
        "The writes are announced, and asked about at a terminal; -y goes on.\n"
        "Example: qeli2c eeprom write id-eeprom image.bin --update",
        write);
    add(group, tool, "verify", "Compare with a file", "", verify);
    add(group, tool, "erase", "Fill with 0xff, then verify it",
        "The writes are announced, and asked about at a terminal; -y goes on.", erase);
}

} // namespace tool
