// See device_calls.h.
#include "tests/unit/device_calls.h"

#include <cstdarg>

using namespace scripted;
using model::Fault;
using model::Story;

namespace calls
{
namespace
{

// i2c_msg records over their own memory; a length of 0 goes with a null buffer.
struct Wire {
    std::vector<Bytes> memory;
    std::vector<i2c_msg> msgs;

    Wire(uint16_t addr, const Messages &messages)
    {
        for (const Message &message : messages) {
            memory.push_back(message.read < 0 ? message.sent
                                              : Bytes(static_cast<size_t>(message.read)));
            Bytes &bytes = memory.back();
            msgs.push_back({addr, static_cast<uint16_t>(message.read < 0 ? 0 : I2C_M_RD),
                            static_cast<uint16_t>(bytes.size()),
                            bytes.empty() ? nullptr : bytes.data()});
        }
    }
    uint32_t count() const { return static_cast<uint32_t>(msgs.size()); }
};

// One try, or four in which that part of the transfer fails.
Exchange locked(const ei2c_client &device, const char *name, int failing,
                const model::Transfer &transfer)
{
    const std::vector<model::Try> tries(failing != 0 ? 4U : 1U,
                                        {false, false, failing, false, false});
    Story story = {device.bus};
    model::take(story);
    const model::Outcome outcome = model::switched_loop(story, device, tries, name, transfer);
    model::release(story);
    return {story.script, outcome.result, outcome.error};
}

// Makes a request that succeeded give another result.
int give(Story &story, const char *request, int result)
{
    for (auto event = story.script.rbegin(); event != story.script.rend(); ++event)
        if (event->text.find(request) != std::string::npos) {
            event->result = result;
            break;
        }
    return result;
}

Exchange exchange(const ei2c_client &device, const std::vector<Messages> &sets, int failing,
                  const Bytes &reply, int other_result = -1)
{
    std::vector<Wire> wires;
    for (const Messages &messages : sets)
        wires.emplace_back(device.addr, messages);
    return locked(device, "ui2c_rdwr_xfer", failing,
                  [&](Story &story, int failing_part, const Fault &fault) {
                      int result = -1;
                      for (int part = 1; const Wire &wire : wires) {
                          result = model::rdwr(story, device.addr, wire.msgs.data(), wire.count(),
                                               part++ == failing_part ? fault : Fault{}, reply);
                          if (result < 0)
                              return result;
                      }
                      return other_result < 0 ? result : give(story, "I2C_RDWR", other_result);
                  });
}

} // namespace

ei2c_client device(int switches)
{
    const ei2c_client made = model::device_behind(switches, bus);
    warm_up(bus);
    observe({}, [&] { ui2c_to_client(bus, made.addr, made.swi_addr, made.swi_chnl); });
    return made;
}

Message sends(Bytes bytes)
{
    return {std::move(bytes)};
}
Message reads(size_t count)
{
    return {{}, static_cast<int>(count)};
}

Exchange transferred(const ei2c_client &device, const Messages &messages, const Bytes &reply,
                     int result)
{
    return exchange(device, {messages}, 0, reply, result);
}
Exchange refused(const ei2c_client &device, const Messages &messages, const Bytes &reply)
{
    return exchange(device, {messages}, 1, reply);
}
Exchange paired(const ei2c_client &device, const Messages &first, const Messages &second,
                int failing, const Bytes &reply)
{
    return exchange(device, {first, second}, failing, reply);
}

Exchange smbus(const ei2c_client &device, unsigned read_write, unsigned command, unsigned size,
               const Bytes &data, int result)
{
    return locked(device, "ui2c_smbus_xfer", result < 0 ? 1 : 0,
                  [&](Story &story, int, const Fault &fault) {
                      const int given =
                          model::smbus(story, device, read_write, command, size, data, fault, data);
                      return given < 0 ? given : give(story, "I2C_SMBUS", result);
                  });
}

Event said(const std::string &where, const char *format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    char text[512];
    vsnprintf(text, sizeof(text), format, arguments);
    va_end(arguments);
    return {where + text};
}
std::string err(const std::string &function)
{
    return "AuditOut 180 [err:" + function + "]";
}
std::string success(const std::string &function)
{
    return "AuditOut 180 [" + function + "]";
}
Event on_stdout(const std::string &text)
{
    return {"stdout " + text};
}
Event io_error(const std::string &function, const ei2c_client &device, unsigned reg,
               const char *what)
{
    return said(err(function), "i2c I/O error at bus(%u), slave(0x%x), reg(0x%x): %s failed !\n",
                device.bus, device.addr, reg, what);
}
Script read_trace(const Bytes &bytes)
{
    const std::string trace = "Runtime_DbgOut 135 [epld]";
    Script script = {said(trace, "readData:")};
    for (const unsigned byte : bytes)
        script += said(trace, " %x", byte);
    return script + said(trace, "\n");
}

Buffer::Buffer(size_t size) : all_(fresh(size + 2 * margin)) {}
Buffer::~Buffer()
{
    const Bytes expected = fresh(all_.size());
    EXPECT_TRUE(std::equal(all_.begin(), all_.begin() + margin, expected.begin()) &&
                std::equal(all_.end() - margin, all_.end(), expected.end() - margin))
        << "written outside a buffer of " << all_.size() - 2 * margin;
}
Bytes Buffer::fresh(size_t size)
{
    Bytes bytes(size);
    for (size_t i = 0; i < size; ++i)
        bytes[i] = static_cast<uint8_t>(0xe1 - i % 13);
    return bytes;
}

Bytes pattern(size_t size)
{
    Bytes bytes(size);
    for (size_t i = 0; i < size; ++i)
        bytes[i] = static_cast<uint8_t>(i % 251 + 3);
    return bytes;
}

Bytes joined(Bytes front, const Bytes &back)
{
    front.insert(front.end(), back.begin(), back.end());
    return front;
}

Script operator+(Script script, const Event &event)
{
    return std::move(script += event);
}
Script operator+(Script script, const Script &more)
{
    return std::move(script += more);
}

} // namespace calls
