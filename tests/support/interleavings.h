// Every interleaving of a few threads around a lock and its condition
// variables. The threads of a run are fibers, so only one runs at a time and
// a switch costs no system call: whenever a thread takes the lock (or sleeps, or ends) the thread the
// current schedule names runs next, and a waker picks which sleeper wakes.
// Code that shares state only under the lock behaves the same under every
// ordering of its lock holds, so these orderings are all there is to try. Explore runs one
// schedule after another, depth first, until every choice has been taken.
// A run in which threads remain but none can go on is a lost wake-up.
#pragma once

#include <functional>
#include <string>
#include <vector>

namespace kvtest {

class Interleaver {
public:
    // The lock and sleeps, as a template that takes a Sync parameter uses them.
    struct Signal {
        std::vector<int> sleepers;
    };
    void Lock();
    void Unlock();
    void Sleep(Signal& signal);
    void WakeOne(Signal& signal);
    void WakeAll(Signal& signal);

    // For each schedule: make() gives fresh thread bodies over fresh state,
    // they run, and check() tells what is wrong after the run (empty: fine).
    // Stops at the first stuck or wrong run, naming its schedule.
    struct Outcome {
        size_t schedules = 0;
        std::string failure;  // empty when every schedule ran through and checked out
    };
    using Bodies = std::vector<std::function<void()>>;
    static Outcome Explore(const std::function<Bodies(Interleaver&)>& make, const std::function<std::string()>& check);

private:
    enum class State { Ready, WantLock, Sleeping, Done };
    struct Choice {
        int taken, options;
    };
    explicit Interleaver(std::vector<int> prefix) : prefix_(std::move(prefix)) {}
    int Choose(int options);
    bool Run(const Bodies& bodies);
    void Switch(int me);
    static void __stdcall FiberMain(void* context);

    std::vector<int> prefix_;
    std::vector<Choice> trace_;
    std::vector<State> states_;
    std::vector<void*> fibers_;
    const Bodies* bodies_ = nullptr;
    void* main_ = nullptr;
    int current_ = -1;
    int holder_ = -1;
    bool stuck_ = false;
};

}  // namespace kvtest
