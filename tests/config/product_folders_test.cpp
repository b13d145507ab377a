// Folder lookups on a validated sample installation: every code, creation of
// missing folders, edits seen at once, and the buffer rules.
#include <gtest/gtest.h>

#include "KvDebugHelp.h"
#include "guarded_buffer.h"
#include "product_install.h"

using kvtest::GuardedBuffer;
using kvtest::ProductInstall;

namespace {

std::string Folder(int code, int32_t* result = nullptr) {
    char text[300];
    const int32_t r = GetKorvanFolderByType(code, text, sizeof text);
    if (result) *result = r;
    return r > 0 ? std::string(text) : std::to_string(r);
}

void UseInstall(const ProductInstall& install) {
    ASSERT_EQ(1, SetKorvanIniFilePath(install.iniPath().c_str()));
    ASSERT_EQ(1, ValidateKorvanIniFile());
}

}  // namespace

TEST(ProductFolders, EveryCodeNamesItsKey) {
    ProductInstall install;
    UseInstall(install);
    EXPECT_EQ(install.Path("Config"), Folder(0));
    EXPECT_EQ(install.logDir(), Folder(1));
    EXPECT_EQ(install.logDir() + "\\Drivers", Folder(2));
    EXPECT_EQ(kvtest::ProgramFolder(), Folder(3));
    EXPECT_EQ(install.Path("Data"), Folder(6));
    EXPECT_EQ(install.Path("User"), Folder(7));
    EXPECT_EQ(install.Path("Starter"), Folder(8));
    EXPECT_EQ(install.Path("User\\Include"), Folder(9));
    EXPECT_EQ(Folder(1), Folder(10));
    EXPECT_EQ(install.Path("Run"), Folder(11));
    for (int unknown : {4, 5, 12, -1, 1000}) EXPECT_EQ("-2", Folder(unknown)) << unknown;

    const std::pair<int, int32_t (*)(char*, uint32_t)> shortcuts[] = {
        {0, GetConfigFolder}, {1, GetKorvanLogFolder}, {2, GetDriversLogFolder}, {3, GetKorvanBinFolder},
        {6, GetDataFolder},   {7, GetUserFolder},      {8, GetStarterFolder},    {9, GetLastDatabaseFolder}};
    for (const auto& shortcut : shortcuts) {
        char text[300];
        EXPECT_GT(shortcut.second(text, sizeof text), 0) << shortcut.first;
        EXPECT_EQ(Folder(shortcut.first), text) << shortcut.first;
    }
}

TEST(ProductFolders, MissingFoldersAreCreatedWithTheirParents) {
    ProductInstall install;
    const std::string deep = install.Path("Site\\Area\\Logs");
    install.SetValue("KVEDIT", "LOGS", deep);
    UseInstall(install);
    ASSERT_FALSE(kvtest::DirectoryExists(install.Path("Site")));
    char text[300];
    EXPECT_EQ(int32_t(deep.size() + 8), GetDriversLogFolder(text, sizeof text));
    EXPECT_TRUE(kvtest::DirectoryExists(deep + "\\Drivers"));

    // Trailing separators and forward slashes are kept as written.
    const std::string slashed = install.Path("Mixed/One/");
    install.SetValue("KVEDIT", "DATA", slashed);
    EXPECT_EQ(slashed, Folder(6));
    EXPECT_TRUE(kvtest::DirectoryExists(install.Path("Mixed\\One")));
}

TEST(ProductFolders, EachLookupReadsTheFileAgain) {
    ProductInstall install;
    UseInstall(install);
    EXPECT_EQ(install.Path("User"), Folder(7));
    install.SetValue("KVEDIT", "USER", install.Path("Operators"));
    EXPECT_EQ(install.Path("Operators"), Folder(7));
    install.SetValue("KVEDIT", "USER", "");
    EXPECT_EQ("-2", Folder(7));
    // A file where a parent folder should be, and an over-long path: not available.
    kvtest::WriteFileText(install.Path("Blocked"), "x");
    install.SetValue("KVEDIT", "STARTER", install.Path("Blocked\\Starter"));
    install.SetValue("KVEDIT", "RUN", install.Path(std::string(270, 'r')));
    EXPECT_EQ("-2", Folder(8));
    EXPECT_EQ("-2", Folder(11));
}

TEST(ProductFolders, BuffersOfExactlyTheLength) {
    ProductInstall install;
    UseInstall(install);
    const std::string logs = install.logDir();
    const uint32_t length = uint32_t(logs.size());
    GuardedBuffer fits(length + 1), tooShort(length), zero(0);
    EXPECT_EQ(int32_t(length), GetKorvanLogFolder(fits.data(), length + 1));
    EXPECT_EQ(logs, fits.data());
    EXPECT_EQ(-1, GetKorvanLogFolder(tooShort.data(), length));
    EXPECT_TRUE(tooShort.AllZero());
    EXPECT_EQ(-1, GetKorvanLogFolder(zero.data(), 0));
    EXPECT_EQ(-1, GetKorvanLogFolder(nullptr, 0));
    GuardedBuffer unknown(8);
    EXPECT_EQ(-2, GetKorvanFolderByType(4, unknown.data(), 8));
    EXPECT_TRUE(unknown.AllZero());
}

TEST(ProductFolders, ProfilePathNeedsRoomForItsTerminatorAndOneMore) {
    ProductInstall install;
    UseInstall(install);
    char text[300];
    EXPECT_EQ(0, GetKorvanProfilePath(text, sizeof text));  // no profile named yet
    install.SetValue("RuntimeManager", "Profile", "operator");
    const std::string expected = install.Path("Run") + "\\operator.ini";
    const uint32_t length = uint32_t(expected.size());
    GuardedBuffer roomy(length + 2), tight(length + 1);
    EXPECT_EQ(int32_t(length), GetKorvanProfilePath(roomy.data(), length + 2));
    EXPECT_EQ(expected, roomy.data());
    EXPECT_TRUE(kvtest::DirectoryExists(install.Path("Run")));
    // The path is formatted into size - 1 bytes: an overflow gives 0, never a cut path.
    EXPECT_EQ(0, GetKorvanProfilePath(tight.data(), length + 1));
    EXPECT_TRUE(tight.AllZero());
}
