// CDirFunctions on real files in a private folder. Several results look odd
// on purpose; the cases say so.
#include <gtest/gtest.h>

#include <set>
#include <string>

#include "KvUtil.h"
#include "guarded_buffer.h"
#include "temp_dir.h"

using kvtest::TempDir;

namespace {

struct Out {
    char* p = nullptr;
    ~Out() { free(p); }
    std::string str() const { return p ? p : "<null>"; }
};

struct Case { const char* label; int got, expected; };

void Check(const std::vector<Case>& cases) {
    for (const Case& c : cases) EXPECT_EQ(c.expected, c.got) << c.label;
}

bool Attrib(const std::string& path, DWORD word) { return SetFileAttributesA(path.c_str(), word); }

}  // namespace

TEST(DirFunctions, FolderQueriesAndTheCurrentFolder) {
    CDirFunctions dir;
    TempDir tmp("util_dirq");
    kvtest::WriteFileText(tmp / "here.txt", "x");
    struct Back { ~Back() { SetCurrentDirectoryA(kvtest::ProgramFolder().c_str()); } } back;  // where ctest starts us
    ASSERT_EQ(1, dir.SetCurrentDir(tmp.path().c_str()));
    Out out;
    out.p = static_cast<char*>(malloc(8));  // released by the member, not leaked
    ASSERT_EQ(1, dir.GetCurrentDir(out.p));
    EXPECT_EQ(0, _stricmp(tmp.path().c_str(), out.p)) << out.str();
    ASSERT_EQ(1, dir.GetFilesDir("", 1));  // an empty name lists the current folder
    ASSERT_EQ(1, dir.GetItemFile(1, out.p));
    EXPECT_EQ(0, _stricmp((tmp / "here.txt").c_str(), out.p)) << out.str();
}

TEST(DirFunctions, ExistenceAndBadInputAnswers) {
    CDirFunctions dir;
    TempDir tmp("util_exist");
    const std::string file = tmp / "data.txt", missing = tmp / "missing", tooLong = "C:\\" + std::string(300, 'a');
    kvtest::WriteFileText(file, "x");
    Out out;
    unsigned long size = 0;
    // Results are taken in table order (braced lists evaluate left to right).
    Check({
        {"FileExist file", dir.FileExist(file.c_str()), 1},
        {"FileExist wildcard", dir.FileExist((tmp / "*.txt").c_str()), 1},  // intended: patterns match
        {"FileExist no match", dir.FileExist((tmp / "*.log").c_str()), 0},
        {"FileExist null", dir.FileExist(nullptr), 0},
        {"DirExist file", dir.DirExist(file.c_str()), 1},  // intended: no directory test, a file counts
        {"IsDirectory folder", dir.IsDirectory(tmp.path().c_str()), 1},
        {"IsDirectory file", dir.IsDirectory(file.c_str()), 0},
        // Intended: a missing path has every attribute bit set, the directory bit too.
        {"IsDirectory missing", dir.IsDirectory(missing.c_str()), 1},
        {"IsDirectory null", dir.IsDirectory(nullptr), 0},
        {"ChangeExtension overlong", dir.ChangeExtension(tooLong.c_str(), out.p, "txt"), 0},
        // 256 characters fit the buffer; with ".txt" added they would not.
        {"ChangeExtension near limit", dir.ChangeExtension(("C:\\" + std::string(256, 'b')).c_str(), out.p, "txt"), 0},
        {"ChangeExtension null path", dir.ChangeExtension(nullptr, out.p, "txt"), 0},
        {"ChangeExtension null ext", dir.ChangeExtension("C:\\x", out.p, nullptr), 0},
        {"ExtractFileName null", dir.ExtractFileName(nullptr, out.p), 0},
        {"KillFileName relative overlong", dir.KillFileName(tooLong.c_str(), 1), 0},
        {"KillFileName missing", dir.KillFileName(missing.c_str(), 0), 0},
        {"StringCountInFile relative overlong", dir.StringCountInFile(tooLong.c_str(), "x", 1, 1), -1},
        {"GetFilesDir overlong", dir.GetFilesDir(tooLong.c_str(), 1), 0},
        {"GetFilesDir missing", dir.GetFilesDir(missing.c_str(), 0), 0},
        {"GetFilesDir null", dir.GetFilesDir(nullptr, 0), 0},
        {"GetItemFile of an empty list", dir.GetItemFile(1, out.p), 0},
        {"GetFileSize missing", dir.GetFileSize(missing.c_str(), size), 0},
        {"SetFileAttrib missing", dir.SetFileAttrib(missing.c_str(), FA_NORMAL), 0},
        {"CreateDir empty: nothing to do", dir.CreateDir(""), 1},
        {"CreateDir null", dir.CreateDir(nullptr), 0},
        {"CreateDir two levels", dir.CreateDir((tmp / "two\\three").c_str()), 0},
        {"SetCurrentDir missing", dir.SetCurrentDir(missing.c_str()), 0},
        {"KillDir empty", dir.KillDir(""), 0},
        {"KillDir null", dir.KillDir(nullptr), 0},
        {"WriteToFileName without folder", dir.WriteToFileName((tmp / "no\\w.txt").c_str(), "a"), 0},
    });
    EXPECT_EQ(nullptr, out.p);  // refusals leave the result alone
}

