#include "handler/handler_client.h"

#include <windows.h>
#include <psapi.h>

#include <algorithm>
#include <memory>
#include <vector>

#include "KvCrashHandler.h"
#include "KvLogging.h"
#include "crash/pipe_account.h"
#include "handler/client_activity.h"
#include "handler/client_checks.h"
#include "handler/crash_events.h"
#include "handler/handler_log.h"
#include "platform/error_text.h"

namespace kvdiag {
namespace {

// A watch event that stays set (the client's to set) wakes its thread at most this often.
constexpr DWORD kWatchEventMs = 100;

volatile LONG clients = 0;
volatile LONGLONG lastEnded = static_cast<LONGLONG>(GetTickCount64());

unsigned long Id(DWORD id) { return static_cast<unsigned long>(id); }

unsigned long WorkingSetMb() {
    PROCESS_MEMORY_COUNTERS counters{};
    counters.cb = sizeof counters;
    return K32GetProcessMemoryInfo(GetCurrentProcess(), &counters, sizeof counters)
               ? static_cast<unsigned long>(counters.PeakWorkingSetSize >> 20)
               : 0;
}

bool ReadBlock(const RegisteredClient& c, size_t offset, void* data, size_t size) {
    return ReadProcessMemory(c.process.get(), reinterpret_cast<const void*>(c.block + offset), data, size, nullptr);
}

// The version of the client's component name; -1 when it cannot be read.
LONG ReadNameVersion(const RegisteredClient& c) {
    LONG version = -1;
    ReadBlock(c, offsetof(kv::CrashBlock, nameVersion), &version, sizeof version);
    return version;
}

// Writes the outcome into the crash block and lets the client go on.
void Answer(const RegisteredClient& c, LONG result, LONG hang) {
    // result and hang, adjacent in the block
    static_assert(offsetof(kv::CrashBlock, hang) == offsetof(kv::CrashBlock, result) + sizeof(LONG), "layout");
    const LONG outcome[2] = {result, hang};
    WriteProcessMemory(c.process.get(), reinterpret_cast<void*>(c.block + offsetof(kv::CrashBlock, result)), outcome,
                       sizeof outcome, nullptr);
    SetEvent(c.done.get());
}

// The client's one crash request. The client waits on `done` (or this
// process's end) meanwhile; nothing here waits on the client.
void TakeCrash(const RegisteredClient& c) {
    kv::CrashBlock block{};
    const LONG versionBefore = ReadNameVersion(c);
    if (!ReadBlock(c, 0, &block, sizeof block) || block.crashingThread == 0 || block.exceptionPointers == 0) {
        HandlerSay("process %lu signalled a crash its crash block does not show: no dump, no further requests served",
                   Id(c.processId));
        return;
    }
    SetEvent(c.started.get());
    std::string folder;
    if (const Failure refusal = ClientLogFolder(c.iniPath, folder)) {
        HandlerSay("process %lu: thread %lu crashed; no dump from here: %s", Id(c.processId),
                   static_cast<unsigned long>(block.crashingThread), refusal.text().c_str());
        Answer(c, kv::kCrashRefusedByHandler, 0);
        return;
    }
    HandlerSay("process %lu: thread %lu crashed, writing its dump", Id(c.processId),
               static_cast<unsigned long>(block.crashingThread));
    block.nameVersion = versionBefore;  // the copy's name counts only if no change began or ended around it
    std::string name = kv::ComponentNameOf(block, ReadNameVersion(c), c.componentName.c_str());
    if (!FileNameGenerator::IsComponentName(name)) {
        HandlerSay("process %lu: component name \"%.100s\" in its crash block refused; the dump takes the registered "
                   "name \"%s\"",
                   Id(c.processId), name.c_str(), c.componentName.c_str());
        name = c.componentName;
    }
    KvProcessDump dump{};
    dump.process = c.process.get();
    dump.threadId = static_cast<DWORD>(block.crashingThread);
    dump.exceptionPointers = block.exceptionPointers;
    dump.iniPath = c.iniPath.c_str();
    dump.componentName = name.c_str();
    dump.mode = -1;
    dump.waitingThread = c.block + offsetof(kv::CrashBlock, waitingThread);
    const ULONGLONG begin = GetTickCount64();
    const HRESULT result = DbgHlpWriteProcessDump(&dump);
    Answer(c, static_cast<LONG>(result), dump.hang);
    HandlerSay("process %lu: dump \"%s\" %s in %.1f s (HRESULT 0x%08lx); handler peak working set %lu MB",
               Id(c.processId), dump.dumpPath, result == S_OK ? "written" : result == S_FALSE ? "skipped" : "failed",
               double(GetTickCount64() - begin) / 1000.0, static_cast<unsigned long>(result), WorkingSetMb());
    RecordDumpEvent("CRASH", c.process.get(), c.processId, c.iniPath,
                    dump.componentName ? dump.componentName : c.componentName.c_str(), dump.dumpPath, result);
}

// Waits for the client's end, taking its crash request once (a request
// event that stays set, or is set again after the dump, gets nothing more)
// and running its activities when they are due, and all of them at once
// when the client says its hang watch changed.
DWORD WINAPI Serve(void* parameter) {
    std::unique_ptr<RegisteredClient> c(static_cast<RegisteredClient*>(parameter));
    const auto activities = MakeClientActivities(*c);
    std::vector<ULONGLONG> due(activities.size(), 0);
    bool requestTaken = false;
    ULONGLONG watchWoke = 0;
    for (;;) {
        DWORD wait = INFINITE;
        for (size_t i = 0; i < activities.size(); ++i) {
            if (due[i] <= GetTickCount64()) {
                const DWORD next = activities[i]->Run(*c);
                due[i] = next == INFINITE ? ~0ull : GetTickCount64() + next;
            }
            const ULONGLONG now = GetTickCount64();
            if (due[i] != ~0ull) wait = static_cast<DWORD>(std::min<ULONGLONG>(wait, due[i] > now ? due[i] - now : 0));
        }
        // The end comes first: an ended client's set request is not taken.
        HANDLE waits[3] = {c->process.get()};
        DWORD count = 1, requestAt = 3, watchAt = 3;  // 3: not waited for
        if (!requestTaken) waits[requestAt = count++] = c->request.get();
        if (GetTickCount64() - watchWoke >= kWatchEventMs) waits[watchAt = count++] = c->watchChanged.get();
        else wait = std::min(wait, kWatchEventMs);
        const DWORD woken = WaitForMultipleObjects(count, waits, FALSE, wait);
        if (woken == WAIT_OBJECT_0 + requestAt) {
            requestTaken = true;
            TakeCrash(*c);
        } else if (woken == WAIT_OBJECT_0 + watchAt) {
            watchWoke = GetTickCount64();
            std::fill(due.begin(), due.end(), 0);
        } else if (woken != WAIT_TIMEOUT) {
            break;
        }
    }
    DWORD exitCode = 0;
    GetExitCodeProcess(c->process.get(), &exitCode);
    HandlerSay("process %lu ended (exit code 0x%08lx)", Id(c->processId), static_cast<unsigned long>(exitCode));
    InterlockedExchange64(&lastEnded, static_cast<LONGLONG>(GetTickCount64()));
    InterlockedDecrement(&clients);
    return 0;
}

// A fixed-size text from the wire, cut at its end whatever it holds.
std::string Bounded(const char (&text)[MAX_PATH]) { return std::string(text, strnlen(text, sizeof text)); }

ULONGLONG Ticks(const FILETIME& time) { return (ULONGLONG(time.dwHighDateTime) << 32) | time.dwLowDateTime; }

// Everything but the process's own identity, which the caller checked.
Failure CheckRegistration(const kv::CrashRegistration& r, const FILETIME& connected, RegisteredClient& c) {
    c.componentName = Bounded(r.componentName);
    c.iniPath = Bounded(r.iniPath);
    if (!FileNameGenerator::IsComponentName(c.componentName))
        return Failure("the component name \"" + c.componentName.substr(0, 100) + "\" is not a plain name");
    std::string folder;
    if (Failure refusal = ClientLogFolder(c.iniPath, folder)) return refusal;
    if (!c.process) return Failure("the process cannot be opened");
    if (!kv::OfOwnAccountSessionAndLevel(c.process.get()))
        return Failure("the process runs under another account, session or integrity level");
    FILETIME created{}, unused[3];
    if (!GetProcessTimes(c.process.get(), &created, &unused[0], &unused[1], &unused[2]) ||
        Ticks(created) > Ticks(connected))  // its id was taken again by a process started after the connection
        return Failure("the process was started after the connection was made");
    if (!(c.request && c.started && c.done && c.watchChanged))
        return Failure("its handles are not four events of its own");
    if (!IsClientData(c.process.get(), r.block, sizeof(kv::CrashBlock)))
        return Failure("its crash block is not writable data of its own");
    return {};
}

}  // namespace

Failure ServeClient(const kv::CrashRegistration& r, const FILETIME& connected) {
    auto c = std::make_unique<RegisteredClient>();
    c->processId = r.processId;
    *c->process.put() = OpenProcess(kClientAccess, FALSE, r.processId);
    if (c->process) {
        *c->request.put() = DuplicateClientEvent(c->process.get(), r.requestEvent);
        *c->started.put() = DuplicateClientEvent(c->process.get(), r.startedEvent);
        *c->done.put() = DuplicateClientEvent(c->process.get(), r.doneEvent);
        *c->watchChanged.put() = DuplicateClientEvent(c->process.get(), r.watchEvent);
    }
    if (Failure refusal = CheckRegistration(r, connected, *c)) return refusal;
    c->block = r.block;
    HandlerSay("process %lu registered (component \"%s\", %s)", Id(r.processId), c->componentName.c_str(),
               c->iniPath.c_str());
    InterlockedIncrement(&clients);
    const kv::platform::KernelHandle thread(CreateThread(nullptr, 0, Serve, c.get(), 0, nullptr));
    if (!thread) {
        InterlockedDecrement(&clients);
        return Failure::FromLastError("the handler cannot start a thread for it");
    }
    c.release();
    return {};
}

long ClientCount() { return InterlockedCompareExchange(&clients, 0, 0); }

ULONGLONG LastClientEnded() { return static_cast<ULONGLONG>(InterlockedCompareExchange64(&lastEnded, 0, 0)); }

}  // namespace kvdiag
