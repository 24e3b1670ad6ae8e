// TPA626: current and power monitor with 16-bit registers, most significant byte first (3PEAK
// TPA626 datasheet, "Register details"; register-compatible with TI INA226, datasheet SBOS547,
// chapter 7).
//
// Conversions take no time, whatever conversion times and averaging the configuration asks for.
#include <string.h>

#include "simboard/chip_layout.h"
#include "simboard/chip_memory.h"

namespace simboard
{

namespace
{

enum Register : uint8_t {
    kConfiguration = 0,
    kShuntVoltage = 1, // 2.5 uV, signed
    kBusVoltage = 2,   // 1.25 mV
    kPower = 3,        // 25 times the current's unit
    kCurrent = 4,      // unit set by the calibration, signed
    kCalibration = 5,
    kMaskEnable = 6,
    kAlertLimit = 7,
    kManufacturerId = 0xfe,
    kDieId = 0xff,
};

constexpr uint16_t kConfigurationDefault = 0x4127;
constexpr uint16_t kConfigurationReset = 0x8000;
constexpr uint16_t kConfigurationWritable = 0x0fff;
constexpr uint16_t kModeShunt = 1;
constexpr uint16_t kModeBus = 2;
constexpr uint16_t kModeContinuous = 4;

// Mask/enable register.
constexpr uint16_t kShuntOver = 0x8000;
constexpr uint16_t kShuntUnder = 0x4000;
constexpr uint16_t kBusOver = 0x2000;
constexpr uint16_t kBusUnder = 0x1000;
constexpr uint16_t kPowerOver = 0x0800;
constexpr uint16_t kAlertFlag = 0x0010;
constexpr uint16_t kConversionReady = 0x0008;
constexpr uint16_t kMathOverflow = 0x0004;
constexpr uint16_t kLatch = 0x0001;
constexpr uint16_t kMaskWritable = 0xfc03;

uint16_t load(const ChipAccess &access, uint32_t number)
{
    switch (number) {
    case kManufacturerId:
        return 0x5449;
    case kDieId:
        return 0x2260;
    default:
        return number > kAlertLimit ? uint16_t{0}
                                    : static_cast<uint16_t>(memory_byte(access, 2 * number) << 8 |
                                                            memory_byte(access, 2 * number + 1));
    }
}

void store(const ChipAccess &access, uint32_t number, uint16_t value)
{
    set_memory(access, 2 * number, static_cast<uint8_t>(value >> 8));
    set_memory(access, 2 * number + 1, static_cast<uint8_t>(value));
}

int16_t load_signed(const ChipAccess &access, uint32_t number)
{
    return static_cast<int16_t>(load(access, number));
}

uint32_t surrounding(const ChipAccess &access, uint32_t offset)
{
    return load_number(memory_of(access.state, access.chip) + offset, 4);
}

int64_t limit(int64_t value, int64_t low, int64_t high)
{
    return value < low ? low : value > high ? high : value;
}

// Nearest whole number of units.
int64_t in_units(int64_t value, int64_t unit)
{
    return (value + (value < 0 ? -unit : unit) / 2) / unit;
}

// The enabled function of the highest bit is the one that counts.
bool is_beyond_limit(const ChipAccess &access, uint16_t mask)
{
    const uint16_t bound = load(access, kAlertLimit);
    const int16_t signed_bound = static_cast<int16_t>(bound);
    if ((mask & kShuntOver) != 0) {
        return load_signed(access, kShuntVoltage) > signed_bound;
    }
    if ((mask & kShuntUnder) != 0) {
        return load_signed(access, kShuntVoltage) < signed_bound;
    }
    if ((mask & kBusOver) != 0) {
        return load(access, kBusVoltage) > bound;
    }
    if ((mask & kBusUnder) != 0) {
        return load(access, kBusVoltage) < bound;
    }
    return (mask & kPowerOver) != 0 && load(access, kPower) > bound;
}

// Current and power from what was measured; whether they fit.
bool calculate(const ChipAccess &access)
{
    const int64_t current =
        int64_t{load_signed(access, kShuntVoltage)} * load(access, kCalibration) / 2048;
    const int64_t magnitude = current < 0 ? -current : current;
    const int64_t power = magnitude * load(access, kBusVoltage) / 20000;
    store(access, kCurrent, static_cast<uint16_t>(limit(current, INT16_MIN, INT16_MAX)));
    store(access, kPower, static_cast<uint16_t>(limit(power, 0, UINT16_MAX)));
    return magnitude <= INT16_MAX && power <= UINT16_MAX;
}

void convert(const ChipAccess &access)
{
    const uint16_t mode = load(access, kConfiguration);
    if ((mode & (kModeShunt | kModeBus)) == 0) { // powered down
        return;
    }
    if ((mode & kModeShunt) != 0) {
        const int64_t nanovolts =
            int64_t{static_cast<int32_t>(surrounding(access, kMonitorCurrent))} *
            surrounding(access, kMonitorShunt);
        store(access, kShuntVoltage,
              static_cast<uint16_t>(limit(in_units(nanovolts, 2500), INT16_MIN, INT16_MAX)));
    }
    if ((mode & kModeBus) != 0) {
        const int64_t microvolts = int64_t{surrounding(access, kMonitorVoltage)} * 1000;
        store(access, kBusVoltage,
              static_cast<uint16_t>(limit(in_units(microvolts, 1250), 0, INT16_MAX)));
    }
    const bool fits = calculate(access);
    uint16_t mask = load(access, kMaskEnable);
    const bool stays = (mask & kLatch) != 0 && (mask & kAlertFlag) != 0;
    mask = static_cast<uint16_t>((mask & ~(kAlertFlag | kMathOverflow)) | kConversionReady);
    mask = static_cast<uint16_t>(mask | (stays || is_beyond_limit(access, mask) ? kAlertFlag : 0) |
                                 (fits ? 0 : kMathOverflow));
    store(access, kMaskEnable, mask);
}

void reset(const ChipAccess &access)
{
    preserve(access.state, access.bus, memory_of(access.state, access.chip), kMonitorVoltage);
    tpa626_power_on(memory_of(access.state, access.chip));
    tpa626_settle(access);
}

void write_register(const ChipAccess &access, uint32_t number, uint16_t value)
{
    switch (number) {
    case kConfiguration:
        if ((value & kConfigurationReset) != 0) {
            reset(access);
            return;
        }
        store(access, kConfiguration,
              static_cast<uint16_t>((kConfigurationDefault & ~kConfigurationWritable) |
                                    (value & kConfigurationWritable)));
        if ((value & (kModeShunt | kModeBus)) != 0) {
            store(access, kMaskEnable,
                  static_cast<uint16_t>(load(access, kMaskEnable) & ~kConversionReady));
        }
        convert(access); // the one conversion of a triggered mode
        return;
    case kCalibration:
        store(access, kCalibration, value & 0x7fff);
        break;
    case kMaskEnable:
        store(access, kMaskEnable,
              static_cast<uint16_t>((load(access, kMaskEnable) & ~kMaskWritable) |
                                    (value & kMaskWritable)));
        break;
    case kAlertLimit:
        store(access, kAlertLimit, value);
        break;
    default: // read only
        return;
    }
    tpa626_settle(access);
}

int take_byte(const ChipAccess &access, uint8_t byte)
{
    ChipState &self = access.chip.state;
    switch (self.received++) {
    case 0:
        self.pointer = byte;
        break;
    case 1:
        self.pending = byte;
        break;
    case 2:
        write_register(access, self.pointer, static_cast<uint16_t>(self.pending << 8 | byte));
        break;
    default: // a register takes one word
        self.received = 3;
        break;
    }
    return kAck;
}

int give_byte(const ChipAccess &access)
{
    ChipState &self = access.chip.state;
    if (self.received >= 2) { // nothing is driven after the word
        return 0xff;
    }
    const uint16_t value = load(access, self.pointer);
    if (self.received++ == 0) {
        return value >> 8;
    }
    if (self.pointer == kMaskEnable) { // reading clears the flags, of alerts the latched one alone
        const int flags = kConversionReady | ((value & kLatch) != 0 ? kAlertFlag : 0);
        store(access, kMaskEnable, static_cast<uint16_t>(value & ~flags));
    }
    return value & 0xff;
}

} // namespace

void tpa626_power_on(uint8_t *memory)
{
    memset(memory, 0, kMonitorVoltage);
    memory[2 * kConfiguration] = kConfigurationDefault >> 8;
    memory[2 * kConfiguration + 1] = kConfigurationDefault & 0xff;
}

void tpa626_settle(const ChipAccess &access)
{
    if ((load(access, kConfiguration) & kModeContinuous) != 0) {
        convert(access);
    }
}

int tpa626(const ChipAccess &access, BusEvent event, uint8_t byte)
{
    ChipState &self = access.chip.state;
    switch (event) {
    case BusEvent::start_write:
        self.received = 0;
        return kAck;
    case BusEvent::start_read: // both bytes of a word are of one conversion
        self.received = 0;
        tpa626_settle(access);
        return kAck;
    case BusEvent::write_byte:
        return take_byte(access, byte);
    case BusEvent::read_byte:
        return give_byte(access);
    case BusEvent::repeated_start:
    case BusEvent::stop:
        break;
    }
    return kAck;
}

} // namespace simboard
