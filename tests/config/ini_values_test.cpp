// INI values of any file: defaults, lists, long values, integers and writes.
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
    std::string Read(const char* section, const char* key, const char* fallback, int32_t* result = nullptr) {
        char text[2000] = "";
        const int32_t n = IniReadValueAsString(path(), section, key, text, sizeof text, fallback);
        if (result) *result = n;
        return std::string(text, n > 0 ? size_t(n) : 0);
    }

    kvtest::TempDir dir_{"cfgini"};
    std::string path_ = dir_ / "values.ini";
};

}  // namespace

TEST_F(IniValues, DefaultsAndLists) {
    int32_t n = -9;
    EXPECT_EQ("", Read("Main", "Empty", "unused", &n));
    EXPECT_EQ(0, n);
    EXPECT_EQ("default", Read("Main", "Missing", "default"));
    EXPECT_EQ("", Read("Main", "Missing", nullptr, &n));
    EXPECT_EQ(0, n);
    char text[8];
    EXPECT_EQ(3, IniReadValueAsString((dir_ / "absent.ini").c_str(), "Main", "Nine", text, sizeof text, "abc"));
    EXPECT_EQ(0, IniReadSectionAsString(path(), "Nowhere", text, sizeof text));
    // A null section lists sections and a null key lists keys; the default is ignored.
    EXPECT_EQ(std::string("Main\0Second\0", 12), Read(nullptr, "ignored", "ignored"));
    EXPECT_EQ(std::string("A\0", 2), Read("Second", nullptr, "ignored"));
}

TEST_F(IniValues, LongValuesAreCutAt1023Characters) {
    const std::string longValue(1500, 'v');
    ASSERT_EQ(1, IniWriteValueAsString(path(), "Main", "Long", longValue.c_str()));
    EXPECT_EQ(longValue.substr(0, 1023), Read("Main", "Long", ""));
}

TEST_F(IniValues, IntegersAreClampedToTheirRange) {
    EXPECT_EQ(77, IniReadValueAsInt(path(), "Main", "Missing", 77));
    const struct {
        const char* key;
        int32_t fallback, low, high, expected;
    } cases[] = {{"Negative", 3, 0, 10, 0},
                 {"Big", 3, 0, 10, 10},
                 {"Missing", 20, 0, 10, 10},  // the default is clamped too
                 {"Missing", -7, -10, 10, -7}};
    for (const auto& c : cases) {
        SCOPED_TRACE(std::string(c.key) + " default " + std::to_string(c.fallback));
        EXPECT_EQ(c.expected, IniReadValueAsIntRange(path(), "Main", c.key, c.fallback, c.low, c.high));
    }
    ASSERT_EQ(1, IniWriteValueAsInt(path(), "Numbers", "Low", INT32_MIN));
    ASSERT_EQ(1, IniWriteValueAsInt(path(), "Numbers", "High", INT32_MAX));
    EXPECT_EQ("-2147483648", Read("Numbers", "Low", ""));
    EXPECT_EQ(INT32_MAX, IniReadValueAsInt(path(), "Numbers", "High", 0));
}

TEST_F(IniValues, WritesCreateReplaceAndDelete) {
    const std::string fresh = dir_ / "new.ini";
    char text[64];
    EXPECT_EQ(1, IniWriteValueAsString(fresh.c_str(), "Made", "Key", "value"));
    EXPECT_EQ(5, IniReadValueAsString(fresh.c_str(), "Made", "Key", text, sizeof text, ""));
    EXPECT_EQ(1, IniWriteValueAsString(path(), "Main", "Negative", nullptr));  // a null value deletes the key
    EXPECT_EQ("-", Read("Main", "Negative", "-"));
    EXPECT_EQ(1, IniWriteValueAsString(path(), "Main", nullptr, "ignored"));  // a null key deletes the section
    EXPECT_EQ("", Read("Main", nullptr, nullptr));

    // The section's keys are replaced by exactly the bytes passed.
    const char data[] = "X=1\0Y=two\0\0";
    EXPECT_EQ(1, IniWriteSectionAsString(path(), "Second", data, int32_t(sizeof data - 1)));
    const int32_t n = IniReadSectionAsString(path(), "Second", text, sizeof text);
    EXPECT_EQ(std::string("X=1\0Y=two\0", 10), std::string(text, size_t(n)));
    EXPECT_EQ(0, IniWriteSectionAsString(path(), "Second", data, -1));
    EXPECT_EQ(0, IniWriteValueAsString(nullptr, "Second", "X", "2"));
}