TEST(DirFunctions, NamesChangeFromTheFirstDot) {
    CDirFunctions dir;
    const struct { const char* path; const char* ext; const char* expected; } cases[] = {
        {"C:\\a.b\\file", "txt", "C:\\a.txt"},  // intended: the first dot of the whole path
        {"C:\\dir\\file.log", ".txt", "C:\\dir\\file.txt"},
        {"C:\\dir\\file.tar.gz", "zip", "C:\\dir\\file.zip"},
        {"C:\\dir\\file", "txt", "C:\\dir\\file.txt"},
        {"C:\\dir\\file", ".txt", "C:\\dir\\file.txt"}};
    Out out;
    for (const auto& c : cases) {
        SCOPED_TRACE(c.path);
        ASSERT_EQ(1, dir.ChangeExtension(c.path, out.p, c.ext));
        EXPECT_STREQ(c.expected, out.p);
    }
    ASSERT_EQ(1, dir.ExtractFileName("C:\\logs\\trace.log", out.p));
    EXPECT_STREQ("trace.log", out.p);
}

TEST(DirFunctions, ListsTakeExactAttributeWordsAndCountFromOne) {
    CDirFunctions dir;
    TempDir tmp("util_files");
    for (const char* name : {"plain.txt", "readonly.txt", "hidden.txt", "both.txt", "normal.txt"})
        kvtest::WriteFileText(tmp / name, "x");
    for (const char* name : {"sub", "hidden", "system"}) CreateDirectoryA((tmp / name).c_str(), nullptr);
    Attrib(tmp / "readonly.txt", 0x21);
    Attrib(tmp / "hidden.txt", 0x22);
    Attrib(tmp / "both.txt", 0x23);  // intended: a word outside the set, not listed
    Attrib(tmp / "normal.txt", FILE_ATTRIBUTE_NORMAL);
    Attrib(tmp / "hidden", 0x12);
    Attrib(tmp / "system", 0x14);
    // Windows keeps 0x80 and leaves the file out; Wine reads it back as 0x20
    // and lists it. The expectation follows what the file system reports.
    const bool normalListed = GetFileAttributesA((tmp / "normal.txt").c_str()) == 0x20;
    const int files = 3 + normalListed;
    ASSERT_EQ(files, dir.GetFilesDir(tmp.path().c_str(), 0));
    std::set<std::string> names;
    Out out;
    for (int i = 1; i <= files; ++i) names.insert((dir.GetItemFile(i, out.p), out.str()));
    std::set<std::string> expected = {"plain.txt", "readonly.txt", "hidden.txt"};
    if (normalListed) expected.insert("normal.txt");
    EXPECT_EQ(expected, names);
    // Out-of-range indexes: at or below 0 is the first item, past the end none.
    Check({{"index 0", dir.GetItemFile(0, out.p), 1},
           {"index -5", dir.GetItemFile(-5, out.p), 1},
           {"past the end", dir.GetItemFile(files + 1, out.p), 0},
           {"INT_MAX", dir.GetItemFile(INT_MAX, out.p), 0},
           {"no folder list", dir.GetItemDir(1, out.p), 0}});

    // The existence test is FindFirstFileA, which does not take a trailing backslash.
    EXPECT_EQ(0, dir.GetSubDirs((tmp.path() + "\\").c_str(), 1));
    ASSERT_EQ(3, dir.GetSubDirs(tmp.path().c_str(), 1));  // no dots, no files
    names.clear();
    for (int i = 1; i <= 3; ++i) names.insert((dir.GetItemDir(i, out.p), out.str()));
    EXPECT_EQ(std::set<std::string>({tmp / "sub", tmp / "hidden", tmp / "system"}), names);

    // Copies own their items: the original may go first.
    auto* original = new CDirFunctions(dir);
    CDirFunctions copy(*original), assigned;
    assigned = *original;
    const CDirFunctions& self = assigned;
    assigned = self;
    delete original;
    ASSERT_EQ(1, copy.GetItemDir(1, out.p));
    ASSERT_EQ(1, assigned.GetItemDir(3, out.p));
}

