// The platform layer against the real file system and kernel objects.
#include <windows.h>

#include <gtest/gtest.h>

#include <string>

#include "platform/error_text.h"
#include "platform/file_replace.h"
#include "platform/folder_listing.h"
#include "platform/folder_tree.h"
#include "platform/owned_handle.h"
#include "platform/small_file.h"
#include "temp_dir.h"

namespace kp = kv::platform;

namespace {

bool IsOpen(HANDLE handle) {
    DWORD flags;
    return GetHandleInformation(handle, &flags) != FALSE;
}

}  // namespace

TEST(Platform, HandleOwnersKnowWhichValueIsFailure) {
    EXPECT_FALSE(kp::FileHandle(INVALID_HANDLE_VALUE).valid() || kp::FileHandle().valid());
    EXPECT_FALSE(kp::KernelHandle(nullptr).valid() || kp::KernelHandle().valid());
    // -1 is the current process to a process handle owner, not a failure.
    EXPECT_TRUE(kp::KernelHandle(GetCurrentProcess()).valid());

    HANDLE raw = CreateEventA(nullptr, TRUE, FALSE, nullptr);
    {
        kp::KernelHandle first(raw);
        kp::KernelHandle second(std::move(first));
        EXPECT_FALSE(first.valid());
        EXPECT_TRUE(IsOpen(raw));
    }
    EXPECT_FALSE(IsOpen(raw));  // closed once, by the owner it was moved to

    raw = CreateEventA(nullptr, TRUE, FALSE, nullptr);
    { EXPECT_EQ(raw, kp::KernelHandle(raw).release()); }
    EXPECT_TRUE(IsOpen(raw));
    CloseHandle(raw);
}

TEST(Platform, FolderListingLeavesOutDotsAndTellsMissingFromEmpty) {
    kvtest::TempDir dir("kvplatform");
    CreateDirectoryA((dir / "sub").c_str(), nullptr);
    kvtest::WriteFileText(dir / "debug.a.log", "12345");
    kvtest::WriteFileText(dir / "other.txt", "");
    std::vector<kp::FolderEntry> entries;
    ASSERT_EQ(0u, kp::ListFolder(dir.path(), "*", entries));
    ASSERT_EQ(3u, entries.size());
    for (const auto& e : entries) EXPECT_EQ(e.name == "sub", e.IsFolder()) << e.name;
    ASSERT_EQ(0u, kp::ListFolder(dir.path() + "\\", "debug*.log", entries));
    ASSERT_EQ(1u, entries.size());
    EXPECT_EQ(5u, entries[0].size);
    EXPECT_EQ(0u, kp::ListFolder(dir.path(), "*.none", entries));
    EXPECT_TRUE(entries.empty());
    EXPECT_EQ(DWORD(ERROR_PATH_NOT_FOUND), kp::ListFolder(dir / "missing", "*", entries));
    int visited = 0;
    EXPECT_EQ(0u, kp::VisitFolder(dir.path(), "*", [&](const WIN32_FIND_DATAA&) { return ++visited < 2; }));
    EXPECT_EQ(2, visited);
}

TEST(Platform, SmallFileIsReadWholeWithinItsLimit) {
    kvtest::TempDir dir("kvplatform");
    const std::string path = dir / "state";
    kvtest::WriteFileText(path, "0123456789");
    // A writer holding the file open with read sharing does not stop the read.
    const HANDLE writer = CreateFileA(path.c_str(), FILE_APPEND_DATA, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr,
                                      OPEN_EXISTING, 0, nullptr);
    std::string text = "stale";
    EXPECT_EQ(0u, kp::ReadSmallFile(path, 10, text));
    EXPECT_EQ("0123456789", text);
    EXPECT_EQ(DWORD(ERROR_FILE_TOO_LARGE), kp::ReadSmallFile(path, 9, text));
    EXPECT_TRUE(text.empty());
    CloseHandle(writer);
    EXPECT_EQ(DWORD(ERROR_FILE_NOT_FOUND), kp::ReadSmallFile(dir / "missing", 10, text));
}

TEST(Platform, ReplacedFileIsOldOrNewNeverPart) {
    kvtest::TempDir dir("kvplatform");
    const std::string path = dir / "cursor";
    EXPECT_EQ(0u, kp::ReplaceFileDurably(path, "first"));
    EXPECT_EQ(0u, kp::ReplaceFileDurably(path, "second"));
    EXPECT_EQ("second", kvtest::ReadFileText(path));
    // A reader that does not share deletion keeps the file in place: the
    // replacement fails, the old content stays and no ".new" file is left.
    const HANDLE reader = CreateFileA(path.c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING, 0, nullptr);
    EXPECT_NE(0u, kp::ReplaceFileDurably(path, "third"));
    CloseHandle(reader);
    EXPECT_EQ("second", kvtest::ReadFileText(path));
    EXPECT_EQ(std::vector<std::string>{"cursor"}, kvtest::ListFolder(dir.path()));
}

TEST(Platform, RenameReplacesOnlyWhenAsked) {
    kvtest::TempDir dir("kvplatform");
    const std::string from = dir / "from", to = dir / "to";
    ASSERT_TRUE(kvtest::WriteFileText(from, "new") && kvtest::WriteFileText(to, "old"));
    EXPECT_EQ(DWORD(ERROR_ALREADY_EXISTS), kp::RenameFileDurably(from, to, false));
    EXPECT_EQ("old", kvtest::ReadFileText(to));
    EXPECT_EQ(0u, kp::RenameFileDurably(from, to, true));
    EXPECT_EQ("new", kvtest::ReadFileText(to));
    EXPECT_EQ(std::vector<std::string>{"to"}, kvtest::ListFolder(dir.path()));
}

TEST(Platform, FolderTreeIsMadeLevelByLevel) {
    kvtest::TempDir dir("kvplatform");
    kvtest::WriteFileText(dir / "file", "");
    const struct {
        std::string folder;
        DWORD error;
    } cases[] = {
        {dir / "a\\b/c\\", 0},
        {dir / "a\\b", 0},  // exists already
        {dir / "file", ERROR_DIRECTORY},
        {dir / "file\\below", ERROR_DIRECTORY},
        {"", ERROR_INVALID_NAME},
    };
    for (const auto& c : cases) EXPECT_EQ(c.error, kp::CreateFolderTree(c.folder)) << c.folder;
    EXPECT_TRUE(kvtest::DirectoryExists(dir / "a\\b\\c"));
}

TEST(Platform, ErrorTextKeepsTheNumberAndDropsTheLineEnd) {
    const std::string known = kp::ErrorText(ERROR_ACCESS_DENIED);
    EXPECT_TRUE(known.find("error 5: ") == 0 && known.size() > 9) << known;
    EXPECT_EQ(std::string::npos, known.find_first_of(".\r\n")) << known;
    EXPECT_EQ("error 3735928559", kp::ErrorText(0xDEADBEEF));
}
