// Every interleaving of a few threads around one lock and its condition
// variables (a sleeper wakes holding the lock, or, parked, without it). The
// threads are fibers, so one runs at a time and a switch costs no system call.
// Whenever a thread asks for the lock, sleeps or ends, the schedule names who
// runs next, and a waker's schedule names which sleeper wakes; code that
// shares state only under the lock can do nothing else.
// Explore tries the schedules depth first until every choice was taken; a run
// where threads remain but none can go on is a lost wake-up.
#pragma once

#include <functional>
#include <string>
#include <vector>

namespace kvtest {

class Interleaver {
public:
    // The Sync parameter of a template under test.
    struct Signal {
        std::vector<std::pair<int, bool>> sleepers;  // thread, wakes holding the lock
    };
    void Lock();
    void Unlock() { holder_ = -1; }
    void Sleep(Signal& signal);
    void Park(Signal& signal);
    void WakeOne(Signal& signal);
    void WakeAll(Signal& signal);

    // Per schedule, make() gives thread bodies over fresh state and check()
    // says what is wrong after the run (empty: nothing). Returns the number of
    // schedules tried and the first failure with its schedule.
    using Bodies = std::vector<std::function<void()>>;
    static std::pair<size_t, std::string> Explore(const std::function<Bodies(Interleaver&)>& make,
                                                  const std::function<std::string()>& check);

private:
    enum class State { Ready, WantLock, Sleeping, Done };
    explicit Interleaver(std::vector<int> prefix) : prefix_(std::move(prefix)) {}
    int Choose(int options);
    void Switch(int me);
    void Await(State state);
    void Wake(std::pair<int, bool> sleeper);
    static void __stdcall FiberMain(void* context);

    std::vector<int> prefix_;
    std::vector<std::pair<int, int>> trace_;  // choice taken, options
    std::vector<State> states_;
    std::vector<void*> fibers_;
    const Bodies* bodies_ = nullptr;
    void* main_ = nullptr;
    int current_ = -1, holder_ = -1;
    bool stuck_ = false;
};

}  // namespace kvtest
