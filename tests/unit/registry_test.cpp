// Which lookups give the same record, how switches are linked, and what is left when memory or the
// mutex fails.
#include "tests/unit/scripted_kernel.h"

#include "include/qeli2c.h"

#include <gtest/gtest.h>

using namespace scripted;

namespace
{

ui2c_client *look_up(uint32_t bus, uint16_t addr, uint32_t swi_addr, uint32_t swi_chnl = 0)
{
    begin({});
    ui2c_client *found = ui2c_to_client(bus, addr, swi_addr, swi_chnl);
    EXPECT_EQ(end(), std::vector<std::string>());
    return found;
}

TEST(Registry, IdentityIsBusNearSwitchAndAddress)
{
    const uint32_t bus = fresh_bus();
    const ui2c_client *reference = look_up(bus, 0x50, 0x71, 3);
    ASSERT_NE(reference, nullptr);
    const struct {
        const char *what;
        uint32_t bus;
        uint16_t addr;
        uint32_t swi_addr, swi_chnl;
        bool same;
    } rows[] = {
        {"all the same", bus, 0x50, 0x71, 3, true},
        {"another channel", bus, 0x50, 0x71, 0x00050007, true},
        {"an upstream switch as well", bus, 0x50, 0x00700071, 3, true},
        {"another address", bus, 0x51, 0x71, 3, false},
        {"another near switch", bus, 0x50, 0x72, 3, false},
        {"no switch", bus, 0x50, 0, 3, false},
        {"another bus", fresh_bus(), 0x50, 0x71, 3, false},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.what);
        const ui2c_client *found = look_up(row.bus, row.addr, row.swi_addr, row.swi_chnl);
        ASSERT_NE(found, nullptr);
        EXPECT_EQ(found == reference, row.same);
        EXPECT_EQ(look_up(row.bus, row.addr, row.swi_addr, row.swi_chnl), found);
        EXPECT_EQ(allocations(), 0U) << "a known key allocates";
        EXPECT_EQ(found->adapter->bus, row.bus);
        EXPECT_EQ(found->addr, row.addr);
        EXPECT_EQ(found->adapter, ui2c_to_adapter(row.bus));
    }
}

TEST(Registry, EveryLookupRewritesTheUpstreamLink)
{
    const uint32_t bus = fresh_bus();
    const ui2c_switch *near = look_up(bus, 0x50, 0x00700071)->swi;
    ui2c_switch *first = near->upstream;
    ASSERT_NE(first, nullptr);
    EXPECT_EQ(first->addr, 0x70);
    EXPECT_EQ(first->adapter, near->adapter);

    EXPECT_EQ(look_up(bus, 0x51, 0x00000071)->swi, near);
    EXPECT_EQ(near->upstream, nullptr);
    look_up(bus, 0x50, 0x00720071);
    EXPECT_EQ(near->upstream->addr, 0x72);
    look_up(bus, 0x50, 0x00700071);
    EXPECT_EQ(near->upstream, first);

    // The upstream switch is a near switch too, and keeps its own link while it only serves as
    // upstream.
    EXPECT_EQ(look_up(bus, 0x50, 0x00730070)->swi, first);
    look_up(bus, 0x50, 0x00700071);
    EXPECT_EQ(first->upstream->addr, 0x73);
    EXPECT_NE(look_up(fresh_bus(), 0x50, 0x00700071)->swi, near);
}

TEST(Registry, WithoutANearSwitchThereIsNone)
{
    const uint32_t bus = fresh_bus();
    ui2c_client *client = look_up(bus, 0x50, 0x00700000, 0x00050003);
    EXPECT_EQ(client->swi, nullptr);
    EXPECT_EQ(look_up(bus, 0x50, 0), client);
    EXPECT_EQ(ui2c_to_switch(client->adapter, 0xffff0000, 1), nullptr);
}

TEST(Registry, HeadsTakePartInTheSearch)
{
    const ui2c_adapter *adapter = ui2c_to_adapter(0xffffffff);
    EXPECT_STREQ(adapter->name, "dummy-adapter");
    EXPECT_EQ(look_up(0xffffffff, 0x50, 0)->adapter, adapter);
}

} // namespace
