// CDirFunctions: folder queries, existence tests, names, lists, attributes,
// copies, moves, deletions and the date-stamped name, on real files in a
// private folder. Several results look odd on purpose; those tests say so.
#include <gtest/gtest.h>

#include <windows.h>
#include <stdlib.h>

#include <string>

#include "KvUtil.h"
#include "guarded_buffer.h"
#include "temp_dir.h"

using kvtest::TempDir;

namespace {

// A char* result slot that frees what the members hand back.
struct Out {
    char* p = nullptr;
    ~Out() { free(p); }
    std::string str() const { return p ? p : "<null>"; }
};

void SetAttributes(const std::string& path, DWORD word) { ASSERT_TRUE(SetFileAttributesA(path.c_str(), word)); }

// The current folder changed for one test and restored afterwards.
struct CurrentFolder {
    explicit CurrentFolder(const std::string& path) {
        GetCurrentDirectoryA(MAX_PATH, saved);
        SetCurrentDirectoryA(path.c_str());
    }
    ~CurrentFolder() { SetCurrentDirectoryA(saved); }
    char saved[MAX_PATH];
};

}  // namespace

TEST(DirFunctions, FolderQueriesReplaceTheCallersString) {
    CDirFunctions dir;
    TempDir tmp("util_dirq");
    CurrentFolder cd(tmp.path());
    Out out;
    out.p = static_cast<char*>(malloc(8));  // released by the member, not leaked
    ASSERT_EQ(1, dir.GetCurrentDir(out.p));
    EXPECT_EQ(0, _stricmp(tmp.path().c_str(), out.p)) << out.str();

    ASSERT_EQ(1, dir.GetWinDir(out.p));
    char expected[MAX_PATH];
    GetWindowsDirectoryA(expected, MAX_PATH);
    EXPECT_STREQ(expected, out.p);
}

TEST(DirFunctions, ExistenceTestsKeepTheirLooseAnswers) {
    CDirFunctions dir;
    TempDir tmp("util_exist");
    const std::string file = tmp / "data.txt";
    kvtest::WriteFileText(file, "x");

    EXPECT_EQ(1, dir.FileExist(file.c_str()));
    EXPECT_EQ(1, dir.FileExist((tmp / "*.txt").c_str()));  // wildcards match: intended
    EXPECT_EQ(0, dir.FileExist((tmp / "*.log").c_str()));
    EXPECT_EQ(0, dir.FileExist(""));
    EXPECT_EQ(0, dir.FileExist(nullptr));
    // Intended: DirExist makes no directory test, so a file counts.
    EXPECT_EQ(1, dir.DirExist(file.c_str()));
    EXPECT_EQ(1, dir.DirExist(tmp.path().c_str()));

    EXPECT_EQ(1, dir.IsDirectory(tmp.path().c_str()));
    EXPECT_EQ(0, dir.IsDirectory(file.c_str()));
    // Intended: a missing path has every attribute bit set, the directory bit too.
    EXPECT_EQ(1, dir.IsDirectory((tmp / "missing").c_str()));
    EXPECT_EQ(0, dir.IsDirectory(""));
    EXPECT_EQ(0, dir.IsDirectory(nullptr));
}

TEST(DirFunctions, NamesChangeFromTheFirstDot) {
    CDirFunctions dir;
    Out out;
    // Intended: the first dot of the whole path, even in a folder name.
    ASSERT_EQ(1, dir.ChangeExtension("C:\\a.b\\file", out.p, "txt"));
    EXPECT_STREQ("C:\\a.txt", out.p);
    ASSERT_EQ(1, dir.ChangeExtension("C:\\dir\\file.log", out.p, ".txt"));
    EXPECT_STREQ("C:\\dir\\file.txt", out.p);
    ASSERT_EQ(1, dir.ChangeExtension("C:\\dir\\file.tar.gz", out.p, "zip"));
    EXPECT_STREQ("C:\\dir\\file.zip", out.p);
    ASSERT_EQ(1, dir.ChangeExtension("C:\\dir\\file", out.p, "txt"));
    EXPECT_STREQ("C:\\dir\\file.txt", out.p);
    ASSERT_EQ(1, dir.ChangeExtension("C:\\dir\\file", out.p, ".txt"));
    EXPECT_STREQ("C:\\dir\\file.txt", out.p);
    ASSERT_EQ(1, dir.ExtractFileName("C:\\logs\\trace.log", out.p));
    EXPECT_STREQ("trace.log", out.p);
}

