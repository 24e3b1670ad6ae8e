// Standard output, standard error and questions at the terminal.
#include "output.h"

#include "failure.h"
#include "number.h"

#include <cstdio>
#include <iostream>
#include <json/writer.h>
#include <unistd.h>

namespace tool
{

void print_json(const Json::Value &value)
{
    Json::StreamWriterBuilder builder;
    builder["indentation"] = "  ";
    builder["commentStyle"] = "None";
    builder["enableYAMLCompatibility"] = true; // "key": value
    builder["emitUTF8"] = true;
    std::cout << Json::writeString(builder, value) << "\n";
}

Json::Value json_of(const Target &target)
{
    Json::Value value(Json::objectValue);
    value["path"] = to_string(target.path);
    if (!target.name.empty()) {
        value["name"] = target.name;
        value["type"] = target.type;
    }
    return value;
}

void print_dump(uint32_t offset, int offset_digits, const std::vector<uint32_t> &values, int width)
{
    const size_t per_line = 16 / static_cast<size_t>(width);
    char field[16];
    for (size_t start = 0; start < values.size(); start += per_line) {
        std::string line = hex(offset + static_cast<uint32_t>(start) * static_cast<uint32_t>(width),
                               offset_digits) +
                           ":";
        std::string characters;
        for (size_t i = start; i < start + per_line; i++) {
            const bool present = i < values.size();
            if (present)
                std::snprintf(field, sizeof field, " %0*x", 2 * width, values[i]);
            else
                std::snprintf(field, sizeof field, " %*s", 2 * width, "");
            line += field;
            if (present && width == 1)
                characters +=
                    values[i] >= 0x20 && values[i] < 0x7f ? static_cast<char>(values[i]) : '.';
        }
        if (width == 1)
            line += "  " + characters;
        line.erase(line.find_last_not_of(' ') + 1);
        std::cout << line << "\n";
    }
}

void print_bytes(const std::vector<uint8_t> &bytes)
{
    for (size_t i = 0; i < bytes.size(); i++)
        std::cout << hex(bytes[i], 2) << (i % 16 == 15 || i + 1 == bytes.size() ? "\n" : " ");
}

void announce(const Options &options, const std::string &what)
{
    const bool ask = !options.yes && isatty(STDIN_FILENO) && isatty(STDERR_FILENO);
    if (ask || !options.quiet)
        std::cerr << "qeli2c: about to " << what << "\n";
    if (!ask)
        return;
    std::cerr << "Go on? [y/N] " << std::flush;
    std::string answer;
    std::getline(std::cin, answer);
    if (answer != "y" && answer != "Y" && answer != "yes")
        throw operation_failed("not confirmed; nothing was written (-y goes on without asking)");
}

std::string delicate(const Target &target)
{
    const uint16_t address = target.path.address;
    if (target.type == "pca9548" || (target.type.empty() && address >= 0x70 && address <= 0x77))
        return "the switch";
    if (target.type == "at24c512" || (target.type.empty() && address >= 0x50 && address <= 0x57))
        return "the EEPROM";
    if (target.type.starts_with("epld"))
        return "the logic device";
    return "";
}

void show_progress(const Options &options, const std::string &text)
{
    if (options.quiet || !isatty(STDERR_FILENO))
        return;
    std::cerr << "\r\033[K" << text << std::flush;
}

} // namespace tool
