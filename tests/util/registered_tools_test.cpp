// Registered tools and command execution: tool keys in the 32-bit view of
// HKEY_LOCAL_MACHINE, and the recording tool really started through the shell.
#include <gtest/gtest.h>

#include <functional>
#include <string>

#include "KvUtil.h"
#include "child_host.h"
#include "guarded_buffer.h"
#include "kvdiag_runner.h"
#include "product_install.h"
#include "started_programs.h"

using namespace utiltest;

namespace {

// The parameters part of a recorded command line: after the program, its closing quote and the blanks.
std::string Parameters(const std::string& commandLine) {
    const size_t end = commandLine.find("recorder.exe") + 12, p = commandLine.find_first_not_of("\" ", end);
    return end < 12 || p == std::string::npos ? "<no parameters: " + commandLine + ">" : commandLine.substr(p);
}

}  // namespace

TEST(RegisteredTools, BadNamesAndCommandsAreRefused) {
    ToolKey full("util_tool_full", "notepad.exe");
    ToolKey empty("util_tool_empty", "");
    const std::string longName(5000, 'k'), overlong = "C:\\no\\program.exe " + std::string(40000, 'x');
    const std::string longest = "C:\\no\\program.exe " + std::string(32767 - 19, 'y');
    const struct { const char* label; std::function<int()> call; int expected; } cases[] = {
        {"registered", [] { return ToolIsRegistered("util_tool_full"); }, 1},
        {"empty command", [] { return ToolIsRegistered("util_tool_empty"); }, 0},
        {"missing key", [] { return ToolIsRegistered("util_tool_missing"); }, 0},
        {"null name", [] { return ToolIsRegistered(nullptr); }, 0},
        {"root key itself", [] { return ToolIsRegistered(""); }, 0},
        {"regex text as name", [] { return ToolIsRegistered("(a|b)*[x]{2}\\^$"); }, 0},
        {"long name", [&] { return ToolIsRegistered(longName.c_str()); }, 0},
        {"start empty command", [] { return StartRegisteredTool("util_tool_empty"); }, ERROR_FILE_NOT_FOUND},
        {"start missing", [] { return StartRegisteredTool("util_tool_missing"); }, ERROR_FILE_NOT_FOUND},
        {"start null", [] { return StartRegisteredTool(nullptr); }, ERROR_FILE_NOT_FOUND},
        {"execute null", [] { return ExecuteCommand(nullptr, nullptr, nullptr, 0); }, 0},
        {"execute empty", [] { return ExecuteCommand("", nullptr, nullptr, 0); }, 0},
        {"missing program", [] { return ExecuteCommand("C:\\no\\such\\program.exe /x", nullptr, nullptr, 0); }, 0},
        {"overlong command", [&] { return ExecuteCommand(overlong.c_str(), nullptr, nullptr, 0); }, 0},
        {"longest command", [&] { return ExecuteCommand(longest.c_str(), nullptr, nullptr, 0); }, 0}};
    for (const auto& c : cases) {
        SCOPED_TRACE(c.label);
        EXPECT_EQ(c.expected, c.call());
    }
}

TEST(RegisteredTools, CommandQueryFillsOnlyBuffersThatFit) {
    ToolKey tool("util_tool_query", "run ^%x^^ now", "C:\\work");
    const std::string expanded = "run %x^ now";
    kvtest::GuardedBuffer exact(expanded.size()), fits(expanded.size() + 1), folder(8), shortFolder(7);
    EXPECT_EQ(-1, GetRegisteredToolCommand("util_tool_query", 1, exact.data(), unsigned(exact.size()), nullptr, 0));
    EXPECT_TRUE(exact.AllZero());
    EXPECT_EQ(-1, GetRegisteredToolCommand("util_tool_query", 1, fits.data(), unsigned(fits.size()),
                                           shortFolder.data(), unsigned(shortFolder.size())));
    EXPECT_TRUE(fits.AllZero());
    EXPECT_TRUE(shortFolder.AllZero());
    EXPECT_EQ(int(expanded.size()), GetRegisteredToolCommand("util_tool_query", 1, fits.data(), unsigned(fits.size()),
                                                             folder.data(), unsigned(folder.size())));
    EXPECT_EQ(expanded, fits.data());
    EXPECT_STREQ("C:\\work", folder.data());
    char registered[64];
    EXPECT_EQ(13, GetRegisteredToolCommand("util_tool_query", 0, registered, sizeof registered, nullptr, 0));
    EXPECT_STREQ("run ^%x^^ now", registered);
    EXPECT_EQ(-2, GetRegisteredToolCommand("util_tool_missing", 1, registered, sizeof registered, nullptr, 0));
    EXPECT_EQ('\0', registered[0]);
}

