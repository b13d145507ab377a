// Logging benchmarks: the debug log line against a bare formatted write, the
// writer's throughput with threads and with a second process, and application
// logs kept open against reopened.
#include <windows.h>
#include <stdio.h>
#include <stdlib.h>

#include <algorithm>
#include <atomic>
#include <string>
#include <thread>
#include <vector>

#include "KvConfig.h"
#include "KvFrame.h"
#include "KvLogging.h"
#include "bench.h"

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

// Writes `lines` lines on each of `threads` threads; lines per second and the
// longest single call.
void Throughput(int threads, int lines, double& perSecond, double& longestMs) {
    std::atomic<double> longest{0};
    const double start = Seconds();
    std::vector<std::thread> workers;
    for (int t = 0; t < threads; ++t)
        workers.emplace_back([&] {
            double worst = 0;
            for (int i = 0; i < lines; ++i) {
                const double before = Seconds();
                DbgLogWrite("%s", kMessage);
                worst = std::max(worst, Seconds() - before);
            }
            double seen = longest.load();
            while (worst > seen && !longest.compare_exchange_weak(seen, worst)) {
            }
        });
    for (auto& w : workers) w.join();
    perSecond = threads * lines / (Seconds() - start);
    longestMs = longest.load() * 1000;
}

std::string Figures(double perSecond, double longestMs) {
    char text[96];
    snprintf(text, sizeof text, "%.0f lines/s, longest call %.2f ms", perSecond, longestMs);
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

    // Small files, so the runs below roll many times.
    DbgHlpSetDebugLogInis(256, 10);
    for (int threads : {1, 2, 4}) {
        double perSecond, longestMs;
        Throughput(threads, 20000 / threads, perSecond, longestMs);
        kvbench::Report("DbgLogWrite, " + std::to_string(threads) + " thread(s), rolling at 256 KB",
                        Figures(perSecond, longestMs));
    }

    // Two processes on one file: this one and a peer kvbench.exe.
    SetComponentName("shared");
    DbgLogWrite("main ready");
    const int lines = 20000;
    HANDLE go = CreateEventA(nullptr, TRUE, FALSE, "Local\\kvbench.logging.go");
    SetEnvironmentVariableA(kPeerVariable, (std::to_string(lines) + "," + ini).c_str());
    char exe[MAX_PATH];
    GetModuleFileNameA(nullptr, exe, sizeof exe);
    STARTUPINFOA si{};
    si.cb = sizeof si;
    PROCESS_INFORMATION pi{};
    std::string command = std::string("\"") + exe + "\"";
    if (CreateProcessA(exe, &command[0], nullptr, nullptr, FALSE, 0, nullptr, nullptr, &si, &pi)) {
        Sleep(1500);  // the peer starts and opens the file
        double perSecond, longestMs;
        const double start = Seconds();
        SetEvent(go);
        Throughput(1, lines, perSecond, longestMs);
        WaitForSingleObject(pi.hProcess, 120000);
        const double both = 2 * lines / (Seconds() - start);
        kvbench::Report("DbgLogWrite, 2 processes sharing one file, rolling at 256 KB",
                        Figures(both, longestMs) + " (this process)");
        CloseHandle(pi.hThread);
        CloseHandle(pi.hProcess);
    }
    SetEnvironmentVariableA(kPeerVariable, nullptr);
    CloseHandle(go);
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
