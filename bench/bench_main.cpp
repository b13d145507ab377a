// kvbench [NAME...]: runs the registered benchmarks (all, or those named).
#include <windows.h>
#include <stdio.h>
#include <string.h>

#include <algorithm>
#include <vector>

#include "bench.h"
#include "temp_dir.h"

namespace kvbench {

namespace {

struct Entry {
    const char* name;
    BenchFn fn;
};

std::vector<Entry>& Entries() {
    static std::vector<Entry> entries;
    return entries;
}

double Now() {
    static LARGE_INTEGER frequency = [] {
        LARGE_INTEGER f;
        QueryPerformanceFrequency(&f);
        return f;
    }();
    LARGE_INTEGER t;
    QueryPerformanceCounter(&t);
    return double(t.QuadPart) * 1e9 / double(frequency.QuadPart);
}

}  // namespace

BenchRegistrar::BenchRegistrar(const char* name, BenchFn fn) { Entries().push_back({name, fn}); }

double NanosPerOp(const std::function<void(int64_t)>& body, int64_t iterations, int rounds) {
    double best = 1e300;
    for (int r = 0; r < rounds; ++r) {
        const double start = Now();
        body(iterations);
        best = std::min(best, (Now() - start) / double(iterations));
    }
    return best;
}

double Compare(const std::string& figure, const std::function<void(int64_t)>& subject,
               const std::function<void(int64_t)>& baseline, int64_t iterations, double target,
               double* subjectNanos, int rounds) {
    subject(iterations / 10 + 1);  // warm caches, files and lazy set-up
    baseline(iterations / 10 + 1);
    double s = 1e300, b = 1e300;
    for (int r = 0; r < rounds; ++r) {
        s = std::min(s, NanosPerOp(subject, iterations, 1));
        b = std::min(b, NanosPerOp(baseline, iterations, 1));
    }
    const double ratio = s / b;
    if (subjectNanos) *subjectNanos = s;
    char verdict[48] = "";
    if (target > 0) snprintf(verdict, sizeof verdict, "%s (target <= %.2f)", ratio <= target ? "ok" : "OVER", target);
    printf("| %-58s | %9.1f ns | %9.1f ns | %6.2f | %s\n", figure.c_str(), s, b, ratio, verdict);
    return ratio;
}

void Report(const std::string& figure, const std::string& value) {
    printf("| %-58s | %s\n", figure.c_str(), value.c_str());
}

std::string ScratchFolder() {
    static kvtest::TempDir dir("kvbench");
    return dir.path();
}

}  // namespace kvbench

int main(int argc, char** argv) {
    auto& entries = kvbench::Entries();
    std::sort(entries.begin(), entries.end(),
              [](const kvbench::Entry& a, const kvbench::Entry& b) { return strcmp(a.name, b.name) < 0; });
    printf("| %-58s | %12s | %12s | %6s |\n", "figure", "subject", "baseline", "ratio");
    for (const auto& e : entries) {
        bool wanted = argc < 2;
        for (int i = 1; i < argc; ++i) wanted = wanted || !strcmp(argv[i], e.name);
        if (!wanted) continue;
        printf("\n[%s]\n", e.name);
        fflush(stdout);
        e.fn();
        fflush(stdout);
    }
    return 0;
}
