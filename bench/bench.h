// A small benchmark harness: each benchmark times a subject and its baseline
// in the same run and reports the ratio, so the figures hold on any machine.
// Timing uses QueryPerformanceCounter; each side is run in alternating rounds
// and the fastest round counts, which keeps noise from a busy machine out.
#pragma once

#include <stdint.h>

#include <functional>
#include <string>
#include <vector>

namespace kvbench {

// Nanoseconds per operation of body(iterations), best of `rounds`.
double NanosPerOp(const std::function<void(int64_t iterations)>& body, int64_t iterations, int rounds = 5);

// Times subject and baseline in alternating rounds; prints one table row.
// target: the ratio the subject must stay within (0: report only).
// Returns the ratio subject / baseline; subjectNanos, when given, receives the
// subject's best time per operation. rounds: alternating rounds per side (more
// for figures close to their target, so a busy moment cannot decide them).
double Compare(const std::string& figure, const std::function<void(int64_t)>& subject,
               const std::function<void(int64_t)>& baseline, int64_t iterations, double target = 0,
               double* subjectNanos = nullptr, int rounds = 7);

// Compare, with a peer (another library's way of doing what the subject does)
// timed in the same alternating rounds; the peer's time and its ratio to the
// baseline are printed beside the subject's. Returns subject / baseline.
double CompareWithPeer(const std::string& figure, const std::function<void(int64_t)>& subject,
                       const std::function<void(int64_t)>& baseline, const std::string& peerName,
                       const std::function<void(int64_t)>& peer, int64_t iterations, double target = 0,
                       int rounds = 7);

// A side timed beside a comparison's subject and baseline.
struct Side {
    std::string name;
    std::function<void(int64_t)> body;
};

// For figures that move with the machine's load (threads, file calls): runs
// subject, baseline and the other sides one after the other, `runs` times,
// each run starting with the next side, and prints the median of the runs'
// ratios subject / baseline with their spread (lowest-highest), and each other
// side's median ratio to the baseline. Returns the median ratio.
double CompareMedian(const std::string& figure, const std::function<void(int64_t)>& subject,
                     const std::function<void(int64_t)>& baseline, int64_t iterations, double target = 0,
                     int runs = 7, const std::vector<Side>& others = {});

// Prints a row with a free-form value (lines per second, a longest call, ...).
void Report(const std::string& figure, const std::string& value);

// A private folder for the benchmark's files, removed at exit.
std::string ScratchFolder();

using BenchFn = void (*)();
struct BenchRegistrar {
    BenchRegistrar(const char* name, BenchFn fn);
};

}  // namespace kvbench

#define KV_BENCH(id)                                                   \
    static void id##_bench();                                          \
    static ::kvbench::BenchRegistrar id##_registrar(#id, id##_bench);  \
    static void id##_bench()
