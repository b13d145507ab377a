// StringCountInFile: overlapping matches, case folding, relative names, and
// files of several 64 KB blocks where the carry of a block's tail decides
// which matches near a block edge are seen.
#include <gtest/gtest.h>

#include <string>

#include "KvUtil.h"
#include "temp_dir.h"

using kvtest::TempDir;

namespace {

constexpr size_t kBlock = 65536;

void Put(std::string& data, size_t at, const std::string& text) { data.replace(at, text.size(), text); }

// 4 blocks of dots with "abc" placed around the block edges. Block 2 holds
// file [65533, 131069) after block 1's 3-byte carry but scans starts up to
// 131063 only and carries 131063..131065, so [131066, 131069) is never seen;
// block 3 likewise carries 196596..196598 and skips [196599, 196602).
std::string EdgeFile() {
    std::string data(4 * kBlock, '.');
    Put(data, 1000, "abc");    // A: inside block 1
    Put(data, 65535, "abc");   // B: across the first edge, found through the carry
    Put(data, 131064, "abc");  // C: in block 2's unscanned tail, its "c" is skipped: lost
    Put(data, 196597, "ab");   // D: carried "ab" meets the "c" read next: counted,
    Put(data, 196602, "c");    //    though the file holds no "abc" there
    Put(data, 196599, "abc");  // E: in the bytes block 3 skips: lost
    return data;
}

}  // namespace

TEST(StringCountInFile, OverlapsCaseAndBadInput) {
    CDirFunctions dir;
    TempDir tmp("util_count");
    const std::string aaaa = tmp / "aaaa.txt", mixed = tmp / "mixed.txt", empty = tmp / "empty.txt";
    const std::string missing = tmp / "missing.txt";
    kvtest::WriteFileText(aaaa, "aaaa");
    kvtest::WriteFileText(mixed, "Alarm ALARM alarm aLaRm");
    kvtest::WriteFileText(empty, "");
    const struct { const char* label; const char* file; const char* text; int caseSensitive, expected; } cases[] = {
        {"overlapping", aaaa.c_str(), "aa", 1, 3},
        {"longer than the file", aaaa.c_str(), "aaaaa", 1, 0},
        {"case-sensitive", mixed.c_str(), "alarm", 1, 1},
        {"case-folded", mixed.c_str(), "alarm", 0, 4},
        {"empty file", empty.c_str(), "a", 1, 0},
        {"empty text", mixed.c_str(), "", 1, 0},
        {"missing file", missing.c_str(), "a", 1, -1},
        {"null file", nullptr, "a", 1, -1},
        {"null text", mixed.c_str(), nullptr, 1, -1},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.label);
        EXPECT_EQ(c.expected, dir.StringCountInFile(c.file, c.text, c.caseSensitive, 0));
    }
}

TEST(StringCountInFile, RelativeNamesStartAtTheProgramFolder) {
    CDirFunctions dir;
    const std::string name = "util_count_relative.txt";
    kvtest::WriteFileText(kvtest::ProgramFolder() + "\\" + name, "xyx xyx");
    EXPECT_EQ(2, dir.StringCountInFile(name.c_str(), "xyx", 1, 1));
    EXPECT_EQ(1, dir.KillFileName(name.c_str(), 1));  // relative the same way
    EXPECT_EQ(-1, dir.StringCountInFile(name.c_str(), "xyx", 1, 1));
}

// Intended: of the edge file's four matches (A, B, C, E) C and E are lost and
// D is gained, because the carry offset counts only the latest read. When
// block 1's last start position (65533) matches there is no carry, so block 2
// is a fresh read of file [65536, 131072) and the match is not seen twice;
// block 2 then carries its tail, which finds the match across 131072.
TEST(StringCountInFile, BlockEdgesFollowTheReadCounts) {
    std::string last(2 * kBlock + 1000, '.');
    Put(last, 65533, "abc");
    Put(last, 131070, "abc");
    const struct { const char* name; std::string data; int expected; } cases[] = {
        {"edge.txt", EdgeFile(), 3}, {"last.txt", last, 2}};
    CDirFunctions dir;
    TempDir tmp("util_count_edge");
    for (const auto& c : cases) {
        kvtest::WriteFileText(tmp / c.name, c.data);
        EXPECT_EQ(c.expected, dir.StringCountInFile((tmp / c.name).c_str(), "abc", 1, 0)) << c.name;
    }
}
