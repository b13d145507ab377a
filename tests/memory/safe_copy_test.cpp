// Checked copies into caller buffers that end at a no-access page: nothing is
// ever written past the room, and a refused copy reaches the runtime's
// invalid-parameter handler with errno ERANGE.
#include <gtest/gtest.h>
#include <errno.h>
#include <stdlib.h>
#include <string.h>

#include <string>

#include "KvDebugHelp.h"
#include "guarded_buffer.h"

using kvtest::GuardedBuffer;

namespace {

int HandlerCalls = 0;
void CountingHandler(const wchar_t*, const wchar_t*, const wchar_t*, unsigned, uintptr_t) { ++HandlerCalls; }

class SafeCopy : public ::testing::Test {
protected:
    void SetUp() override {
        HandlerCalls = 0;
        previous_ = DbgHlpSetInvalidParameterHandler(CountingHandler);
    }
    void TearDown() override {
        DbgHlpSetInvalidParameterHandler(previous_);
        DbgHlpSetMemSafeCopyTrunc(0);
    }
    DbgHlpInvalidParameterHandler previous_ = nullptr;
};

const char kSource[] = "0123456789ABCDEFGHIJ";

}  // namespace

TEST_F(SafeCopy, CopyFitsRefusesOrTruncates) {
    GuardedBuffer fits(10);
    MemSafeCopy(fits.data(), kSource, 10, 10);
    EXPECT_EQ("0123456789", std::string(fits.data(), 10));
    EXPECT_EQ(0, HandlerCalls);

    GuardedBuffer refused(10);
    errno = 0;
    MemSafeCopy(refused.data(), kSource, 11, 10);
    EXPECT_TRUE(refused.AllZero());
    EXPECT_EQ(ERANGE, errno);
    EXPECT_EQ(1, HandlerCalls);

    DbgHlpSetMemSafeCopyTrunc(1);
    GuardedBuffer cut(10);
    MemSafeCopy(cut.data(), kSource, 11, 10);
    EXPECT_EQ("0123456789", std::string(cut.data(), 10));
    EXPECT_EQ(1, HandlerCalls);

    GuardedBuffer untouched(10);
    MemSafeCopy(untouched.data(), nullptr, 5, 10);
    MemSafeCopy(untouched.data(), kSource, 0, 10);
    MemSafeCopy(nullptr, kSource, 5, 10);
    EXPECT_TRUE(untouched.Untouched());
}

TEST_F(SafeCopy, MoveAndSetGoOnPastTheLimitUnlessTruncating) {
    GuardedBuffer room(11);
    MemSafeMove(room.data(), kSource, 11, 10);  // all 11 bytes, reported
    EXPECT_EQ("0123456789A", std::string(room.data(), 11));
    EXPECT_EQ(0, HandlerCalls);

    char overlap[16] = "abcdefgh";
    MemSafeMove(overlap + 2, overlap, 6, 14);
    EXPECT_STREQ("ababcdef", overlap);

    DbgHlpSetMemSafeCopyTrunc(1);
    GuardedBuffer cut(10);
    MemSafeMove(cut.data(), kSource, 11, 10);
    EXPECT_EQ("0123456789", std::string(cut.data(), 10));
    GuardedBuffer filled(10);
    MemSafeSet(filled.data(), 'x', 11, 10);
    EXPECT_EQ(std::string(10, 'x'), std::string(filled.data(), 10));
    GuardedBuffer none(4);
    MemSafeSet(none.data(), 'x', 0, 4);
    EXPECT_TRUE(none.Untouched());
}

