// Logging benchmarks: the debug log line against a bare formatted write, the
// writer's throughput with threads and with a second process, and application
// logs kept open against reopened, and spdlog's flushed file sink as a peer.
#include <windows.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <algorithm>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include "KvConfig.h"
#include "KvFrame.h"
#include "KvLogging.h"
#include "bench.h"
#include "platform/owned_handle.h"
#include "spdlog_peer.h"

namespace {

const char kMessage[] = "Alarm server: tag PLANT1.PUMP3.PRESSURE changed state to HIGH, value 17.2 bar(g)";
static_assert(sizeof kMessage - 1 == 80, "a typical 80-byte message");

constexpr char kPeerVariable[] = "KV_LOG_BENCH_PEER";

double Seconds() {
    LARGE_INTEGER f, t;
    QueryPerformanceFrequency(&f);
    QueryPerformanceCounter(&t);
    return double(t.QuadPart) / double(f.QuadPart);
}

// A product INI file whose log folder lies in the scratch folder.
std::string PrepareInstallation() {
    const std::string root = kvbench::ScratchFolder();
    const std::string ini = root + "\\product.ini";
    WritePrivateProfileStringA("KVEDIT", "LOGS", (root + "\\Logs").c_str(), ini.c_str());
    SetKorvanIniFilePath(ini.c_str());
    ValidateKorvanIniFile();
    return ini;
}

// The second process of the shared-file figure: started as kvbench.exe with
// the variable set, it writes its lines when told to and exits before main.
[[maybe_unused]] const bool peerProcess = [] {
    char spec[600];
    if (!GetEnvironmentVariableA(kPeerVariable, spec, sizeof spec)) return false;
    char* comma = strchr(spec, ',');
    if (!comma) ExitProcess(2);
    *comma = '\0';
    SetKorvanIniFilePath(comma + 1);
    ValidateKorvanIniFile();
    SetComponentName("shared");
    const int lines = atoi(spec);
    HANDLE go = OpenEventA(SYNCHRONIZE, FALSE, "Local\\kvbench.logging.go");
    if (!go) ExitProcess(3);
    DbgLogWrite("peer ready");  // opens the file before the clock starts
    WaitForSingleObject(go, 60000);
    for (int i = 0; i < lines; ++i) DbgLogWrite("%s", kMessage);
    ExitProcess(0);
}();

void LogLine() { DbgLogWrite("%s", kMessage); }
void PeerLine() { kvbench::SpdlogPeerLine(kMessage); }

// The floor the machine sets: each thread appends a line of the same length to
// a file of its own, without any lock. With more busy threads than cores, a
// thread is preempted in the middle of a call for whole scheduler slices, and
// the longest call shows it whatever the log does.
struct BareFile {
    kv::platform::FileHandle handle;
    char path[MAX_PATH];
    BareFile() {
        snprintf(path, sizeof path, "%s\\Logs\\bare.%lu.log", kvbench::ScratchFolder().c_str(),
                 GetCurrentThreadId());
        CreateDirectoryA((kvbench::ScratchFolder() + "\\Logs").c_str(), nullptr);
        // Opened as the log opens its file.
        handle.reset(CreateFileA(path, FILE_APPEND_DATA | FILE_READ_ATTRIBUTES | SYNCHRONIZE,
                             FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr, CREATE_ALWAYS,
                             FILE_ATTRIBUTE_NORMAL, nullptr));
    }
    ~BareFile() {
        handle.reset();
        DeleteFileA(path);
    }
};
void BareLine() {
    thread_local BareFile file;
    static const std::string line = std::string(kMessage) + std::string(112 - strlen(kMessage) - 2, ' ') + "\r\n";
    DWORD written;
    WriteFile(file.handle.get(), line.data(), DWORD(line.size()), &written, nullptr);
}

// Writes `lines` lines on each of `threads` threads; lines per second, the
// longest single call and the call that 99.9 % of calls stay within.
struct Calls {
    double perSecond, longestMs, p999Ms;
};
Calls Throughput(int threads, int lines, void (*line)() = LogLine) {
    std::vector<std::vector<double>> times(threads, std::vector<double>(size_t(lines)));
    const double start = Seconds();
    std::vector<std::thread> workers;
    for (int t = 0; t < threads; ++t)
        workers.emplace_back([&, t] {
            for (int i = 0; i < lines; ++i) {
                const double before = Seconds();
                line();
                times[t][i] = Seconds() - before;
            }
        });
    for (auto& w : workers) w.join();
    const double elapsed = Seconds() - start;
    std::vector<double> all;
    for (const auto& own : times) all.insert(all.end(), own.begin(), own.end());
    std::sort(all.begin(), all.end());
    return {threads * lines / elapsed, all.back() * 1000, all[all.size() * 999 / 1000] * 1000};
}

// n lines in all, shared out over `threads` threads.
std::function<void(int64_t)> Lines(int threads, void (*line)() = LogLine) {
    return [threads, line](int64_t n) {
        std::vector<std::thread> workers;
        for (int t = 0; t < threads; ++t)
            workers.emplace_back([&, t] {
                for (int64_t i = t; i < n; i += threads) line();
            });
        for (auto& w : workers) w.join();
    };
}

long long FileSize(const char* path) {
    WIN32_FILE_ATTRIBUTE_DATA data;
    if (!GetFileAttributesExA(path, GetFileExInfoStandard, &data)) return 0;
    return (static_cast<long long>(data.nFileSizeHigh) << 32) | data.nFileSizeLow;
}

// Rolls the live log now (outside any timing) unless `bytes` more still fit
// below the 10 MB limit, so that the next run holds no roll.
void RoomWithoutRoll(const char* livePath, long long bytes) {
    constexpr long long kLimit = 10240LL * 1024;
    if (FileSize(livePath) + bytes < kLimit) return;
    for (long long size = FileSize(livePath), last = size; size >= last; last = size, size = FileSize(livePath))
        for (int i = 0; i < 200; ++i) LogLine();
}

// " (N threads on M cores)" where the machine has fewer cores than threads:
// then threads wait for the processor, not only for each other.
std::string OnCores(int threads) {
    const DWORD cores = GetActiveProcessorCount(ALL_PROCESSOR_GROUPS);
    if (cores == 0 || DWORD(threads) <= cores) return "";
    return " (" + std::to_string(threads) + " threads on " + std::to_string(cores) + " cores)";
}

std::string Figures(const Calls& calls) {
    char text[96];
    snprintf(text, sizeof text, "%.0f lines/s, longest call %.2f ms, 99.9 %% within %.2f ms", calls.perSecond,
             calls.longestMs, calls.p999Ms);
    return text;
}

}  // namespace

