// The debug memory manager against the plain process heap, measured in the
// same run.
#include <windows.h>
#include <stdio.h>
#include <errno.h>
#include <stdint.h>
#include <string.h>

#include <algorithm>
#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "KvDebugHelp.h"
#include "bench.h"

namespace {

using CaptureFn = USHORT(WINAPI*)(ULONG, ULONG, PVOID*, PULONG);

CaptureFn Capture() {
    return reinterpret_cast<CaptureFn>(
        reinterpret_cast<void*>(GetProcAddress(GetModuleHandleA("kernel32.dll"), "RtlCaptureStackBackTrace")));
}

void HeapPair(HANDLE heap, uint32_t size, int64_t n) {
    for (int64_t i = 0; i < n; ++i) {
        void* p = HeapAlloc(heap, 0, size);
        *static_cast<volatile char*>(p) = 1;
        HeapFree(heap, 0, p);
    }
}

void OsMemPair(uint32_t size, int64_t n) {
    for (int64_t i = 0; i < n; ++i) {
        void* p = osMemAlloc(size, 0);
        *static_cast<volatile char*>(p) = 1;
        osMemFree(p);
    }
}

// Blocks of one size kept live through both paths while that size is timed,
// as in any running process. Without them the result depended on history:
// when the timed block is the only live one of its size class, the heap may
// give its whole group back on every free and build it again on the next
// allocation, and whether that happened to the subject's or the baseline's
// (different) size class flipped the figure between runs.
class ResidentBlocks {
public:
    ResidentBlocks(HANDLE heap, uint32_t size) : heap_(heap) {
        for (int i = 0; i < 64; ++i) {
            ours_.push_back(osMemAlloc(size, 0));
            plain_.push_back(HeapAlloc(heap, 0, size));
        }
    }
    ~ResidentBlocks() {
        for (void* p : ours_) osMemFree(p);
        for (void* p : plain_) HeapFree(heap_, 0, p);
    }

private:
    HANDLE heap_;
    std::vector<void*> ours_, plain_;
};

}  // namespace

// Close to its target, so each size gets many short alternating rounds and the
// best of each side counts: a busy moment on the shared machine then cannot
// decide the figure.
KV_BENCH(memory_light) {
    HANDLE heap = GetProcessHeap();
    for (uint32_t size : {16u, 256u, 4096u, 65536u}) {
        ResidentBlocks resident(heap, size);
        kvbench::Compare("light osMemAlloc/osMemFree " + std::to_string(size) + " B vs HeapAlloc/HeapFree",
                         [=](int64_t n) { OsMemPair(size, n); }, [=](int64_t n) { HeapPair(heap, size, n); },
                         size >= 65536 ? 4000 : 5000, 1.10, nullptr, 201);
    }
}

KV_BENCH(memory_guarded) {
    HANDLE heap = GetProcessHeap();
    CaptureFn capture = Capture();
    DbgHlpSetDebugMode(1);
    kvbench::Compare(
        "guarded osMemAlloc/osMemFree 64 B vs HeapAlloc/HeapFree + 8-frame capture",
        [](int64_t n) { OsMemPair(64, n); },
        [=](int64_t n) {
            void* frames[8];
            for (int64_t i = 0; i < n; ++i) {
                void* p = HeapAlloc(heap, 0, 64 + 128);
                capture(2, 8, frames, nullptr);
                *static_cast<volatile char*>(p) = 1;
                HeapFree(heap, 0, p);
            }
        },
        100000, 1.2);
    DbgHlpSetDebugMode(0);
}

namespace {

constexpr int kFirstTimeSites = 24;

double Microseconds() {
    LARGE_INTEGER f, t;
    QueryPerformanceFrequency(&f);
    QueryPerformanceCounter(&t);
    return double(t.QuadPart) * 1e6 / double(f.QuadPart);
}

// A call site of its own per instantiation; the store keeps identical
// functions from being folded into one.
template <int N>
__attribute__((noinline)) double TimeSite() {
    const double start = Microseconds();
    char* p = static_cast<char*>(osMemAlloc(32, 0));
    const double elapsed = Microseconds() - start;
    *static_cast<volatile char*>(p) = char(N);
    osMemFree(p);
    return elapsed;
}

template <int... N>
std::vector<double> FirstTimeSites(std::integer_sequence<int, N...>) {
    std::vector<double> times{TimeSite<N>()...};
    std::sort(times.begin(), times.end());
    return times;
}

}  // namespace

