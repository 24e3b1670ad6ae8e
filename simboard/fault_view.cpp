// Fault plans on boards.
#include "simboard/fault_view.h"

#include <algorithm>
#include <stdexcept>

#include "simboard/bus_guard.h"
#include "simboard/fault.h"
#include "simboard/fault_words.h"

namespace simboard
{

namespace
{

// Two that change the plan come one after the other, so that numbers stay unique.
class PlanGuard
{
public:
    explicit PlanGuard(State &state) : state_(state) { lock_shared(state.process_mutex); }
    ~PlanGuard() { pthread_mutex_unlock(&state_.process_mutex); }
    PlanGuard(const PlanGuard &) = delete;
    PlanGuard &operator=(const PlanGuard &) = delete;

private:
    State &state_;
};

void check_room(const State &state, const std::vector<PlannedFault> &faults)
{
    for (const Bus &bus : state.buses) {
        const auto added =
            std::count_if(faults.begin(), faults.end(),
                          [&bus](const PlannedFault &fault) { return fault.bus == bus.number; });
        if (state.faults[bus.number].count + static_cast<uint64_t>(added) > kFaultSteps) {
            throw std::runtime_error("bus " + std::to_string(bus.number) + " has room for " +
                                     std::to_string(kFaultSteps) + " fault steps only");
        }
    }
}

// A chip that is gone from the first transfer on is gone at once, with what it had switched open.
void start_step(State &state, Bus &bus, const FaultStep &step)
{
    if (step.kind == FaultKind::unplugged && step.after == 0 && step.threshold > UINT32_MAX) {
        plug_chip(state, bus, state.chips[step.chip], false);
    }
}

void add_fault(State &state, const PlannedFault &fault, uint16_t number)
{
    Bus &bus = state.buses[fault.bus];
    FaultPlan &plan = state.faults[fault.bus];
    const BusGuard guard(state, bus);
    FaultStep &step = plan.steps[plan.count];
    preserve(state, bus, &plan, kLineSize);
    preserve(state, bus, &step, sizeof(step));
    step = fault.step;
    step.number = number;
    plan.count++;
    plan.classes.fetch_or(class_of(step.kind), std::memory_order_relaxed);
    start_step(state, bus, step);
}

void plug_all(State &state, Bus &bus)
{
    for (uint32_t i = 0; i < bus.chip_count; i++) {
        plug_chip(state, bus, state.chips[bus.first_chip + i], true);
    }
}

} // namespace

void add_faults(const BoardView &view, const std::vector<PlannedFault> &faults)
{
    State &state = *view.state;
    const PlanGuard guard(state);
    check_room(state, faults);
    uint16_t number = 0;
    for (const FaultRecord &record : read_faults(view)) {
        number = std::max(number, record.step.number);
    }
    for (const PlannedFault &fault : faults) {
        add_fault(state, fault, ++number);
    }
}

void clear_faults(const BoardView &view)
{
    State &state = *view.state;
    const PlanGuard guard(state);
    for (Bus &bus : state.buses) {
        FaultPlan &plan = state.faults[bus.number];
        const BusGuard held(state, bus);
        preserve(state, bus, &plan, kLineSize);
        plan.count = 0;
        plan.classes.store(0, std::memory_order_relaxed);
        plug_all(state, bus);
    }
}

void rearm_faults(const BoardView &view)
{
    State &state = *view.state;
    for (Bus &bus : state.buses) {
        FaultPlan &plan = state.faults[bus.number];
        const BusGuard held(state, bus);
        plug_all(state, bus);
        for (uint32_t i = 0; i < plan.count; i++) {
            FaultStep &step = plan.steps[i];
            preserve(state, bus, &step, sizeof(step));
            step.matched = 0;
            step.fired = 0;
            start_step(state, bus, step);
        }
    }
}

std::vector<FaultRecord> read_faults(const BoardView &view)
{
    State &state = *view.state;
    std::vector<FaultRecord> records;
    for (Bus &bus : state.buses) {
        const FaultPlan &plan = state.faults[bus.number];
        const BusGuard held(state, bus);
        for (uint32_t i = 0; i < plan.count; i++) {
            const FaultStep &step = plan.steps[i];
            records.push_back(
                {step, bus.number, describe_target(state, bus.number, step), describe_step(step)});
        }
    }
    std::sort(records.begin(), records.end(), [](const FaultRecord &a, const FaultRecord &b) {
        return a.step.number < b.step.number;
    });
    return records;
}

std::string describe_unfired(const std::vector<FaultRecord> &faults, const std::string &prefix)
{
    std::string text;
    for (const FaultRecord &fault : faults) {
        if (fault.step.fired == 0) {
            const std::string label = fault.step.label;
            text += prefix + "fault step " + std::to_string(fault.step.number) +
                    (label.empty() ? "" : " \"" + label + "\"") + " (" + name_of(fault.step.kind) +
                    ", " + fault.target + ") never struck" +
                    (fault.step.matched == 0 ? " and matched nothing" : "") + "\n";
        }
    }
    return text;
}

} // namespace simboard