TEST(DirFunctions, OverlongPathsAreRefusedWithoutTouchingTheResult) {
    CDirFunctions dir;
    Out out;
    const std::string tooLong = "C:\\" + std::string(300, 'a');
    EXPECT_EQ(0, dir.ChangeExtension(tooLong.c_str(), out.p, "txt"));
    // 256 characters fit the buffer; with ".txt" added they would not.
    const std::string nearLimit = "C:\\" + std::string(256, 'b');
    EXPECT_EQ(0, dir.ChangeExtension(nearLimit.c_str(), out.p, "txt"));
    EXPECT_EQ(nullptr, out.p);
    EXPECT_EQ(0, dir.ChangeExtension(nullptr, out.p, "txt"));
    EXPECT_EQ(0, dir.ChangeExtension("C:\\x", out.p, nullptr));
    EXPECT_EQ(0, dir.ExtractFileName(tooLong.c_str(), out.p));
    EXPECT_EQ(0, dir.ExtractFileName(nullptr, out.p));
    EXPECT_EQ(0, dir.KillFileName(tooLong.c_str(), 1));
    EXPECT_EQ(-1, dir.StringCountInFile(tooLong.c_str(), "x", 1, 1));
    EXPECT_EQ(0, dir.GetFilesDir(tooLong.c_str(), 1));
    EXPECT_EQ(nullptr, out.p);
}

TEST(DirFunctions, FileListTakesOnlyExactAttributeWords) {
    CDirFunctions dir;
    TempDir tmp("util_files");
    for (const char* name : {"plain.txt", "readonly.txt", "hidden.txt", "both.txt", "normal.txt"})
        kvtest::WriteFileText(tmp / name, "x");
    CreateDirectoryA((tmp / "sub").c_str(), nullptr);
    SetAttributes(tmp / "readonly.txt", 0x21);
    SetAttributes(tmp / "hidden.txt", 0x22);
    // Intended: read-only + hidden (0x23) is a word outside the set, so not listed.
    SetAttributes(tmp / "both.txt", 0x23);
    SetAttributes(tmp / "normal.txt", FILE_ATTRIBUTE_NORMAL);
    // Windows keeps 0x80 and the file is then left out; Wine reads it back as
    // 0x20 and lists it. The expectation follows what the file system reports.
    const bool normalIsListed = GetFileAttributesA((tmp / "normal.txt").c_str()) == 0x20;

    const int expected = 3 + (normalIsListed ? 1 : 0);
    ASSERT_EQ(expected, dir.GetFilesDir(tmp.path().c_str(), 0));
    std::string names;
    Out out;
    for (int i = 1; i <= expected; ++i) {
        ASSERT_EQ(1, dir.GetItemFile(i, out.p));
        names += std::string(out.p) + ";";
    }
    EXPECT_NE(std::string::npos, names.find("plain.txt;"));
    EXPECT_NE(std::string::npos, names.find("readonly.txt;"));
    EXPECT_NE(std::string::npos, names.find("hidden.txt;"));
    EXPECT_EQ(std::string::npos, names.find("both.txt"));
    EXPECT_EQ(std::string::npos, names.find("sub"));
    EXPECT_EQ(normalIsListed, names.find("normal.txt") != std::string::npos);

    SetAttributes(tmp / "readonly.txt", 0x20);
    SetAttributes(tmp / "both.txt", 0x20);
}

TEST(DirFunctions, ListItemsAreOneBasedAndGuardedAtBothEnds) {
    CDirFunctions dir;
    TempDir tmp("util_items");
    kvtest::WriteFileText(tmp / "only.txt", "x");
    Out out;
    EXPECT_EQ(0, dir.GetItemFile(1, out.p));  // empty list
    ASSERT_EQ(1, dir.GetFilesDir(tmp.path().c_str(), 1));
    ASSERT_EQ(1, dir.GetItemFile(1, out.p));
    EXPECT_EQ(tmp / "only.txt", out.str());
    ASSERT_EQ(1, dir.GetItemFile(0, out.p));
    EXPECT_EQ(tmp / "only.txt", out.str());
    ASSERT_EQ(1, dir.GetItemFile(-5, out.p));
    EXPECT_EQ(tmp / "only.txt", out.str());
    EXPECT_EQ(0, dir.GetItemFile(2, out.p));
    EXPECT_EQ(0, dir.GetItemFile(INT_MAX, out.p));
    EXPECT_EQ(0, dir.GetItemDir(1, out.p));

    EXPECT_EQ(0, dir.GetFilesDir((tmp / "missing").c_str(), 0));
    EXPECT_EQ(0, dir.GetFilesDir(nullptr, 0));
}