KV_BENCH(memory_instrumented) {
    CaptureFn capture = Capture();
    EnableCallStackAndAllocationInstrumentation(0, 2, const_cast<char*>(""), 0);
    kvbench::Compare(
        "instrumented allocation, cached site vs bare 40-frame capture", [](int64_t n) { OsMemPair(32, n); },
        [=](int64_t n) {
            void* frames[40];
            for (int64_t i = 0; i < n; ++i) capture(0, 40, frames, nullptr);
        },
        2000, 1.3, nullptr, 41);
    // First-time sites: each resolves a new stack, and a new return address,
    // through the symbol handler; each site is timed once.
    const std::vector<double> firstTimes = FirstTimeSites(std::make_integer_sequence<int, kFirstTimeSites>());
    HANDLE heap = GetProcessHeap();
    const double heapPair = kvbench::NanosPerOp([=](int64_t n) { HeapPair(heap, 32, n); }, 100000);
    char value[160];
    snprintf(value, sizeof value, "%.1f us median, %.1f - %.1f us over %d sites (peer HeapAlloc/HeapFree %.2f us)",
             firstTimes[firstTimes.size() / 2], firstTimes.front(), firstTimes.back(), kFirstTimeSites,
             heapPair / 1000);
    kvbench::Report("instrumented allocation, first-time site (target < 50 us)", value);
    EnableCallStackAndAllocationInstrumentation(0, 0, const_cast<char*>(""), 0);
}

namespace {

// An Annex K style checked copy (memcpy_s) as a C runtime would have it, out
// of line: the peer of the checked copies.
__attribute__((noinline)) int AnnexKCopy(void* dst, size_t dstSize, const void* src, size_t count) {
    constexpr size_t kMaxSize = SIZE_MAX >> 1;
    if (count == 0) return 0;
    if (!dst || dstSize > kMaxSize) return EINVAL;
    if (!src || count > dstSize) {
        memset(dst, 0, dstSize);
        return src ? ERANGE : EINVAL;
    }
    memcpy(dst, src, count);
    return 0;
}

// One copy of kSize bytes through fn(dst, src, kSize) per iteration; the
// barrier keeps the compiler from dropping or merging the copies. The size is
// a constant, so the memcpy baseline is what the compiler makes of it (at 64
// bytes four inline 16-byte moves).
template <uint32_t kSize, typename CopyFn>
std::function<void(int64_t)> Copies(char* dst, const char* src, CopyFn fn) {
    return [=](int64_t n) {
        for (int64_t i = 0; i < n; ++i) {
            fn(dst, src, kSize);
            asm volatile("" ::"r"(dst) : "memory");
        }
    };
}

template <uint32_t kSize>
void CopyRows(char* dst, char* block, const char* src) {
    const auto plain = [](char* d, const char* s, uint32_t size) { memcpy(d, s, size); };
    const auto annexK = [](char* d, const char* s, uint32_t size) { AnnexKCopy(d, size, s, size); };
    const auto checked = [](char* d, const char* s, uint32_t size) { MemSafeCopy(d, s, size, size); };
    const auto kv = [](char* d, const char* s, uint32_t size) { KvMemSafeCopy(d, s, size); };
    // A 64-byte copy takes nanoseconds: many short rounds, so that a quiet
    // moment of the shared machine falls in some of each side's rounds.
    const double target = kSize <= 64 ? 3.0 : 1.1;
    const int64_t iterations = kSize <= 64 ? 200000 : 40000000 / kSize;
    const int rounds = kSize <= 64 ? 101 : 15;
    const std::string bytes = std::to_string(kSize) + " B";
    kvbench::CompareWithPeer("MemSafeCopy " + bytes + " vs memcpy", Copies<kSize>(dst, src, checked),
                             Copies<kSize>(dst, src, plain), "memcpy_s", Copies<kSize>(dst, src, annexK), iterations,
                             target, rounds);
    kvbench::CompareWithPeer("KvMemSafeCopy " + bytes + " vs memcpy", Copies<kSize>(block, src, kv),
                             Copies<kSize>(block, src, plain), "memcpy_s", Copies<kSize>(block, src, annexK),
                             iterations, target, rounds);
}

}  // namespace