TEST_F(SafeCopy, KvVariantsTakeTheRoomFromTheAllocation) {
    char* block = static_cast<char*>(osMemAlloc(10, 0));
    KvMemSafeCopy(block, kSource, 10);
    EXPECT_EQ("0123456789", std::string(block, 10));
    EXPECT_EQ(0xDADADADAu, *reinterpret_cast<uint32_t*>(block + 10));

    KvMemSafeCopy(block, kSource + 5, 11);  // refused: room zeroed, trailer intact
    EXPECT_EQ(std::string(10, '\0'), std::string(block, 10));
    EXPECT_EQ(1, HandlerCalls);
    EXPECT_EQ(0xDADADADAu, *reinterpret_cast<uint32_t*>(block + 10));

    DbgHlpSetMemSafeCopyTrunc(1);
    KvMemSafeMove(block, kSource, 20);
    EXPECT_EQ("0123456789", std::string(block, 10));
    KvMemSafeSet(block, 'z', 20);
    EXPECT_EQ(std::string(10, 'z'), std::string(block, 10));
    EXPECT_EQ(0xDADADADAu, *reinterpret_cast<uint32_t*>(block + 10));
    osMemFree(block);

    // Not an allocator pointer: nothing is copied.
    char stack[24];
    memset(stack, 'S', sizeof stack);
    KvMemSafeCopy(stack + 8, kSource, 4);
    KvMemSafeSet(stack + 8, 0, 4);
    EXPECT_EQ(std::string(24, 'S'), std::string(stack, 24));
}

TEST_F(SafeCopy, StringCopies) {
    char* block = static_cast<char*>(osMemAlloc(6, 0));
    EXPECT_EQ(block, StrSafeCopy(block, "abcde"));
    EXPECT_STREQ("abcde", block);
    EXPECT_EQ(block, StrSafeCopy(block, "abcdef"));  // no room for the terminator
    EXPECT_EQ('\0', block[0]);
    EXPECT_GE(HandlerCalls, 1);
    EXPECT_EQ(block, KvStrSafeCopy(block, "xyz"));
    EXPECT_STREQ("xyz", block);
    EXPECT_STREQ("StrSafeCopy: invalid destination pointer", StrSafeCopy(nullptr, "a"));
    EXPECT_STREQ("KvStrSafeCopy: invalid destination pointer", KvStrSafeCopy(nullptr, "a"));
    EXPECT_EQ(block, StrSafeCopy(block, nullptr));
    EXPECT_EQ('\0', block[0]);
    osMemFree(block);

    char stack[16] = "keep";
    EXPECT_EQ(stack + 8, KvStrSafeCopy(stack + 8, "no"));
    EXPECT_EQ('\0', stack[8]);
    EXPECT_STREQ("keep", stack);
}

TEST_F(SafeCopy, LengthLimitedStringCopies) {
    GuardedBuffer reported(4);
    EXPECT_EQ(3, DbgHlpStrLengthCopy(reported.data(), "abcdef", 4));
    EXPECT_STREQ("abc", reported.data());
    GuardedBuffer whole(4);
    EXPECT_EQ(3, DbgHlpStrLengthCopy(whole.data(), "xyz", 4));
    EXPECT_STREQ("xyz", whole.data());
    GuardedBuffer empty(1);
    EXPECT_EQ(0, DbgHlpStrLengthCopy(empty.data(), "xyz", 1));
    EXPECT_EQ('\0', empty.data()[0]);
    EXPECT_EQ(0, DbgHlpStrLengthCopy(empty.data(), nullptr, 1));
    EXPECT_EQ(0, DbgHlpStrLengthCopy(nullptr, "a", 1));

    GuardedBuffer silent(5);  // length 4 plus the terminator
    EXPECT_EQ(4, StrLengthCopy(silent.data(), "abcdef", 4));
    EXPECT_STREQ("abcd", silent.data());
    GuardedBuffer shorter(5);
    EXPECT_EQ(2, StrLengthCopy(shorter.data(), "ab", 4));
    EXPECT_STREQ("ab", shorter.data());
    EXPECT_EQ(0, StrLengthCopy(shorter.data(), nullptr, 4));
    EXPECT_EQ('\0', shorter.data()[0]);
    EXPECT_EQ(0, StrLengthCopy(nullptr, "ab", 4));
}
