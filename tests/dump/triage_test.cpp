// kvdiag triage over a collect cabinet and a folder: six crash dumps from
// three crash sites and one damaged dump.
#include <gtest/gtest.h>

#include "kvdiag_runner.h"
#include "product_install.h"
#include "temp_dir.h"
#include "text_checks.h"

TEST(Triage, GroupsDumpsOfACabinetAndAFolderBySignatureLargestFirst) {
    kvtest::ProductInstall install;  // its log folder goes into the cabinet
    kvtest::TempDir loose("kvloose"), out("kvcab");
    CreateDirectoryA(install.logDir().c_str(), nullptr);
    const struct {
        const char* site;
        std::string file;
    } dumps[] = {
        {"parse", install.logDir() + "\\user.Recipes.dmp"}, {"parse", install.logDir() + "\\user.Batch.dmp"},
        {"schedule", install.logDir() + "\\user.Scheduler.dmp"}, {"parse", loose / "a.dmp"},
        {"schedule", loose / "b.dmp"}, {"scale", loose / "sub\\c.dmp"},
    };
    CreateDirectoryA((loose / "sub").c_str(), nullptr);
    kvtest::ChildHost host("triage_host");
    for (const auto& d : dumps) EXPECT_HAS(host.Run({"triage_crash", d.site, d.file}).output, "dump written");
    kvtest::WriteFileText(loose / "broken.dmp", kvtest::ReadFileText(loose / "a.dmp").substr(0, 300));
    const std::string cab = out / "kvdiag-PLANT7-20240101-120000.cab";
    const auto collected = kvtest::RunKvdiag("collect \"" + cab + "\" --ini \"" + install.iniPath() + "\"");
    ASSERT_EQ(0u, collected.exitCode) << collected.output;

    const std::string inputs = "\"" + cab + "\" \"" + loose.path() + "\"";
    const auto table = kvtest::RunKvdiag("triage " + inputs);
    EXPECT_EQ(0u, table.exitCode) << table.output;
    EXPECT_TRUE(kvtest::InOrder(kvtest::Squeezed(table.output),
                                {"7 dumps, 3 signatures, 1 damaged", "\n 3 0xc0000005 ",
                                 " 0xc0000005 | triage_host!WriteThroughNull | triage_host!ParseRecipe | ",
                                 "\n 2 0xc0000005 ", "| triage_host!ReadThroughNull | triage_host!ScheduleBatch",
                                 "\n 1 0xc0000094 ", "| triage_host!DivideByZero | triage_host!ScaleTag",
                                 "\n 1 - ", "damaged dumps", "broken.dmp: "}))
        << table.output;
    // Where the dump does not say, the cabinet tells the machine.
    char machine[MAX_COMPUTERNAME_LENGTH + 1] = "";
    DWORD length = sizeof machine;
    GetComputerNameA(machine, &length);
    EXPECT_HAS(kvtest::LineFrom(table.output, "    3  "), std::string("?, ") + machine);
    EXPECT_HAS(table.output, cab + "\\Logs\\user.");

    kvtest::Lines csv;  // stdout's lines; what triage says on stderr about its progress is left out
    for (const auto& line : kvtest::SplitLines(kvtest::RunKvdiag("triage --csv " + inputs).output))
        if (line.rfind("triage: ", 0) != 0) csv.push_back(line);
    ASSERT_GE(csv.size(), 5u);
    EXPECT_EQ("count,exception,first_utc,last_utc,components,machines,versions,signature,dump", csv[0]);
    const char* starts[] = {"3,0xc0000005,", "2,0xc0000005,", "1,0xc0000094,", "1,-,"};
    for (int i = 0; i < 4; ++i) EXPECT_EQ(0u, csv[i + 1].rfind(starts[i], 0)) << csv[i + 1];
}
