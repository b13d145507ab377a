#include "interleavings.h"

#include <windows.h>

namespace kvtest {

int Interleaver::Choose(int options) {
    if (options <= 1) return 0;
    const size_t at = trace_.size();
    const int taken = at < prefix_.size() ? prefix_[at] : 0;
    trace_.push_back({taken, options});
    return taken;
}

// Called by the running thread me (-1: the starting fiber) once its state
// says what it waits for; returns when the schedule lets it run again.
void Interleaver::Switch(int me) {
    std::vector<int> enabled;
    bool allDone = true;
    for (int t = 0; t < int(states_.size()); ++t) {
        allDone = allDone && states_[size_t(t)] == State::Done;
        if (states_[size_t(t)] == State::Ready || (states_[size_t(t)] == State::WantLock && holder_ < 0))
            enabled.push_back(t);
    }
    if (enabled.empty()) {
        stuck_ = !allDone;
        SwitchToFiber(main_);  // a stuck fiber is never resumed
        return;
    }
    const int next = enabled[size_t(Choose(int(enabled.size())))];
    current_ = next;
    if (next != me) SwitchToFiber(fibers_[size_t(next)]);
}

void Interleaver::Lock() {
    const int me = current_;
    states_[size_t(me)] = State::WantLock;
    Switch(me);
    holder_ = me;
    states_[size_t(me)] = State::Ready;
}

void Interleaver::Unlock() { holder_ = -1; }

void Interleaver::Sleep(Signal& signal) {
    const int me = current_;
    signal.sleepers.push_back(me);
    holder_ = -1;
    states_[size_t(me)] = State::Sleeping;
    Switch(me);
    holder_ = me;
    states_[size_t(me)] = State::Ready;
}

void Interleaver::WakeOne(Signal& signal) {
    if (signal.sleepers.empty()) return;
    const size_t which = size_t(Choose(int(signal.sleepers.size())));
    states_[size_t(signal.sleepers[which])] = State::WantLock;
    signal.sleepers.erase(signal.sleepers.begin() + long(which));
}

void Interleaver::WakeAll(Signal& signal) {
    for (int t : signal.sleepers) states_[size_t(t)] = State::WantLock;
    signal.sleepers.clear();
}

void __stdcall Interleaver::FiberMain(void* context) {
    Interleaver& self = *static_cast<Interleaver*>(context);
    const int me = self.current_;
    (*self.bodies_)[size_t(me)]();
    self.states_[size_t(me)] = State::Done;
    for (;;) self.Switch(me);  // never resumed once done
}

bool Interleaver::Run(const Bodies& bodies) {
    bodies_ = &bodies;
    states_.assign(bodies.size(), State::Ready);
    for (size_t t = 0; t < bodies.size(); ++t) fibers_.push_back(CreateFiber(256 * 1024, FiberMain, this));
    main_ = GetCurrentFiber();
    Switch(-1);
    for (void* fiber : fibers_) DeleteFiber(fiber);
    return !stuck_;
}

Interleaver::Outcome Interleaver::Explore(const std::function<Bodies(Interleaver&)>& make,
                                          const std::function<std::string()>& check) {
    Outcome outcome;
    const bool converted = ConvertThreadToFiber(nullptr) != nullptr;
    struct Unconvert {
        bool converted;
        ~Unconvert() {
            if (converted) ConvertFiberToThread();
        }
    } unconvert{converted};
    std::vector<int> prefix;
    for (;;) {
        Interleaver run(prefix);
        const Bodies bodies = make(run);
        const bool ended = run.Run(bodies);
        outcome.schedules++;
        const std::string wrong = ended ? check() : "threads left asleep with nobody to wake them";
        if (!wrong.empty()) {
            outcome.failure = wrong + "; schedule:";
            for (const Choice& c : run.trace_) outcome.failure += " " + std::to_string(c.taken) + "/" + std::to_string(c.options);
            return outcome;
        }
        auto& trace = run.trace_;
        while (!trace.empty() && trace.back().taken + 1 >= trace.back().options) trace.pop_back();
        if (trace.empty()) return outcome;
        trace.back().taken++;
        prefix.clear();
        for (const Choice& c : trace) prefix.push_back(c.taken);
    }
}

}  // namespace kvtest
