// kvdiag paths, ini and init run as an engineer would, on private installations.
#include <gtest/gtest.h>

#include "kvdiag_runner.h"
#include "product_install.h"
#include "temp_dir.h"

using kvtest::RunKvdiag;
using kvtest::LineFrom;

TEST(KvdiagConfig, PathsIniAndInitRunAsAnEngineerWould) {
    kvtest::ProductInstall install;
    CreateDirectoryA(install.Path("Run").c_str(), nullptr);
    const auto good = RunKvdiag("paths --ini \"" + install.iniPath() + "\"");
    EXPECT_EQ(0u, good.exitCode) << good.output;
    const std::string rows = kvtest::Squeezed(good.output);  // whatever the column widths
    EXPECT_EQ("Validated yes", LineFrom(rows, "Validated")) << good.output;
    EXPECT_EQ("11 RUN " + install.Path("Run"), LineFrom(rows, "11 RUN")) << good.output;
    // A missing folder is reported, not created.
    EXPECT_EQ("2 LOGS\\Drivers " + install.logDir() + "\\Drivers (missing)", LineFrom(rows, "2 LOGS\\Drivers"))
        << good.output;
    // Reading commands, and the self-check in its scratch copy, leave missing
    // folders missing.
    for (const std::string command : {"tail", "syslog", "memreport", "selfcheck"})
        RunKvdiag(command + " --ini \"" + install.iniPath() + "\"");
    for (const char* folder : {"Logs", "Data", "Starter"})
        EXPECT_EQ(INVALID_FILE_ATTRIBUTES, GetFileAttributesA(install.Path(folder).c_str())) << folder;
    const auto missing = RunKvdiag("paths --ini \"" + install.Path("none.ini") + "\"");
    EXPECT_EQ(1u, missing.exitCode);
    EXPECT_EQ("Validated no - missing (error 2)", LineFrom(kvtest::Squeezed(missing.output), "Validated")) << missing.output;

    install.SetValue("Debug", "MiniDumpType", "2");
    const std::string option = " --ini \"" + install.iniPath() + "\"";
    const auto value = RunKvdiag("ini Debug MiniDumpType" + option);
    EXPECT_EQ(0u, value.exitCode);
    EXPECT_EQ("2", value.output.substr(0, value.output.find_first_of("\r\n")));  // the value alone
    kvtest::TempDir plant("cfgkvinit");
    CreateDirectoryA((plant / "Config").c_str(), nullptr);
    const std::string fresh = " --ini \"" + plant / "Config\\product.ini" + "\"";
    kvtest::ExpectKvdiagRuns({{"ini Debug Absent" + option, 1, ""},
                              {"ini Debug" + option, 0, "MiniDumpType=2"},
                              {"init" + fresh, 0, "Logs=" + plant / "Logs"},
                              {"init" + fresh, 0, "exists; left unchanged"}});
}
