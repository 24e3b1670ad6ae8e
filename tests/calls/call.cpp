// See call.h.
#include "tests/calls/call.h"

#include "tests/calls/notation.h"

#include <algorithm>
#include <cstring>
#include <map>
#include <stdexcept>
#include <tuple>
#include <type_traits>

using notation::bytes_of;
using notation::number_of;
using notation::split;

namespace
{

constexpr size_t margin = 16;
constexpr uint8_t untouched = 0xee;

uint32_t hex(const std::string &text)
{
    return static_cast<uint32_t>(number_of("0x" + text));
}

// Words of a call and the memory they become.
struct Given {
    Call &call;
    std::vector<std::string> words;
    const Prepare &prepare;
    size_t used = 1; // the name

    std::string next()
    {
        if (used == words.size())
            throw std::invalid_argument("too few arguments");
        return words[used++];
    }
    template <class T>
    T *keep(const std::vector<T> &values)
    {
        // Exactly as long, so that a sanitizer sees one more.
        const std::shared_ptr<T[]> kept(new T[values.size()]);
        std::copy(values.begin(), values.end(), kept.get());
        call.memory.push_back(kept);
        return kept.get();
    }
    uint8_t *output(size_t size, const notation::Bytes &before, bool is_number, bool is_float,
                    const std::string &name = "")
    {
        std::vector<uint8_t> all(size + 2 * margin, untouched);
        if (before.size() > size)
            throw std::invalid_argument("more than the output holds");
        std::copy(before.begin(), before.end(), all.begin() + margin);
        uint8_t *bytes = keep(all) + margin;
        call.outputs.push_back({name, bytes, size, all, is_float, is_number});
        return bytes;
    }
};

ei2c_client prepared(const Given &given, const ei2c_client &client)
{
    given.prepare(client);
    return client;
}

ui2c_adapter *adapter_of(const Given &given, const std::string &word)
{
    ei2c_client bus = {};
    bus.bus = static_cast<uint32_t>(number_of(word));
    return ui2c_to_adapter(prepared(given, bus).bus);
}

tpa626_info monitor_of(const Given &given, const std::string &word)
{
    const auto parts = split(word, ',');
    tpa626_info info = {};
    info.client = prepared(given, client_of(parts.at(0)));
    info.wConfig = static_cast<uint16_t>(hex(parts.at(1)));
    info.wCalibration = static_cast<uint16_t>(hex(parts.at(2)));
    float *const coefficients[] = {&info.fPowerCoef1, &info.fPowerCoef2, &info.fVoltCoef1,
                                   &info.fVoltCoef2};
    for (size_t i = 0; i < 4; ++i)
        *coefficients[i] = std::stof(parts.at(3 + i));
    return info;
}

retimer_i2c_dev retimer_of(const Given &given, const std::string &word)
{
    retimer_i2c_dev record = {};
    const notation::Bytes bytes = bytes_of(word);
    memcpy(&record, bytes.data(), std::min(bytes.size(), sizeof(record)));
    const std::string switches =
        notation::printed("/%x.0/%x.0/", record.ucUpSwiAddr, record.ucSwiAddr);
    prepared(given,
             client_of(std::to_string(record.ucBus) + (record.ucSwiValid == 1 ? switches : "/") +
                       notation::printed("%x", record.ucAddr)));
    return record;
}

i2c_msg *messages_of(Given &given, const std::string &word)
{
    std::vector<i2c_msg> msgs;
    for (const std::string &part : split(word, ',')) {
        const size_t kind = part.find_first_of("rw"), slash = part.find('/'),
                     colon = part.find(':');
        if (kind == std::string::npos)
            throw std::invalid_argument("not a message: " + part);
        i2c_msg msg = {};
        msg.addr = static_cast<uint16_t>(hex(part.substr(0, std::min(kind, slash))));
        msg.flags = part[kind] == 'r' ? I2C_M_RD : 0;
        if (slash != std::string::npos)
            msg.flags |= static_cast<uint16_t>(hex(part.substr(slash + 1, kind - slash - 1)));
        const std::string rest = part.substr(kind + 1, colon - kind - 1);
        if (part[kind] == 'r') { // with what is there before
            const auto before = split(rest, '=');
            msg.len = static_cast<uint16_t>(number_of(before.at(0)));
            msg.buf =
                given.output(msg.len, bytes_of(before.size() > 1 ? before[1] : "-"), false, false);
        } else if (rest != "-") {
            const notation::Bytes bytes = bytes_of(rest);
            msg.len = static_cast<uint16_t>(bytes.size());
            msg.buf = given.keep(bytes);
        }
        if (colon != std::string::npos)
            msg.len = static_cast<uint16_t>(number_of(part.substr(colon + 1)));
        msgs.push_back(msg);
    }
    return given.keep(msgs);
}

uint8_t *output_of(Given &given, const std::string &word, size_t size, bool is_float)
{
    if (!word.starts_with('>'))
        throw std::invalid_argument("not an output: " + word);
    const size_t equals = word.find('=');
    const std::string length = word.substr(1, equals - 1);
    const std::string before = equals == std::string::npos ? "-" : word.substr(equals + 1);
    if (size == 1)
        return given.output(static_cast<size_t>(number_of(length)), bytes_of(before), false, false);
    const auto value = before == "-" ? int64_t{0} : number_of(before);
    notation::Bytes bytes(size);
    memcpy(bytes.data(), &value, size); // of a little-endian machine
    const bool named = !length.empty() && isalpha(length[0]) != 0;
    return given.output(size, before == "-" ? notation::Bytes{} : bytes, true, is_float,
                        named ? length : "");
}

template <class T>
T argument(Given &given)
{
    const std::string word = given.next();
    using Pointed = std::remove_const_t<std::remove_pointer_t<T>>;
    if constexpr (std::is_integral_v<T>)
        return static_cast<T>(number_of(word));
    else if (word == "null")
        return nullptr;
    else if constexpr (std::is_same_v<Pointed, ei2c_client>)
        return given.keep<ei2c_client>({prepared(given, client_of(word))});
    else if constexpr (std::is_same_v<Pointed, tpa626_info>)
        return given.keep<tpa626_info>({monitor_of(given, word)});
    else if constexpr (std::is_same_v<Pointed, retimer_i2c_dev>)
        return given.keep<retimer_i2c_dev>({retimer_of(given, word)});
    else if constexpr (std::is_same_v<Pointed, ui2c_adapter>)
        return adapter_of(given, word);
    else if constexpr (std::is_same_v<Pointed, ui2c_switch>)
        return ui2c_to_switch(adapter_of(given, split(word, '/').at(0)),
                              hex(split(word, '/').at(1)), 0);
    else if constexpr (std::is_same_v<Pointed, i2c_msg>)
        return messages_of(given, word);
    else if constexpr (std::is_same_v<Pointed, i2c_msg *>)
        return given.keep<i2c_msg *>({messages_of(given, split(word, '|').at(0)),
                                      messages_of(given, split(word, '|').at(1))});
    else if constexpr (std::is_same_v<T, const uint8_t *>)
        return given.keep(bytes_of(word));
    else if constexpr (std::is_same_v<T, const uint32_t *>) {
        std::vector<uint32_t> values;
        for (const std::string &number : split(word, ','))
            values.push_back(static_cast<uint32_t>(number_of(number)));
        return given.keep(values);
    } else
        return static_cast<T>(static_cast<void *>(
            output_of(given, word, sizeof(Pointed), std::is_floating_point_v<Pointed>)));
}

template <class Result, class... Arguments>
std::function<std::string()> bound(Given &given, Result (*function)(Arguments...))
{
    const std::tuple<Arguments...> arguments{argument<Arguments>(given)...};
    if (given.used != given.words.size())
        throw std::invalid_argument("too many arguments");
    return [=]() -> std::string {
        if constexpr (std::is_void_v<Result>)
            return std::apply(function, arguments), "nothing";
        else if constexpr (std::is_pointer_v<Result>)
            return std::apply(function, arguments) == nullptr ? "null" : "a record";
        else
            return std::to_string(std::apply(function, arguments));
    };
}

#define CALL(function) {#function, [](Given &given) { return bound(given, function); }},
const std::map<std::string, std::function<std::string()> (*)(Given &)> calls = {
    EXPORTED_CALLS(CALL)};

} // namespace

