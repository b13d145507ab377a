// The allocator in this process: light mode (the test program's default) and
// guarded mode switched on around each case.
#include <windows.h>
#include <gtest/gtest.h>
#include <string.h>

#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include "KvDebugHelp.h"

namespace {

uint32_t Word(const void* p, ptrdiff_t offset) {
    uint32_t v;
    memcpy(&v, static_cast<const char*>(p) + offset, 4);
    return v;
}
std::string Bytes(const void* p, size_t n) { return std::string(static_cast<const char*>(p), n); }
DbgMemElement* ElementOf(void* p) { return reinterpret_cast<DbgMemElement*>(static_cast<char*>(p) - 80); }

// {allocations ever made, allocations outstanding}
std::pair<uint64_t, uint64_t> Counts() {
    uint64_t outstanding = 0;
    uint32_t rate = 0;
    const uint64_t total = ReturnMemoryBufferCounts(&outstanding, &rate);
    return {total, outstanding};
}

std::tuple<uint32_t, uint32_t, uint32_t> InUse() {
    DbgMemStatistics s{};
    dbgMemStats(&s);
    return std::make_tuple(s.elementCount, s.bytesInUse, s.totalBytesInUse);
}

class GuardedMode : public ::testing::Test {
protected:
    void SetUp() override { DbgHlpSetDebugMode(1); }
    void TearDown() override { DbgHlpSetDebugMode(0); }
};

std::vector<std::string> Lines;
void CollectLine(const char* line, ...) { Lines.push_back(line); }

}  // namespace

TEST(LightMode, FrameCountersAndZeroing) {
    const auto before = Counts();
    char* p = static_cast<char*>(osMemAlloc(10, OSMEM_ZERO));
    ASSERT_NE(nullptr, p);
    EXPECT_EQ(10u, Word(p, -8));
    EXPECT_EQ(0xADADADADu, Word(p, -4));
    EXPECT_EQ(std::string(10, '\0'), Bytes(p, 10));
    EXPECT_EQ(std::make_pair(before.first + 1, before.second + 1), Counts());
    osMemFree(p);
    osMemFree(nullptr);  // ignored: frees nothing
    EXPECT_EQ(before.second, Counts().second);
    EXPECT_EQ(0u, DbgMemAllocLen(nullptr));
}

// A pointer into the middle of a block or past a damaged trailer is refused
// and frees nothing (the crafted double free is in detection_scenarios.cpp).
TEST(LightMode, ForeignPointersAreRefused) {
    char* p = static_cast<char*>(osMemAlloc(64, 0));
    const auto counts = Counts();
    osMemFree(p + 32);  // the middle of a block: not freed
    EXPECT_EQ(0, DbgIsValidPtr(p + 32));
    EXPECT_EQ(counts, Counts());
    EXPECT_NE(0, DbgIsValidPtr(p));
    p[64] = 'Z';  // trailer overwritten: no longer a valid pointer
    EXPECT_EQ(0, DbgIsValidPtr(p));
    memcpy(p + 64, "\xDA\xDA\xDA\xDA", 4);
    osMemFree(p);
    EXPECT_EQ(0, DbgIsValidPtr(nullptr));
}

TEST(LightMode, Reallocation) {
    char* p = static_cast<char*>(osMemReAlloc(nullptr, 10, OSMEM_ZERO));
    ASSERT_NE(nullptr, p);
    EXPECT_EQ(p, osMemReAlloc(p, 10, 0));  // same size, same block
    memcpy(p, "0123456789", 10);
    char* q = static_cast<char*>(osMemReAlloc(p, 20, OSMEM_ZERO));
    ASSERT_NE(nullptr, q);
    EXPECT_EQ(std::string("0123456789") + std::string(10, '\0'), Bytes(q, 20));
    char* r = static_cast<char*>(osMemReAllocDbg(q, 4, 0, "here.cpp", 1));
    EXPECT_EQ("0123", Bytes(r, 4));
    EXPECT_EQ(4u, DbgMemAllocLen(r));
    EXPECT_EQ(nullptr, osMemReAlloc(r, 0, 0));
    EXPECT_EQ(nullptr, osMemAlloc(0x80000000u, 0));
    EXPECT_EQ(nullptr, osMemReAlloc(nullptr, 0xFFFFFFFFu, 0));
}

