// An MCTP endpoint on SMBus: takes packets as block writes, answers control requests (DMTF DSP0237
// "MCTP SMBus/I2C Transport Binding", section 6; DSP0236 "MCTP Base", sections 8 and 12).
//
// Where a bus has one master, the endpoint cannot write its answer to the requester as the binding
// has it. So the answer waits and is read: the bytes that would have followed the requester's
// address, from the command code to the PEC, then ones. It goes away once its last byte was read,
// and without one the endpoint does not acknowledge reads.
#include "simboard/chip_layout.h"
#include "simboard/chip_memory.h"
#include "simboard/pec.h"

namespace simboard
{

namespace
{

constexpr uint8_t kCommandCode = 0x0f;
constexpr uint8_t kLeastCount = 5; // source address and MCTP header
constexpr uint8_t kMostCount = 250;

// Places in a packet, counted from the command code.
enum Place : uint32_t {
    kAtCommandCode,
    kAtCount,
    kAtSource,
    kAtVersion,
    kAtDestinationId,
    kAtSourceId,
    kAtFlags,
    kAtType,
    kAtRequest,
    kAtCommand,
    kAtCompletion,           // of a response
    kAtData = kAtCompletion, // of a request
};

constexpr uint8_t kHeaderVersion = 1;
constexpr uint8_t kWholeMessage = 0xc0; // start and end of message
constexpr uint8_t kTagOwner = 0x08;
constexpr uint8_t kTag = 0x07;
constexpr uint8_t kRequest = 0x80;
constexpr uint8_t kInstance = 0x1f;

constexpr uint8_t kSetEndpointId = 1;
constexpr uint8_t kGetEndpointId = 2;
constexpr uint8_t kGetVersion = 4;
constexpr uint8_t kGetMessageTypes = 5;

constexpr uint8_t kSuccess = 0;
constexpr uint8_t kInvalidData = 2;
constexpr uint8_t kInvalidLength = 3;
constexpr uint8_t kUnsupportedCommand = 5;
constexpr uint8_t kUnsupportedType = 0x80; // of Get MCTP Version Support

// A response as it is put together.
struct Response {
    uint8_t bytes[32];
    uint32_t length;