TEST(DirFunctions, EmptyFolderNameListsTheCurrentFolder) {
    CDirFunctions dir;
    TempDir tmp("util_cwdlist");
    kvtest::WriteFileText(tmp / "here.txt", "x");
    CurrentFolder cd(tmp.path());
    ASSERT_EQ(1, dir.GetFilesDir("", 1));
    Out out;
    ASSERT_EQ(1, dir.GetItemFile(1, out.p));
    EXPECT_EQ(0, _stricmp((tmp / "here.txt").c_str(), out.p)) << out.str();
}

TEST(DirFunctions, SubFolderListSkipsDotsAndFiles) {
    CDirFunctions dir;
    TempDir tmp("util_subdirs");
    for (const char* name : {"plain", "hidden", "system"}) CreateDirectoryA((tmp / name).c_str(), nullptr);
    kvtest::WriteFileText(tmp / "file.txt", "x");
    SetAttributes(tmp / "hidden", 0x12);
    SetAttributes(tmp / "system", 0x14);
    // The existence test is FindFirstFileA, which does not take a trailing backslash.
    EXPECT_EQ(0, dir.GetSubDirs((tmp.path() + "\\").c_str(), 1));
    ASSERT_EQ(3, dir.GetSubDirs(tmp.path().c_str(), 1));
    std::string names;
    Out out;
    for (int i = 1; i <= 3; ++i) {
        ASSERT_EQ(1, dir.GetItemDir(i, out.p));
        names += std::string(out.p) + ";";
    }
    for (const char* name : {"plain", "hidden", "system"})
        EXPECT_NE(std::string::npos, names.find(tmp / name + ";")) << names;
    EXPECT_EQ(std::string::npos, names.find("\\\\")) << names;
    SetAttributes(tmp / "hidden", 0x10);
    SetAttributes(tmp / "system", 0x10);
}

TEST(DirFunctions, CopiesCarryTheListsAlong) {
    TempDir tmp("util_copyobj");
    kvtest::WriteFileText(tmp / "a.txt", "x");
    auto* original = new CDirFunctions;
    ASSERT_EQ(1, original->GetFilesDir(tmp.path().c_str(), 0));
    CDirFunctions copy(*original);
    CDirFunctions assigned;
    assigned = *original;
    assigned = assigned;  // copies nothing
    delete original;      // the copies own their items
    Out out;
    ASSERT_EQ(1, copy.GetItemFile(1, out.p));
    EXPECT_STREQ("a.txt", out.p);
    ASSERT_EQ(1, assigned.GetItemFile(1, out.p));
    EXPECT_STREQ("a.txt", out.p);
}

TEST(DirFunctions, AttributeWordsMapByEquality) {
    CDirFunctions dir;
    TempDir tmp("util_attr");
    const std::string file = tmp / "f.txt";
    kvtest::WriteFileText(file, "x");
    int attrib = -1;
    ASSERT_EQ(1, dir.SetFileAttrib(file.c_str(), FA_READONLY));
    EXPECT_EQ(0x21u, GetFileAttributesA(file.c_str()));
    EXPECT_EQ(1, dir.GetFileAttrib(file.c_str(), attrib));
    EXPECT_EQ(FA_READONLY, attrib);
    ASSERT_EQ(1, dir.SetFileAttrib(file.c_str(), FA_HIDDEN));
    EXPECT_EQ(0x22u, GetFileAttributesA(file.c_str()));
    dir.GetFileAttrib(file.c_str(), attrib);
    EXPECT_EQ(FA_HIDDEN, attrib);
    ASSERT_EQ(1, dir.SetFileAttrib(file.c_str(), FA_OTHER));  // any other value writes 0x20
    EXPECT_EQ(0x20u, GetFileAttributesA(file.c_str()));
    dir.GetFileAttrib(file.c_str(), attrib);
    EXPECT_EQ(FA_NORMAL, attrib);
    // Intended: read-only + hidden is not "read-only" but FA_OTHER.
    SetAttributes(file, 0x23);
    dir.GetFileAttrib(file.c_str(), attrib);
    EXPECT_EQ(FA_OTHER, attrib);
    SetAttributes(file, 0x20);
    EXPECT_EQ(1, dir.GetFileAttrib((tmp / "missing").c_str(), attrib));
    EXPECT_EQ(FA_OTHER, attrib);
    EXPECT_EQ(0, dir.SetFileAttrib((tmp / "missing").c_str(), FA_NORMAL));
}