KV_BENCH(memory_safe_copy) {
    constexpr uint32_t kLargest = 65536;
    std::vector<char> src(kLargest, 'a'), dst(kLargest);
    char* block = static_cast<char*>(osMemAlloc(kLargest, 0));
    CopyRows<64>(dst.data(), block, src.data());
    CopyRows<4096>(dst.data(), block, src.data());
    CopyRows<65536>(dst.data(), block, src.data());
    osMemFree(block);
}

namespace {

// A private product INI file whose log folder is in the scratch folder, so the
// report reaches a real debug log.
bool UseScratchInstallation() {
    const std::string ini = kvbench::ScratchFolder() + "\\product.ini";
    const std::string logs = kvbench::ScratchFolder() + "\\Logs";
    CreateDirectoryA(logs.c_str(), nullptr);
    WritePrivateProfileStringA("KVEDIT", "LOGS", logs.c_str(), ini.c_str());
    SetKorvanIniFilePath(ini.c_str());
    return ValidateKorvanIniFile() == 1;
}

// What the report does, done plainly: walk the heap under its lock, then write
// the same number of lines of the same length, each flushed.
void WalkAndWrite(FILE* out, const std::string& line, uint32_t lines) {
    HANDLE heap = GetProcessHeap();
    PROCESS_HEAP_ENTRY entry{};
    uint32_t busy = 0;
    HeapLock(heap);
    while (HeapWalk(heap, &entry)) busy += (entry.wFlags & PROCESS_HEAP_ENTRY_BUSY) != 0;
    HeapUnlock(heap);
    for (uint32_t i = 0; i < lines; ++i) {
        fputs(line.c_str(), out);
        fflush(out);
    }
    asm volatile("" ::"r"(busy));
}

}  // namespace

KV_BENCH(memory_report) {
    if (!UseScratchInstallation()) {
        kvbench::Report("memory report", "skipped: the scratch product INI file does not validate");
        return;
    }
    char logPath[260];
    GetDebugLogFilePath(-1, 1, logPath, sizeof logPath);
    std::string folder = logPath;
    folder.resize(folder.find_last_of('\\'));
    FILE* out = fopen((folder + "\\baseline.txt").c_str(), "ab");
    std::vector<void*> listedBlocks, plainBlocks;
    for (uint32_t count : {10000u, 30000u, 100000u}) {
        // A tenth instrumented (listed), the rest plain (walked, not listed).
        const uint32_t listed = count / 10;
        EnableCallStackAndAllocationInstrumentation(0, 1, const_cast<char*>(""), 0);
        while (listedBlocks.size() < listed) listedBlocks.push_back(osMemAllocDbg(32, 0, __FILE__, __LINE__));
        EnableCallStackAndAllocationInstrumentation(0, 0, const_cast<char*>(""), 0);
        while (plainBlocks.size() < count - listed) plainBlocks.push_back(osMemAlloc(32, 0));
        char line[160];
        const int length = snprintf(line, sizeof line, "Buffer, 2026-01-01 00:00:00, %05d, %05d, 0x%p, %s:%d, \r\n", 32,
                                    int(GetCurrentProcessId()), listedBlocks[0], __FILE__, __LINE__);
        const std::string sample(line, size_t(length));
        EnableCallStackAndAllocationInstrumentation(0, 1, const_cast<char*>(""), 0);
        double reportNanos = 0;
        kvbench::Compare(
            "DbgMemHeapReport, " + std::to_string(count) + " live, " + std::to_string(listed) + " listed",
            [](int64_t n) {
                for (int64_t i = 0; i < n; ++i) DbgMemHeapReport(0, 0xFFFFFFFFu, 0);
            },
            [&](int64_t n) {
                for (int64_t i = 0; i < n; ++i) WalkAndWrite(out, sample, listed + 5);
            },
            3, 1.2, &reportNanos);
        char value[64];
        snprintf(value, sizeof value, "%.1f ns per live allocation", reportNanos / double(count));
        kvbench::Report("DbgMemHeapReport cost at " + std::to_string(count) + " live", value);
        EnableCallStackAndAllocationInstrumentation(0, 0, const_cast<char*>(""), 0);
    }
    for (void* p : listedBlocks) osMemFree(p);
    for (void* p : plainBlocks) osMemFree(p);
    if (out) fclose(out);
}
