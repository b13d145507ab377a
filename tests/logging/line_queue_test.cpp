// The debug log's line queue over a stub file, under every interleaving of a
// few threads: nobody is left asleep while nobody writes, every line reaches
// the file once and in its thread's order, no call returns before its line.
#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <thread>

#include "interleavings.h"
#include "logging/line_queue.h"
#include "logging/slim_sync.h"

namespace {

using kvtest::Interleaver;

struct StubFile {
    int rollEvery;  // every n-th batch fills the file (0: never)
    int batches = 0;
    std::string text;
    bool ComposePath(char (&path)[MAX_PATH]) { return strcpy(path, "live") != nullptr; }
    kv::BatchResult Write(const char*, const char* bytes, size_t length, unsigned, const char* extra,
                          size_t extraLength) {
        text.append(bytes, length).append(extra ? extra : "", extra ? extraLength : 0);
        kv::BatchResult result;
        result.roll = rollEvery && ++batches % rollEvery == 0;
        return result;
    }
};

constexpr size_t kLine = 3;  // "A0\n"; a report: "A0====...\n", longer than a batch

struct QueueRun {
    QueueRun(Interleaver& s, size_t capacity, int batchesPerWriter, int rollEvery)
        : file{rollEvery, 0, {}}, buffers(2 * capacity),
          queue(s, file, &buffers[0], &buffers[capacity], capacity, batchesPerWriter) {}
    StubFile file;
    std::vector<char> buffers;
    kv::LineQueue<Interleaver, StubFile> queue;
    std::string order, early;  // the file's lines expected in thread order; one that returned too soon
};

TEST(LineQueueHandover, EveryInterleavingWritesEveryLineOnceAndLeavesNobodyAsleep) {
    const struct {
        const char* name;
        std::vector<int> lines;  // per thread; -1: one report longer than a batch
        size_t capacityLines;
        int batchesPerWriter, rollEvery;
    } cases[] = {{"two threads, a handover after each batch", {2, 2}, 8, 1, 0},
                 {"three threads", {1, 1, 1}, 8, 1, 0},
                 {"a writer writing two batches", {2, 1, 1}, 8, 2, 0},
                 {"waiting for room in a full batch", {2, 2}, 1, 1, 0},
                 {"a report larger than a batch", {-1, 1, 1}, 2, 1, 0},
                 {"rolls: the path composed again", {2, 1, 1}, 8, 2, 1}};
    for (const auto& c : cases) {
        std::unique_ptr<QueueRun> run;
        std::vector<std::vector<std::string>> lines(c.lines.size());
        for (size_t t = 0; t < c.lines.size(); ++t)
            for (int i = 0; i < std::max(1, c.lines[t]); ++i)
                lines[t].push_back(std::string{char('A' + t), char('0' + i)} +
                                   std::string(c.lines[t] < 0 ? c.capacityLines * kLine : 0, '=') + "\n");
        const auto make = [&](Interleaver& s) {
            run = std::make_unique<QueueRun>(s, c.capacityLines * kLine, c.batchesPerWriter, c.rollEvery);
            Interleaver::Bodies bodies;
            for (const auto& mine : lines)
                bodies.push_back([&r = *run, &mine] {
                    for (const std::string& line : mine) {
                        r.queue.Append(line.data(), line.size());
                        if (r.file.text.find(line) == std::string::npos) r.early = line;
                    }
                });
            return bodies;
        };
        const auto check = [&]() -> std::string {
            if (!run->early.empty()) return "returned before written: " + run->early;
            std::string byThread;  // the file's lines grouped by thread, in the order they came
            const std::string& text = run->file.text;
            for (char t = 'A'; t < char('A' + lines.size()); ++t)
                for (size_t at = 0; at < text.size(); at = text.find('\n', at) + 1)
                    if (text[at] == t) byThread += text.substr(at, text.find('\n', at) + 1 - at);
            std::string expected;
            for (const auto& mine : lines)
                for (const auto& line : mine) expected += line;
            return byThread == expected && text.size() == expected.size() ? "" : "file:\n" + text;
        };
        const auto outcome = Interleaver::Explore(make, check);
        EXPECT_EQ("", outcome.second) << c.name;
        EXPECT_GT(outcome.first, c.lines.size()) << c.name << ": the threads never interleaved";
    }
}

// The queue over the real lock and sleeps, with real threads, both ways a
// system gives them (Windows 7 has no address waits): every line once, in its
// thread's order, none returned before its batch was written. Every 500th
// line is longer than a batch; the small batch makes threads wait for room.
constexpr int kThreads = 8, kLinesEach = 3000;
constexpr size_t kSmallBatch = 256;

struct CountingFile {
    std::atomic<int> written[kThreads][kLinesEach] = {};
    int last[kThreads];  // the writer's own: one writes at a time
    bool inOrder = true, whole = true;
    CountingFile() { std::fill(std::begin(last), std::end(last), -1); }
    bool ComposePath(char (&path)[MAX_PATH]) { return strcpy(path, "live") != nullptr; }
    kv::BatchResult Write(const char*, const char* bytes, size_t length, unsigned, const char* extra,
                          size_t extraLength) {
        whole = whole && (extra || !extraLength);
        for (const std::string& part : {std::string(bytes, length), std::string(extra ? extra : "", extra ? extraLength : 0)})
            for (size_t at = 0, end; at < part.size(); at = end + 1) {
                end = part.find('\n', at);
                if (end == std::string::npos || end < at + 6) {
                    whole = false;
                    break;
                }
                const int thread = part[at] - 'A', number = atoi(part.substr(at + 1, 5).c_str());
                ++written[thread][number];
                inOrder = inOrder && number > last[thread];
                last[thread] = number;
            }
        return {};
    }
};

TEST(LineQueueThreads, RealThreadsWithAndWithoutAddressWaits) {
    for (const bool addressWaits : {true, false}) {
        SCOPED_TRACE(addressWaits ? "address waits" : "condition variables");
        kv::SlimSync sync(addressWaits ? kv::AddressWaits::Found() : kv::AddressWaits{});
        ASSERT_EQ(addressWaits, sync.addressWaits.wait != nullptr);
        auto file = std::make_unique<CountingFile>();
        std::vector<char> buffers(2 * kSmallBatch);
        kv::LineQueue<kv::SlimSync, CountingFile> queue(sync, *file, &buffers[0], &buffers[kSmallBatch], kSmallBatch, 2);
        std::atomic<int> early{0};
        std::vector<std::thread> threads;
        for (int t = 0; t < kThreads; ++t)
            threads.emplace_back([&, t] {
                for (int i = 0; i < kLinesEach; ++i) {
                    std::string line = std::string(1, char('A' + t)) + std::to_string(100000 + i).substr(1);
                    line += std::string(i % 500 ? 0 : kSmallBatch, '=') + "\n";
                    queue.Append(line.data(), line.size());
                    early += file->written[t][i] != 1;
                }
            });
        for (auto& thread : threads) thread.join();
        EXPECT_EQ(0, early.load()) << "calls returned before their line was written";
        EXPECT_TRUE(file->inOrder);
        EXPECT_TRUE(file->whole) << "a batch of torn lines, or a length without its text";
        int once = 0;
        for (const auto& mine : file->written)
            for (const auto& count : mine) once += count == 1;
        EXPECT_EQ(kThreads * kLinesEach, once);
    }
}

}  // namespace
