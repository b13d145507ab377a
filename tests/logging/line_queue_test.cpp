// The debug log's line queue over a stub file, under every interleaving of a
// few threads: no thread is left asleep while nobody writes, every line
// reaches the file once and in its thread's order, and no call returns
// before its line is written.
#include <gtest/gtest.h>

#include <memory>
#include <sstream>

#include "interleavings.h"
#include "logging/line_queue.h"

namespace {

using kvtest::Interleaver;

struct StubFile {
    int rollEvery;  // every n-th batch fills the file (0: never)
    int batches = 0;
    std::string text;
    bool ComposePath(char (&path)[MAX_PATH]) {
        strcpy(path, "live");
        return true;
    }
    kv::BatchResult Write(const char*, const char* bytes, size_t length, unsigned, const char* extra, size_t extraLength) {
        text.append(bytes, length).append(extra ? extra : "", extra ? extraLength : 0);
        kv::BatchResult result;
        result.roll = rollEvery && ++batches % rollEvery == 0;
        return result;
    }
};

struct Case {
    const char* name;
    std::vector<int> lines;  // lines per thread; -1: one line longer than a batch
    size_t capacityLines;    // a batch holds this many short lines
    int batchesPerWriter;
    int rollEvery;
};

constexpr size_t kLineBytes = 4;  // "A00\n"

std::string LineOf(size_t thread, int i, size_t length) {
    std::string line = char('A' + thread) + std::to_string(i / 10) + std::to_string(i % 10);
    return line + std::string(length - kLineBytes, '=') + "\n";
}

struct QueueRun {
    QueueRun(Interleaver& s, const Case& c)
        : file{c.rollEvery, 0, {}}, capacity(c.capacityLines * kLineBytes), buffers(2 * capacity),
          queue(s, file, &buffers[0], &buffers[capacity], capacity, c.batchesPerWriter) {}
    StubFile file;
    size_t capacity;
    std::vector<char> buffers;
    kv::LineQueue<Interleaver, StubFile> queue;
    std::vector<std::vector<std::string>> expected;
    std::string early;  // a line whose call returned before it was written
};

class LineQueueHandover : public ::testing::TestWithParam<Case> {};

TEST_P(LineQueueHandover, EveryInterleavingWritesEveryLineOnceAndLeavesNobodyAsleep) {
    const Case& c = GetParam();
    std::unique_ptr<QueueRun> run;
    const auto make = [&](Interleaver& s) {
        run = std::make_unique<QueueRun>(s, c);
        Interleaver::Bodies bodies;
        for (size_t t = 0; t < c.lines.size(); ++t) {
            const int count = c.lines[t] < 0 ? 1 : c.lines[t];
            const size_t length = c.lines[t] < 0 ? run->capacity + kLineBytes : kLineBytes;
            run->expected.emplace_back();
            for (int i = 0; i < count; ++i) run->expected[t].push_back(LineOf(t, i, length));
            bodies.push_back([&r = *run, t] {
                for (const std::string& line : r.expected[t]) {
                    r.queue.Append(line.data(), line.size());
                    if (r.file.text.find(line) == std::string::npos) r.early = line;
                }
            });
        }
        return bodies;
    };
    const auto check = [&]() -> std::string {
        if (!run->early.empty()) return "returned before written: " + run->early;
        std::vector<std::vector<std::string>> seen(c.lines.size());
        std::istringstream in(run->file.text);
        for (std::string line; std::getline(in, line);) {
            const size_t thread = line.empty() ? seen.size() : size_t(line[0] - 'A');
            if (thread >= seen.size()) return "a torn line: " + line;
            seen[thread].push_back(line + "\n");
        }
        return seen == run->expected ? "" : "file holds:\n" + run->file.text;
    };
    const Interleaver::Outcome outcome = Interleaver::Explore(make, check);
    EXPECT_EQ("", outcome.failure);
    // The threads really interleaved: more than one schedule per thread.
    EXPECT_GT(outcome.schedules, c.lines.size());
    std::printf("%s: %zu schedules\n", c.name, outcome.schedules);
}

const Case kCases[] = {
    {"TwoThreadsHandOverAfterEachBatch", {2, 2}, 8, 1, 0},
    {"ThreeThreadsOneLineEach", {1, 1, 1}, 8, 1, 0},
    {"ThreeThreadsWriterWritesTwoBatches", {2, 1, 1}, 8, 2, 0},
    {"AFullBatchMakesThreadsWaitForRoom", {2, 2}, 1, 1, 0},
    {"AReportLargerThanABatch", {-1, 1, 1}, 2, 1, 0},
    {"RollsMakeTheWriterComposeThePathAgain", {2, 1, 1}, 8, 2, 1},
};

INSTANTIATE_TEST_SUITE_P(All, LineQueueHandover, ::testing::ValuesIn(kCases),
                         [](const auto& info) { return std::string(info.param.name); });

}  // namespace
