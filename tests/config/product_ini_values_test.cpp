// Values of the product INI file, the defaults given while it is unusable, and
// the list of start-up steps.
#include <gtest/gtest.h>

#include <functional>

#include "KvDebugHelp.h"
#include "guarded_buffer.h"
#include "product_install.h"

namespace {

class ProductIniValues : public ::testing::Test {
protected:
    void SetUp() override {
        install_.SetValue("Debug", "Level", "99");
        install_.SetValue("Debug", "Yes", "Yes");
        ASSERT_EQ(1, SetKorvanIniFilePath(install_.iniPath().c_str()));
        ASSERT_EQ(1, ValidateKorvanIniFile());
    }
    void TearDown() override { InvalidateKorvanIniFile(); }

    kvtest::ProductInstall install_;
};

}  // namespace

TEST_F(ProductIniValues, BoolAcceptsTrueYesAndOneOnly) {
    const struct { const char* text; int32_t fallback, expected; } cases[] = {
        {"Yes", 0, 1}, {"tRuE", 0, 1}, {"1", 0, 1}, {"no", 1, 0}, {"ON", 1, 0}, {"2", 1, 0},
        {"\"1 \"", 1, 0},  // quotes go, the space stays
        {"", 7, 7},        // empty: the default exactly as given
        {nullptr, 7, 1},   // a missing key: the default as 1 or 0
        {nullptr, 0, 0}};
    for (const auto& c : cases) {
        SCOPED_TRACE(std::string(c.text ? c.text : "(missing)") + " default " + std::to_string(c.fallback));
        if (c.text) install_.SetValue("Debug", "Flag", c.text);
        const char* key = c.text ? "Flag" : "Missing";
        EXPECT_EQ(c.expected, KorvanIniReadValueAsBool("Debug", key, c.fallback));
    }
    install_.SetValue("Debug", "Huge", std::string(300, '1'));
    EXPECT_EQ(0, KorvanIniReadValueAsBool("Debug", "Huge", 1));
}

// Each call once on the validated file, once after it became unusable: then
// the caller's default comes back exactly as given and nothing is written
// (each pass writes values of its own).
TEST_F(ProductIniValues, ValidatedFileAnswersAndAnUnusableOneGivesTheDefaults) {
    bool usable = true;
    const struct { const char* call; std::function<int32_t()> run; int32_t valid, unusable; } cases[] = {
        {"int range", [] { return KorvanIniReadValueAsIntRange("Debug", "Level", 20, 0, 10); }, 10, 20},
        {"int", [] { return KorvanIniReadValueAsInt("Debug", "Level", 5); }, 99, 5},
        {"bool", [] { return KorvanIniReadValueAsBool("Debug", "Yes", 0); }, 1, 0},
        {"string", [] { char t[300]; return KorvanIniReadValueAsString("KVEDIT", "LOGS", t, sizeof t, ""); },
         int32_t(install_.logDir().size()), 0},
        {"section", [] { char t[64]; return KorvanIniReadSectionAsString("Debug", t, sizeof t); }, 17, 0},
        {"write int", [&] { return KorvanIniWriteValueAsInt("Debug", "Dump", usable ? -2 : -3); }, 1, 0},
        {"write string", [&] { return KorvanIniWriteValueAsString("Notes", "S", usable ? "a" : "b"); }, 1, 0},
        {"write section", [&] { return KorvanIniWriteSectionAsString("Other", usable ? "A=1" : "A=2", 4); }, 1, 0}};
    std::string written;
    for (bool pass : {true, false}) {
        if (!(usable = pass)) written = kvtest::ReadFileText(install_.iniPath()), InvalidateKorvanIniFile();
        for (const auto& c : cases) EXPECT_EQ(pass ? c.valid : c.unusable, c.run()) << c.call << " " << pass;
    }
    EXPECT_EQ(-2, IniReadValueAsInt(install_.iniPath().c_str(), "Debug", "Dump", 0));
    EXPECT_EQ(written, kvtest::ReadFileText(install_.iniPath()));
    // The default is copied out under the usual rule: n + 1 bytes or nothing.
    kvtest::GuardedBuffer fits(6), tooShort(5);
    EXPECT_EQ(5, KorvanIniReadValueAsString("Debug", "Yes", fits.data(), 6, "fall!"));
    EXPECT_STREQ("fall!", fits.data());
    EXPECT_EQ(-1, KorvanIniReadValueAsString("Debug", "Yes", tooShort.data(), 5, "fall!"));
    EXPECT_EQ('\0', tooShort.data()[0]);
}

namespace {

std::vector<char> calls;
int StepA() { calls.push_back('A'); return 0; }
int StepB() { calls.push_back('B'); return 3; }
int StepC() { calls.push_back('C'); return 0; }

}  // namespace

TEST(InitList, StopsAtTheFirstFailureAndEmptiesTheList) {
    calls.clear();
    InitLib_Register(StepA);
    InitLib_Register(StepA);  // registered twice, called once
    InitLib_Register(StepB);
    InitLib_Register(StepC);
    EXPECT_EQ(3, InitLib_InitAll());
    EXPECT_EQ((std::vector<char>{'A', 'B'}), calls);
    EXPECT_EQ(0, InitLib_InitAll());  // the list was emptied
    InitLib_Register(StepC);
    EXPECT_EQ(0, InitLib_InitAll());
    EXPECT_EQ((std::vector<char>{'A', 'B', 'C'}), calls);
}
