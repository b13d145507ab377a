// The crash handler against clients that lie, a stranger squatting on its
// pipe name, and twenty processes registering at once behind silent clients.
#include <gtest/gtest.h>

#include <atomic>
#include <thread>

#include "installed_host.h"
#include "kvdiag_process.h"
#include "kvdiag_runner.h"
#include "crash/crash_handler_protocol.h"
#include "crash/pipe_account.h"
#include "crash/pipe_transfer.h"

using Names = std::vector<std::string>;

// Long enough that a slow start of the next client under load never finds it gone.
static const char kHandler[] = "crash-handler --idle-seconds 15";

// A client made by hand, for tests that play a hostile or careless one.
struct RawClient {
    kv::CrashBlock block{};
    kv::CrashRegistration r{};
    HANDLE request, started, done, watchChanged;
    HANDLE pipe = INVALID_HANDLE_VALUE;

    // A registration the handler takes: this process, its own events (the
    // request manual-reset: once set it stays set), the installation's INI file.
    explicit RawClient(const kvtest::ProductInstall& install) {
        for (HANDLE* event : {&request, &started, &done, &watchChanged}) *event = CreateEventA(nullptr, TRUE, FALSE, nullptr);
        r.protocol = kv::kCrashHandlerProtocol;
        r.processId = GetCurrentProcessId();
        r.requestEvent = uint64_t(request), r.startedEvent = uint64_t(started), r.doneEvent = uint64_t(done);
        r.watchEvent = uint64_t(watchChanged);
        r.block = uint64_t(&block);
        snprintf(r.iniPath, sizeof r.iniPath, "%s", install.iniPath().c_str());
        CreateDirectoryA(install.logDir().c_str(), nullptr);
    }
    ~RawClient() {
        for (HANDLE h : {pipe, request, started, done, watchChanged})
            if (h != INVALID_HANDLE_VALUE) CloseHandle(h);
    }

    bool Connect() {
        char name[kv::kPipeNameRoom];
        if (!kv::CrashHandlerPipeName(name)) return false;
        for (int attempt = 0; attempt < 20 && pipe == INVALID_HANDLE_VALUE; ++attempt) {  // busy: wait in line
            pipe = CreateFileA(name, GENERIC_READ | GENERIC_WRITE, 0, nullptr, OPEN_EXISTING,
                               FILE_FLAG_OVERLAPPED | SECURITY_SQOS_PRESENT | SECURITY_IDENTIFICATION, nullptr);
            if (pipe == INVALID_HANDLE_VALUE) WaitNamedPipeA(name, 500);
        }
        return pipe != INVALID_HANDLE_VALUE;
    }
    // Sends the registration and reads the reply; its handlerProcessId is 0
    // when refused (refusal says why) or when there was no reply ("no reply").
    kv::CrashRegistrationReply Register() {
        kv::CrashRegistrationReply reply{};
        if (!Connect() || !kv::PipeTransfer(pipe, &r, sizeof r, true, 5000) ||
            !kv::PipeTransfer(pipe, &reply, sizeof reply, false, 10000))
            snprintf(reply.refusal, sizeof reply.refusal, "no reply");
        return reply;
    }
};

static double CpuSeconds(HANDLE process) {
    FILETIME unused, kernel, user;
    GetProcessTimes(process, &unused, &unused, &kernel, &user);
    return (ULARGE_INTEGER{{kernel.dwLowDateTime, kernel.dwHighDateTime}}.QuadPart +
            ULARGE_INTEGER{{user.dwLowDateTime, user.dwHighDateTime}}.QuadPart) / 1e7;
}