TEST(DirFunctions, AttributeWordsMapByEquality) {
    CDirFunctions dir;
    TempDir tmp("util_attr");
    const std::string file = tmp / "f.txt";
    kvtest::WriteFileText(file, "x");
    const struct { FILEATTRIB set; DWORD word; } writes[] = {
        {FA_READONLY, 0x21}, {FA_HIDDEN, 0x22}, {FA_NORMAL, 0x20}, {FA_OTHER, 0x20}};  // other writes 0x20
    for (const auto& w : writes) {
        SCOPED_TRACE(w.set);
        ASSERT_EQ(1, dir.SetFileAttrib(file.c_str(), w.set));
        EXPECT_EQ(w.word, GetFileAttributesA(file.c_str()));
    }
    // Intended: read-only + hidden is not "read-only" but FA_OTHER, as is a missing file.
    const struct { DWORD word; int expected; } reads[] = {
        {0x21, FA_READONLY}, {0x22, FA_HIDDEN}, {0x20, FA_NORMAL}, {0x23, FA_OTHER}, {0, FA_OTHER}};
    for (const auto& r : reads) {
        SCOPED_TRACE(r.word);
        int attrib = -1;
        if (r.word) Attrib(file, r.word);
        EXPECT_EQ(1, dir.GetFileAttrib((r.word ? file : tmp / "missing").c_str(), attrib));
        EXPECT_EQ(r.expected, attrib);
    }
}

TEST(DirFunctions, KillDirRemovesTreesButNotFilesOrBusyTrees) {
    CDirFunctions dir;
    TempDir tmp("util_killdir");
    for (const std::string& root : {tmp / "tree", tmp / "busy"}) {
        CreateDirectoryA(root.c_str(), nullptr);
        CreateDirectoryA((root + "\\inner").c_str(), nullptr);
        kvtest::WriteFileText(root + "\\a.txt", "a");
        kvtest::WriteFileText(root + "\\inner\\ro.txt", "b");
        Attrib(root + "\\inner\\ro.txt", 0x21);
    }
    EXPECT_EQ(1, dir.KillDir((tmp / "tree\\").c_str()));
    EXPECT_FALSE(kvtest::DirectoryExists(tmp / "tree"));

    HANDLE held = CreateFileA((tmp / "busy\\a.txt").c_str(), GENERIC_READ, 0, nullptr, OPEN_EXISTING, 0, nullptr);
    ASSERT_NE(INVALID_HANDLE_VALUE, held);
    EXPECT_EQ(0, dir.KillDir((tmp / "busy").c_str()));
    CloseHandle(held);
    EXPECT_TRUE(kvtest::FileExists(tmp / "busy\\a.txt"));

    // Intended: a file is "nothing to do" and stays; a missing path counts as
    // a folder whose removal fails.
    kvtest::WriteFileText(tmp / "keep.txt", "k");
    EXPECT_EQ(1, dir.KillDir((tmp / "keep.txt").c_str()));
    EXPECT_TRUE(kvtest::FileExists(tmp / "keep.txt"));
    EXPECT_EQ(0, dir.KillDir((tmp / "missing").c_str()));
}

