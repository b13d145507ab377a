// Checked copies into caller buffers that end at a no-access page: nothing is
// ever written past the room, and a refused copy reaches the runtime's
// invalid-parameter handler with errno ERANGE.
#include <gtest/gtest.h>
#include <errno.h>
#include <string.h>

#include <string>

#include "KvDebugHelp.h"
#include "guarded_buffer.h"

using namespace std::string_literals;

namespace {

int HandlerCalls = 0;
void CountingHandler(const wchar_t*, const wchar_t*, const wchar_t*, unsigned, uintptr_t) { ++HandlerCalls; }

class SafeCopy : public ::testing::Test {
protected:
    void SetUp() override { previous_ = DbgHlpSetInvalidParameterHandler(CountingHandler); }
    void TearDown() override {
        DbgHlpSetInvalidParameterHandler(previous_);
        DbgHlpSetMemSafeCopyTrunc(0);
    }
    DbgHlpInvalidParameterHandler previous_ = nullptr;
};

const char kSource[] = "0123456789ABCDEFGHIJ";
const std::string kUntouched = "(untouched)";
constexpr int kAny = -1;

}  // namespace

// Each case writes into a fresh guarded buffer of its room; expected holds the
// leading bytes it must leave there.
TEST_F(SafeCopy, CallerBuffers) {
    const struct {
        const char* name;
        size_t room;
        uint8_t truncate;
        int (*write)(char*);
        std::string expected;
        int result, reports;
    } cases[] = {
        {"copy fits", 10, 0, [](char* d) { return MemSafeCopy(d, kSource, 10, 10), 0; }, "0123456789", 0, 0},
        {"copy refused", 10, 0, [](char* d) { return MemSafeCopy(d, kSource, 11, 10), 0; }, std::string(10, 0), 0, 1},
        {"copy truncated", 10, 1, [](char* d) { return MemSafeCopy(d, kSource, 11, 10), 0; }, "0123456789", 0, 0},
        {"copy from null", 10, 0, [](char* d) { return MemSafeCopy(d, nullptr, 5, 10), 0; }, kUntouched, 0, kAny},
        {"copy of no bytes", 10, 0, [](char* d) { return MemSafeCopy(d, kSource, 0, 10), 0; }, kUntouched, 0, kAny},
        {"copy to null", 10, 0, [](char*) { return MemSafeCopy(nullptr, kSource, 5, 10), 0; }, kUntouched, 0, kAny},
        {"move past the limit", 11, 0, [](char* d) { return MemSafeMove(d, kSource, 11, 10), 0; }, "0123456789A", 0, 0},
        {"move truncated", 10, 1, [](char* d) { return MemSafeMove(d, kSource, 11, 10), 0; }, "0123456789", 0, kAny},
        {"set truncated", 10, 1, [](char* d) { return MemSafeSet(d, 'x', 11, 10), 0; }, std::string(10, 'x'), 0, kAny},
        {"set nothing", 4, 1, [](char* d) { return MemSafeSet(d, 'x', 0, 4), 0; }, kUntouched, 0, kAny},
        {"reported cut", 4, 0, [](char* d) { return int(DbgHlpStrLengthCopy(d, "abcdef", 4)); }, "abc\0"s, 3, kAny},
        {"reported whole", 4, 0, [](char* d) { return int(DbgHlpStrLengthCopy(d, "xyz", 4)); }, "xyz\0"s, 3, kAny},
        {"reported no room", 1, 0, [](char* d) { return int(DbgHlpStrLengthCopy(d, "xyz", 1)); }, "\0"s, 0, kAny},
        {"reported null source", 1, 0, [](char* d) { return int(DbgHlpStrLengthCopy(d, nullptr, 1)); }, "", 0, kAny},
        {"reported null target", 1, 0, [](char*) { return int(DbgHlpStrLengthCopy(nullptr, "a", 1)); }, kUntouched, 0,
         kAny},
        {"silent cut", 5, 0, [](char* d) { return int(StrLengthCopy(d, "abcdef", 4)); }, "abcd\0"s, 4, kAny},
        {"silent shorter", 5, 0, [](char* d) { return int(StrLengthCopy(d, "ab", 4)); }, "ab\0"s, 2, kAny},
        {"silent null source", 5, 0, [](char* d) { return int(StrLengthCopy(d, nullptr, 4)); }, "\0"s, 0, kAny},
        {"silent null target", 5, 0, [](char*) { return int(StrLengthCopy(nullptr, "ab", 4)); }, kUntouched, 0, kAny},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        DbgHlpSetMemSafeCopyTrunc(c.truncate);
        kvtest::GuardedBuffer buffer(c.room);
        HandlerCalls = 0;
        errno = 0;
        EXPECT_EQ(c.result, c.write(buffer.data()));
        if (c.expected == kUntouched) { EXPECT_TRUE(buffer.Untouched()); }
        else { EXPECT_EQ(c.expected, std::string(buffer.data(), c.expected.size())); }
        if (c.reports != kAny) { EXPECT_EQ(c.reports, HandlerCalls); }
        if (c.reports > 0) { EXPECT_EQ(ERANGE, errno); }
    }
    char overlap[16] = "abcdefgh";
    MemSafeMove(overlap + 2, overlap, 6, 14);
    EXPECT_STREQ("ababcdef", overlap);
}