TEST(LightMode, ProtectedAndSharedBlocks) {
    char* p = static_cast<char*>(osMemAllocProtect(10, OSMEM_ZERO));
    ASSERT_NE(nullptr, p);
    EXPECT_EQ(std::string(10, '\0'), Bytes(p, 10));
    MEMORY_BASIC_INFORMATION info;  // the block ends exactly at the no-access page
    ASSERT_NE(0u, VirtualQuery(p + 10, &info, sizeof info));
    EXPECT_EQ(DWORD(PAGE_NOACCESS), info.Protect);
    EXPECT_EQ(p + 10, info.BaseAddress);
    osMemFreeProtect();

    // A shared block is a view of a pagefile-backed mapping, unmapped whole at its free.
    char* s = static_cast<char*>(MemAllocShare(100));
    ASSERT_NE(nullptr, s);
    ASSERT_NE(0u, VirtualQuery(s, &info, sizeof info));
    EXPECT_EQ(DWORD(MEM_MAPPED), info.Type);
    memset(s, 'q', 100);
    void* view = info.AllocationBase;
    MemFreeShare(s);
    ASSERT_NE(0u, VirtualQuery(view, &info, sizeof info));
    EXPECT_EQ(DWORD(MEM_FREE), info.State);
}

TEST_F(GuardedMode, ElementLayoutListAndStatistics) {
    const auto before = InUse();
    char* a = static_cast<char*>(osMemAlloc(0, 0));
    char* b = static_cast<char*>(osMemAlloc(40, OSMEM_ZERO | OSMEM_NO_LEAK_REPORT));
    ASSERT_TRUE(a && b);
    // 32 + 4 x 8 header bytes and two 16-byte guards per element (defaults).
    EXPECT_EQ(std::make_tuple(std::get<0>(before) + 2, std::get<1>(before) + 40, std::get<2>(before) + 40 + 2 * 96),
              InUse());

    DbgMemElement* ea = ElementOf(a);
    DbgMemElement* eb = ElementOf(b);
    EXPECT_EQ(0xA5A5A5A5u, ea->magic);
    EXPECT_EQ(std::string(16, '\xFD'), Bytes(a, 16));  // trail guard right at the pointer
    EXPECT_EQ(std::string(40, '\0'), Bytes(b, 40));
    EXPECT_NE(0u, Word(ea, 32));  // the allocation stack was captured

    // Newest last: b follows a, and the walk stops at the tail.
    EXPECT_EQ(eb, dbgMemNextHdr(ea));
    EXPECT_EQ(ea, dbgMemPrevHdr(eb));
    EXPECT_EQ(nullptr, dbgMemNextHdr(eb));
    EXPECT_EQ(nullptr, dbgMemNextHdr(nullptr));
    EXPECT_NE(0, DbgIsValidPtr(b));

    osMemFree(b);
    osMemFree(a);
    EXPECT_EQ(before, InUse());
}

TEST_F(GuardedMode, DumpsThroughTheCallersWriter) {
    char* big = static_cast<char*>(osMemAlloc(300, 0));
    char* exact = static_cast<char*>(osMemAlloc(256, 0));
    memset(big, 'a', 300);
    memset(exact, '%', 256);

    Lines.clear();
    dbgMemDumpMemory(ElementOf(big), CollectLine);
    // Lead title, 1 guard line, "Memory:", 8 + dots + 8, trail title, 1 guard line.
    // (The guard lines' bytes are checked in the detection reports.)
    ASSERT_EQ(22u, Lines.size());
    EXPECT_EQ("Lead Buffer:\n", Lines[0]);
    EXPECT_EQ("Memory:\n", Lines[2]);
    EXPECT_EQ(std::string(47, '.') + "\n", Lines[11]);
    EXPECT_EQ("Trail Buffer:\n", Lines[20]);
    EXPECT_EQ(0u, Lines[3].find("61 61 ")) << Lines[3];
    EXPECT_NE(std::string::npos, Lines[3].find("aaaaaaaaaaaaaaaa\n")) << Lines[3];

    Lines.clear();
    dbgMemDumpMemory(ElementOf(exact), CollectLine);
    EXPECT_EQ(21u, Lines.size());  // 16 data lines, no dotted line
    EXPECT_EQ(std::string::npos, Lines[3].find('%'));  // non-alphanumerics print as "."

    Lines.clear();
    dbgMemDumpStackTrace(ElementOf(big), 1, CollectLine);
    ASSERT_EQ(2u, Lines.size());  // 8 words, four to a line
    EXPECT_EQ(0u, Lines[0].find("0x"));
    dbgMemDumpStackTrace(ElementOf(big), 0, CollectLine);
    dbgMemDumpStackTrace(nullptr, 1, CollectLine);
    dbgMemDumpMemory(ElementOf(big), nullptr);
    EXPECT_EQ(3u, Lines.size());  // the free stack has one line; the rest write nothing
    osMemFree(exact);
    osMemFree(big);
}
