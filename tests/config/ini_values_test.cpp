// INI values of any file: what the library decides around the profile
// functions (defaults, lists, the value limit, clamps, deletes and sections).
#include <gtest/gtest.h>

#include "KvDebugHelp.h"
#include "temp_dir.h"

namespace {

class IniValues : public ::testing::Test {
protected:
    void SetUp() override {
        ASSERT_TRUE(kvtest::WriteFileText(path_, "[Main]\r\nEmpty=\r\nNegative=-5\r\nBig=99\r\n[Second]\r\nA=1\r\n"));
    }
    const char* path() const { return path_.c_str(); }
    std::string Read(const char* section, const char* key, const char* fallback) {
        char text[2000] = "";
        const int32_t n = IniReadValueAsString(path(), section, key, text, sizeof text, fallback);
        return n < 0 ? "<" + std::to_string(n) + ">" : std::string(text, size_t(n));
    }

    kvtest::TempDir dir_{"cfgini"};
    std::string path_ = dir_ / "values.ini";
};

}  // namespace

TEST_F(IniValues, DefaultsListsAndTheValueLimit) {
    ASSERT_EQ(1, IniWriteValueAsString(path(), "Main", "Long", std::string(1500, 'v').c_str()));
    const struct { const char *section, *key, *fallback; std::string expected; } cases[] = {
        {"Main", "Empty", "unused", ""},
        {"Main", "Missing", "default", "default"},
        {"Main", "Missing", nullptr, ""},
        {"Main", "Long", "", std::string(1023, 'v')},
        // A null section lists sections and a null key lists keys; the default is ignored.
        {nullptr, "ignored", "ignored", std::string("Main\0Second\0", 12)},
        {"Second", nullptr, "ignored", std::string("A\0", 2)}};
    for (const auto& c : cases) EXPECT_EQ(c.expected, Read(c.section, c.key, c.fallback)) << (c.key ? c.key : "(null)");
    // No file at all gives the default, never a value of the system's win.ini.
    char text[8];
    EXPECT_EQ(3, IniReadValueAsString(nullptr, "Main", "Nine", text, sizeof text, "abc"));
    EXPECT_STREQ("abc", text);
}

TEST_F(IniValues, IntegersAreClampedToTheirRange) {
    const struct { const char* key; int32_t fallback, low, high, expected; } cases[] = {{"Negative", 3, 0, 10, 0},
                 {"Big", 3, 0, 10, 10},
                 {"Missing", 20, 0, 10, 10},  // the default is clamped too
                 {"Missing", -7, -10, 10, -7}};
    for (const auto& c : cases) {
        SCOPED_TRACE(std::string(c.key) + " default " + std::to_string(c.fallback));
        EXPECT_EQ(c.expected, IniReadValueAsIntRange(path(), "Main", c.key, c.fallback, c.low, c.high));
    }
    EXPECT_EQ(77, IniReadValueAsInt(nullptr, "Main", "Big", 77));
    ASSERT_EQ(1, IniWriteValueAsInt(path(), "Numbers", "Low", INT32_MIN));
    EXPECT_EQ("-2147483648", Read("Numbers", "Low", ""));
}

TEST_F(IniValues, WritesDeleteAndReplaceSections) {
    EXPECT_EQ(1, IniWriteValueAsString(path(), "Main", nullptr, "ignored"));  // a null key deletes the section
    EXPECT_EQ("", Read("Main", nullptr, nullptr));
    // The section's keys are replaced by exactly the bytes passed, even
    // without the list's final terminator.
    EXPECT_EQ(1, IniWriteSectionAsString(path(), "Second", "X=1\0Y=two", 9));
    char text[64];
    const int32_t n = IniReadSectionAsString(path(), "Second", text, sizeof text);
    EXPECT_EQ(std::string("X=1\0Y=two\0", 10), std::string(text, size_t(n > 0 ? n : 0)));
    EXPECT_EQ(0, IniWriteSectionAsString(path(), "Second", "X=1", -1));
    EXPECT_EQ(0, IniWriteValueAsString(nullptr, "Second", "X", "2"));
}