TEST(RegisteredTools, StartExpandsMacrosFromTheProductIniFile) {
    kvtest::ProductInstall install;
    install.SetValue("KVEDIT", "LASTDATABASE", "Plant1");
    kvtest::TempDir work("util_toolwork");
    const std::string record = work / "record.txt";
    // Macros are case-sensitive: %P% stays; "^%" is a percent sign, "^^" a
    // caret. Regular-expression text is copied as it is; a caret at the very
    // end has nothing to escape and stays.
    const std::string tail = " 50^% ^^ %P% (a|b)*[x]{2} $& $1 \\1 .* ^";
    ToolKey tool("util_tool_macros", QuotedRecorder() + " " + record + " -p %p% -d %d% -i %i% -u %u% -b %b%" + tail,
                 work.path());
    NamedEvent finished("kvtest_tool_finished");
    kvtest::ChildHost host("util_tools_start");
    const auto r = host.Run({"util_start_tools", install.iniPath(), "util_tool_macros", "util_tool_missing"});
    ASSERT_EQ(0u, r.exitCode) << r.output;
    EXPECT_EQ(std::vector<std::string>({"0", "2"}), Results(r.output)) << r.output;
    ASSERT_TRUE(finished.Wait(20000)) << "the tool did not run";
    auto rec = RecordFile(record);
    EXPECT_EQ(record + " -p Plant1 -d " + install.Path("User\\Include") + " -i " + install.Path("Config") + " -u " +
                  install.Path("User") + " -b " + kvtest::ProgramFolder() + " 50% ^ %P% (a|b)*[x]{2} $& $1 \\1 .* ^",
              Parameters(rec["cmdline"]));
    EXPECT_EQ(0, _stricmp(work.path().c_str(), rec["cwd"].c_str())) << rec["cwd"];
}

TEST(ExecuteCommand, SplitsQuotedProgramsAndWaitsOnlyWhenAskedTo) {
    kvtest::TempDir work("util_exec");
    const std::string split = work / "split.txt", given = work / "given.txt";
    {
        NamedEvent finished("kvtest_tool_finished");
        ASSERT_EQ(1, ExecuteCommand((QuotedRecorder() + " " + split + " /a /b").c_str(), nullptr, nullptr, 20000));
        EXPECT_TRUE(finished.Wait(0)) << "returned before the tool ended";
        EXPECT_EQ(split + " /a /b", Parameters(RecordFile(split)["cmdline"]));
    }
    // Given parameters are used as they are, in the given folder.
    const std::string program = kvtest::ProgramFolder() + "\\util_tool_recorder.exe";
    ASSERT_EQ(1, ExecuteCommand(program.c_str(), (given + " x  y").c_str(), work.path().c_str(), 20000));
    auto rec = RecordFile(given);
    EXPECT_EQ(given + " x  y", Parameters(rec["cmdline"]));
    EXPECT_EQ(0, _stricmp(work.path().c_str(), rec["cwd"].c_str())) << rec["cwd"];
    EXPECT_EQ(1, ExecuteCommand(program.c_str(), nullptr, nullptr, 20000));  // one word: no parameters

    // A zero timeout returns while the program runs.
    NamedEvent hold("kvtest_tool_hold"), finished("kvtest_tool_finished");
    ASSERT_EQ(1, ExecuteCommand((QuotedRecorder() + " " + (work / "hold.txt") + " hold").c_str(), nullptr, nullptr, 0));
    EXPECT_FALSE(finished.Wait(0));  // the tool cannot end before hold is set
    SetEvent(hold.handle);
    EXPECT_TRUE(finished.Wait(20000));
}

// kvdiag's own part: it lists, starts and mails through the library, whose
// expansion and mail fields the tests above cover.
TEST(Kvdiag, ToolsRunAndMailEndToEnd) {
    kvtest::ProductInstall install;
    kvtest::TempDir work("util_kvdiag");
    const std::string record = work / "record.txt", mailRecord = work / "mail.txt", ini = " --ini " + install.iniPath();
    ToolKey tool("util_tool_kvdiag", QuotedRecorder() + " " + record, work.path());
    const auto tools = kvtest::RunKvdiag("tools" + ini);
    EXPECT_EQ(0u, tools.exitCode);
    EXPECT_TRUE(kvtest::InOrder(tools.output, {"util_tool_kvdiag", record})) << tools.output;
    NamedEvent finished("kvtest_tool_finished");
    EXPECT_EQ(0u, kvtest::RunKvdiag("run util_tool_kvdiag" + ini).exitCode);
    EXPECT_TRUE(finished.Wait(20000)) << "the tool did not run";
    EXPECT_EQ(1u, kvtest::RunKvdiag("run util_tool_missing" + ini).exitCode);

    NativeMapiFor native("kvdiag.exe");
    const auto mail =
        kvtest::RunKvdiag("mail ops@plant.example " + record + " \"Pump 3 stopped\"", {{"KV_MAPI_RECORD", mailRecord}});
    EXPECT_EQ(0u, mail.exitCode) << mail.output;
    const auto mails = Records(kvtest::ReadFileText(mailRecord), "call");
    ASSERT_EQ(1u, mails.size()) << mail.output;
    EXPECT_EQ("Pump 3 stopped", mails[0].at("note"));
}