TEST(DirFunctions, FileSizeOfExistingAndMissingFiles) {
    CDirFunctions dir;
    TempDir tmp("util_size");
    kvtest::WriteFileText(tmp / "ten.bin", "0123456789");
    kvtest::WriteFileText(tmp / "empty.bin", "");
    unsigned long size = 99;
    ASSERT_EQ(1, dir.GetFileSize((tmp / "ten.bin").c_str(), size));
    EXPECT_EQ(10u, size);
    ASSERT_EQ(1, dir.GetFileSize((tmp / "empty.bin").c_str(), size));
    EXPECT_EQ(0u, size);
    EXPECT_EQ(0, dir.GetFileSize((tmp / "missing.bin").c_str(), size));
}

TEST(DirFunctions, CreateChangeAndRemoveFolders) {
    CDirFunctions dir;
    TempDir tmp("util_mkdir");
    EXPECT_EQ(1, dir.CreateDir(""));  // nothing to do
    EXPECT_EQ(0, dir.CreateDir(nullptr));
    EXPECT_EQ(1, dir.CreateDir((tmp / "one").c_str()));
    EXPECT_EQ(0, dir.CreateDir((tmp / "two\\three").c_str()));  // one level only
    {
        CurrentFolder keep(tmp.path());
        EXPECT_EQ(1, dir.SetCurrentDir((tmp / "one").c_str()));
        Out out;
        dir.GetCurrentDir(out.p);
        EXPECT_EQ(0, _stricmp((tmp / "one").c_str(), out.p));
        EXPECT_EQ(0, dir.SetCurrentDir((tmp / "missing").c_str()));
    }
}

TEST(DirFunctions, KillDirRemovesATreeWithProtectedFiles) {
    CDirFunctions dir;
    TempDir tmp("util_killdir");
    const std::string root = tmp / "tree";
    CreateDirectoryA(root.c_str(), nullptr);
    CreateDirectoryA((root + "\\inner").c_str(), nullptr);
    CreateDirectoryA((root + "\\inner\\deep").c_str(), nullptr);
    kvtest::WriteFileText(root + "\\a.txt", "a");
    kvtest::WriteFileText(root + "\\inner\\ro.txt", "b");
    kvtest::WriteFileText(root + "\\inner\\deep\\hid.txt", "c");
    SetAttributes(root + "\\inner\\ro.txt", 0x21);
    SetAttributes(root + "\\inner\\deep\\hid.txt", 0x22);
    EXPECT_EQ(1, dir.KillDir((root + "\\").c_str()));
    EXPECT_FALSE(kvtest::DirectoryExists(root));

    // Intended: a file is "nothing to do" and stays; a missing path counts as
    // a folder whose removal fails.
    kvtest::WriteFileText(tmp / "keep.txt", "k");
    EXPECT_EQ(1, dir.KillDir((tmp / "keep.txt").c_str()));
    EXPECT_TRUE(kvtest::FileExists(tmp / "keep.txt"));
    EXPECT_EQ(0, dir.KillDir((tmp / "missing").c_str()));
    EXPECT_EQ(0, dir.KillDir(""));
    EXPECT_EQ(0, dir.KillDir(nullptr));
}

TEST(DirFunctions, KillDirFailsWhenAFileStaysOpen) {
    CDirFunctions dir;
    TempDir tmp("util_killbusy");
    const std::string root = tmp / "busy";
    CreateDirectoryA(root.c_str(), nullptr);
    CreateDirectoryA((root + "\\inner").c_str(), nullptr);
    const std::string held = root + "\\inner\\held.txt";
    kvtest::WriteFileText(held, "h");
    HANDLE h = CreateFileA(held.c_str(), GENERIC_READ, 0, nullptr, OPEN_EXISTING, 0, nullptr);
    ASSERT_NE(INVALID_HANDLE_VALUE, h);
    EXPECT_EQ(0, dir.KillDir(root.c_str()));
    EXPECT_TRUE(kvtest::FileExists(held));
    CloseHandle(h);
}

TEST(DirFunctions, KillFileNameRelativeToTheProgramFolder) {
    CDirFunctions dir;
    const std::string name = "util_kill_relative.tmp";
    const std::string path = kvtest::ProgramFolder() + "\\" + name;
    kvtest::WriteFileText(path, "x");
    EXPECT_EQ(1, dir.KillFileName(name.c_str(), 1));
    EXPECT_FALSE(kvtest::FileExists(path));
    EXPECT_EQ(0, dir.KillFileName(name.c_str(), 1));
    EXPECT_EQ(0, dir.KillFileName(path.c_str(), 0));
    EXPECT_EQ(0, dir.KillFileName(nullptr, 0));
}

