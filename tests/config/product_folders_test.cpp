// Folder lookups on a validated sample installation: every code, creation of
// missing folders, and edits seen at once.
#include <gtest/gtest.h>

#include "KvDebugHelp.h"
#include "guarded_buffer.h"
#include "product_install.h"

using kvtest::ProductInstall;

namespace {

std::string Folder(int code) {
    char text[300];
    const int32_t result = GetKorvanFolderByType(code, text, sizeof text);
    return result > 0 ? std::string(text) : std::to_string(result);
}

}  // namespace

TEST(ProductFolders, EveryCodeNamesItsKeyReadAgainAtEachLookup) {
    ProductInstall install;
    ASSERT_EQ(1, SetKorvanIniFilePath(install.iniPath().c_str()));
    ASSERT_EQ(1, ValidateKorvanIniFile());
    const struct { int code; std::string expected; int32_t (*shortcut)(char*, uint32_t); } cases[] = {
        {0, install.Path("Config"), GetConfigFolder},       {1, install.logDir(), GetKorvanLogFolder},
        {2, install.Path("Logs\\Drivers"), GetDriversLogFolder}, {3, kvtest::ProgramFolder(), GetKorvanBinFolder},
        {6, install.Path("Data"), GetDataFolder},           {7, install.Path("User"), GetUserFolder},
        {8, install.Path("Starter"), GetStarterFolder},     {9, install.Path("User\\Include"), GetLastDatabaseFolder},
        {10, install.logDir(), nullptr},                    {11, install.Path("Run"), nullptr}};
    for (const auto& c : cases) {
        SCOPED_TRACE(c.code);
        EXPECT_EQ(c.expected, Folder(c.code));
        char text[300] = "";
        if (!c.shortcut) continue;
        EXPECT_EQ(int32_t(c.expected.size()), c.shortcut(text, sizeof text));
        EXPECT_EQ(c.expected, text);
    }
    for (int unknown : {4, 5, 12, -1, 1000}) {
        kvtest::GuardedBuffer text(64);
        EXPECT_EQ(-2, GetKorvanFolderByType(unknown, text.data(), 64)) << unknown;
        EXPECT_TRUE(text.AllZero()) << unknown;
    }

    // Each lookup reads the file again and creates the folder.
    char text[300];
    EXPECT_EQ(0, GetKorvanProfilePath(text, sizeof text));  // no profile named yet
    const std::string deep = install.Path("Site\\Area\\Logs");
    install.SetValue("KVEDIT", "LOGS", deep);
    // The read that creates nothing names the same folder and leaves it missing.
    char read[300];
    EXPECT_EQ(int32_t(deep.size() + 8), ReadKorvanFolderByType(2, read, sizeof read));
    EXPECT_EQ(deep + "\\Drivers", std::string(read));
    EXPECT_FALSE(kvtest::DirectoryExists(install.Path("Site")));
    EXPECT_EQ(-2, ReadKorvanFolderByType(4, read, sizeof read));
    EXPECT_EQ(deep + "\\Drivers", Folder(2));
    EXPECT_TRUE(kvtest::DirectoryExists(deep + "\\Drivers"));
    // Trailing separators and forward slashes are kept as written.
    install.SetValue("KVEDIT", "DATA", install.Path("Mixed/One/"));
    EXPECT_EQ(install.Path("Mixed/One/"), Folder(6));
    EXPECT_TRUE(kvtest::DirectoryExists(install.Path("Mixed\\One")));
    // Empty, a file where a parent folder should be, over-long: not available.
    install.SetValue("KVEDIT", "USER", "");
    kvtest::WriteFileText(install.Path("Blocked"), "x");
    install.SetValue("KVEDIT", "STARTER", install.Path("Blocked\\Starter"));
    install.SetValue("KVEDIT", "RUN", install.Path(std::string(270, 'r')));
    for (int code : {7, 8, 11}) EXPECT_EQ("-2", Folder(code)) << code;
}
