// The process-wide INI location: which changes clear its validation, and what
// is refused, starting from a path of its own.
#include <gtest/gtest.h>

#include "KvDebugHelp.h"
#include "guarded_buffer.h"
#include "product_install.h"

namespace {

int32_t IniPathResult(std::string* text = nullptr) {
    char buffer[300] = "";
    const int32_t result = GetKorvanIniFilePath(buffer, sizeof buffer);
    if (text) *text = buffer;
    return result;
}

}  // namespace

TEST(IniLocation, OnlyAChangedPathClearsValidationAndBadPathsChangeNothing) {
    kvtest::ProductInstall install;
    const std::string ini = install.iniPath();
    const int32_t length = int32_t(ini.size());
    ASSERT_EQ(1, SetKorvanIniFilePath(ini.c_str()));
    EXPECT_EQ(-3, IniPathResult());
    // Not validated and too small: the size problem wins, nothing is shown.
    kvtest::GuardedBuffer tooShort(ini.size());
    EXPECT_EQ(-1, GetKorvanIniFilePath(tooShort.data(), uint32_t(ini.size())));
    EXPECT_TRUE(tooShort.AllZero());
    EXPECT_EQ(-2, GetKorvanIniFileName(tooShort.data(), uint32_t(ini.size())));
    ASSERT_EQ(1, ValidateKorvanIniFile());
    EXPECT_EQ(length, IniPathResult());

    EXPECT_EQ(1, SetKorvanIniFilePath(ini.c_str()));  // the same path keeps it
    EXPECT_EQ(length, IniPathResult());
    // Compared by bytes: another letter case is another path.
    std::string upper = ini;
    for (size_t i = upper.rfind('\\'); i < upper.size(); ++i) upper[i] = char(toupper(upper[i]));
    EXPECT_EQ(1, SetKorvanIniFilePath(upper.c_str()));
    EXPECT_EQ(-3, IniPathResult());

    // Bad paths change nothing; relative ones are made absolute.
    ASSERT_EQ(1, SetKorvanIniFilePath(ini.c_str()));
    ASSERT_EQ(1, ValidateKorvanIniFile());
    EXPECT_EQ(0, SetKorvanIniFilePath(nullptr));
    EXPECT_EQ(0, SetKorvanIniFilePathEx(nullptr, 1));
    EXPECT_EQ(0, SetKorvanIniFilePath((install.root() + "\\" + std::string(300, 'x') + ".ini").c_str()));
    std::string text;
    EXPECT_EQ(int32_t(ini.size()), IniPathResult(&text));
    EXPECT_EQ(ini, text);
    InvalidateKorvanIniFile();
    EXPECT_EQ(-3, IniPathResult());

    ASSERT_TRUE(SetCurrentDirectoryA(install.Path("Config").c_str()));
    const int32_t set = SetKorvanIniFilePath("product.ini");
    SetCurrentDirectoryA(kvtest::ProgramFolder().c_str());  // where ctest starts the tests
    EXPECT_EQ(1, set);
    EXPECT_EQ(-3, IniPathResult(&text));
    EXPECT_STRCASEEQ(ini.c_str(), text.c_str());
}
