// Registered tools and command execution: tool keys in the 32-bit view of
// HKEY_LOCAL_MACHINE, and the recording tool really started through the shell.
#include <gtest/gtest.h>

#include <windows.h>

#include <sstream>
#include <string>

#include "KvUtil.h"
#include "child_host.h"
#include "product_install.h"
#include "temp_dir.h"
#include "tool_fixture.h"

using kvtest::TempDir;
using utiltest::NamedEvent;
using utiltest::QuotedRecorder;
using utiltest::ReadRecord;
using utiltest::ToolKey;

namespace {

// The parameters part of a recorded command line (after the program).
std::string Parameters(const std::string& commandLine) {
    const size_t exe = commandLine.find("util_tool_recorder.exe");
    if (exe == std::string::npos) return "<no program>";
    size_t p = exe + strlen("util_tool_recorder.exe");
    if (p < commandLine.size() && commandLine[p] == '"') ++p;
    while (p < commandLine.size() && commandLine[p] == ' ') ++p;
    return commandLine.substr(p);
}

}  // namespace

TEST(RegisteredTools, RegisteredMeansANonEmptyCommand) {
    ToolKey full("util_tool_full", "notepad.exe");
    ToolKey empty("util_tool_empty", "");
    ToolKey bare("util_tool_bare", "", "C:\\", false);
    EXPECT_EQ(1, ToolIsRegistered("util_tool_full"));
    EXPECT_EQ(0, ToolIsRegistered("util_tool_empty"));
    EXPECT_EQ(0, ToolIsRegistered("util_tool_bare"));
    EXPECT_EQ(0, ToolIsRegistered("util_tool_missing"));
    EXPECT_EQ(0, ToolIsRegistered(nullptr));
    EXPECT_EQ(0, ToolIsRegistered(""));  // the root key itself has no command
    EXPECT_EQ(0, ToolIsRegistered("(a|b)*[x]{2}\\^$"));
    EXPECT_EQ(0, ToolIsRegistered(std::string(5000, 'k').c_str()));

    EXPECT_EQ(ERROR_FILE_NOT_FOUND, StartRegisteredTool("util_tool_empty"));
    EXPECT_EQ(ERROR_FILE_NOT_FOUND, StartRegisteredTool("util_tool_missing"));
    EXPECT_EQ(ERROR_FILE_NOT_FOUND, StartRegisteredTool(nullptr));
}

TEST(RegisteredTools, StartExpandsMacrosFromTheProductIniFile) {
    kvtest::ProductInstall install;
    install.SetValue("KVEDIT", "LASTDATABASE", "Plant1");
    TempDir work("util_toolwork");
    const std::string record = work / "record.txt";
    const std::string hostileRecord = work / "hostile.txt";
    // Macros are case-sensitive: %P% stays; "^%" is a percent sign, "^^" a caret.
    ToolKey tool("util_tool_macros", QuotedRecorder() + " " + record + " -p %p% -d %d% -i %i% -u %u% -b %b% 50^% ^^ %P%",
                 work.path());
    // Text that means something to a regular expression is copied as it is;
    // a caret at the very end has no character to escape and stays.
    ToolKey hostile("util_tool_hostile", QuotedRecorder() + " " + hostileRecord + " (a|b)*[x]{2} $& $1 \\1 .* ^");

    NamedEvent recorded("kvtest_tool_recorded");
    kvtest::ChildHost host("util_tools_start");
    const auto r = host.Run({"util_start_tools", install.iniPath(), "util_tool_macros", "util_tool_missing"});
    ASSERT_EQ(0u, r.exitCode) << r.output;
    EXPECT_EQ(std::vector<std::string>({"0", "2"}), utiltest::Results(r.output)) << r.output;
    ASSERT_TRUE(recorded.Wait(20000)) << "the tool did not start";
    auto rec = ReadRecord(record);
    const std::string expected = record + " -p Plant1 -d " + install.Path("User\\Include") + " -i " +
                                 install.Path("Config") + " -u " + install.Path("User") + " -b " +
                                 kvtest::ProgramFolder() + " 50% ^ %P%";
    EXPECT_EQ(expected, Parameters(rec["cmdline"])) << rec["cmdline"];
    EXPECT_EQ(0, _stricmp(work.path().c_str(), rec["cwd"].c_str())) << rec["cwd"];

    NamedEvent recordedAgain("kvtest_tool_recorded");
    const auto h = host.Run({"util_start_tools", install.iniPath(), "util_tool_hostile"});
    ASSERT_TRUE(recordedAgain.Wait(20000)) << h.output;
    rec = ReadRecord(hostileRecord);
    EXPECT_EQ(hostileRecord + " (a|b)*[x]{2} $& $1 \\1 .* ^", Parameters(rec["cmdline"])) << rec["cmdline"];
}

