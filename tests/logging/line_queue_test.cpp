// The debug log's line queue over a stub file, under every interleaving of a
// few threads: nobody is left asleep while nobody writes, every line reaches
// the file once and in its thread's order, no call returns before its line.
#include <gtest/gtest.h>

#include <memory>

#include "interleavings.h"
#include "logging/line_queue.h"

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

}  // namespace
