// The allocator in this process: light mode (the test program's default) and
// guarded mode switched on around each case.
#include <windows.h>
#include <gtest/gtest.h>
#include <string.h>

#include <string>
#include <vector>

#include "KvDebugHelp.h"

namespace {

uint32_t Word(const void* p, ptrdiff_t offset) {
    uint32_t v;
    memcpy(&v, static_cast<const char*>(p) + offset, 4);
    return v;
}

// Guarded mode for one test, back to light mode afterwards.
class GuardedMode : public ::testing::Test {
protected:
    void SetUp() override { DbgHlpSetDebugMode(1); }
    void TearDown() override { DbgHlpSetDebugMode(0); }
};

std::vector<std::string> Lines;
void CollectLine(const char* line, ...) { Lines.push_back(line); }

}  // namespace

TEST(LightMode, FrameCountersAndZeroing) {
    uint64_t outstandingBefore = 0, outstanding = 0;
    uint32_t rate = 0;
    const uint64_t totalBefore = ReturnMemoryBufferCounts(&outstandingBefore, &rate);
    char* p = static_cast<char*>(osMemAlloc(10, OSMEM_ZERO));
    ASSERT_NE(nullptr, p);
    EXPECT_EQ(10u, Word(p, -8));
    EXPECT_EQ(0xADADADADu, Word(p, -4));
    EXPECT_EQ(0xDADADADAu, Word(p, 10));
    EXPECT_EQ(std::string(10, '\0'), std::string(p, 10));
    EXPECT_EQ(10u, DbgMemAllocLen(p));
    EXPECT_NE(0, DbgIsValidPtr(p));
    EXPECT_EQ(totalBefore + 1, ReturnMemoryBufferCounts(&outstanding, &rate));
    EXPECT_EQ(outstandingBefore + 1, outstanding);
    osMemFree(p);
    ReturnMemoryBufferCounts(&outstanding, &rate);
    EXPECT_EQ(outstandingBefore, outstanding);
    EXPECT_EQ(0u, DbgMemAllocLen(nullptr));
    osMemFree(nullptr);  // ignored
}

// A freed short element is recognised by its magic. The block is built here
// rather than freed twice for real: Wine's HeapFree overwrites the first bytes
// of a freed block (Windows does not), so only a crafted block holds on both.
TEST(LightMode, DoubleFreeAndForeignPointersAreRefused) {
    unsigned char block[32];
    const uint32_t head[2] = {8, 0xADADFEEEu};
    memcpy(block, head, 8);
    memset(block + 8, 'x', 24);
    const std::vector<unsigned char> before(block, block + sizeof block);
    osMemFree(block + 8);
    EXPECT_EQ(0, DbgIsValidPtr(block + 8));
    EXPECT_EQ(0, memcmp(before.data(), block, sizeof block));

    char* p = static_cast<char*>(osMemAlloc(64, 0));
    uint64_t outstanding = 0, after = 0;
    uint32_t rate;
    ReturnMemoryBufferCounts(&outstanding, &rate);
    osMemFree(p + 32);  // the middle of a block: not freed
    EXPECT_EQ(0, DbgIsValidPtr(p + 32));
    ReturnMemoryBufferCounts(&after, &rate);
    EXPECT_EQ(outstanding, after);
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
    EXPECT_EQ(std::string(10, '\0'), std::string(p, 10));
    EXPECT_EQ(p, osMemReAlloc(p, 10, 0));  // same size, same block
    memcpy(p, "0123456789", 10);
    char* q = static_cast<char*>(osMemReAlloc(p, 20, OSMEM_ZERO));
    ASSERT_NE(nullptr, q);
    EXPECT_EQ(std::string("0123456789") + std::string(10, '\0'), std::string(q, 20));
    char* r = static_cast<char*>(osMemReAllocDbg(q, 4, 0, "here.cpp", 1));
    EXPECT_EQ("0123", std::string(r, 4));
    EXPECT_EQ(4u, DbgMemAllocLen(r));
    EXPECT_EQ(nullptr, osMemReAlloc(r, 0, 0));
    EXPECT_EQ(nullptr, osMemAlloc(0x80000000u, 0));
    EXPECT_EQ(nullptr, osMemReAlloc(nullptr, 0xFFFFFFFFu, 0));
}

TEST(LightMode, ProtectedAndSharedBlocks) {
    char* p = static_cast<char*>(osMemAllocProtect(10, OSMEM_ZERO));
    ASSERT_NE(nullptr, p);
    EXPECT_EQ(std::string(10, '\0'), std::string(p, 10));
    // The block ends exactly at the no-access page.
    MEMORY_BASIC_INFORMATION info;
    ASSERT_NE(0u, VirtualQuery(p + 10, &info, sizeof info));
    EXPECT_EQ(DWORD(PAGE_NOACCESS), info.Protect);
    EXPECT_EQ(p + 10, info.BaseAddress);
    osMemFreeProtect();

    char* s = static_cast<char*>(MemAllocShare(0));
    ASSERT_NE(nullptr, s);
    char* t = static_cast<char*>(MemAllocShare(100));
    memset(t, 'q', 100);
    MemFreeShare(t);
    MemFreeShare(s);
    MemFreeShare(nullptr);
}

