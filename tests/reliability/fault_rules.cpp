#include "fault_rules.h"

#include "qeli2c.h"

namespace faults
{

uintptr_t registry_mutex = 0;

namespace
{

constexpr uint32_t kEepromKey = 0x3001;

bool is_request(Kind kind)
{
    return kind >= Kind::slave && kind <= Kind::wait;
}

bool is_of_device(const Step &call)
{
    return call.kind == Kind::response || (is_request(call.kind) && call.address != kNearSwitch &&
                                           call.address != kUpstreamSwitch);
}

bool is_lookup(const Step &call)
{
    return call.kind == Kind::mutex && call.detail == registry_mutex;
}

// Without a switch's record its device is looked for without it, and does not answer.
bool is_record(const Step &call)
{
    return call.kind == Kind::memory &&
           (call.detail == sizeof(ui2c_adapter) || call.detail == sizeof(ui2c_switch));
}

// Releases, and who has taken a bus, matter to nobody, and an EEPROM is used untaken.
bool is_passed_over(const Step &call)
{
    return call.kind == Kind::sem_unlock || call.kind == Kind::file_unlock ||
           call.kind == Kind::memory_file || call.kind == Kind::map ||
           call.kind == Kind::fork_handler ||
           (call.kind == Kind::sem_lock && call.detail == kEepromKey);
}

// What a later transfer makes good.
bool is_forgiven(const Step &call)
{
    return is_request(call.kind) || call.kind == Kind::device_file || call.kind == Kind::text ||
           (call.kind == Kind::memory && call.detail == sizeof(ui2c_adapter_data));
}

} // namespace

std::string name_of(const Row &row)
{
    const std::string call = row.call;
    return call.substr(0, call.find(' '));
}

bool succeeded(const Row &row, const std::string &result)
{
    return row.result == std::string("any") ? result[0] != '-' : result == row.result;
}

// Of the last access decides what fails before it comes to the device, and its last transfer.
Verdict judge(const Row &row, const Plan &plan, const Trace &run, const Trace &clean)
{
    bool depends = (row.flags & kDepends) != 0;
    bool reached = false; // the device
    Step failure = {};    // the one that decides, if `failed` says so
    for (uint32_t i = 0; i < run.calls; ++i) {
        Step call = run.call[i];
        if (is_lookup(call))
            reached = failure.failed = false;
        else if (call.failed && call.kind == Kind::mutex && static_cast<int>(i) != plan.target)
            depends = true;
        else if (call.failed && call.kind == Kind::mutex) // what it guards is not done
            call = {clean.call[i + 1].kind, true, 0, clean.call[i + 1].detail, 0};
        depends = depends || (call.failed && is_record(call));
        const bool transfers = is_of_device(call);
        if (call.failed && !is_passed_over(call) && (transfers || !reached))
            failure = call;
        else if (!call.failed && transfers && is_forgiven(failure))
            failure.failed = false;
        reached = reached || transfers;
    }
    const bool made_good = plan.mode == Mode::once &&
                           ((row.flags & kRepeats) != 0 ||
                            ((row.flags & kTries) != 0 && is_request(run.call[plan.target].kind)));
    const bool tells = failure.kind != Kind::memory && failure.kind != Kind::text;
    return {!failure.failed || depends || made_good, (failure.failed || depends) && !made_good,
            tells && failure.failed && (row.flags & kOtherErrno) == 0 ? failure.error : 0};
}

bool may_stay_open(const Row &row, const Plan &plan, const Trace &run, uint8_t address)
{
    const bool closes = (row.flags & kCloses) != 0;
    bool failed = false; // the writing of it, or of the one behind it
    for (uint32_t i = 0; i < run.calls; ++i) {
        const Step &call = run.call[i];
        if (closes && call.failed && call.kind == Kind::mutex)
            return true; // its switches are not known
        failed = failed || (call.failed && is_request(call.kind) &&
                            (call.address == address || call.address == kNearSwitch));
    }
    if (plan.mode == Mode::once && (row.flags & kTries) != 0)
        return failed && !closes && address == kNearSwitch; // the upstream one is closed
    return failed;
}

} // namespace faults
