#include "handler/handler_client.h"

#include <windows.h>
#include <psapi.h>

#include <memory>
#include <string>

#include "KvCrashHandler.h"
#include "handler/crash_events.h"
#include "handler/handler_log.h"
#include "selfcheck/scoped_handle.h"

namespace kvdiag {
namespace {

using kv::selfcheck::ScopedHandle;

volatile LONG clients = 0;
volatile LONGLONG lastEnded = static_cast<LONGLONG>(GetTickCount64());

struct Client {
    DWORD processId = 0;
    ScopedHandle process, request, started, done;
    uint64_t block = 0;
    std::string iniPath, componentName;
};

HANDLE DuplicateFrom(HANDLE process, uint64_t value) {
    HANDLE own = nullptr;
    if (!DuplicateHandle(process, reinterpret_cast<HANDLE>(value), GetCurrentProcess(), &own, 0, FALSE,
                         DUPLICATE_SAME_ACCESS))
        return nullptr;
    return own;
}

unsigned long WorkingSetMb() {
    PROCESS_MEMORY_COUNTERS counters{};
    counters.cb = sizeof counters;
    return K32GetProcessMemoryInfo(GetCurrentProcess(), &counters, sizeof counters)
               ? static_cast<unsigned long>(counters.PeakWorkingSetSize >> 20)
               : 0;
}

// The version of the client's component name; -1 when it cannot be read.
LONG ReadNameVersion(const Client& c) {
    LONG version = -1;
    ReadProcessMemory(c.process.get(), reinterpret_cast<const void*>(c.block + offsetof(kv::CrashBlock, nameVersion)),
                      &version, sizeof version, nullptr);
    return version;
}

// The client waits on `done` (or this process's end) meanwhile; nothing here
// waits on the client.
void WriteCrashDump(Client& c) {
    SetEvent(c.started.get());
    kv::CrashBlock block{};
    HRESULT result = E_FAIL;
    KvProcessDump dump{};
    const ULONGLONG begin = GetTickCount64();
    const LONG versionBefore = ReadNameVersion(c);
    if (ReadProcessMemory(c.process.get(), reinterpret_cast<const void*>(c.block), &block, sizeof block, nullptr)) {
        HandlerSay("process %lu: thread %lu crashed, writing its dump", static_cast<unsigned long>(c.processId),
                   static_cast<unsigned long>(block.crashingThread));
        dump.process = c.process.get();
        dump.threadId = static_cast<DWORD>(block.crashingThread);
        dump.exceptionPointers = block.exceptionPointers;
        dump.iniPath = c.iniPath.c_str();
        block.nameVersion = versionBefore;  // the copy's name counts only if no change began or ended around it
        dump.componentName = kv::ComponentNameOf(block, ReadNameVersion(c), c.componentName.c_str());
        dump.mode = -1;
        dump.waitingThread = c.block + offsetof(kv::CrashBlock, waitingThread);
        result = DbgHlpWriteProcessDump(&dump);
    }
    // result and hang, adjacent in the block
    static_assert(offsetof(kv::CrashBlock, hang) == offsetof(kv::CrashBlock, result) + sizeof(LONG), "layout");
    const LONG outcome[2] = {static_cast<LONG>(result), dump.hang};
    WriteProcessMemory(c.process.get(), reinterpret_cast<void*>(c.block + offsetof(kv::CrashBlock, result)), outcome,
                       sizeof outcome, nullptr);
    SetEvent(c.done.get());
    HandlerSay("process %lu: dump \"%s\" %s in %.1f s (HRESULT 0x%08lx); handler peak working set %lu MB",
               static_cast<unsigned long>(c.processId), dump.dumpPath,
               result == S_OK ? "written" : result == S_FALSE ? "skipped" : "failed",
               double(GetTickCount64() - begin) / 1000.0, static_cast<unsigned long>(result), WorkingSetMb());
    RecordDumpEvent("CRASH", c.process.get(), c.processId, c.iniPath,
                    dump.componentName ? dump.componentName : c.componentName.c_str(), dump.dumpPath, result);
}

DWORD WINAPI Serve(void* parameter) {
    std::unique_ptr<Client> c(static_cast<Client*>(parameter));
    HANDLE requestOrEnd[2] = {c->request.get(), c->process.get()};
    while (WaitForMultipleObjects(2, requestOrEnd, FALSE, INFINITE) == WAIT_OBJECT_0) WriteCrashDump(*c);
    DWORD exitCode = 0;
    GetExitCodeProcess(c->process.get(), &exitCode);
    HandlerSay("process %lu ended (exit code 0x%08lx)", static_cast<unsigned long>(c->processId),
               static_cast<unsigned long>(exitCode));
    InterlockedExchange64(&lastEnded, static_cast<LONGLONG>(GetTickCount64()));
    InterlockedDecrement(&clients);
    return 0;
}

// A fixed-size text from the wire, cut at its end whatever it holds.
std::string Bounded(const char (&text)[MAX_PATH]) { return std::string(text, strnlen(text, sizeof text)); }

}  // namespace

bool ServeClient(const kv::CrashRegistration& r) {
    auto c = std::make_unique<Client>();
    c->processId = r.processId;
    *c->process.out() = OpenProcess(PROCESS_ALL_ACCESS, FALSE, r.processId);
    if (!c->process.ok()) {
        HandlerSay("process %lu refused: cannot open it (error %lu)", static_cast<unsigned long>(r.processId),
                   GetLastError());
        return false;
    }
    *c->request.out() = DuplicateFrom(c->process.get(), r.requestEvent);
    *c->started.out() = DuplicateFrom(c->process.get(), r.startedEvent);
    *c->done.out() = DuplicateFrom(c->process.get(), r.doneEvent);
    kv::CrashBlock probe{};
    if (!c->request.ok() || !c->started.ok() || !c->done.ok() ||
        !ReadProcessMemory(c->process.get(), reinterpret_cast<const void*>(r.block), &probe, sizeof probe, nullptr)) {
        HandlerSay("process %lu refused: its events or crash block cannot be reached (error %lu)",
                   static_cast<unsigned long>(r.processId), GetLastError());
        return false;
    }
    c->block = r.block;
    c->iniPath = Bounded(r.iniPath);
    c->componentName = Bounded(r.componentName);
    UseClientIni(c->iniPath.c_str());
    HandlerSay("process %lu registered (component \"%s\", %s)", static_cast<unsigned long>(r.processId),
               c->componentName.c_str(), c->iniPath.c_str());
    InterlockedIncrement(&clients);
    HANDLE thread = CreateThread(nullptr, 0, Serve, c.get(), 0, nullptr);
    if (!thread) {
        InterlockedDecrement(&clients);
        return false;
    }
    c.release();
    CloseHandle(thread);
    return true;
}

long ClientCount() { return InterlockedCompareExchange(&clients, 0, 0); }

ULONGLONG LastClientEnded() { return static_cast<ULONGLONG>(InterlockedCompareExchange64(&lastEnded, 0, 0)); }

}  // namespace kvdiag