KV_BENCH(logging) {
    const std::string ini = PrepareInstallation();
    char livePath[260];
    GetDebugLogFilePath(-1, 1, livePath, sizeof livePath);
    const std::string baselinePath = kvbench::ScratchFolder() + "\\Logs\\baseline.log";
    FILE* baselineFile = fopen(baselinePath.c_str(), "a");
    const int64_t iterations = 20000;

    kvbench::Compare(
        "DbgLogWrite 80-byte line vs snprintf+fputs+fflush", [](int64_t n) {
            for (int64_t i = 0; i < n; ++i) DbgLogWrite("%s", kMessage);
        },
        [&](int64_t n) {
            for (int64_t i = 0; i < n; ++i) {
                // The same timestamp and text, formatted and written bare.
                SYSTEMTIME now;
                GetLocalTime(&now);
                TIME_ZONE_INFORMATION zone;
                GetTimeZoneInformation(&zone);
                char line[1024];
                snprintf(line, sizeof line, "%d-%02d-%02d %02d:%02d:%02d.%03d\t%c%02ld:%02ld %s\n", now.wYear,
                         now.wMonth, now.wDay, now.wHour, now.wMinute, now.wSecond, now.wMilliseconds,
                         zone.Bias > 0 ? '-' : '+', labs(zone.Bias) / 60, labs(zone.Bias) % 60, kMessage);
                fputs(line, baselineFile);
                fflush(baselineFile);
            }
        },
        iterations, 1.10);
    fclose(baselineFile);

    // Thread scaling: time per line against one thread, the median of runs
    // that alternate (10 MB files: a roll falls in few runs, and the median
    // leaves it out), then each count's calls in a run that holds no roll.
    DbgHlpSetDebugLogInis(10240, 1);
    constexpr int64_t kScalingLines = 20000;
    constexpr int kRuns = 7;
    for (int threads : {2, 4, 8})
        kvbench::CompareMedian("DbgLogWrite " + std::to_string(threads) + " threads vs 1, per line" + OnCores(threads),
                               Lines(threads), Lines(1), kScalingLines, 1 / 0.9, kRuns);
    for (int threads : {1, 2, 4, 8}) {
        RoomWithoutRoll(livePath, kScalingLines * 112);
        kvbench::Report("DbgLogWrite, " + std::to_string(threads) + " thread(s), no roll",
                        Figures(Throughput(threads, int(kScalingLines) / threads)));
        kvbench::Report("  bare WriteFile, a file per thread, no lock",
                        Figures(Throughput(threads, int(kScalingLines) / threads, BareLine)));
    }

    // The peer: spdlog's thread-safe file sink, flushed after every line; and
    // the floor beside it: one WriteFile per line, without lock or query.
    const std::string peerPath = kvbench::ScratchFolder() + "\\Logs\\spdlog.log";
    if (kvbench::OpenSpdlogPeer(peerPath.c_str())) {
        for (int threads : {1, 4}) {
            kvbench::CompareMedian("DbgLogWrite vs spdlog file sink + flush, " + std::to_string(threads) + " thread(s)" +
                                       OnCores(threads),
                                   Lines(threads), Lines(threads, PeerLine), kScalingLines, 1.0, kRuns,
                                   {{"floor: bare WriteFile", Lines(threads, BareLine)}});
        }
        // The peer's own scaling, beside ours above: on a machine with fewer
        // cores than threads it shows what a flushed write per line allows.
        kvbench::CompareMedian("  spdlog 8 threads vs 1, per line" + OnCores(8), Lines(8, PeerLine), Lines(1, PeerLine),
                               kScalingLines, 0, kRuns);
    } else {
        kvbench::Report("DbgLogWrite vs spdlog", "left out: the spdlog/fmt headers were not found at build time");
    }

    // Small files, so the runs below roll many times.
    DbgHlpSetDebugLogInis(256, 10);
    for (int threads : {1, 4}) {
        kvbench::Report("DbgLogWrite, " + std::to_string(threads) + " thread(s), rolling at 256 KB",
                        Figures(Throughput(threads, 20000 / threads)) + " (rolls included)");
    }

    // Two processes on one file: this one and a peer kvbench.exe.
    SetComponentName("shared");
    DbgLogWrite("main ready");
    const int lines = 20000;
    const kv::platform::KernelHandle go(CreateEventA(nullptr, TRUE, FALSE, "Local\\kvbench.logging.go"));
    SetEnvironmentVariableA(kPeerVariable, (std::to_string(lines) + "," + ini).c_str());
    char exe[MAX_PATH];
    GetModuleFileNameA(nullptr, exe, sizeof exe);
    STARTUPINFOA si{};
    si.cb = sizeof si;
    PROCESS_INFORMATION pi{};
    std::string command = std::string("\"") + exe + "\"";
    if (CreateProcessA(exe, &command[0], nullptr, nullptr, FALSE, 0, nullptr, nullptr, &si, &pi)) {
        const kv::platform::KernelHandle thread(pi.hThread), process(pi.hProcess);
        Sleep(1500);  // the peer starts and opens the file
        const double start = Seconds();
        SetEvent(go.get());
        Calls calls = Throughput(1, lines);
        WaitForSingleObject(process.get(), 120000);
        calls.perSecond = 2 * lines / (Seconds() - start);  // both processes together
        kvbench::Report("DbgLogWrite, 2 processes sharing one file, rolling at 256 KB",
                        Figures(calls) + " (this process)");
    }
    SetEnvironmentVariableA(kPeerVariable, nullptr);
    SetComponentName("");
    DbgHlpSetDebugLogInis(4096, 1);

    LogFile* kept = OpenLog("kept.log", 1024 * 1024, true);
    LogFile* reopened = OpenLog("reopened.log", 1024 * 1024, false);
    kvbench::Compare(
        "WriteLog keepOpen true vs false", [&](int64_t n) {
            for (int64_t i = 0; i < n; ++i) WriteLog(kept, "%s\n", kMessage);
        },
        [&](int64_t n) {
            for (int64_t i = 0; i < n; ++i) WriteLog(reopened, "%s\n", kMessage);
        },
        2000);
    CloseLog(kept);
    CloseLog(reopened);
}