TEST(DirFunctions, RenameCopyAndAppend) {
    CDirFunctions dir;
    TempDir tmp("util_copy");
    const std::string src = tmp / "src.txt";
    kvtest::WriteFileText(src, "one\ntwo\n");
    CreateDirectoryA((tmp / "into").c_str(), nullptr);

    // A three-letter extension names the target; anything else a folder.
    ASSERT_EQ(1, dir.CopyFileName(src.c_str(), (tmp / "dst.txt").c_str(), 0));
    EXPECT_EQ("one\ntwo\n", kvtest::ReadFileText(tmp / "dst.txt"));
    ASSERT_EQ(1, dir.CopyFileName(src.c_str(), (tmp / "into").c_str(), 0));
    EXPECT_TRUE(kvtest::FileExists(tmp / "into\\src.txt"));
    EXPECT_EQ(0, dir.CopyFileName(src.c_str(), (tmp / "dst.txt").c_str(), 0));  // exists
    EXPECT_EQ(1, dir.CopyFileName(src.c_str(), (tmp / "dst.txt").c_str(), 1));
    EXPECT_EQ(0, dir.CopyFileName((tmp / "missing.txt").c_str(), (tmp / "x.txt").c_str(), 1));

    // Appending reads text lines, also ones longer than the 260-byte line buffer.
    const std::string longLine(700, 'L');
    kvtest::WriteFileText(tmp / "more.txt", "three\n" + longLine + "\nlast");
    ASSERT_EQ(1, dir.AppendFileName((tmp / "more.txt").c_str(), (tmp / "dst.txt").c_str()));
    EXPECT_EQ("one\ntwo\nthree\r\n" + longLine + "\r\nlast", kvtest::ReadFileText(tmp / "dst.txt"));

    ASSERT_EQ(1, dir.ChangeFileName((tmp / "dst.txt").c_str(), (tmp / "renamed.txt").c_str()));
    EXPECT_TRUE(kvtest::FileExists(tmp / "renamed.txt"));
    EXPECT_EQ(0, dir.ChangeFileName((tmp / "dst.txt").c_str(), (tmp / "again.txt").c_str()));

    ASSERT_EQ(1, dir.WriteToFileName((tmp / "w.txt").c_str(), "a"));
    ASSERT_EQ(1, dir.WriteToFileName((tmp / "w.txt").c_str(), "b"));
    EXPECT_EQ("ab", kvtest::ReadFileText(tmp / "w.txt"));
    EXPECT_EQ(0, dir.WriteToFileName((tmp / "no\\such\\w.txt").c_str(), "a"));
}

TEST(DirFunctions, MoveDropsTheLastComponentWithoutABackslash) {
    CDirFunctions dir;
    TempDir tmp("util_move");
    CreateDirectoryA((tmp / "target").c_str(), nullptr);
    kvtest::WriteFileText(tmp / "m1.txt", "1");
    kvtest::WriteFileText(tmp / "target\\m2.txt", "2");

    // With the backslash the file moves into target.
    ASSERT_EQ(1, dir.MoveFileName((tmp / "m1.txt").c_str(), (tmp / "target\\").c_str()));
    EXPECT_TRUE(kvtest::FileExists(tmp / "target\\m1.txt"));
    // Intended: without it "target" is dropped and the file lands beside it.
    ASSERT_EQ(1, dir.MoveFileName((tmp / "target\\m2.txt").c_str(), (tmp / "target").c_str()));
    EXPECT_TRUE(kvtest::FileExists(tmp / "m2.txt"));
    // An existing target refuses the move.
    kvtest::WriteFileText(tmp / "target\\m2.txt", "again");
    EXPECT_EQ(0, dir.MoveFileName((tmp / "target\\m2.txt").c_str(), (tmp / "x").c_str()));
    EXPECT_EQ("again", kvtest::ReadFileText(tmp / "target\\m2.txt"));
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
    EXPECT_TRUE(small.Untouched());
    EXPECT_FALSE(CDirFunctions::CombineAndTimestamp(nullptr, "trace", small.data(), 21));

    kvtest::GuardedBuffer out(32);
    // Intended: only the library's own empty text is recognised, by pointer.
    EXPECT_TRUE(CDirFunctions::CombineAndTimestamp(CDirFunctions::theEmptyText, "trace", out.data(), 32));
    EXPECT_TRUE(out.Untouched());
    const char ownEmpty[1] = {0};
    EXPECT_TRUE(CDirFunctions::CombineAndTimestamp(ownEmpty, "trace", out.data(), 32));
    EXPECT_EQ(0, strncmp(out.data(), "\\trace", 6)) << out.data();
}
