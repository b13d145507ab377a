// Damaged dumps: real light and heavy dumps of a crashed child host, corrupted
// at every header and directory field, at named fields and at random offsets,
// are read in-process by dumpinfo's reader from a buffer that ends at a
// no-access page. Nothing may crash or read past the buffer, and each named
// corruption must be reported for what it is.
#include <gtest/gtest.h>

#include <stddef.h>

#include <random>

#include "dump/dump_reader.h"
#include "dump/dump_summary.h"
#include "guarded_buffer.h"
#include "installed_host.h"

namespace {

// A real dump of an access violation in a child host, as bytes.
std::string CrashDump(const char* host, const char* type) {
    kvtest::ProductInstall install;
    install.SetValue("Debug", "MiniDumpType", type);
    const auto result = kvtest::ChildHost(host).Run({"crash_access_violation", install.iniPath()}, 600000);
    EXPECT_EQ(0xC0000005u, result.exitCode) << result.output;
    return kvtest::ReadFileText(install.logDir() + "\\user.dmp");
}

// A dump's bytes right before a no-access page, read by dumpinfo's reader.
class GuardedDump {
public:
    explicit GuardedDump(const std::string& bytes) : buffer_(bytes.size()) {
        memcpy(buffer_.data(), bytes.data(), bytes.size());
    }
    // The reader's exit code and output, with `value` put at `offset` for the
    // time of the read.
    std::pair<int, std::string> Summarize(uint64_t offset = UINT64_MAX, uint32_t value = 0) {
        uint32_t saved = 0;
        const bool poke = offset <= buffer_.size() && buffer_.size() - offset >= 4;
        if (poke) memcpy(&saved, buffer_.data() + offset, 4), memcpy(buffer_.data() + offset, &value, 4);
        const kvdiag::DumpView view(
            kvdiag::ByteView(reinterpret_cast<const unsigned char*>(buffer_.data()), buffer_.size()));
        FILE* out = tmpfile();
        kvdiag::SummaryOptions options;
        options.walk.nameFrames = false;
        const int rc = kvdiag::PrintDumpSummary(view, "fuzzed.dmp", options, out);
        std::string text(static_cast<size_t>(ftell(out)), '\0');
        rewind(out);
        text.resize(fread(&text[0], 1, text.size(), out));
        fclose(out);
        if (poke) memcpy(buffer_.data() + offset, &saved, 4);
        return {rc, text};
    }

private:
    kvtest::GuardedBuffer buffer_;
};

uint32_t Word(const std::string& bytes, uint64_t offset) {
    uint32_t value = 0;
    if (offset + 4 <= bytes.size()) memcpy(&value, bytes.data() + offset, 4);
    return value;
}

void Put(std::string& bytes, uint64_t offset, uint32_t value) {
    if (offset + 4 <= bytes.size()) memcpy(&bytes[offset], &value, 4);
}

// The file offset of a stream's directory entry, or 0 when there is none.
uint64_t EntryOffset(const std::string& bytes, uint32_t type) {
    const uint32_t directory = Word(bytes, offsetof(MINIDUMP_HEADER, StreamDirectoryRva));
    for (uint32_t i = 0; i < Word(bytes, offsetof(MINIDUMP_HEADER, NumberOfStreams)); ++i)
        if (Word(bytes, directory + i * 12ull) == type) return directory + i * 12ull;
    return 0;
}

// The file offset of the first byte of a stream, or 0 when there is none.
uint64_t StreamRva(const std::string& bytes, uint32_t type) {
    const uint64_t entry = EntryOffset(bytes, type);
    return entry ? Word(bytes, entry + offsetof(MINIDUMP_DIRECTORY, Location.Rva)) : 0;
}

class DamagedDump : public testing::Test {
protected:
    static void SetUpTestSuite() {
        dumps_ = new std::pair<std::string, std::string>{CrashDump("fuzz_dump_light", "1"),
                                                          CrashDump("fuzz_dump_heavy", "3")};
    }
    static void TearDownTestSuite() { delete dumps_; }
    static const std::string& Light() { return dumps_->first; }
    static const std::string& Heavy() { return dumps_->second; }

private:
    static std::pair<std::string, std::string>* dumps_;
};
std::pair<std::string, std::string>* DamagedDump::dumps_ = nullptr;

TEST_F(DamagedDump, SoundDumpsReadWhole) {
    for (const std::string* dump : {&Light(), &Heavy()}) {
        ASSERT_GT(dump->size(), 1024u);
        const auto result = GuardedDump(*dump).Summarize();
        EXPECT_EQ(0, result.first) << result.second;
        EXPECT_EQ(std::string::npos, result.second.find("Damage")) << result.second;
    }
}

TEST_F(DamagedDump, EachNamedDamageIsReported) {
    const uint32_t kHuge = 0x7fffffff, kPastEnd = 0xfffffff0;
    const size_t contextRva = offsetof(MINIDUMP_EXCEPTION_STREAM, ThreadContext) + 4;
    enum Field { kCut, kStreams, kDirectory, kStreamCount, kExceptionRva, kContextRva };
    const struct {
        bool heavy;
        Field field;
        uint32_t type;   // the stream whose count or RVA is hit
        uint64_t value;  // for kCut, the length kept (0: half the file)
        const char* expected;
    } cases[] = {
        {false, kCut, 0, 1024, "Truncated:"},
        {true, kCut, 0, 65536, "full memory (cut short: see Damage)"},
        {true, kCut, 0, 0, "bytes of memory lie past the end of the file"},
        {false, kStreams, 0, kHuge, "stream directory: 2147483647 entries at RVA"},
        {false, kDirectory, 0, kPastEnd, "stream directory:"},
        {false, kExceptionRva, ExceptionStream, kPastEnd, "bytes at RVA 0xfffffff0 run past the end"},
        {true, kContextRva, ExceptionStream, kPastEnd, "the thread context"},
        {false, kStreamCount, MemoryListStream, kHuge, "memory list: 2147483647 entries claimed"},
        {true, kStreamCount, Memory64ListStream, kHuge, "full-memory list: 2147483647 ranges claimed"},
        {true, kStreamCount, ModuleListStream, kHuge, "module list: 2147483647 entries claimed"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.expected);
        std::string bytes = c.heavy ? Heavy() : Light();
        const uint64_t at = StreamRva(bytes, c.type);
        switch (c.field) {
            case kCut: bytes.resize(c.value ? c.value : bytes.size() / 2); break;
            case kStreams: Put(bytes, offsetof(MINIDUMP_HEADER, NumberOfStreams), uint32_t(c.value)); break;
            case kDirectory: Put(bytes, offsetof(MINIDUMP_HEADER, StreamDirectoryRva), uint32_t(c.value)); break;
            case kStreamCount: Put(bytes, at, uint32_t(c.value)); break;
            case kContextRva: Put(bytes, at + contextRva, uint32_t(c.value)); break;
            case kExceptionRva:
                Put(bytes, EntryOffset(bytes, c.type) + offsetof(MINIDUMP_DIRECTORY, Location.Rva), uint32_t(c.value));
                break;
        }
        const auto result = GuardedDump(bytes).Summarize();
        EXPECT_EQ(1, result.first);
        EXPECT_NE(std::string::npos, result.second.find(c.expected)) << result.second;
    }
}

// Hostile values in every 32-bit word of the header and the directory, then
// random words anywhere in the structure (the memory a heavy dump holds is
// left out: it is copied, never taken as structure). A read past the buffer
// faults at its no-access page; an RVA, size or count set to all ones must be
// reported as damage.
TEST_F(DamagedDump, SurvivesEveryFieldAndRandomDamage) {
    std::mt19937 random(17);
    for (const std::string* dump : {&Light(), &Heavy()}) {
        GuardedDump guarded(*dump);
        const uint64_t directory = Word(*dump, offsetof(MINIDUMP_HEADER, StreamDirectoryRva));
        const uint64_t directoryEnd = directory + 12ull * Word(*dump, offsetof(MINIDUMP_HEADER, NumberOfStreams));
        std::vector<uint64_t> offsets;
        for (uint64_t at = 0; at < sizeof(MINIDUMP_HEADER); at += 4) offsets.push_back(at);
        for (uint64_t at = directory; at < directoryEnd; at += 4) offsets.push_back(at);
        const uint64_t memory = StreamRva(*dump, Memory64ListStream);
        const uint64_t structureEnd = memory ? Word(*dump, memory + 8) : dump->size();
        for (int i = 0; i < 100; ++i) offsets.push_back(random() % (structureEnd - 4));
        const uint32_t size = static_cast<uint32_t>(dump->size());
        for (uint64_t at : offsets) {
            // A stream's size, or the RVA of one that has bytes (an unused entry's does not matter).
            const uint64_t entry = at < directory ? 0 : directory + (at - directory) / 12 * 12;
            const bool located = at == offsetof(MINIDUMP_HEADER, NumberOfStreams) ||
                                 at == offsetof(MINIDUMP_HEADER, StreamDirectoryRva) ||
                                 (at >= directory && at < directoryEnd &&
                                  (at - entry == 4 || (at - entry == 8 && Word(*dump, entry + 4) != 0)));
            for (uint32_t value : {0u, 0xffffffffu, size - 4, uint32_t(random())}) {
                const int rc = guarded.Summarize(at, value).first;
                if (located && value == 0xffffffffu) EXPECT_EQ(1, rc) << "offset " << at;
            }
        }
    }
}

}  // namespace
