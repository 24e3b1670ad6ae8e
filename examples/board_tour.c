/*
 * A tour of the reference board: one thing of each kind that the library can reach. Run it on the
 * simulated board:
 *
 *     qeli2c-sim run -- board_tour
 */
#include <qeli2c.h>

#include <errno.h>
#include <stdio.h>
#include <string.h>

static int failures;

/* A device by bus, path and address; 0 for a switch that is not there. */
static ei2c_client device(uint32_t bus, uint16_t addr, uint32_t swi_addr, uint32_t swi_chnl)
{
    ei2c_client client = {0};
    client.bus = bus;
    client.addr = addr;
    client.swi_addr = swi_addr;
    client.swi_chnl = swi_chnl;
    return client;
}

static int failed(const char *what, int32_t result)
{
    if (result >= 0)
        return 0;
    printf("  %s failed: %s\n", what, strerror(errno));
    failures++;
    return 1;
}

static void show_expanders(void)
{
    const ei2c_client io = device(0, 0x21, 0, 0);
    const ei2c_client riser_leds = device(4, 0x25, 0x00700071, 0x00050001);
    uint32_t word = 0;
    uint8_t byte = 0;

    puts("Expander pins");
    if (!failed("board-io", pca9535_gpio_word_get_value(&io, 0xFFFF, &word)))
        printf("  board-io, 16 pins at the bus itself:         0x%04x\n", (unsigned)word);
    failed("board-io pin 8", pca9535_gpio_direction_output(&io, 8, 1));
    if (!failed("board-io pin 8", pca9535_gpio_get_value(&io, 8, &word)))
        printf("  board-io pin 8, set as an output:            %u\n", (unsigned)word);
    failed("riser-leds", pca9554_gpio_byte_direction_output(&riser_leds, 0x0F, 0x05));
    if (!failed("riser-leds", pca9554_gpio_byte_get_value(&riser_leds, 0x0F, &byte)))
        printf("  riser-leds, 4 outputs behind two switches:   0x%x\n", byte);
}

static void show_eeprom(void)
{
    const ei2c_client eeprom = device(4, 0x50, 0x00700071, 0x00050003);
    uint8_t page[32];
    uint8_t read[32] = {0};
    int i;

    puts("EEPROM page, written and verified");
    for (i = 0; i < 32; i++)
        page[i] = (uint8_t)(7 * i + 1);
    failed("write", eeprom_write(&eeprom, 0x0200, page, sizeof page));
    failed("read", eeprom_read(&eeprom, 0x0200, read, sizeof read));
    if (memcmp(page, read, sizeof page) == 0) {
        puts("  id-eeprom 0x0200, 32 bytes:                  equal");
    } else {
        puts("  id-eeprom 0x0200, 32 bytes:                  DIFFERENT");
        failures++;
    }
}

static void show_monitors(void)
{
    /* The preset is the calibration that fits the monitor's shunt. */
    static const struct {
        const char *name;
        uint16_t addr;
        uint8_t preset;
        uint8_t bus;
        uint32_t swi_addr, swi_chnl;
    } monitors[] = {
        {"power-12v", 0x40, 1, 1, 0, 0},
        {"power-5v", 0x41, 2, 1, 0, 0},
        {"power-core", 0x44, 0, 1, 0, 0},
        {"slot0-power", 0x44, 2, 4, 0x70, 0},
        {"riser-power", 0x45, 3, 4, 0x00700071, 0x00050001},
    };
    size_t i;

    puts("Power monitors");
    for (i = 0; i < sizeof monitors / sizeof monitors[0]; i++) {
        const ei2c_client client =
            device(monitors[i].bus, monitors[i].addr, monitors[i].swi_addr, monitors[i].swi_chnl);
        float volts = 0;
        float watts = 0;
        if (!failed(monitors[i].name, TPA626_GetVolt(&client, &volts)) &&
            !failed(monitors[i].name, TPA626_GetPower(&client, monitors[i].preset, &watts)))
            printf("  %-12s %8.3f V %9.3f W\n", monitors[i].name, (double)volts, (double)watts);
    }
}

static void show_retimer(void)
{
    const retimer_i2c_dev retimer = {4, 0x19, {0}, 1, 0x71, 1, 0x70, 5};
    const uint8_t block[] = {0x10, 0xCA, 0xFE, 0xBA, 0xBE};
    uint8_t read[4] = {0x10};

    puts("Retimer block behind two switches");
    failed("write", Retimer_I2CWrite(&retimer, sizeof block, block));
    if (!failed("read", Retimer_I2CRead(&retimer, sizeof read, read))) {
        printf("  riser-retimer 0x10:                          %02x %02x %02x %02x\n", read[0],
               read[1], read[2], read[3]);
        failures += memcmp(read, block + 1, sizeof read) != 0;
    }
}

static void show_eplds(void)
{
    static const char *const vendors[] = {"", "Pango", "Lattice", "Anlogic"};
    static const struct {
        const char *name;
        uint8_t bus;
        uint16_t addr;
        uint32_t swi_addr, swi_chnl;
        int32_t vendor;
    } eplds[] = {
        {"board-epld", 3, 0x40, 0, 0, 2},
        {"board-epld-ef2", 8, 0x41, 0, 0, 3},
        {"board-epld-ef3", 9, 0x41, 0, 0, 3},
        {"board-epld-pango", 10, 0x41, 0, 0, 1},
        {"blade1-epld", 6, 0x41, 0x70, 1, 1},
        {"blade2-epld", 6, 0x41, 0x70, 3, 3},
        {"card-epld0", 6, 0x41, 0x00700073, 0x00020000, 2},
        {"card-epld3", 6, 0x41, 0x00700073, 0x00020004, 3},
    };
    enum { count = sizeof eplds / sizeof eplds[0] };
    int32_t found[count];
    uint8_t id[count][4] = {{0}};
    size_t i;

    puts("EPLDs (the probe tells on this line which transfers were refused)");
    for (i = 0; i < count; i++) {
        const ei2c_client client =
            device(eplds[i].bus, eplds[i].addr, eplds[i].swi_addr, eplds[i].swi_chnl);
        found[i] = epld_i2c_read_deviceId(&client, id[i]);
        failures += found[i] != eplds[i].vendor;
    }
    putchar('\n');
    for (i = 0; i < count; i++)
        printf("  %-17s %-9s id %02x %02x %02x %02x\n", eplds[i].name,
               found[i] > 0 ? vendors[found[i]] : "no answer", id[i][0], id[i][1], id[i][2],
               id[i][3]);
}

static void show_buses(void)
{
    const uint32_t *const owners = (const uint32_t *)tpidMap;
    uint32_t bus;

    puts("Buses: controller status, and the process that took each last");
    for (bus = 0; bus < 16; bus++) {
        uint8_t status = 0;
        if (failed("status", i2c_bus_status_check(bus, &status)))
            continue;
        printf("  bus %2u  status %u", (unsigned)bus, status);
        if (owners != NULL && owners[bus] != 0)
            printf("  process %u%s", (unsigned)owners[bus],
                   owners[bus] == pid ? " (this one)" : "");
        putchar('\n');
    }
}

int main(void)
{
    show_expanders();
    show_eeprom();
    show_monitors();
    show_retimer();
    show_eplds();
    show_buses();
    if (failures != 0)
        printf("%d steps failed\n", failures);
    return failures == 0 ? 0 : 1;
}
