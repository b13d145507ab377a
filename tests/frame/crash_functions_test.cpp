// The deliberate-crash functions, each in a child host that really crashes.
#include <gtest/gtest.h>

#include "child_host.h"

using kvtest::ChildHost;

TEST(CrashFunctions, PleaseCrashRaisesIntegerDivideByZero) {
    ChildHost host("crash_divide");
    const auto result = host.Run({"please_crash"});
    EXPECT_EQ(0xC0000094u, result.exitCode) << result.output;
    EXPECT_NE(std::string::npos, result.output.find("about to divide"));
    EXPECT_EQ(std::string::npos, result.output.find("survived"));
}

TEST(CrashFunctions, CrashButCatchReturnsNormally) {
    ChildHost host("crash_catch");
    const auto result = host.Run({"crash_but_catch"});
    EXPECT_EQ(7u, result.exitCode) << result.output;
    EXPECT_NE(std::string::npos, result.output.find("caught twice"));
}

TEST(CrashFunctions, DisplayErrorTrapsOnlyWithCrashOnError) {
    ChildHost quiet("crash_display_off");
    auto result = quiet.Run({"display_error"});
    EXPECT_EQ(0u, result.exitCode);
    EXPECT_NE(std::string::npos, result.output.find("no trap"));

    ChildHost trapping("crash_display_on");
    trapping.SetSetting("CrashOnError", 1);
    result = trapping.Run({"display_error"});
    EXPECT_EQ(0x80000003u, result.exitCode) << result.output;
    EXPECT_EQ(std::string::npos, result.output.find("no trap"));
}