TEST_F(SafeCopy, KvVariantsTakeTheRoomFromTheAllocation) {
    char* block = static_cast<char*>(osMemAlloc(10, 0));
    KvMemSafeCopy(block, kSource, 10);
    EXPECT_EQ("0123456789", std::string(block, 10));
    HandlerCalls = 0;
    KvMemSafeCopy(block, kSource + 5, 11);  // refused: room zeroed
    EXPECT_EQ(std::string(10, '\0'), std::string(block, 10));
    EXPECT_EQ(1, HandlerCalls);
    DbgHlpSetMemSafeCopyTrunc(1);
    KvMemSafeMove(block, kSource, 20);
    EXPECT_EQ("0123456789", std::string(block, 10));
    KvMemSafeSet(block, 'z', 20);
    EXPECT_EQ(std::string(10, 'z'), std::string(block, 10));
    EXPECT_EQ(0, memcmp(block + 10, "\xDA\xDA\xDA\xDA", 4)) << "the trailer is intact";
    osMemFree(block);

    char stack[24];  // not an allocator pointer: nothing is copied
    memset(stack, 'S', sizeof stack);
    KvMemSafeCopy(stack + 8, kSource, 4);
    KvMemSafeSet(stack + 8, 0, 4);
    EXPECT_EQ(std::string(24, 'S'), std::string(stack, 24));
}

TEST_F(SafeCopy, StringCopies) {
    char* block = static_cast<char*>(osMemAlloc(6, 0));
    EXPECT_EQ(block, StrSafeCopy(block, "abcde"));
    EXPECT_STREQ("abcde", block);
    HandlerCalls = 0;
    EXPECT_EQ(block, StrSafeCopy(block, "abcdef"));  // no room for the terminator
    EXPECT_EQ('\0', block[0]);
    EXPECT_GE(HandlerCalls, 1);
    EXPECT_EQ(block, KvStrSafeCopy(block, "xyz"));
    EXPECT_STREQ("xyz", block);
    EXPECT_EQ(block, StrSafeCopy(block, nullptr));
    EXPECT_EQ('\0', block[0]);
    osMemFree(block);
    EXPECT_STREQ("StrSafeCopy: invalid destination pointer", StrSafeCopy(nullptr, "a"));
    EXPECT_STREQ("KvStrSafeCopy: invalid destination pointer", KvStrSafeCopy(nullptr, "a"));

    char stack[16] = "keep";
    EXPECT_EQ(stack + 8, KvStrSafeCopy(stack + 8, "no"));
    EXPECT_EQ('\0', stack[8]);
    EXPECT_STREQ("keep", stack);
}

// Every length up to past the inline limit: the bytes arrive, nothing before
// or after the range is written (the buffer ends at a no-access page, the
// allocator's trailer follows the block), and overlapping moves in both
// directions match memmove.
TEST_F(SafeCopy, EveryShortLengthCopiesExactlyItsRange) {
    std::string source(400, '\0');
    for (size_t i = 0; i < source.size(); ++i) source[i] = char('A' + i % 50);
    for (uint32_t n = 1; n <= 200; ++n) {
        SCOPED_TRACE(n);
        kvtest::GuardedBuffer buffer(n + 1);
        MemSafeCopy(buffer.data() + 1, source.data(), n, n);
        EXPECT_EQ(char(0xEE), buffer.data()[0]);
        EXPECT_EQ(source.substr(0, n), std::string(buffer.data() + 1, n));
        for (int shift : {-3, 3}) {
            std::string moved = source, expected = source;
            memmove(&expected[100 + shift], &expected[100], n);
            MemSafeMove(&moved[100 + shift], &moved[100], n, n);
            EXPECT_EQ(expected, moved) << "shift " << shift;
        }
    }
    const struct {
        uint16_t mode;
        const char* trailer;
    } modes[] = {{0, "\xDA\xDA\xDA\xDA"}, {1, "\xFD\xFD\xFD\xFD"}};
    for (const auto& m : modes) {
        DbgHlpSetDebugMode(m.mode);
        for (uint32_t n : {1u, 7u, 33u, 64u, 65u, 128u, 129u}) {
            char* block = static_cast<char*>(osMemAlloc(n, 0));
            KvMemSafeCopy(block, source.data(), n);
            EXPECT_EQ(source.substr(0, n), std::string(block, n)) << "mode " << m.mode << ", " << n << " bytes";
            EXPECT_EQ(0, memcmp(block + n, m.trailer, 4)) << "mode " << m.mode << ", " << n << " bytes";
            osMemFree(block);
        }
    }
    DbgHlpSetDebugMode(0);
}