ei2c_client client_of(const std::string &word)
{
    const size_t flags = word.find(':'), name = word.find('@');
    const auto parts = split(word.substr(0, std::min(flags, name)), '/');
    if (parts.size() < 2 || parts.size() > 4)
        throw std::invalid_argument("not a device: " + word);
    ei2c_client client = {};
    client.bus = static_cast<uint32_t>(number_of(parts[0]));
    client.addr = static_cast<uint16_t>(hex(parts.back()));
    if (flags != std::string::npos)
        client.flags = static_cast<uint16_t>(hex(word.substr(flags + 1, name - flags - 1)));
    if (name != std::string::npos)
        memcpy(client.pcie_name, &word[name + 1], std::min<size_t>(word.size() - name - 1, 16));
    for (size_t i = 1; i + 1 < parts.size(); ++i) {
        const auto near = split(parts[i], '.');
        client.swi_addr = client.swi_addr << 16 | hex(near.at(0));
        client.swi_chnl = client.swi_chnl << 16 | hex(near.at(1));
    }
    return client;
}

Call call_of(const std::string &line, const Prepare &prepare)
{
    Call call;
    Given given = {call, split(line, ' '), prepare};
    const auto found = calls.find(given.words.at(0));
    if (found == calls.end())
        throw std::invalid_argument("no such call");
    call.run = found->second(given);
    return call;
}

std::string outputs_of(const Call &call)
{
    std::string text;
    for (const Call::Output &output : call.outputs) {
        const uint8_t *all = output.bytes - margin;
        const size_t size = output.before.size();
        uint64_t number = 0;
        float value = 0;
        memcpy(&number, output.bytes, std::min(output.size, sizeof(number)));
        memcpy(&value, output.bytes, sizeof(value));
        if (memcmp(all, output.before.data(), margin) != 0 ||
            memcmp(all + size - margin, &output.before[size - margin], margin) != 0)
            text += " written-outside";
        if (memcmp(all, output.before.data(), size) == 0)
            text += " untouched";
        else if (!output.name.empty())
            text += " " + output.name;
        else if (output.is_float)
            text += notation::printed(" %.9g", static_cast<double>(value));
        else if (output.is_number && output.size == 2)
            text += notation::printed(" 0x%04x", static_cast<unsigned>(number));
        else if (output.is_number)
            text += notation::printed(" %d", static_cast<int>(number));
        else
            text += " " + notation::text_of(output.bytes, output.size);
    }
    return text;
}
