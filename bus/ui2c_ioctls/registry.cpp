// The registry: one record per bus, switch and device of this process.
#include <cstdlib>

#include "bus/process_locks.h"
#include "bus/ui2c_ioctls/core.h"

namespace
{

ui2c_adapter adapters = {0xFFFFFFFF, "dummy-adapter", nullptr, nullptr};
ui2c_switch switches = {nullptr, nullptr, 0, "dummy-switch", nullptr};
ui2c_client clients = {nullptr, nullptr, 0, "dummy-client", nullptr};

// Drivers make several calls in a row for one device. Keys are unique and never change, so this is
// what a search would find. Under the registry mutex.
ui2c_client *found_last = &clients;

template <typename Record>
Record *new_record()
{
    auto *record = static_cast<Record *>(malloc(sizeof(Record)));
    if (record != nullptr)
        (void)qel_memset_s(record, sizeof(Record), 0, sizeof(Record));
    return record;
}

// Readers may hold a record while another one is linked behind it.
template <typename Record>
void append(Record &tail, Record *record)
{
    __atomic_store_n(&tail.next, record, __ATOMIC_RELEASE);
}

ui2c_switch *find_switch(ui2c_adapter *adapter, uint16_t addr)
{
    ui2c_switch *last = &switches;
    for (ui2c_switch *swi = &switches; swi != nullptr; swi = swi->next) {
        if (swi->adapter == adapter && swi->addr == addr)
            return swi;
        last = swi;
    }
    auto *swi = new_record<ui2c_switch>();
    if (swi == nullptr)
        return nullptr;
    swi->adapter = adapter;
    swi->addr = addr;
    append(*last, swi);
    return swi;
}

bool is_client(const ui2c_client &client, const ui2c_adapter *adapter, const ui2c_switch *swi,
               uint16_t addr)
{
    return client.adapter == adapter && client.swi == swi && client.addr == addr;
}

ui2c_client *find_client(ui2c_adapter *adapter, ui2c_switch *swi, uint16_t addr)
{
    if (is_client(*found_last, adapter, swi, addr))
        return found_last;
    ui2c_client *last = &clients;
    for (ui2c_client *client = &clients; client != nullptr; client = client->next) {
        if (is_client(*client, adapter, swi, addr)) {
            found_last = client;
            return client;
        }
        last = client;
    }
    auto *client = new_record<ui2c_client>();
    if (client == nullptr)
        return nullptr;
    client->adapter = adapter;
    client->swi = swi;
    client->addr = addr;
    append(*last, client);
    return client;
}

} // namespace

ui2c_adapter *ui2c_to_adapter(uint32_t bus)
{
    ui2c_adapter *last = &adapters;
    for (ui2c_adapter *adapter = &adapters; adapter != nullptr; adapter = adapter->next) {
        if (adapter->bus == bus)
            return adapter;
        last = adapter;
    }
    auto *adapter = new_record<ui2c_adapter>();
    if (adapter == nullptr)
        return nullptr;
    adapter->bus = bus;
    append(*last, adapter);
    return adapter;
}

ui2c_switch *ui2c_to_switch(ui2c_adapter *adapter, uint32_t swi_addr, uint32_t /*swi_chnl*/)
{
    const auto near_addr = static_cast<uint16_t>(swi_addr & 0xFFFF);
    const auto upstream_addr = static_cast<uint16_t>(swi_addr >> 16);
    if (near_addr == 0)
        return nullptr;
    ui2c_switch *near = find_switch(adapter, near_addr);
    if (near == nullptr)
        return nullptr;
    ui2c_switch *upstream = upstream_addr == 0 ? nullptr : find_switch(adapter, upstream_addr);
    __atomic_store_n(&near->upstream, upstream, __ATOMIC_RELAXED);
    return near;
}

bool find_device(const ei2c_client &eclient, DevicePath &path)
{
    if (!lock_registry()) {
        QEL_PRINT("pthread_mutex_lock failed.\n");
        return false;
    }
    ui2c_adapter *adapter = ui2c_to_adapter(eclient.bus);
    path.near = ui2c_to_switch(adapter, eclient.swi_addr, eclient.swi_chnl);
    path.upstream = path.near == nullptr ? nullptr : path.near->upstream;
    path.client = find_client(adapter, path.near, eclient.addr);
    unlock_registry();
    return path.client != nullptr;
}

ui2c_client *ui2c_to_client(uint32_t bus, uint16_t addr, uint32_t swi_addr, uint32_t swi_chnl)
{
    const ei2c_client eclient = {bus, addr, 0, swi_addr, swi_chnl, {}};
    DevicePath path;
    return find_device(eclient, path) ? path.client : nullptr;
}