TEST(HostileClients, AreRefusedOrContained) {
    kvtest::ProductInstall install, other;  // other's log folder is never made
    install.SetValue("Debug", "MiniDumpType", "1");
    kvtest::KvdiagProcess handler(kHandler);
    ASSERT_TRUE(handler.ReadUntil("listens on"));
    // A process that never registered, whose event and data a forged registration names.
    kvtest::ChildHost victimHost("handler_victim");
    ASSERT_TRUE(victimHost.Start({"handler_victim"}) && victimHost.WaitForOutput(" ready"));
    // Statics, for the table's plain functions; set anew each run.
    static unsigned long victim;
    static unsigned long long victimEvent, victimBlock;
    static HANDLE victimProcess;
    static std::string otherIni;
    const std::string said = victimHost.OutputSoFar();
    ASSERT_EQ(3, sscanf(said.c_str() + said.find("victim"), "victim pid=%lu event=%llx block=%llx", &victim,
                        &victimEvent, &victimBlock));
    victimProcess = OpenProcess(PROCESS_ALL_ACCESS, FALSE, victim);
    otherIni = other.iniPath();
    const struct {
        void (*change)(kv::CrashRegistration&);
        const char* refusal;
    } refused[] = {
        {[](kv::CrashRegistration& r) { r.processId = victim, r.requestEvent = victimEvent, r.block = victimBlock; },
         "it registers process"},
        // This process's handle to the victim, and a value with nothing behind it.
        {[](kv::CrashRegistration& r) { r.requestEvent = uint64_t(victimProcess), r.startedEvent = 0x7FFC; },
         "not four events"},
        {[](kv::CrashRegistration& r) { strcpy(r.componentName, "..\\..\\escaped"); }, "not a plain name"},
        {[](kv::CrashRegistration& r) { strcpy(r.iniPath, "\\\\127.0.0.1\\c$\\product.ini"); }, "not a full local path"},
        {[](kv::CrashRegistration& r) { strcpy(r.iniPath, "C:\\windows\\CON"); }, "not a full local path"},
        {[](kv::CrashRegistration& r) { strcpy(r.iniPath, otherIni.c_str()); }, "Logs\" does not exist"},
        {[](kv::CrashRegistration& r) { r.block = uint64_t(&CpuSeconds); }, "not writable data"},
        {[](kv::CrashRegistration& r) { memset(&r, 0xEE, sizeof r); }, "protocol 4008636142"},
        {[](kv::CrashRegistration& r) {
             WritePrivateProfileStringA("KVEDIT", "LOGS", "\\\\127.0.0.1\\logs", otherIni.c_str());
             strcpy(r.iniPath, otherIni.c_str());
         },
         "\"\\\\127.0.0.1\\logs\" is not a full local path"},
    };
    for (const auto& row : refused) {
        SCOPED_TRACE(row.refusal);
        RawClient client(install);
        row.change(client.r);
        const auto reply = client.Register();
        EXPECT_EQ(0u, reply.handlerProcessId);
        EXPECT_HAS(reply.refusal, row.refusal);
    }
    SetEvent(OpenEventA(EVENT_MODIFY_STATE, FALSE, "Local\\kvtest.victim.request"));  // as a forged client would

    // A client that registers as itself, then sets its request for good with a
    // crash block whose component name climbs: one dump, under the registered
    // name, in the log folder, and a handler that does not spin.
    RawClient client(install);
    strcpy(client.r.componentName, "Legit");
    const auto reply = client.Register();
    ASSERT_NE(0u, reply.handlerProcessId) << reply.refusal;
    const HANDLE handlerProcess = OpenProcess(PROCESS_QUERY_LIMITED_INFORMATION, FALSE, reply.handlerProcessId);
    EXCEPTION_RECORD record{0xE0000001, 0, nullptr, nullptr, 0, {}};
    CONTEXT context{};
    RtlCaptureContext(&context);
    EXCEPTION_POINTERS pointers{&record, &context};
    strcpy(client.block.componentName, "..\\..\\..\\escaped-block");
    client.block.exceptionPointers = reinterpret_cast<uint64_t>(&pointers);
    client.block.crashingThread = static_cast<LONG>(GetCurrentThreadId());
    ASSERT_TRUE(SetEvent(client.request));
    ASSERT_EQ(WAIT_OBJECT_0, WaitForSingleObject(client.done, 120000));
    EXPECT_EQ(S_OK, client.block.result);
    const double cpuBefore = CpuSeconds(handlerProcess);
    Sleep(2000);
    EXPECT_LT(CpuSeconds(handlerProcess) - cpuBefore, 0.5);  // a spinning loop takes a whole core
    // A client whose INI file names a network folder by the time it crashes: refused then.
    RawClient late(install);
    ASSERT_NE(0u, late.Register().handlerProcessId);
    install.SetValue("KVEDIT", "LOGS", "\\\\127.0.0.1\\logs");
    late.block = client.block;
    ASSERT_TRUE(SetEvent(late.request) && WaitForSingleObject(late.done, 60000) == WAIT_OBJECT_0);
    EXPECT_EQ(kv::kCrashRefusedByHandler, late.block.result);

    SetEvent(OpenEventA(EVENT_MODIFY_STATE, FALSE, "Local\\kvtest.victim.check"));
    EXPECT_HAS(victimHost.Wait(60000).output, "block intact");
    EXPECT_EQ((Names{"crash-events.dat", "user.Legit.dmp"}), kvtest::ListFolder(install.logDir()));
    EXPECT_EQ((Names{"Config", "Logs"}), kvtest::ListFolder(install.root()));
    EXPECT_EQ(Names{"Config"}, kvtest::ListFolder(other.root()));
    for (HANDLE h : {victimProcess, handlerProcess}) CloseHandle(h);
    const auto end = handler.Finish(60000);
    EXPECT_EQ(1u, kvtest::Count(end.output, "writing its dump")) << end.output;
    EXPECT_HAS(end.output, "\"..\\..\\..\\escaped-block\" in its crash block refused");
}

