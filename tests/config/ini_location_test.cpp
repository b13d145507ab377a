// The INI location record and the buffer rules of its getters. Each test sets
// a path of its own first, so the process-wide record starts from a known state.
#include <gtest/gtest.h>

#include "KvDebugHelp.h"
#include "guarded_buffer.h"
#include "product_install.h"

using kvtest::GuardedBuffer;
using kvtest::ProductInstall;

namespace {

int32_t IniPathResult() {
    char text[300];
    return GetKorvanIniFilePath(text, sizeof text);
}

std::string WithUpperCaseName(std::string path) {
    const size_t slash = path.rfind('\\');
    for (size_t i = slash + 1; i < path.size(); ++i) path[i] = char(toupper(path[i]));
    return path;
}

}  // namespace

TEST(IniLocation, OnlyAChangedPathClearsValidation) {
    ProductInstall install;
    const std::string ini = install.iniPath();
    const int32_t length = int32_t(ini.size());
    ASSERT_EQ(1, SetKorvanIniFilePath(ini.c_str()));
    EXPECT_EQ(-3, IniPathResult());
    ASSERT_EQ(1, ValidateKorvanIniFile());
    EXPECT_EQ(length, IniPathResult());

    EXPECT_EQ(1, SetKorvanIniFilePath(ini.c_str()));
    EXPECT_EQ(length, IniPathResult());
    // The comparison is by bytes: another letter case is another path.
    EXPECT_EQ(1, SetKorvanIniFilePath(WithUpperCaseName(ini).c_str()));
    EXPECT_EQ(-3, IniPathResult());

    ASSERT_EQ(1, ValidateKorvanIniFile());
    InvalidateKorvanIniFile();
    EXPECT_EQ(-3, IniPathResult());
}

TEST(IniLocation, BadPathsChangeNothing) {
    ProductInstall install;
    const std::string ini = install.iniPath();
    ASSERT_EQ(1, SetKorvanIniFilePath(ini.c_str()));
    ASSERT_EQ(1, ValidateKorvanIniFile());
    EXPECT_EQ(0, SetKorvanIniFilePath(nullptr));
    EXPECT_EQ(0, SetKorvanIniFilePathEx(nullptr, 1));
    const std::string overlong = install.root() + "\\" + std::string(300, 'x') + ".ini";
    EXPECT_EQ(0, SetKorvanIniFilePath(overlong.c_str()));
    char text[300];
    EXPECT_EQ(int32_t(ini.size()), GetKorvanIniFilePath(text, sizeof text));
    EXPECT_EQ(ini, text);
}

TEST(IniLocation, RelativePathsAreMadeAbsolute) {
    ProductInstall install;
    char previous[MAX_PATH];
    GetCurrentDirectoryA(MAX_PATH, previous);
    ASSERT_TRUE(SetCurrentDirectoryA(install.Path("Config").c_str()));
    const int32_t set = SetKorvanIniFilePath("product.ini");
    SetCurrentDirectoryA(previous);
    EXPECT_EQ(1, set);
    char text[300];
    EXPECT_EQ(-3, GetKorvanIniFilePath(text, sizeof text));
    EXPECT_STRCASEEQ(install.iniPath().c_str(), text);
}

TEST(IniLocation, GettersFillExactlyTheGivenSize) {
    ProductInstall install;
    const std::string ini = install.iniPath();
    const uint32_t length = uint32_t(ini.size());
    ASSERT_EQ(1, SetKorvanIniFilePath(ini.c_str()));

    // Not validated: still shown (-3) when it fits; -1 and nothing when not.
    GuardedBuffer unvalidatedFits(length + 1);
    EXPECT_EQ(-3, GetKorvanIniFilePath(unvalidatedFits.data(), length + 1));
    EXPECT_EQ(ini, unvalidatedFits.data());
    GuardedBuffer unvalidatedShort(length);
    EXPECT_EQ(-1, GetKorvanIniFilePath(unvalidatedShort.data(), length));
    EXPECT_TRUE(unvalidatedShort.AllZero());
    EXPECT_EQ(-2, GetKorvanIniFileName(unvalidatedFits.data(), length + 1));
    EXPECT_TRUE(unvalidatedFits.AllZero());

    ASSERT_EQ(1, ValidateKorvanIniFile());
    GuardedBuffer exact(length + 1), tooShort(length);
    EXPECT_EQ(int32_t(length), GetKorvanIniFilePath(exact.data(), length + 1));
    EXPECT_EQ(ini, exact.data());
    EXPECT_EQ(-1, GetKorvanIniFilePath(tooShort.data(), length));
    EXPECT_TRUE(tooShort.AllZero());
    GuardedBuffer configured(length + 1), configuredShort(length);
    EXPECT_EQ(int32_t(length), GetKorvanIniFilePathAsConfigured(configured.data(), length + 1));
    EXPECT_EQ(-1, GetKorvanIniFilePathAsConfigured(configuredShort.data(), length));
    EXPECT_TRUE(configuredShort.AllZero());
    EXPECT_EQ(-1, GetKorvanIniFilePath(nullptr, 0));

    GuardedBuffer name(12), nameShort(11);
    EXPECT_EQ(11, GetKorvanIniFileName(name.data(), 12));
    EXPECT_STREQ("product.ini", name.data());
    EXPECT_EQ(-1, GetKorvanIniFileName(nameShort.data(), 11));
    EXPECT_TRUE(nameShort.AllZero());
}

TEST(IniLocation, RootKeyPathAndVersion) {
    const std::string expected = "Software\\Korvan\\SCADA Installs\\8.40";
    const uint32_t length = uint32_t(expected.size());
    GuardedBuffer exact(length + 1), tooShort(length), empty(0);
    EXPECT_EQ(int32_t(length), GetRootRegistryKeyPath(exact.data(), length + 1));
    EXPECT_EQ(expected, exact.data());
    EXPECT_EQ(-1, GetRootRegistryKeyPath(tooShort.data(), length));
    EXPECT_TRUE(tooShort.AllZero());
    EXPECT_EQ(-1, GetRootRegistryKeyPath(empty.data(), 0));
    EXPECT_EQ(8, GetMajorVersion());
    EXPECT_EQ(40, GetMinorVersion());
}