    void add(uint8_t byte) { bytes[length++] = byte; }
};

uint8_t request(const ChipAccess &access, uint32_t place)
{
    return memory_byte(access, kMctpRequest + place);
}

uint32_t response_length(const ChipAccess &access)
{
    return load_number(memory_of(access.state, access.chip) + kMctpResponseLength, 2);
}

void set_response_length(const ChipAccess &access, uint32_t length)
{
    uint8_t *const at = memory_of(access.state, access.chip) + kMctpResponseLength;
    preserve(access.state, access.bus, at, 2);
    store_number(at, 2, length);
}

// The packet of a request with `data` bytes for its command.
bool has_data(const ChipAccess &access, uint32_t data)
{
    return request(access, kAtCount) == kAtData - kAtSource + data;
}

void set_endpoint_id(const ChipAccess &access, Response &response)
{
    const uint8_t operation = request(access, kAtData);
    const uint8_t id = request(access, kAtData + 1);
    if (!has_data(access, 2)) {
        response.add(kInvalidLength);
    } else if (operation > 1 || id < 8 || id == 0xff) { // set or force; 0 to 7 are reserved
        response.add(kInvalidData);
    } else {
        set_memory(access, kMctpEid, id);
        response.add(kSuccess);
        response.add(0); // accepted, no pool needed
        response.add(id);
        response.add(0); // size of the pool
    }
}

void get_version(const ChipAccess &access, Response &response)
{
    const uint8_t type = request(access, kAtData);
    if (!has_data(access, 1)) {
        response.add(kInvalidLength);
    } else if (type != 0xff && type != 0) { // the base, and control messages
        response.add(kUnsupportedType);
    } else {
        const uint8_t one_entry[] = {kSuccess, 1, 0xf1, 0xf3, 0xf1, 0x00}; // 1.3.1
        for (const uint8_t byte : one_entry) {
            response.add(byte);
        }
    }
}

void answer(const ChipAccess &access, Response &response)
{
    switch (request(access, kAtCommand)) {
    case kSetEndpointId:
        set_endpoint_id(access, response);
        return;
    case kGetEndpointId:
        response.add(has_data(access, 0) ? kSuccess : kInvalidLength);
        if (has_data(access, 0)) {
            response.add(memory_byte(access, kMctpEid));
            response.add(0); // simple endpoint, dynamic identifier
            response.add(0);
        }
        return;
    case kGetVersion:
        get_version(access, response);
        return;
    case kGetMessageTypes:
        response.add(has_data(access, 0) ? kSuccess : kInvalidLength);
        if (has_data(access, 0)) {
            response.add(0); // none besides control messages
        }
        return;
    default:
        response.add(kUnsupportedCommand);
    }
}

// Whether the packet is a control request for this endpoint; any other one is dropped.
bool is_request(const ChipAccess &access)
{
    const uint8_t destination = request(access, kAtDestinationId);
    const uint8_t flags = request(access, kAtFlags);
    return request(access, kAtCount) >= kAtData - kAtSource &&
           (request(access, kAtVersion) & 0x0f) == kHeaderVersion &&
           (destination == 0 || destination == memory_byte(access, kMctpEid)) &&
           (flags & kWholeMessage) == kWholeMessage && (flags & kTagOwner) != 0 &&
           request(access, kAtType) == 0 && (request(access, kAtRequest) & kRequest) != 0;
}

void respond(const ChipAccess &access)
{
    if (!is_request(access)) {
        return;
    }
    Response response = {};
    response.add(kCommandCode);
    response.add(0);
    response.add(static_cast<uint8_t>(access.chip.address << 1 | 1));
    response.add(kHeaderVersion);
    response.add(request(access, kAtSourceId));
    response.add(memory_byte(access, kMctpEid));
    response.add(static_cast<uint8_t>(kWholeMessage | (request(access, kAtFlags) & kTag)));
    response.add(0); // control message
    response.add(request(access, kAtRequest) & kInstance);
    response.add(request(access, kAtCommand));
    answer(access, response);
    response.bytes[kAtCount] = static_cast<uint8_t>(response.length - kAtSource);
    const uint8_t destination = request(access, kAtSource) & 0xfe;
    response.add(pec_add(pec_add(0, &destination, 1), response.bytes, response.length));
    for (uint32_t i = 0; i < response.length; i++) {
        set_memory(access, kMctpResponse + i, response.bytes[i]);
    }
    set_response_length(access, response.length);
}

// Whether `byte` is the code of the packet received so far, its address included.
bool is_code(const ChipAccess &access, uint8_t byte)
{
    const uint8_t address = static_cast<uint8_t>(access.chip.address << 1);
    const uint8_t *const packet = memory_of(access.state, access.chip) + kMctpRequest;
    return pec_add(pec_add(0, &address, 1), packet, access.chip.state.received) == byte;
}

// Bytes of a packet without its code, 0 as long as the count is not known.
uint32_t packet_length(const ChipAccess &access)
{
    return access.chip.state.received > kAtCount ? request(access, kAtCount) + kAtSource : 0U;
}

int take_byte(const ChipAccess &access, uint8_t byte)
{
    ChipState &self = access.chip.state;
    const uint32_t length = packet_length(access);
    if (self.has_pending == 0) { // refused a byte already
        return kNack;
    }
    bool good = true;
    if (self.received == kAtCommandCode) {
        good = byte == kCommandCode;
    } else if (self.received == kAtCount) {
        good = byte >= kLeastCount && byte <= kMostCount;
    } else if (self.received >= length) {
        good = self.received == length && is_code(access, byte);
    }
    if (!good) {
        self.has_pending = 0;
        return kNack;
    }
    if (length == 0 || self.received < length) {
        set_memory(access, kMctpRequest + self.received, byte);
    }
    self.received++;
    return kAck;
}

// The message is over: a packet that is all there is looked at, a response read to its end goes.
void end_message(const ChipAccess &access)
{
    ChipState &self = access.chip.state;
    if (self.has_pending != 0 && self.received > kAtCount &&
        self.received >= packet_length(access)) {
        respond(access);
    }
    if (self.pointer != 0 && self.pointer >= response_length(access)) {
        set_response_length(access, 0);
    }
    self.has_pending = 0;
    self.pointer = 0;
}

} // namespace

int mctp(const ChipAccess &access, BusEvent event, uint8_t byte)
{
    ChipState &self = access.chip.state;
    switch (event) {
    case BusEvent::start_write:
        self.received = 0;
        self.has_pending = 1;
        return kAck;
    case BusEvent::write_byte:
        return take_byte(access, byte);
    case BusEvent::start_read:
        return response_length(access) > 0 ? kAck : kNack;
    case BusEvent::read_byte: {
        const uint32_t at = self.pointer++;
        return at < response_length(access) ? memory_byte(access, kMctpResponse + at) : 0xff;
    }
    case BusEvent::repeated_start:
    case BusEvent::stop:
        end_message(access);
        break;
    }
    return kAck;
}

} // namespace simboard
