#include "interleavings.h"

#include <windows.h>

namespace kvtest {

int Interleaver::Choose(int options) {
    if (options <= 1) return 0;
    const int taken = trace_.size() < prefix_.size() ? prefix_[trace_.size()] : 0;
    trace_.push_back({taken, options});
    return taken;
}

// Runs the next thread of the schedule; returns when me (-1: the explorer)
// runs again. With nobody able to run, the explorer resumes.
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
        return SwitchToFiber(main_);
    }
    current_ = enabled[size_t(Choose(int(enabled.size())))];
    if (current_ != me) SwitchToFiber(fibers_[size_t(current_)]);
}

// The running thread waits in state until the schedule gives it the lock.
void Interleaver::Await(State state) {
    const int me = current_;
    states_[size_t(me)] = state;
    Switch(me);
    holder_ = me;
    states_[size_t(me)] = State::Ready;
}

void Interleaver::Lock() { Await(State::WantLock); }

void Interleaver::Sleep(Signal& signal) {
    signal.sleepers.push_back({current_, true});
    holder_ = -1;
    Await(State::Sleeping);  // a waker makes it want the lock again
}

void Interleaver::Park(Signal& signal) {
    const int me = current_;
    signal.sleepers.push_back({me, false});
    holder_ = -1;
    states_[size_t(me)] = State::Sleeping;
    Switch(me);  // a waker makes it ready, lock or not
}

void Interleaver::Wake(std::pair<int, bool> sleeper) {
    states_[size_t(sleeper.first)] = sleeper.second ? State::WantLock : State::Ready;
}

void Interleaver::WakeOne(Signal& signal) {
    if (signal.sleepers.empty()) return;
    const auto which = signal.sleepers.begin() + Choose(int(signal.sleepers.size()));
    Wake(*which);
    signal.sleepers.erase(which);
}

void Interleaver::WakeAll(Signal& signal) {
    for (const auto& sleeper : signal.sleepers) Wake(sleeper);
    signal.sleepers.clear();
}

void __stdcall Interleaver::FiberMain(void* context) {
    Interleaver& self = *static_cast<Interleaver*>(context);
    const int me = self.current_;
    (*self.bodies_)[size_t(me)]();
    self.states_[size_t(me)] = State::Done;
    for (;;) self.Switch(me);  // never resumed
}

std::pair<size_t, std::string> Interleaver::Explore(const std::function<Bodies(Interleaver&)>& make,
                                                    const std::function<std::string()>& check) {
    const bool converted = ConvertThreadToFiber(nullptr) != nullptr;
    std::pair<size_t, std::string> outcome;
    for (std::vector<int> prefix;; ++outcome.first) {
        Interleaver run(prefix);
        const Bodies bodies = make(run);
        run.bodies_ = &bodies;
        run.states_.assign(bodies.size(), State::Ready);
        for (size_t t = 0; t < bodies.size(); ++t) run.fibers_.push_back(CreateFiber(256 * 1024, FiberMain, &run));
        run.main_ = GetCurrentFiber();
        run.Switch(-1);
        for (void* fiber : run.fibers_) DeleteFiber(fiber);
        outcome.second = run.stuck_ ? "threads left asleep with nobody to wake them" : check();
        auto& trace = run.trace_;
        if (!outcome.second.empty()) {
            outcome.second += "; schedule:";
            for (const auto& choice : trace) outcome.second += " " + std::to_string(choice.first);
            break;
        }
        while (!trace.empty() && trace.back().first + 1 >= trace.back().second) trace.pop_back();
        if (trace.empty()) break;
        trace.back().first++;
        prefix.clear();
        for (const auto& choice : trace) prefix.push_back(choice.first);
    }
    if (converted) ConvertFiberToThread();
    return {outcome.first + 1, outcome.second};
}

}  // namespace kvtest
