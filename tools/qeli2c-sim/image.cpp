// qeli2c-sim load and save: the memory of a device from and to a file.
#include "subject.h"
#include "tools/qeli2c/number.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>
#include <unistd.h>

namespace runner
{

namespace
{

struct Arguments {
    std::string board;
    std::string device;
    std::string file = "-";
    std::string offset = "0";
};

[[noreturn]] void fail(const std::string &file)
{
    throw std::runtime_error((file == "-" ? "standard input or output" : file) + ": " +
                             std::strerror(errno));
}

// The device itself: images have nothing to do with what surrounds it.
simboard::Chip &find_memory(ChosenBoard &board, const std::string &name)
{
    const Subject subject = find_subject(board, name);
    if (!subject.quantity.empty()) {
        throw UsageError("an image is of a whole device");
    }
    return *subject.chip;
}

// At most one byte more than `limit`, so that too much is seen.
std::vector<uint8_t> read_image(const std::string &file, size_t limit)
{
    std::FILE *const stream = file == "-" ? stdin : std::fopen(file.c_str(), "rbe");
    if (stream == nullptr) {
        fail(file);
    }
    std::vector<uint8_t> image(limit + 1);
    image.resize(std::fread(image.data(), 1, image.size(), stream));
    const bool good = std::ferror(stream) == 0;
    if (stream != stdin) {
        std::fclose(stream);
    }
    if (!good) {
        errno = EIO;
        fail(file);
    }
    return image;
}

void write_image(const std::string &file, const std::vector<uint8_t> &image)
{
    if (file == "-" && isatty(STDOUT_FILENO) == 1) {
        throw UsageError("an image does not belong on a terminal; name a file");
    }
    std::FILE *const stream = file == "-" ? stdout : std::fopen(file.c_str(), "wbe");
    if (stream == nullptr) {
        fail(file);
    }
    bool good = std::fwrite(image.data(), 1, image.size(), stream) == image.size();
    good = std::fflush(stream) == 0 && good;
    const int saved = errno;
    if (stream != stdout) {
        std::fclose(stream);
    }
    errno = saved;
    if (!good) {
        fail(file);
    }
}

int load_image(const Arguments &arguments)
{
    ChosenBoard board(arguments.board);
    simboard::Chip &chip = find_memory(board, arguments.device);
    const uint32_t offset = parse_offset(chip, arguments.offset);
    const uint32_t room = count_registers(chip) - offset;
    const std::vector<uint8_t> image = read_image(arguments.file, room);
    if (image.size() > room) {
        throw std::runtime_error("the image is longer than the " + std::to_string(room) +
                                 " bytes of " + chip.name + "; nothing was loaded");
    }
    if (image.empty()) {
        throw std::runtime_error("the image is empty; nothing was loaded");
    }
    simboard::poke(board.view(), chip, offset, image);
    return kDone;
}

int save_image(const Arguments &arguments)
{
    ChosenBoard board(arguments.board);
    const simboard::Chip &chip = find_memory(board, arguments.device);
    write_image(arguments.file, simboard::peek(board.view(), chip, 0, count_registers(chip)));
    return kDone;
}

CLI::App &add_image_command(CLI::App &app, Runner &runner, const char *name,
                            const char *description, int (*action)(const Arguments &),
                            const std::shared_ptr<Arguments> &arguments)
{
    CLI::App &command = add_command(app, runner, name, description, "",
                                    [arguments, action] { return action(*arguments); });
    add_board_option(command, arguments->board);
    add_argument(command, "DEVICE", arguments->device, "The EEPROM, or a device with registers");
    return command;
}

} // namespace

void add_load(CLI::App &app, Runner &runner)
{
    const auto arguments = std::make_shared<Arguments>();
    CLI::App &load =
        add_image_command(app, runner, "load", "Put an image into a device's memory, all at once",
                          load_image, arguments);
    add_optional_argument(load, "FILE", arguments->file,
                          "The image; standard input when absent or -");
    add_option(load, "--offset", arguments->offset, "OFFSET", "Where it goes; else 0");
}

void add_save(CLI::App &app, Runner &runner)
{
    const auto arguments = std::make_shared<Arguments>();
    CLI::App &save = add_image_command(app, runner, "save", "Save a device's memory as an image",
                                       save_image, arguments);
    add_optional_argument(save, "FILE", arguments->file,
                          "The image; standard output when absent or -");
}

} // namespace runner
