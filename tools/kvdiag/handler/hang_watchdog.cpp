#include "handler/hang_watchdog.h"

#include <stdio.h>

#include <algorithm>

#include "KvCrashHandler.h"
#include "handler/client_checks.h"
#include "handler/crash_events.h"
#include "handler/handler_log.h"
#include "platform/owned_handle.h"

namespace kvdiag {
namespace {

using kv::platform::KernelHandle;

constexpr DWORD kMostPollMs = 1000;
constexpr DWORD kLeastPollMs = 100;

unsigned long Id(DWORD id) { return static_cast<unsigned long>(id); }

// A thread of this client that has not ended. The id comes from the client:
// it only counts for a thread of that very process. When the thread cannot
// be opened its state is unknown, and a hang is the safer answer.
bool StillRuns(const RegisteredClient& client, DWORD threadId) {
    KernelHandle thread(OpenThread(THREAD_QUERY_LIMITED_INFORMATION | SYNCHRONIZE, FALSE, threadId));
    if (!thread) return GetLastError() != ERROR_INVALID_PARAMETER;  // no such thread
    return GetProcessIdOfThread(thread.get()) == client.processId && WaitForSingleObject(thread.get(), 0) == WAIT_TIMEOUT;
}

// The client's program, without folder.
std::string ProgramName(const RegisteredClient& client) {
    char path[MAX_PATH] = "";
    DWORD size = sizeof path;
    if (!QueryFullProcessImageNameA(client.process.get(), 0, path, &size)) return "process";
    const char* slash = strrchr(path, '\\');
    return slash ? slash + 1 : path;
}

std::unique_ptr<ClientActivity> MakeHangWatchdog(const RegisteredClient&) { return std::make_unique<HangWatchdog>(); }

const ClientActivityRegistrar registrar(MakeHangWatchdog);

}  // namespace

DWORD HangWatchdog::WaitMs() const {
    DWORD wait = INFINITE;
    for (const Thread& t : threads_)
        if (t.watched && !t.gone) wait = std::min(wait, std::clamp<DWORD>(t.seconds * 250, kLeastPollMs, kMostPollMs));
    return wait;
}

DWORD HangWatchdog::Run(const RegisteredClient& client) {
    kv::CrashBlock block{};
    if (!ReadProcessMemory(client.process.get(), reinterpret_cast<const void*>(client.block), &block, sizeof block,
                           nullptr)) {
        for (Thread& t : threads_) t = Thread{};
        return INFINITE;
    }
    const kv::HangWatch& watch = block.hangWatch;
    const ULONGLONG now = GetTickCount64();
    if (block.crashingThread != crashingThread_) {
        // A crash was dumped meanwhile, its thread held for it: every thread
        // gets a whole time again (a host that caught it runs on).
        crashingThread_ = block.crashingThread;
        for (Thread& t : threads_) t.lastBeat = now;
    }
    for (int i = 0; i < kv::kWatchedThreadSlots; ++i) {
        const kv::WatchedThread& slot = watch.threads[i];
        Thread& t = threads_[i];
        if (slot.threadId == 0 || slot.seconds <= 0) {
            t = Thread{};
            continue;
        }
        const DWORD seconds = std::min<DWORD>(static_cast<DWORD>(slot.seconds), kv::kMostWatchSeconds);
        if (!t.watched || t.threadId != slot.threadId || t.watchCount != slot.watchCount) {
            t = Thread{};
            t.watched = true;
            t.threadId = slot.threadId;
            t.watchCount = slot.watchCount;
            t.beats = slot.beats;
            t.lastBeat = now;
            HandlerSay("process %lu: thread %lu is watched for hangs of %lu s", Id(client.processId),
                       static_cast<unsigned long>(t.threadId), static_cast<unsigned long>(seconds));
        }
        t.seconds = seconds;
        if (slot.beats != t.beats) {
            if (t.hung)
                HandlerSay("process %lu: thread %lu beats again after %.1f s", Id(client.processId),
                           static_cast<unsigned long>(t.threadId), double(now - t.lastBeat) / 1000.0);
            t.beats = slot.beats;
            t.lastBeat = now;
            t.hung = false;
            continue;
        }
        if (t.hung || t.gone || now - t.lastBeat < seconds * 1000ull) continue;
        if (!StillRuns(client, static_cast<DWORD>(t.threadId))) {
            // Ended without giving up its watch: no hang, and nothing more to watch.
            t.gone = true;
            HandlerSay("process %lu: watched thread %lu has ended; no longer watched", Id(client.processId),
                       static_cast<unsigned long>(t.threadId));
            continue;
        }
        t.hung = true;
        ReportHang(client, t, now - t.lastBeat);
    }
    return WaitMs();
}

void HangWatchdog::ReportHang(const RegisteredClient& client, Thread& t, ULONGLONG silentMs) {
    char note[512];
    const bool named = !client.componentName.empty();
    snprintf(note, sizeof note, "Thread %lu of %s (process %lu%s%s) has sent no heartbeat for %lu s (its limit %lu s)",
             static_cast<unsigned long>(t.threadId), ProgramName(client).c_str(), Id(client.processId),
             named ? ", component " : "", client.componentName.c_str(), static_cast<unsigned long>(silentMs / 1000),
             static_cast<unsigned long>(t.seconds));
    std::string folder;
    if (const Failure refusal = ClientLogFolder(client.iniPath, folder)) {
        HandlerSay("process %lu: %s; no hang dump from here: %s", Id(client.processId), note, refusal.text().c_str());
        return;
    }
    HandlerSay("process %lu: %s: writing a hang dump", Id(client.processId), note);
    KvProcessDump dump{};
    dump.process = client.process.get();
    dump.iniPath = client.iniPath.c_str();
    dump.componentName = client.componentName.c_str();
    dump.mode = -1;
    dump.keepExisting = 1;
    dump.hangNote = note;
    const ULONGLONG begin = GetTickCount64();
    const long result = DbgHlpWriteProcessDump(&dump);
    HandlerSay("process %lu: hang dump \"%s\" %s in %.1f s (HRESULT 0x%08lx)", Id(client.processId),
               dump.dumpPath, result == S_OK ? "written" : result == S_FALSE ? "skipped" : "failed",
               double(GetTickCount64() - begin) / 1000.0, static_cast<unsigned long>(result));
    RecordDumpEvent("HANG", client.process.get(), client.processId, client.iniPath, client.componentName,
                    dump.dumpPath, result);
}

}  // namespace kvdiag