// Where a line's time goes: 100 lines through each writer between markers.
// Run alone under Wine's relay trace to count the system calls per line:
//   WINEDEBUG=+relay build/wine-run.sh build/bin/kvbench.exe logging_calls
// and count the calls between "kvbench: <writer> begin" and "... end".
KV_BENCH(logging_calls) {
    PrepareInstallation();
    const std::string peerPath = kvbench::ScratchFolder() + "\\Logs\\spdlog.calls.log";
    const bool peer = kvbench::OpenSpdlogPeer(peerPath.c_str());
    LogLine();  // opens the file and warms each side's caches
    if (peer) PeerLine();
    const struct {
        const char* name;
        void (*line)();
    } writers[] = {{"DbgLogWrite", LogLine}, {"spdlog", PeerLine}};
    for (const auto& w : writers) {
        if (w.line == PeerLine && !peer) continue;
        OutputDebugStringA((std::string("kvbench: ") + w.name + " begin").c_str());
        for (int i = 0; i < 100; ++i) w.line();
        OutputDebugStringA((std::string("kvbench: ") + w.name + " end").c_str());
    }
    kvbench::Report("100 lines per writer between markers", "count the calls under WINEDEBUG=+relay");
    char stamp[32];
    const double stampNanos = kvbench::NanosPerOp(
        [&](int64_t n) {
            for (int64_t i = 0; i < n; ++i) GetDateTimeString(stamp, nullptr);
        },
        200000);
    kvbench::Report("GetDateTimeString, per call", std::to_string(int(stampNanos)) + " ns");
}

