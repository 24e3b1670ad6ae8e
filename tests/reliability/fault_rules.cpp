#include "fault_rules.h"

#include <algorithm>

namespace faults
{

uintptr_t registry_mutex = 0;

namespace
{

struct Reaction {
    Site site;
    Outcome once;  // that call alone fails
    Outcome kind;  // it and all later ones of its kind
    Outcome later; // it and all later ones
};

// A try that fails is made again, what a path's closing and the bus's release say changes nothing,
// and who took a bus need not be recorded. A switch without a record is not there: the device is
// looked for without it, and does not answer.
const Reaction kLocked[] = {
    {Site::adapter_record, no_file, failed, failed},
    {Site::near_record, failed, failed, failed},
    {Site::upstream_record, failed, failed, failed},
    {Site::client_record, failed, failed, failed},
    {Site::bus_state, no_file, no_file, no_file},
    {Site::buffer, no_buffer, no_buffer, no_buffer},
    {Site::fork_handler, ok, ok, failed},
    {Site::registry, failed, failed, failed},
    {Site::device_file, no_file, no_file, no_file},
    {Site::semaphore, no_semaphore, no_semaphore, no_semaphore},
    {Site::take_semaphore, no_semaphore, no_semaphore, no_semaphore},
    {Site::memory_file, ok, ok, not_released},
    {Site::take_file_lock, no_file_lock, no_file_lock, not_released},
    {Site::open_path, ok, no_path, not_released},
    {Site::request, ok, failed, failed},
    {Site::close_near, ok, ok, ok},
    {Site::close_upstream, ok, ok, ok},
    {Site::release_file_lock, ok, ok, ok},
    {Site::release_semaphore, ok, ok, ok},
    {Site::eeprom_semaphore, no_eeprom, no_eeprom, no_eeprom},
    {Site::take_eeprom, ok, no_semaphore, failed},
    {Site::release_eeprom, ok, ok, ok},
    {Site::register_read, failed, failed, failed},
    {Site::response, failed, failed, failed},
};

struct Difference {
    Family family;
    Reaction reaction;
};

const Difference kDifferences[] = {
    {Family::once, {Site::open_path, failed, failed, failed}},
    {Family::once, {Site::request, failed, failed, failed}},

    // The device file is opened by the first request, which is tried again.
    {Family::unlocked, {Site::adapter_record, failed, failed, failed}},
    {Family::unlocked, {Site::bus_state, ok, failed, failed}},
    {Family::unlocked, {Site::device_file, ok, failed, failed}},
    {Family::unlocked, {Site::open_path, ok, failed, failed}},

    {Family::straight, {Site::adapter_record, failed, failed, failed}},
    {Family::straight, {Site::request, failed, failed, failed}},
    {Family::straight, {Site::open_path, failed, failed, failed}}, // a switch that is asked itself
    {Family::straight, {Site::close_near, failed, failed, failed}},
    {Family::straight, {Site::release_file_lock, failed, failed, failed}},
    {Family::straight, {Site::release_semaphore, failed, failed, failed}},
    {Family::straight, {Site::take_eeprom, ok, ok, ok}}, // its result is not looked at
    {Family::straight, {Site::release_eeprom, failed, failed, failed}},

    {Family::hold, {Site::near_record, pathless, failed, failed}},
    {Family::hold, {Site::upstream_record, pathless, failed, failed}},
    {Family::hold_path, {Site::near_record, pathless, failed, failed}},
    {Family::hold_path, {Site::upstream_record, no_path, failed, failed}},
    {Family::bridge, {Site::near_record, pathless, failed, failed}},
    {Family::bridge, {Site::upstream_record, ok, failed, failed}},

    {Family::let_go, {Site::release_file_lock, ok, ok, failed}},
    {Family::let_go, {Site::release_semaphore, failed, failed, failed}},
    {Family::let_go_path, {Site::close_near, ok, ok, failed}},
    {Family::let_go_path, {Site::close_upstream, ok, ok, failed}},
    {Family::let_go_path, {Site::release_file_lock, ok, ok, failed}},
    {Family::let_go_path, {Site::release_semaphore, failed, failed, failed}},

    // Held even without its path.
    {Family::bridge, {Site::open_path, ok, ok, ok}},

    {Family::open_path, {Site::adapter_record, failed, failed, failed}},
    {Family::open_path, {Site::near_record, pathless, failed, failed}},
    {Family::open_path, {Site::bus_state, failed, failed, failed}},
    {Family::open_path, {Site::device_file, failed, failed, failed}},
    {Family::open_path, {Site::open_path, failed, failed, failed}},
    // The result is that of the last close.
    {Family::close_path, {Site::close_near, ok, failed, failed}},
    {Family::close_path, {Site::close_upstream, failed, failed, failed}},

    {Family::lookup, {Site::adapter_record, ok, failed, failed}},
    {Family::lookup, {Site::near_record, ok, failed, failed}},
    {Family::lookup, {Site::upstream_record, ok, failed, failed}},

    // The response is read whatever became of the request.
    {Family::response, {Site::adapter_record, ok, failed, failed}},
    {Family::response, {Site::bus_state, ok, ok, failed}},
    {Family::response, {Site::device_file, ok, ok, failed}},
    {Family::response, {Site::request, ok, ok, failed}},
};

const Reaction &reaction(Family family, Site site)
{
    for (const Difference &difference : kDifferences) {
        if (difference.family == family && difference.reaction.site == site)
            return difference.reaction;
    }
    return *std::find_if(std::begin(kLocked), std::end(kLocked),
                         [site](const Reaction &r) { return r.site == site; });
}

constexpr uint32_t kEepromKey = 0x3001;

uint8_t near_address(const Row &row)
{
    return row.device == nullptr ? 0 : row.device->swi_addr & 0xFF;
}

uint8_t upstream_address(const Row &row)
{
    return row.device == nullptr ? 0 : row.device->swi_addr >> 16 & 0xFF;
}

Site record_site(const Row &row, const Trace &clean, size_t number)
{
    if (clean.call[number].detail == sizeof(ui2c_adapter))
        return Site::adapter_record;
    if (clean.call[number].detail == sizeof(ui2c_adapter_data))
        return Site::bus_state;
    // Near switch, upstream switch, device.
    size_t before = 0;
    for (size_t i = 0; i < number; ++i) {
        before += clean.call[i].kind == Kind::memory && clean.call[i].detail == sizeof(ui2c_switch);
    }
    const size_t switches =
        (near_address(row) != 0 ? 1U : 0U) + (upstream_address(row) != 0 ? 1U : 0U);
    return before == switches ? Site::client_record
           : before == 0      ? Site::near_record
                              : Site::upstream_record;
}

// A request to a switch belongs to the opening or closing that the next byte written there says.
Site request_site(const Row &row, const Trace &clean, size_t number)
{
    const uint8_t address = clean.call[number].address;
    const bool near = address == near_address(row) && address != 0;
    if (!near && (address != upstream_address(row) || address == 0))
        return Site::request;
    while (clean.call[number].kind != Kind::rdwr)
        ++number;
    if (clean.call[number].byte != 0)
        return Site::open_path;
    return near ? Site::close_near : Site::close_upstream;
}

Site site_of(const Row &row, const Trace &clean, size_t number)
{
    const Call &call = clean.call[number];
    const bool eeprom = call.detail == kEepromKey;
    switch (call.kind) {
    case Kind::memory:
        return call.detail == sizeof(ui2c_adapter) || call.detail == sizeof(ui2c_switch) ||
                       call.detail == sizeof(ui2c_adapter_data)
                   ? record_site(row, clean, number)
                   : Site::buffer;
    case Kind::fork_handler:
        return Site::fork_handler;
    case Kind::mutex:
        // The other mutex guards what is created next.
        return call.detail == registry_mutex ? Site::registry : site_of(row, clean, number + 1);
    case Kind::text:
    case Kind::device_file:
        return Site::device_file;
    case Kind::sem_create:
        return eeprom ? Site::eeprom_semaphore : Site::semaphore;
    case Kind::sem_lock:
        return eeprom ? Site::take_eeprom : Site::take_semaphore;
    case Kind::sem_unlock:
        return eeprom ? Site::release_eeprom : Site::release_semaphore;
    case Kind::memory_file:
    case Kind::map:
        return Site::memory_file;
    case Kind::file_lock:
        return Site::take_file_lock;
    case Kind::file_unlock:
        return Site::release_file_lock;
    case Kind::register_read:
        return Site::register_read;
    case Kind::response:
        return Site::response;
    default:
        return request_site(row, clean, number);
    }
}

bool is_request(Kind kind)
{
    return kind >= Kind::slave && kind <= Kind::wait;
}

bool is_release(Kind kind)
{
    return kind == Kind::sem_unlock || kind == Kind::file_unlock;
}

} // namespace

std::vector<Point> points_of(const Row &row, const Trace &clean)
{
    std::vector<Point> points;
    uint32_t lookups = 0;
    for (size_t i = 0; i < clean.calls; ++i) {
        const Site site = site_of(row, clean, i);
        // A lookup begins an access, and a buffer belongs to the access behind it.
        const bool begins = site == Site::registry;
        const bool ahead = site == Site::buffer || begins || site == Site::fork_handler;
        const Site next = i + 1 < clean.calls ? site_of(row, clean, i + 1) : site;
        points.push_back({site, next, clean.call[i].kind == Kind::mutex,
                          ahead || lookups == 0 ? lookups : lookups - 1, 0});
        lookups += begins ? 1 : 0;
    }
    for (Point &point : points)
        point.behind = point.access + 1 < lookups ? lookups - 1 - point.access : 0;
    return points;
}

Site site_met(const Point &point, Mode mode)
{
    return point.site == Site::fork_handler && mode == Mode::later ? point.next : point.site;
}

Outcome expected(const Row &row, const Point &point, Mode mode)
{
    const Site site = site_met(point, mode);
    const Reaction &react = reaction(row.family, site);
    Outcome outcome = mode == Mode::once   ? react.once
                      : mode == Mode::kind ? react.kind
                                           : react.later;
    // What cannot be had later either: the lookups of the accesses behind this one.
    const bool closes = site == Site::close_near || site == Site::close_upstream;
    const bool met_again = mode == Mode::later || (mode == Mode::kind && (closes || point.mutex));
    if ((row.flags & kRepeats) != 0) {
        const bool given = mode == Mode::later || (mode == Mode::kind && point.mutex);
        if (mode == Mode::once)
            return ok;
        return given && outcome != ok && site != Site::eeprom_semaphore ? failed : outcome;
    }
    if ((row.flags & kLastCounts) != 0 && mode == Mode::once && point.behind != 0)
        return ok;
    const bool pages = (row.flags & kPages) != 0;
    const bool silent = (row.flags & kLastSilent) != 0;
    if (outcome == ok && point.behind != 0 && met_again)
        return pages || (silent && point.behind == 1) ? short_count : failed;
    const bool partial = (pages && point.access > 0) || (silent && point.behind == 0);
    return partial && outcome != ok ? short_count : outcome;
}

int promised_error(const Row &row, const Trace &run)
{
    size_t start = 0; // of the last access
    for (size_t i = 0; i < run.calls; ++i) {
        if (run.call[i].kind == Kind::mutex && run.call[i].detail == registry_mutex)
            start = i;
    }
    const Call *giver = nullptr;
    bool requested = false; // of the device: no other failure gives the result then
    for (size_t i = start; i < run.calls; ++i) {
        const Call &call = run.call[i];
        const bool request =
            call.kind == Kind::response || (is_request(call.kind) && row.device != nullptr &&
                                            call.address == (row.device->addr & 0xFF));
        const bool passed_over = is_release(call.kind) || call.kind == Kind::memory_file ||
                                 call.kind == Kind::map || call.kind == Kind::fork_handler;
        if (call.failed && !passed_over && (request || !requested))
            giver = &call;
        requested = requested || request;
    }
    const bool holds = row.family == Family::let_go || row.family == Family::let_go_path ||
                       row.family == Family::bridge; // no transfers
    if (giver == nullptr || holds || giver->kind == Kind::mutex || giver->kind == Kind::memory ||
        giver->kind == Kind::text || (row.flags & kProbes) != 0)
        return -1;
    return giver->error;
}

bool may_stay_open(const Row &row, const Point &point, const Plan &plan, const Trace &run,
                   bool upstream)
{
    const bool closes = row.family == Family::close_path || row.family == Family::let_go_path ||
                        row.family == Family::bridge_end;
    bool near_failed = false;
    bool upstream_failed = false;
    for (size_t i = 0; i < run.calls; ++i) {
        if (closes && run.call[i].kind == Kind::mutex && run.call[i].failed)
            return true; // its switches are not known
        const bool counts = run.call[i].failed && is_request(run.call[i].kind);
        near_failed = near_failed || (counts && run.call[i].address == near_address(row));
        upstream_failed =
            upstream_failed || (counts && run.call[i].address == upstream_address(row));
    }
    const bool tries_again = row.family == Family::locked || row.family == Family::unlocked ||
                             row.family == Family::let_go_path || row.family == Family::bridge_end;
    if (plan.mode == Mode::once && tries_again) // forgiven when the upstream switch is closed
        return !upstream && point.site == Site::close_near && upstream_address(row) != 0 &&
               row.family != Family::let_go_path && row.family != Family::bridge_end;
    return upstream ? near_failed || upstream_failed : near_failed;
}

} // namespace faults
