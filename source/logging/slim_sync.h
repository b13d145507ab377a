// The line queue's lock and sleeps on Windows (the Sync of line_queue.h):
// a slim lock, and ntdll's address waits where the system has them.
#pragma once

#include <windows.h>

namespace kv {

// ntdll's address waits (under WaitOnAddress), looked up at run time:
// Windows 7 has none, and the DLL must still load there.
struct AddressWaits {
    using Wait = LONG(NTAPI*)(const volatile void* address, const void* compare, SIZE_T size,
                              const LARGE_INTEGER* timeout);
    using WakeAll = void(NTAPI*)(const void* address);
    Wait wait = nullptr;
    WakeAll wakeAll = nullptr;
    // Those of this system; none (a condition variable stands in) on Windows 7.
    static AddressWaits Found();
};
inline AddressWaits AddressWaits::Found() {
    AddressWaits found;
    if (const HMODULE ntdll = GetModuleHandleA("ntdll.dll")) {
        found.wait = reinterpret_cast<AddressWaits::Wait>(
            reinterpret_cast<void*>(GetProcAddress(ntdll, "RtlWaitOnAddress")));
        found.wakeAll = reinterpret_cast<AddressWaits::WakeAll>(
            reinterpret_cast<void*>(GetProcAddress(ntdll, "RtlWakeAddressAll")));
    }
    return found.wait && found.wakeAll ? found : AddressWaits{};
}

// A slim lock and address waits: cheap, but a thread killed while it holds
// the lock or the writer's role leaves them taken for good, which is why
// nothing waits on them once the process is ending. Each sleeper waits on a
// word of its own, listed in its signal with the lock held, so a wake names
// exactly the sleepers it takes off the list: none is missed, none woken for
// another. The wakes themselves are made once the waker has left the lock,
// since a woken thread's first step is to take it, and cost a system call only
// for a sleeper that really sleeps. Without address waits (Windows 7) a
// condition variable stands in, and a parked thread takes the lock back only
// to leave it.
struct SlimSync {
    explicit SlimSync(const AddressWaits& waits) : addressWaits(waits), yieldTicks(TicksIn(kYieldMicroseconds)) {}
    SlimSync(const SlimSync&) = delete;
    SlimSync& operator=(const SlimSync&) = delete;

    // How long a waiting thread yields before it sleeps: a few batches'
    // writes (one WriteFile is 3-6 us under Wine on a quiet machine).
    static constexpr int kYieldMicroseconds = 20;
    enum : LONG { kWaiting, kAsleep, kWoken };
    struct Sleeper {
        volatile LONG state = kWaiting;
        Sleeper* next = nullptr;
    };
    struct Signal {
        Sleeper* first = nullptr;
        Sleeper* last = nullptr;
        CONDITION_VARIABLE cv = CONDITION_VARIABLE_INIT;
    };
    const AddressWaits addressWaits;
    const LONGLONG yieldTicks;  // kYieldMicroseconds in performance-counter ticks
    SRWLOCK lock = SRWLOCK_INIT;
    Sleeper* due = nullptr;  // taken off their signals, to be woken when the lock is left

    static LONGLONG TicksIn(int microseconds) {
        LARGE_INTEGER frequency;
        QueryPerformanceFrequency(&frequency);
        return frequency.QuadPart * microseconds / 1000000;
    }

    void Lock() { AcquireSRWLockExclusive(&lock); }
    void Unlock() {
        Sleeper* wake = due;
        due = nullptr;
        ReleaseSRWLockExclusive(&lock);
        while (wake) {
            // Read before the sleeper may leave: its record lives on its stack.
            Sleeper* const next = wake->next;
            if (InterlockedExchange(&wake->state, kWoken) == kAsleep)
                addressWaits.wakeAll(const_cast<LONG*>(&wake->state));
            wake = next;
        }
    }
    void Park(Signal& s) {
        if (!addressWaits.wait) {
            SleepConditionVariableSRW(&s.cv, &lock, INFINITE, 0);
            return Unlock();
        }
        Sleeper me;
        (s.last ? s.last->next : s.first) = &me;
        s.last = &me;
        Unlock();
        // A batch is written in microseconds: for a few writes' time the
        // processor goes to threads ready to run (with more threads than
        // processors, those that add their lines to the next batch; with
        // none ready the yield returns at once and the thread sees its line
        // written as soon as it is), and only a line still unwritten after
        // that costs a sleep and a wake. Counting yields instead of timing
        // them slept most waiters of two threads on two cores, where a yield
        // finds no one to run. (Spinning without yields cost a fifth of the
        // lines with 2 and 8 threads on a machine busy with other work.)
        LARGE_INTEGER start, now;
        QueryPerformanceCounter(&start);
        do {
            SwitchToThread();
            QueryPerformanceCounter(&now);
        } while (me.state == kWaiting && now.QuadPart - start.QuadPart < yieldTicks);
        const LONG asleep = kAsleep;
        if (InterlockedCompareExchange(&me.state, kAsleep, kWaiting) == kWaiting)
            while (me.state == kAsleep) addressWaits.wait(&me.state, &asleep, sizeof asleep, nullptr);
    }
    void Sleep(Signal& s) {
        Park(s);
        Lock();
    }
    void WakeOne(Signal& s) {
        if (!addressWaits.wait) return WakeAllConditionVariable(&s.cv);
        Sleeper* const taken = s.first;
        if (!taken) return;
        s.first = taken->next;
        if (!s.first) s.last = nullptr;
        taken->next = due;
        due = taken;
    }
    void WakeAll(Signal& s) {
        if (!addressWaits.wait) return WakeAllConditionVariable(&s.cv);
        if (!s.first) return;
        s.last->next = due;
        due = s.first;
        s.first = s.last = nullptr;
    }
};

}  // namespace kv