// One writer's lines per second with KV_THREADS threads (1 unless set), spdlog
// instead with KV_PEER set, the bare WriteFile floor with KV_BARE set: alone,
// for a profiler or a system-call count, e.g.
//   KV_THREADS=8 strace -f -c build/wine-run.sh build/bin/kvbench.exe logging_profile
KV_BENCH(logging_profile) {
    PrepareInstallation();
    DbgHlpSetDebugLogInis(102400, 1);
    char value[16] = "1";
    GetEnvironmentVariableA("KV_THREADS", value, sizeof value);
    const int threads = atoi(value);
    const bool peer = GetEnvironmentVariableA("KV_PEER", value, sizeof value) > 0;
    const bool bare = GetEnvironmentVariableA("KV_BARE", value, sizeof value) > 0;
    const std::string peerPath = kvbench::ScratchFolder() + "\\Logs\\spdlog.log";
    if (peer) kvbench::OpenSpdlogPeer(peerPath.c_str());
    void (*const line)() = bare ? BareLine : peer ? PeerLine : LogLine;
    line();
    kvbench::Report(std::string(bare ? "bare WriteFile" : peer ? "spdlog" : "DbgLogWrite") + ", " + std::to_string(threads) +
                        " thread(s), 300 000 lines",
                    Figures(Throughput(threads, 300000 / threads, line)));
}