TEST(DirFunctions, CopyAppendRenameWriteAndMove) {
    CDirFunctions dir;
    TempDir tmp("util_copy");
    const std::string src = tmp / "src.txt", dst = tmp / "dst.txt";
    kvtest::WriteFileText(src, "one\ntwo\n");
    CreateDirectoryA((tmp / "into").c_str(), nullptr);
    // A three-letter extension names the target; anything else a folder.
    ASSERT_EQ(1, dir.CopyFileName(src.c_str(), dst.c_str(), 0));
    ASSERT_EQ(1, dir.CopyFileName(src.c_str(), (tmp / "into").c_str(), 0));
    EXPECT_TRUE(kvtest::FileExists(tmp / "into\\src.txt"));
    EXPECT_EQ(0, dir.CopyFileName(src.c_str(), dst.c_str(), 0));  // exists
    EXPECT_EQ(1, dir.CopyFileName(src.c_str(), dst.c_str(), 1));
    unsigned long size = 0;
    ASSERT_EQ(1, dir.GetFileSize(dst.c_str(), size));
    EXPECT_EQ(8u, size);  // the overwrite copied the whole file

    // Appending reads text lines, also ones longer than the 260-byte line buffer.
    const std::string longLine(700, 'L');
    kvtest::WriteFileText(tmp / "more.txt", "three\n" + longLine + "\nlast");
    ASSERT_EQ(1, dir.AppendFileName((tmp / "more.txt").c_str(), dst.c_str()));
    EXPECT_EQ("one\ntwo\nthree\r\n" + longLine + "\r\nlast", kvtest::ReadFileText(dst));
    ASSERT_EQ(1, dir.ChangeFileName(dst.c_str(), (tmp / "renamed.txt").c_str()));
    EXPECT_TRUE(kvtest::FileExists(tmp / "renamed.txt"));
    ASSERT_EQ(1, dir.WriteToFileName((tmp / "w.txt").c_str(), "a"));
    ASSERT_EQ(1, dir.WriteToFileName((tmp / "w.txt").c_str(), "b"));
    EXPECT_EQ("ab", kvtest::ReadFileText(tmp / "w.txt"));

    // With a trailing backslash the file moves into the folder. Intended:
    // without it the last component is dropped and the file lands beside it.
    ASSERT_EQ(1, dir.MoveFileName((tmp / "renamed.txt").c_str(), (tmp / "into\\").c_str()));
    ASSERT_EQ(1, dir.MoveFileName((tmp / "into\\renamed.txt").c_str(), (tmp / "into").c_str()));
    EXPECT_TRUE(kvtest::FileExists(tmp / "renamed.txt"));
    EXPECT_EQ(0, dir.MoveFileName(src.c_str(), (tmp / "into\\").c_str()));  // the target exists
    EXPECT_TRUE(kvtest::FileExists(src));
}

TEST(DirFunctions, CombineAndTimestampFillsExactlyTheGivenSize) {
    SYSTEMTIME before, after;
    GetSystemTime(&before);
    kvtest::GuardedBuffer exact(22);  // 7 + 5 + 10
    ASSERT_TRUE(CDirFunctions::CombineAndTimestamp("C:\\logs", "trace", exact.data(), 22));
    GetSystemTime(&after);
    // The UTC date may turn between the two readings: either one will do.
    char early[32], late[32];
    snprintf(early, sizeof early, "C:\\logs\\trace%d%02d%02d", before.wYear, before.wMonth, before.wDay);
    snprintf(late, sizeof late, "C:\\logs\\trace%d%02d%02d", after.wYear, after.wMonth, after.wDay);
    EXPECT_TRUE(!strcmp(early, exact.data()) || !strcmp(late, exact.data())) << exact.data();
    kvtest::GuardedBuffer small(21);
    EXPECT_FALSE(CDirFunctions::CombineAndTimestamp("C:\\logs", "trace", small.data(), 21));
    EXPECT_FALSE(CDirFunctions::CombineAndTimestamp(nullptr, "trace", small.data(), 21));
    EXPECT_TRUE(small.Untouched());

    // Intended: only the library's own empty text is recognised, by pointer.
    kvtest::GuardedBuffer out(32);
    EXPECT_TRUE(CDirFunctions::CombineAndTimestamp(CDirFunctions::theEmptyText, "trace", out.data(), 32));
    EXPECT_TRUE(out.Untouched());
    const char otherEmpty[1] = {0};
    EXPECT_TRUE(CDirFunctions::CombineAndTimestamp(otherEmpty, "trace", out.data(), 32));
    EXPECT_EQ(0, strncmp(out.data(), "\\trace", 6)) << out.data();
}
