// The messages themselves and their order, as the kernel traced them: switches upstream first when
// opening, near first when closing, offsets and words byte by byte.
#include "cases.h"
#include "trace.h"
#include "wire.h"

namespace board
{

namespace
{

std::string traced(uint32_t bus = bench_bus)
{
    std::string all;
    for (const std::string &message : trace::messages(bus))
        all += (all.empty() ? "" : ", ") + message;
    return all;
}

void expect_trace(Check &check, void (*run)(const ei2c_client &), Chip chip, Level level,
                  const std::string &messages)
{
    const ei2c_client client = device(chip, level);
    trace::start();
    run(client);
    equal(check, "messages", traced(), messages);
}

void read_byte(const ei2c_client &client)
{
    uint8_t value = 0;
    (void)ei2c_smbus_read_byte_data(&client, 3, &value);
}

void write_offset(const ei2c_client &client)
{
    const uint8_t bytes[3] = {0xD0, 0xD1, 0xD2};
    (void)i2cWrite(&client, 3, bytes, 2, 0x2F10);
}

void long_offset(const ei2c_client &client)
{
    const uint8_t byte = 0x99;
    (void)i2cWrite(&client, 1, &byte, 4, 0x2F200102);
}

void hold(const ei2c_client &client)
{
    int32_t fd = -1;
    int32_t semaphore = -1;
    (void)ei2c_smbus_select_switch(&client, &fd, &semaphore);
    (void)ei2c_smbus_deselect_switch(&client, fd, semaphore);
}

void hold_bridge(const ei2c_client &client)
{
    int32_t fd = -1;
    int32_t semaphore = -1;
    (void)lockAndSelectBridge_Ridgeback(&client, &semaphore, &fd);
    (void)unlockAndDeselectBridge_Ridgeback(&client, &semaphore, &fd);
}

void preset_power(const ei2c_client &client)
{
    float value = 0;
    (void)TPA626_GetPower(&client, 2, &value);
}

void bus_voltage(const ei2c_client &client)
{
    float value = 0;
    (void)TPA626_GetVolt(&client, &value);
}

void output_pin(const ei2c_client &client)
{
    (void)pca9554_gpio_direction_output(&client, 7, 0);
    (void)pca9554_gpio_direction_input(&client, 7);
}

void absent_device(const ei2c_client &client)
{
    ei2c_client absent = client;
    absent.addr = 0x6E;
    read_byte(absent);
}

const struct {
    const char *name;
    void (*run)(const ei2c_client &);
    Chip chip;
    Level level;
    const char *messages;
} rows[] = {
    {"no-switch", read_byte, Chip::pins, Level::root, "20 w 03, 20 r1"},
    {"one-switch", read_byte, Chip::pins, Level::near, "70 w 08, 21 w 03, 21 r1, 70 w 00"},
    {"two-switches", read_byte, Chip::pins, Level::far,
     "70 w 20, 71 w 04, 22 w 03, 22 r1, 71 w 00, 70 w 00"},
    {"two-byte-offset", write_offset, Chip::eeprom, Level::root, "50 w 2f 10 d0 d1 d2"},
    {"four-byte-offset", long_offset, Chip::eeprom, Level::root, "50 w 2f 20 01 02 99"},
    {"held-path", hold, Chip::pins, Level::far, "70 w 20, 71 w 04, 71 w 00, 70 w 00"},
    {"bridge", hold_bridge, Chip::pins, Level::near, "70 w 08, 70 w 00, 70 w 00, 70 w 00, 70 w 00"},
    {"monitor-power", preset_power, Chip::monitor, Level::root,
     "48 w 00 41 27, 48 w 05 0a 00, 48 w 03, 48 r2"},
    {"monitor-voltage", bus_voltage, Chip::monitor, Level::root, "48 w 02, 48 r2"},
    {"output-before-direction", output_pin, Chip::pins, Level::root,
     "20 w 01, 20 r1, 20 w 01 00, 20 w 03, 20 r1, 20 w 03 7f, 20 w 03, 20 r1, 20 w 03 ff"},
    {"four-tries-through-a-switch", absent_device, Chip::pins, Level::near,
     "70 w 08, 6e w 03, 6e r1, 70 w 00, 70 w 08, 6e w 03, 6e r1, 70 w 00, "
     "70 w 08, 6e w 03, 6e r1, 70 w 00, 70 w 08, 6e w 03, 6e r1, 70 w 00"},
};

} // namespace

void add_order_cases(Cases &cases)
{
    for (const auto &row : rows)
        cases.push_back({std::string("order/") + row.name, [&row](Check &check) {
                             if (row.chip == Chip::pins)
                                 wire::set_registers(device(Chip::pins, row.level), 3, {0xFF});
                             expect_trace(check, row.run, row.chip, row.level, row.messages);
                         }});
}

} // namespace board
