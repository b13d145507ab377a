// Registration with the crash handler of this logon session (started when
// none runs), and the crash path's handover to it.
#include <string.h>

#include <atomic>
#include <mutex>
#include <string>

#include "KvConfig.h"
#include "KvCrashHandler.h"
#include "KvLogging.h"
#include "crash/crash_handler_protocol.h"
#include "config/product_folders.h"
#include "crash/crash_handover.h"
#include "crash/pipe_account.h"
#include "crash/stack_overflow_handover.h"
#include "crash/pipe_transfer.h"
#include "platform/owned_handle.h"

namespace kv {
namespace {

using platform::FileHandle;
using platform::KernelHandle;

constexpr DWORD kHandlerStartMs = 20000;  // a cold Wine or a loaded plant machine starts slowly
constexpr DWORD kReplyMs = 10000;
constexpr DWORD kTakeRequestMs = 10000;   // the handler takes a request at once unless it is stuck

// Read by the crash path without a lock: written once, before `linked` is set.
// Raw handles, not owners: they stay open through the library's detach, when
// a late crash may still be handed over, and no destructor runs on them.
struct HandlerLink {
    HANDLE request, started, done, handler, watchChanged;
};
HandlerLink TheLink;
std::atomic<bool> linked{false};
CrashBlock TheCrashBlock;
std::mutex registrationLock;  // registration only; the crash path never takes it

// The pipe, or INVALID_HANDLE_VALUE when no handler listens. Opened at
// identification level: whoever serves the pipe may learn who this process
// is, never act as it.
HANDLE OpenHandlerPipe(const char* pipe) {
    for (int attempt = 0; attempt < 5; ++attempt) {
        HANDLE h = CreateFileA(pipe, GENERIC_READ | GENERIC_WRITE, 0, nullptr, OPEN_EXISTING,
                               FILE_FLAG_OVERLAPPED | SECURITY_SQOS_PRESENT | SECURITY_IDENTIFICATION, nullptr);
        if (h != INVALID_HANDLE_VALUE || GetLastError() != ERROR_PIPE_BUSY) return h;
        WaitNamedPipeA(pipe, 2000);
    }
    return INVALID_HANDLE_VALUE;
}

// kvdiag.exe beside this DLL.
std::string DefaultHandlerPath() {
    HMODULE self = nullptr;
    char path[MAX_PATH] = "";
    GetModuleHandleExA(GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS | GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT,
                       reinterpret_cast<LPCSTR>(&DefaultHandlerPath), &self);
    const DWORD length = GetModuleFileNameA(self, path, sizeof path);
    if (length == 0 || length >= sizeof path) return {};
    char* slash = strrchr(path, '\\');
    return std::string(path, slash ? slash + 1 - path : 0) + "kvdiag.exe";
}

// Starts the handler detached from this process (and, where allowed, from its
// job, so that it outlives the processes it serves).
HANDLE StartHandler(const std::string& program, std::string& reason) {
    std::string commandLine = "\"" + program + "\" crash-handler";
    STARTUPINFOA startup{};
    startup.cb = sizeof startup;
    PROCESS_INFORMATION started{};
    const DWORD flags = DETACHED_PROCESS | CREATE_NEW_PROCESS_GROUP;
    if (!CreateProcessA(program.c_str(), &commandLine[0], nullptr, nullptr, FALSE, flags | CREATE_BREAKAWAY_FROM_JOB,
                        nullptr, nullptr, &startup, &started) &&
        !CreateProcessA(program.c_str(), &commandLine[0], nullptr, nullptr, FALSE, flags, nullptr, nullptr, &startup,
                        &started)) {
        reason = "cannot start \"" + program + "\" (error " + std::to_string(GetLastError()) + ")";
        return nullptr;
    }
    KernelHandle thread(started.hThread);  // only the process is waited for
    return started.hProcess;
}

// The pipe of a running handler, starting one when none listens.
HANDLE ConnectToHandler(const char* pipe, const char* handlerPath, std::string& reason) {
    HANDLE connection = OpenHandlerPipe(pipe);
    if (connection != INVALID_HANDLE_VALUE) return connection;
    const std::string program = handlerPath ? handlerPath : DefaultHandlerPath();
    KernelHandle handler(StartHandler(program, reason));
    if (!handler) return INVALID_HANDLE_VALUE;
    const ULONGLONG deadline = GetTickCount64() + kHandlerStartMs;
    while (GetTickCount64() < deadline) {
        connection = OpenHandlerPipe(pipe);
        if (connection != INVALID_HANDLE_VALUE) return connection;
        DWORD exitCode = 0;
        // A handler started at the same moment by another process may have won the pipe: keep trying.
        if (WaitForSingleObject(handler.get(), 50) == WAIT_OBJECT_0 && GetExitCodeProcess(handler.get(), &exitCode) &&
            exitCode != 0) {
            reason = "\"" + program + "\" ended with exit code " + std::to_string(exitCode);
            return INVALID_HANDLE_VALUE;
        }
    }
    reason = "no answer on " + std::string(pipe) + " within " + std::to_string(kHandlerStartMs / 1000) + " s";
    return INVALID_HANDLE_VALUE;
}

// The product log folder, created with this process's own rights when
// missing: the handler writes only into a folder that exists.
void MakeLogFolder() {
    std::string folder;
    if (ReadProductFolder(KvFolderLogs, folder) && GetFileAttributesA(folder.c_str()) == INVALID_FILE_ATTRIBUTES)
        CreateFolderTree(folder.c_str());
}

int Register(const char* handlerPath, std::string& reason) {
    CrashRegistration registration{};
    registration.protocol = kCrashHandlerProtocol;
    registration.processId = GetCurrentProcessId();
    registration.block = reinterpret_cast<uint64_t>(&TheCrashBlock);
    if (GetKorvanIniFilePath(registration.iniPath, sizeof registration.iniPath) <= 0) {
        reason = "the product INI file is not validated";
        return 0;
    }
    {
        std::lock_guard<std::mutex> hold(FileNameGenerator::theComponentNameMutex);
        snprintf(registration.componentName, sizeof registration.componentName, "%s",
                 FileNameGenerator::theComponentName.c_str());
    }
    KernelHandle request(CreateEventA(nullptr, FALSE, FALSE, nullptr));
    KernelHandle started(CreateEventA(nullptr, TRUE, FALSE, nullptr));
    KernelHandle done(CreateEventA(nullptr, TRUE, FALSE, nullptr));
    KernelHandle watchChanged(CreateEventA(nullptr, FALSE, FALSE, nullptr));
    if (!request || !started || !done || !watchChanged) {
        reason = "cannot create events (error " + std::to_string(GetLastError()) + ")";
        return 0;
    }
    registration.requestEvent = reinterpret_cast<uint64_t>(request.get());
    registration.startedEvent = reinterpret_cast<uint64_t>(started.get());
    registration.doneEvent = reinterpret_cast<uint64_t>(done.get());
    registration.watchEvent = reinterpret_cast<uint64_t>(watchChanged.get());

    MakeLogFolder();
    char pipe[kPipeNameRoom];
    if (!CrashHandlerPipeName(pipe)) {
        reason = "this process's account cannot be read (error " + std::to_string(GetLastError()) + ")";
        return 0;
    }
    FileHandle connection(ConnectToHandler(pipe, handlerPath, reason));
    if (!connection) return 0;
    // Nothing is sent before the server is known to be this account's handler.
    KernelHandle handler(VerifyPipeServer(connection.get(), reason));
    if (!handler) return 0;
    CrashRegistrationReply reply{};
    if (!PipeTransfer(connection.get(), &registration, sizeof registration, true, kReplyMs) ||
        !PipeTransfer(connection.get(), &reply, sizeof reply, false, kReplyMs)) {
        reason = "no reply on " + std::string(pipe);
        return 0;
    }
    connection.reset();  // the handler's pipe instance is free for the next process at once
    if (reply.protocol != kCrashHandlerProtocol || reply.handlerProcessId == 0) {
        reply.refusal[sizeof reply.refusal - 1] = 0;
        reason = "the handler on " + std::string(pipe) + " refused this process: " +
                 (reply.refusal[0] ? reply.refusal : "protocol " + std::to_string(reply.protocol));
        return 0;
    }
    if (reply.handlerProcessId != GetProcessId(handler.get())) {
        reason = "the reply names process " + std::to_string(reply.handlerProcessId) + ", not the pipe's server";
        return 0;
    }
    TheLink = {request.release(), started.release(), done.release(), handler.release(), watchChanged.release()};
    linked.store(true, std::memory_order_release);
    InstallStackOverflowHandover();
    DbgLogWrite("Crash handler: process %lu writes this process's dumps (pipe %s)",
                static_cast<unsigned long>(reply.handlerProcessId), pipe);
    return 1;
}

}  // namespace

void PublishComponentName(const char* name) {
    InterlockedIncrement(&TheCrashBlock.nameVersion);
    snprintf(TheCrashBlock.componentName, sizeof TheCrashBlock.componentName, "%s", name);
    InterlockedIncrement(&TheCrashBlock.nameVersion);
}

HangWatchLink LinkedHangWatch() {
    if (!linked.load(std::memory_order_acquire)) return {nullptr, nullptr};
    return {&TheCrashBlock.hangWatch, TheLink.watchChanged};
}

Handover HandCrashToHandler(EXCEPTION_POINTERS* pointers) {
    if (!linked.load(std::memory_order_acquire)) return Handover::kNoHandler;
    const LONG self = static_cast<LONG>(GetCurrentThreadId());
    const LONG first = InterlockedCompareExchange(&TheCrashBlock.crashingThread, self, 0);
    if (first == self) return Handover::kNoHandler;  // crashed again inside its own handover
    HANDLE doneOrGone[2] = {TheLink.done, TheLink.handler};
    if (first != 0) {
        // Another thread's dump is being written: be named, wait for it, then let the process end.
        InterlockedCompareExchange(&TheCrashBlock.waitingThread, self, 0);
        WaitForMultipleObjects(2, doneOrGone, FALSE, INFINITE);
        return Handover::kDumped;
    }
    TheCrashBlock.exceptionPointers = reinterpret_cast<uint64_t>(pointers);
    MemoryBarrier();
    SetEvent(TheLink.request);
    HANDLE startedOrGone[2] = {TheLink.started, TheLink.handler};
    const DWORD taken = WaitForMultipleObjects(2, startedOrGone, FALSE, kTakeRequestMs);
    if (taken == WAIT_OBJECT_0 + 1) return Handover::kHandlerGone;
    if (taken != WAIT_OBJECT_0) return Handover::kNoAnswer;
    if (WaitForMultipleObjects(2, doneOrGone, FALSE, INFINITE) != WAIT_OBJECT_0) return Handover::kHandlerGone;
    if (TheCrashBlock.result == kCrashRefusedByHandler) return Handover::kRefused;
    if (TheCrashBlock.hang) {
        for (;;) Sleep(10000);  // keep the crashed process for a debugger
    }
    return Handover::kDumped;
}

}  // namespace kv

extern "C" int DbgHlpStartCrashHandler(const char* handlerPath) {
    std::lock_guard<std::mutex> hold(kv::registrationLock);
    if (kv::linked.load()) {
        if (WaitForSingleObject(kv::TheLink.handler, 0) == WAIT_TIMEOUT) return 1;
        // The handler is gone: until a new one is linked, crashes are dumped in-process.
        kv::linked.store(false);
        for (HANDLE h : {kv::TheLink.request, kv::TheLink.started, kv::TheLink.done, kv::TheLink.handler,
                         kv::TheLink.watchChanged})
            kv::platform::KernelHandle stale(h);  // closed as it leaves the loop body
    }
    std::string reason;
    if (kv::Register(handlerPath, reason)) return 1;
    DbgLogWrite("Crash handler: not registered: %s", reason.c_str());
    return 0;
}
