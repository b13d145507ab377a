// INI values of any file: the copy-out rule, lists, integers and writes.
#include <gtest/gtest.h>

#include "KvDebugHelp.h"
#include "guarded_buffer.h"
#include "temp_dir.h"

using kvtest::GuardedBuffer;

namespace {

class IniValues : public ::testing::Test {
protected:
    void SetUp() override {
        ASSERT_TRUE(kvtest::WriteFileText(path_, "[Main]\r\nNine=123456789\r\nEmpty=\r\nNegative=-5\r\nBig=99\r\n"
                                                 "Padded=  42 kg\r\n[Second]\r\nA=1\r\n"));
    }
    const char* path() const { return path_.c_str(); }

    kvtest::TempDir dir_{"cfgini"};
    std::string path_ = dir_ / "values.ini";
};

std::string Bytes(const char* data, int32_t n) { return std::string(data, size_t(n)); }

}  // namespace

TEST_F(IniValues, ValueNeedsOneByteMoreThanItsLength) {
    GuardedBuffer fits(10), exact(9);
    EXPECT_EQ(9, IniReadValueAsString(path(), "Main", "Nine", fits.data(), 10, ""));
    EXPECT_STREQ("123456789", fits.data());
    EXPECT_EQ(-1, IniReadValueAsString(path(), "Main", "Nine", exact.data(), 9, ""));
    EXPECT_EQ('\0', exact.data()[0]);
    GuardedBuffer none(0);
    EXPECT_EQ(-1, IniReadValueAsString(path(), "Main", "Nine", none.data(), 0, ""));

    GuardedBuffer empty(4);
    EXPECT_EQ(0, IniReadValueAsString(path(), "Main", "Empty", empty.data(), 4, "unused"));
    EXPECT_EQ('\0', empty.data()[0]);
    char text[32];
    EXPECT_EQ(7, IniReadValueAsString(path(), "main", "MISSING", text, sizeof text, "default"));
    EXPECT_STREQ("default", text);
    EXPECT_EQ(3, IniReadValueAsString((dir_ / "absent.ini").c_str(), "Main", "Nine", text, sizeof text, "abc"));
    EXPECT_EQ(0, IniReadValueAsString(path(), "Main", "Missing", text, sizeof text, nullptr));
}

TEST_F(IniValues, NullArgumentsSelectLists) {
    char text[64];
    const int32_t sections = IniReadValueAsString(path(), nullptr, "ignored", text, sizeof text, "ignored");
    EXPECT_EQ(std::string("Main\0Second\0", 12), Bytes(text, sections));
    EXPECT_EQ('\0', text[sections]);
    const int32_t keys = IniReadValueAsString(path(), "Second", nullptr, text, sizeof text, "ignored");
    EXPECT_EQ(std::string("A\0", 2), Bytes(text, keys));
    const int32_t lines = IniReadSectionAsString(path(), "Second", text, sizeof text);
    EXPECT_EQ(std::string("A=1\0", 4), Bytes(text, lines));

    // A list of n characters also needs n + 1 bytes.
    GuardedBuffer listExact(12), listFits(13);
    EXPECT_EQ(-1, IniReadValueAsString(path(), nullptr, nullptr, listExact.data(), 12, nullptr));
    EXPECT_EQ(12, IniReadValueAsString(path(), nullptr, nullptr, listFits.data(), 13, nullptr));
    EXPECT_EQ(0, IniReadSectionAsString(path(), "Nowhere", text, sizeof text));
}

TEST_F(IniValues, LongValuesAreCutAt1023Characters) {
    const std::string longValue(1500, 'v');
    ASSERT_EQ(1, IniWriteValueAsString(path(), "Main", "Long", longValue.c_str()));
    std::string text(2000, '\xEE');
    EXPECT_EQ(1023, IniReadValueAsString(path(), "Main", "Long", &text[0], 2000, ""));
    EXPECT_EQ(longValue.substr(0, 1023), text.c_str());
}

TEST_F(IniValues, IntegersAndRanges) {
    EXPECT_EQ(-5, IniReadValueAsInt(path(), "Main", "Negative", 0));
    EXPECT_EQ(77, IniReadValueAsInt(path(), "Main", "Missing", 77));
    EXPECT_EQ(0, IniReadValueAsIntRange(path(), "Main", "Negative", 3, 0, 10));
    EXPECT_EQ(10, IniReadValueAsIntRange(path(), "Main", "Big", 3, 0, 10));
    EXPECT_EQ(10, IniReadValueAsIntRange(path(), "Main", "Missing", 20, 0, 10));  // the default is clamped too
    EXPECT_EQ(-7, IniReadValueAsIntRange(path(), "Main", "Missing", -7, -10, 10));

    ASSERT_EQ(1, IniWriteValueAsInt(path(), "Numbers", "Low", INT32_MIN));
    ASSERT_EQ(1, IniWriteValueAsInt(path(), "Numbers", "High", INT32_MAX));
    char text[32];
    IniReadValueAsString(path(), "Numbers", "Low", text, sizeof text, "");
    EXPECT_STREQ("-2147483648", text);
    EXPECT_EQ(INT32_MAX, IniReadValueAsInt(path(), "Numbers", "High", 0));
}

TEST_F(IniValues, WritesCreateReplaceAndDelete) {
    const std::string fresh = dir_ / "new.ini";
    EXPECT_EQ(1, IniWriteValueAsString(fresh.c_str(), "Made", "Key", "value"));
    char text[64];
    EXPECT_EQ(5, IniReadValueAsString(fresh.c_str(), "Made", "Key", text, sizeof text, ""));

    EXPECT_EQ(1, IniWriteValueAsString(path(), "Main", "Nine", nullptr));
    EXPECT_EQ(1, IniReadValueAsString(path(), "Main", "Nine", text, sizeof text, "-"));
    EXPECT_EQ(1, IniWriteValueAsString(path(), "Main", nullptr, "ignored"));
    EXPECT_EQ(0, IniReadValueAsString(path(), "Main", nullptr, text, sizeof text, nullptr));
    EXPECT_EQ(0, IniReadSectionAsString(path(), "Main", text, sizeof text));

    // The section's keys are replaced by exactly the bytes passed.
    const char data[] = "X=1\0Y=two\0\0";
    EXPECT_EQ(1, IniWriteSectionAsString(path(), "Second", data, int32_t(sizeof data - 1)));
    const int32_t n = IniReadSectionAsString(path(), "Second", text, sizeof text);
    EXPECT_EQ(std::string("X=1\0Y=two\0", 10), Bytes(text, n));
    EXPECT_EQ(0, IniWriteSectionAsString(path(), "Second", data, -1));
    EXPECT_EQ(0, IniWriteValueAsString(nullptr, "Second", "X", "2"));
}
