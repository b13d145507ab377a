// kvbench [NAME...]: runs the registered benchmarks (all, or those named).
#include <windows.h>
#include <stdio.h>
#include <string.h>

#include <algorithm>
#include <initializer_list>
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

namespace {

struct Timed {
    const std::function<void(int64_t)>* body;
    double best = 1e300;
};

// Alternating rounds over every side after one warm-up each (caches, files,
// lazy set-up); the fastest round of each side counts.
void TimeAlternating(std::initializer_list<Timed*> sides, int64_t iterations, int rounds) {
    for (Timed* side : sides) (*side->body)(iterations / 10 + 1);
    for (int r = 0; r < rounds; ++r)
        for (Timed* side : sides) side->best = std::min(side->best, NanosPerOp(*side->body, iterations, 1));
}

std::string Verdict(double ratio, double target) {
    char verdict[48] = "";
    if (target > 0) snprintf(verdict, sizeof verdict, "%s (target <= %.2f)", ratio <= target ? "ok" : "OVER", target);
    return verdict;
}

}  // namespace

double Compare(const std::string& figure, const std::function<void(int64_t)>& subject,
               const std::function<void(int64_t)>& baseline, int64_t iterations, double target,
               double* subjectNanos, int rounds) {
    Timed s{&subject}, b{&baseline};
    TimeAlternating({&s, &b}, iterations, rounds);
    const double ratio = s.best / b.best;
    if (subjectNanos) *subjectNanos = s.best;
    printf("| %-66s | %9.1f ns | %9.1f ns | %6.2f | %s\n", figure.c_str(), s.best, b.best, ratio,
           Verdict(ratio, target).c_str());
    return ratio;
}

double CompareWithPeer(const std::string& figure, const std::function<void(int64_t)>& subject,
                       const std::function<void(int64_t)>& baseline, const std::string& peerName,
                       const std::function<void(int64_t)>& peer, int64_t iterations, double target, int rounds) {
    Timed s{&subject}, b{&baseline}, p{&peer};
    TimeAlternating({&s, &b, &p}, iterations, rounds);
    const double ratio = s.best / b.best;
    printf("| %-66s | %9.1f ns | %9.1f ns | %6.2f | %s | peer %s %.1f ns, %.2f\n", figure.c_str(), s.best, b.best,
           ratio, Verdict(ratio, target).c_str(), peerName.c_str(), p.best, p.best / b.best);
    return ratio;
}

namespace {

double Median(std::vector<double> values) {
    std::sort(values.begin(), values.end());
    const size_t middle = values.size() / 2;
    return values.size() % 2 ? values[middle] : (values[middle - 1] + values[middle]) / 2;
}

}  // namespace

double CompareMedian(const std::string& figure, const std::function<void(int64_t)>& subject,
                     const std::function<void(int64_t)>& baseline, int64_t iterations, double target, int runs,
                     const std::vector<Side>& others) {
    std::vector<const std::function<void(int64_t)>*> sides{&subject, &baseline};
    for (const Side& other : others) sides.push_back(&other.body);
    for (const auto* side : sides) (*side)(iterations / 10 + 1);  // warm-up: files, threads, lazy set-up
    std::vector<std::vector<double>> nanos(sides.size());
    for (int run = 0; run < runs; ++run)
        for (size_t i = 0; i < sides.size(); ++i) {
            const size_t side = (size_t(run) + i) % sides.size();
            nanos[side].push_back(NanosPerOp(*sides[side], iterations, 1));
        }
    std::vector<std::vector<double>> ratios(sides.size());
    for (size_t side = 0; side < sides.size(); ++side)
        for (int run = 0; run < runs; ++run) ratios[side].push_back(nanos[side][run] / nanos[1][run]);
    const double ratio = Median(ratios[0]);
    const auto spread = std::minmax_element(ratios[0].begin(), ratios[0].end());
    printf("| %-66s | %9.1f ns | %9.1f ns | %6.2f | %s | median of %d runs, %.2f-%.2f", figure.c_str(),
           Median(nanos[0]), Median(nanos[1]), ratio, Verdict(ratio, target).c_str(), runs, *spread.first,
           *spread.second);
    for (size_t i = 0; i < others.size(); ++i)
        printf(" | %s %.1f ns, %.2f", others[i].name.c_str(), Median(nanos[i + 2]), Median(ratios[i + 2]));
    printf("\n");
    return ratio;
}

void Report(const std::string& figure, const std::string& value) {
    printf("| %-66s | %s\n", figure.c_str(), value.c_str());
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
    printf("| %-66s | %12s | %12s | %6s |\n", "figure", "subject", "baseline", "ratio");
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
