// The options get and set share, and the bytes they stand for.
#include "register_access.h"

#include "command_line.h"
#include "failure.h"
#include "number.h"

namespace tool
{

namespace
{

uint32_t usual_offset_width(const std::string &type)
{
    if (type == "at24c512")
        return 2;
    return type == "pca9548" ? 0 : 1; // the switch has a single register without a number
}

} // namespace

void add_access_options(CLI::App &command, AccessOptions &options)
{
    add_option(command, "-w,--offset-width", options.offset_width, "N",
               "Bytes of the register number, 0 to 4");
    add_flag(command, "--word", options.word, "Values are 16 bits wide");
    add_flag(command, "--dword", options.dword, "Values are 32 bits wide");
    add_option(command, "--order", options.order, "ORDER", "Byte order of values: little or big",
               {"little", "big"});
    add_flag(command, "--smbus", options.smbus, "SMBus byte or word command, one value");
    add_flag(command, "--pec", options.pec, "SMBus packet error checking");
}

void add_mask_option(CLI::App &command, AccessOptions &options, const char *description)
{
    add_option(command, "--mask", options.mask, "BITS", description);
}

Access make_access(const AccessOptions &options, const Target &target)
{
    Access access;
    access.offset_width = options.offset_width.empty()
                              ? usual_offset_width(target.type)
                              : number_in(options.offset_width, 0, 4, "--offset-width");
    access.value_width = options.dword ? 4 : options.word ? 2 : 1;
    access.big_endian = options.order == "big";
    access.smbus = options.smbus;
    access.pec = options.pec;
    if (!options.mask.empty())
        access.mask = number_in(options.mask, 0, largest_value(access), "--mask");
    if (options.word && options.dword)
        throw usage_error("--word and --dword contradict each other");
    if (access.big_endian && access.value_width == 1)
        throw usage_error("--order needs --word or --dword");
    if (access.smbus && options.dword)
        throw usage_error("--smbus has no values of 32 bits");
    if (access.pec && !access.smbus)
        throw usage_error("--pec needs --smbus: plain messages carry no packet error code");
    if (access.smbus && access.offset_width > 1)
        throw usage_error("--smbus has a command byte; it cannot send a register number of " +
                          std::to_string(access.offset_width) + " bytes");
    if (access.smbus && access.offset_width == 0 && options.word)
        throw usage_error("--smbus without a register number transfers one byte, not a word");
    return access;
}

Memory memory_of(const Target &target)
{
    return target.type == "at24c512" ? Memory{65536, 128} : Memory{};
}

void check_in_memory(const Memory &memory, uint32_t offset, size_t bytes)
{
    if (memory.size && offset + uint64_t{bytes} > memory.size)
        throw usage_error(std::to_string(bytes) + " bytes at " + hex(offset, 4) +
                          " go past the end of the memory (" + std::to_string(memory.size) +
                          " bytes)");
}

uint32_t parse_register(const std::string &text, const Access &access)
{
    const uint32_t last =
        access.offset_width >= 4 ? UINT32_MAX : (1U << (8 * access.offset_width)) - 1;
    const std::optional<uint32_t> value = parse_number(text);
    if (value && *value > last)
        throw usage_error("register " + text + " does not fit in " +
                          std::to_string(access.offset_width) +
                          (access.offset_width == 1 ? " byte (0x00 to 0xff)" : " bytes") +
                          "; --offset-width gives more");
    return number_in(text, 0, last, "register");
}

int offset_digits(const Access &access)
{
    return access.offset_width < 2 ? 2 : static_cast<int>(2 * access.offset_width);
}

std::vector<uint8_t> offset_bytes(uint32_t offset, const Access &access)
{
    std::vector<uint8_t> bytes;
    for (uint32_t i = access.offset_width; i > 0; i--)
        bytes.push_back(static_cast<uint8_t>(offset >> (8 * (i - 1))));
    return bytes;
}

uint32_t largest_value(const Access &access)
{
    return UINT32_MAX >> (32 - 8 * access.value_width);
}

std::vector<uint32_t> values_of(const std::vector<uint8_t> &bytes, const Access &access)
{
    const uint32_t width = access.value_width;
    std::vector<uint32_t> values;
    for (size_t start = 0; start + width <= bytes.size(); start += width) {
        uint32_t value = 0;
        for (uint32_t i = 0; i < width; i++) // from the most significant byte on
            value = value << 8 | bytes[start + (access.big_endian ? i : width - 1 - i)];
        values.push_back(value);
    }
    return values;
}

std::vector<uint8_t> bytes_of(const std::vector<uint32_t> &values, const Access &access)
{
    const uint32_t width = access.value_width;
    std::vector<uint8_t> bytes;
    for (const uint32_t value : values)
        for (uint32_t i = 0; i < width; i++)
            bytes.push_back(
                static_cast<uint8_t>(value >> (8 * (access.big_endian ? width - 1 - i : i))));
    return bytes;
}

} // namespace tool