// Clients that connect and say nothing, one of them again each time it is
// dropped, and one that sends half a registration: a client that reads its
// reply a while after registering still gets it (the handler keeps the
// connection until the client closes its end, where disconnecting at once
// would discard the unread reply), and twenty hosts started at once all
// register (the slowest's time from start to end is printed).
TEST(HostileClients, DelayNoOneOfTwentyRegisteringAtOnceAndKeepASlowReadersReply) {
    kvtest::KvdiagProcess handler(kHandler);
    ASSERT_TRUE(handler.ReadUntil("listens on"));
    kvtest::ProductInstall install;
    std::atomic<bool> stop{false};
    std::thread reconnecting([&] {
        for (char nothing; !stop;) {
            RawClient quiet(install);
            if (quiet.Connect()) kv::PipeTransfer(quiet.pipe, &nothing, 1, false, 10000);  // until dropped
        }
    });
    RawClient silent(install), garbage(install), slow(install);
    ASSERT_TRUE(silent.Connect() && garbage.Connect() && slow.Connect());
    ASSERT_TRUE(kv::PipeTransfer(garbage.pipe, &garbage.r, sizeof garbage.r / 2, true, 5000));
    ASSERT_TRUE(kv::PipeTransfer(slow.pipe, &slow.r, sizeof slow.r, true, 5000));
    Sleep(1000);  // the handler has answered by now
    kv::CrashRegistrationReply reply{};
    EXPECT_TRUE(kv::PipeTransfer(slow.pipe, &reply, sizeof reply, false, 5000));
    EXPECT_NE(0u, reply.handlerProcessId) << reply.refusal;
    std::vector<std::unique_ptr<kvtest::ChildHost>> hosts;
    const ULONGLONG start = GetTickCount64();
    for (int i = 0; i < 20; ++i) {
        hosts.push_back(std::make_unique<kvtest::ChildHost>("handler_many_" + std::to_string(i)));
        ASSERT_TRUE(hosts.back()->Start({"handler_register", install.iniPath()}));
    }
    for (auto& host : hosts) EXPECT_EQ(0u, host->Wait(120000).exitCode);
    printf("twenty hosts started and registered within %llu ms\n", GetTickCount64() - start);
    stop = true;
    reconnecting.join();
}

// A process of the same account that created the pipe name before any
// handler: a registering host sends it nothing, a handler started then
// refuses to run beside it, and neither lets it impersonate.
TEST(PipeSquatter, GetsNoRegistrationAndNoImpersonation) {
    kvtest::ChildHost squatter("pipe_squatter");
    ASSERT_TRUE(squatter.Start({"pipe_squatter"}) && squatter.WaitForOutput("squatting"));
    kvtest::InstalledHost host("squat_client");
    host.Run("handler_register");
    EXPECT_EQ(5u, host.last.exitCode) << host.last.output;
    EXPECT_HAS(host.Log(), "Crash handler: not registered: process ");
    EXPECT_HAS(host.Log(), "serves the pipe with an access list that admits others");
    const auto started = kvtest::RunKvdiag(kHandler);
    EXPECT_EQ(1u, started.exitCode);
    EXPECT_HAS(started.output, "serves the pipe with an access list that admits others: ending");
    for (int i = 0; i < 300 && kvtest::Count(squatter.OutputSoFar(), " bytes") < 2; ++i) Sleep(100);
    const std::string seen = squatter.Wait(1).output;  // killed: it serves for ever
    EXPECT_EQ(2u, kvtest::Count(seen, "received 0 bytes")) << seen;
    // Wine hands a pipe server the client's token at impersonation level
    // whatever the client asked (seen under Wine 8: level 2): only Windows
    // proves the identification level.
    if (!kvtest::UnderWine()) {
        EXPECT_LACKS(seen, "level 2");  // SecurityImpersonation
        EXPECT_LACKS(seen, "level 3");  // SecurityDelegation
    }
}