TEST(ExecuteCommand, QuotedProgramSplitsFromItsParametersAndIsWaitedFor) {
    TempDir work("util_exec");
    const std::string record = work / "split.txt";
    // With a timeout the call returns only after the tool has ended.
    ASSERT_EQ(1, ExecuteCommand((QuotedRecorder() + " " + record + " /a /b").c_str(), nullptr, nullptr, 20000));
    auto rec = ReadRecord(record);
    EXPECT_EQ(record + " /a /b", Parameters(rec["cmdline"]));
    EXPECT_EQ(1u, rec.count("finished"));

    // Given parameters are used as they are, in the given folder.
    const std::string second = work / "given.txt";
    const std::string program = kvtest::ProgramFolder() + "\\util_tool_recorder.exe";
    ASSERT_EQ(1, ExecuteCommand(program.c_str(), (second + " x  y").c_str(), work.path().c_str(), 20000));
    rec = ReadRecord(second);
    EXPECT_EQ(second + " x  y", Parameters(rec["cmdline"]));
    EXPECT_EQ(0, _stricmp(work.path().c_str(), rec["cwd"].c_str())) << rec["cwd"];

    // One word is the program, without parameters (the tool then records nothing).
    EXPECT_EQ(1, ExecuteCommand(program.c_str(), nullptr, work.path().c_str(), 20000));
}

TEST(ExecuteCommand, GreedyQuoteTakesEverythingUpToTheLastQuotedWord) {
    TempDir work("util_greedy");
    const std::string record = work / "greedy.txt";
    // Intended: ".*" reaches the last quote followed by white space, so the
    // program is both quoted parts and the parameters start at "/a". Windows'
    // shell may refuse such a program name; Wine starts the first part and
    // joins program and parameters with one blank, which shows where the
    // split was: the blanks after the second quoted part are gone.
    const std::string command = QuotedRecorder() + " \"" + record + "\"    /a   /b";
    if (ExecuteCommand(command.c_str(), nullptr, nullptr, 20000))
        EXPECT_EQ("\"" + record + "\" /a   /b", Parameters(ReadRecord(record)["cmdline"]));
    else
        EXPECT_FALSE(kvtest::FileExists(record));
}

TEST(ExecuteCommand, ZeroTimeoutReturnsWhileTheProgramRuns) {
    TempDir work("util_nowait");
    const std::string record = work / "hold.txt";
    NamedEvent recorded("kvtest_tool_recorded");
    NamedEvent hold("kvtest_tool_hold");
    NamedEvent finished("kvtest_tool_finished");
    ASSERT_EQ(1, ExecuteCommand((QuotedRecorder() + " " + record + " hold").c_str(), nullptr, nullptr, 0));
    // The tool cannot finish before hold is set, so the call did not wait.
    ASSERT_TRUE(recorded.Wait(20000));
    EXPECT_EQ(0u, ReadRecord(record).count("finished"));
    hold.Set();
    ASSERT_TRUE(finished.Wait(20000));
    EXPECT_EQ(1u, ReadRecord(record).count("finished"));
}

TEST(ExecuteCommand, BadCommandsStartNothing) {
    EXPECT_EQ(0, ExecuteCommand(nullptr, nullptr, nullptr, 0));
    EXPECT_EQ(0, ExecuteCommand("", nullptr, nullptr, 0));
    SetLastError(0);
    EXPECT_EQ(0, ExecuteCommand("C:\\no\\such\\program.exe /x", nullptr, nullptr, 0));
    EXPECT_NE(0u, GetLastError());  // left as the shell set it
    // An unterminated quote splits at the first blank like an unquoted word.
    EXPECT_EQ(0, ExecuteCommand("\"C:\\no such\\program.exe /x", nullptr, nullptr, 0));
    const std::string overlong = "C:\\no\\program.exe " + std::string(40000, 'x');
    EXPECT_EQ(0, ExecuteCommand(overlong.c_str(), nullptr, nullptr, 0));
    const std::string longest = "C:\\no\\program.exe " + std::string(32767 - 19, 'y');
    EXPECT_EQ(0, ExecuteCommand(longest.c_str(), nullptr, nullptr, 0));
}