TEST_F(GuardedMode, ElementLayoutListAndStatistics) {
    DbgMemStatistics before{}, during{}, after{};
    dbgMemStats(&before);
    char* a = static_cast<char*>(osMemAlloc(0, 0));
    char* b = static_cast<char*>(osMemAlloc(40, OSMEM_ZERO | OSMEM_NO_LEAK_REPORT));
    ASSERT_TRUE(a && b);
    dbgMemStats(&during);
    EXPECT_EQ(before.elementCount + 2, during.elementCount);
    EXPECT_EQ(before.bytesInUse + 40, during.bytesInUse);
    // 32 + 4 x 8 header bytes and two 16-byte guards per element (defaults).
    EXPECT_EQ(before.totalBytesInUse + 40 + 2 * 96, during.totalBytesInUse);
    EXPECT_GE(during.peakElementCount, during.elementCount);

    DbgMemElement* ea = reinterpret_cast<DbgMemElement*>(a - 80);
    DbgMemElement* eb = reinterpret_cast<DbgMemElement*>(b - 80);
    EXPECT_EQ(0xA5A5A5A5u, ea->magic);
    EXPECT_EQ(0u, ea->size);
    EXPECT_EQ(0x40u, eb->flags);
    EXPECT_EQ(40u, DbgMemAllocLen(b));
    EXPECT_EQ(std::string(16, '\xFD'), std::string(a, 16));  // trail guard right at the pointer
    EXPECT_EQ(std::string(16, '\xFD'), std::string(b + 40, 16));
    EXPECT_EQ(std::string(40, '\0'), std::string(b, 40));
    EXPECT_NE(0u, Word(ea, 32));  // the allocation stack was captured

    // Newest last: b follows a, and the walk stops at the tail.
    EXPECT_EQ(eb, dbgMemNextHdr(ea));
    EXPECT_EQ(ea, dbgMemPrevHdr(eb));
    EXPECT_EQ(nullptr, dbgMemNextHdr(eb));
    EXPECT_EQ(nullptr, dbgMemNextHdr(nullptr));
    EXPECT_NE(nullptr, dbgMemFirstHdr());
    EXPECT_NE(0, DbgIsValidPtr(b));

    osMemFree(b);
    osMemFree(a);
    dbgMemStats(&after);
    EXPECT_EQ(before.elementCount, after.elementCount);
    EXPECT_EQ(before.bytesInUse, after.bytesInUse);
    EXPECT_EQ(before.totalBytesInUse, after.totalBytesInUse);
    dbgMemStats(nullptr);
}

TEST_F(GuardedMode, DumpsThroughTheCallersWriter) {
    char* big = static_cast<char*>(osMemAlloc(300, 0));
    char* exact = static_cast<char*>(osMemAlloc(256, 0));
    memset(big, 'a', 300);
    memset(exact, '%', 256);
    DbgMemElement* e = reinterpret_cast<DbgMemElement*>(big - 80);

    Lines.clear();
    dbgMemDumpMemory(e, CollectLine);
    // Lead title, 1 guard line, "Memory:", 8 + dots + 8, trail title, 1 guard line.
    ASSERT_EQ(22u, Lines.size());
    EXPECT_EQ("Lead Buffer:\n", Lines[0]);
    std::string guardLine;
    for (int i = 0; i < 16; ++i) guardLine += "FD ";
    EXPECT_EQ(guardLine + "      ................\n", Lines[1]);
    EXPECT_EQ("Memory:\n", Lines[2]);
    EXPECT_EQ(std::string(47, '.') + "\n", Lines[11]);
    EXPECT_EQ("Trail Buffer:\n", Lines[20]);
    EXPECT_NE(std::string::npos, Lines[3].find("61 61 ")) << Lines[3];
    EXPECT_NE(std::string::npos, Lines[3].find("aaaaaaaaaaaaaaaa\n"));

    Lines.clear();
    dbgMemDumpMemory(reinterpret_cast<DbgMemElement*>(exact - 80), CollectLine);
    EXPECT_EQ(21u, Lines.size());  // 16 data lines, no dotted line
    EXPECT_EQ(std::string::npos, Lines[3].find('%'));  // non-alphanumerics print as "."

    Lines.clear();
    dbgMemDumpStackTrace(e, 1, CollectLine);
    ASSERT_EQ(2u, Lines.size());  // 8 words, four to a line
    EXPECT_EQ(0u, Lines[0].find("0x"));
    dbgMemDumpStackTrace(e, 0, CollectLine);
    EXPECT_EQ(3u, Lines.size());
    dbgMemDumpStackTrace(nullptr, 1, CollectLine);
    dbgMemDumpMemory(e, nullptr);
    EXPECT_EQ(3u, Lines.size());

    osMemFree(exact);
    osMemFree(big);
}

TEST_F(GuardedMode, KeptFreedElementStaysListed) {
    DbgHlpSetDebugMode(0x08);
    char* p = static_cast<char*>(osMemAlloc(16, 0));
    DbgMemElement* e = reinterpret_cast<DbgMemElement*>(p - 80);
    osMemFree(p);
    EXPECT_EQ(0x01u, e->flags & 0x01);
    osMemFree(p);  // reported, and still listed
    EXPECT_EQ(0xA5A5A5A5u, e->magic);
    bool listed = false;
    for (DbgMemElement* i = dbgMemFirstHdr(); i; i = dbgMemNextHdr(i)) listed |= i == e;
    EXPECT_TRUE(listed);
}
