// The debug log writer in child hosts: line shapes, percent signs, over-long
// messages, rolling and faults.
#include <gtest/gtest.h>

#include <algorithm>
#include <sstream>

#include "log_test_util.h"

using namespace kvtest;
using namespace logtest;

TEST(DebugLog, EachMessageIsOneStampedLineWrittenAsGivenByAHandleNoChildInherits) {
    LogHost h("log_shapes");
    ASSERT_TRUE(h.Ok({"line=ends in newline<LF>", "format=<LF>after empty", "format=<LF>Z", "format=<LF>",
                      "file=raw text<LF>second raw<LF>", "line=50%% done %s %n %d %", "format=rate 75%%",
                      "wide=9%%%% %s %n", "long=5000", "long=991", "long=992", "widelong", "comp=Shapes",
                      "line=own file", "open=app.log:10", "handles=debug.log", "handles=app.log"}));
    EXPECT_TRUE(InOrder(h.last.output, {"found=1 inheritable=0", "found=1 inheritable=0"})) << h.last.output;
    // Line ends are CR LF on disk, like every text file of the product.
    EXPECT_EQ(std::string::npos, ReadFileText(h.File("debug.log")).find("\n\n")) << "every LF follows a CR";
    // A newline and one character is a bare newline; no percent sign is a conversion. Overlong messages are cut
    // to 1024 bytes (stamp, blank, message, newline, terminator); an overflowing wide message is dropped but its
    // line remains. A component set later names new files only.
    const std::string longest(991, 'L');
    EXPECT_EQ((Lines{"ends in newline", "~", "after empty", "~", "~", "~raw text", "~second raw", "50% done %s %n %d %",
                     "rate 75%", "w=7 9% %s %n", longest, longest, longest, "", "own file"}),
              h.Messages("debug.log"));
}

TEST(DebugLog, LogErrorsOffWritesNoFileAtAll) {
    LogHost h("log_silent");
    h.host.SetSetting("LogErrors", 0);
    ASSERT_TRUE(h.Ok({"line=x", "file=raw", "wide=w"}));
    EXPECT_FALSE(FileExists(h.File("debug.log")));
}

TEST(DebugLogRolling, HistoryMovesUpOneNumberAndAHoleGetsANote) {
    LogHost h("log_roll3", 3);
    WriteFileText(h.File("debug.001"), "old one");
    WriteFileText(h.File("debug.003"), "old three");  // debug.002 is missing
    // 20 lines of about 80 bytes: the file passes 1024 bytes once.
    ASSERT_TRUE(h.Ok({"lines=20"}));
    EXPECT_EQ("This file was either deleted or moved", ReadFileText(h.File("debug.003")));
    EXPECT_EQ("old one", ReadFileText(h.File("debug.002")));
    EXPECT_FALSE(FileExists(h.File("debug.004")));
    const auto rolled = h.Messages("debug.001"), live = h.Messages("debug.log");
    ASSERT_FALSE(rolled.empty() || live.empty());
    EXPECT_EQ("filler 0000 ........................................", rolled.front());
    EXPECT_GE(ReadFileText(h.File("debug.001")).size(), 1024u);
    EXPECT_EQ(20u, rolled.size() + live.size());
}

TEST(DebugLogRolling, NoHistoryStartsTheLogAfresh) {
    LogHost h("log_roll0", 0);
    ASSERT_TRUE(h.Ok({"lines=14", "line=after the roll"}));
    EXPECT_EQ(Lines{"debug.log"}, ListFolder(h.install.logDir(), "debug*"));
    const auto live = h.Messages("debug.log");
    EXPECT_LT(live.size(), 14u);
    EXPECT_EQ("after the roll", live.empty() ? "" : live.back());
}

TEST(DebugLogRolling, AComponentNamedLaterLogsUnderItsNameFromTheNextRollOn) {
    LogHost h("log_rename", 3);
    ASSERT_TRUE(h.Ok({"lines=10", "comp=B", "lines=40", "line=last"}));
    // Lines go on to the unnamed log only until it is full.
    EXPECT_LT(ReadFileText(h.File("debug.log")).size(), 1024u + 128u);
    const auto live = h.Messages("debug.B.log");
    EXPECT_EQ("last", live.empty() ? "" : live.back());
}

TEST(DebugLogRolling, ARollByAnotherProcessIsSeenByTheNextLineOfThisOne) {
    // The writer's own limit is far off, and it writes a line each millisecond
    // until the roller has rolled: only the roll itself can move its last line.
    LogHost writer("log_rollseen");
    kvtest::ChildHost roller("log_roller");
    roller.SetSetting("DebugLogSize", 1);
    roller.SetSetting("DebugLogHistoryFiles", 3);
    const std::string go = "kvtest.rollseen." + std::to_string(GetCurrentProcessId());
    const HANDLE event = CreateEventA(nullptr, TRUE, FALSE, go.c_str());
    ASSERT_TRUE(writer.host.Start({"log_script", writer.install.iniPath(), "paced=tick:100000:" + go, "line=second"}));
    for (int i = 0; i < 6000 && !FileExists(writer.File("debug.log")); ++i) Sleep(10);
    const auto r = roller.Run({"log_script", writer.install.iniPath(), "lines=20", "set=" + go});
    ASSERT_TRUE(!r.timedOut && r.exitCode == 0) << r.output;
    const auto w = writer.host.Wait(60000);
    CloseHandle(event);
    ASSERT_TRUE(!w.timedOut && w.exitCode == 0) << w.output;
    EXPECT_TRUE(FileExists(writer.File("debug.001")));
    const auto live = writer.Messages("debug.log");
    EXPECT_EQ("second", live.empty() ? "" : live.back());
}

TEST(DebugLogFaults, WritesResumeOnceTheFaultClearsAndNothingHangs) {
    // The log folder's place is taken by a file: the folder cannot be created.
    LogHost folder("log_faults");
    WriteFileText(folder.install.logDir(), "in the way");
    ASSERT_TRUE(folder.Ok({"line=lost", "delete=" + folder.install.logDir(), "line=kept"}));
    EXPECT_EQ((Lines{"1 debug log lines could not be written", "kept"}), folder.Messages("debug.log"));

    // Another program holds the live log without sharing it.
    LogHost locked("log_locked", 1);
    WriteFileText(locked.File("debug.log"), "");
    ASSERT_TRUE(locked.Ok({"hold=" + locked.File("debug.log"), "line=lost", "release", "line=kept"}));
    EXPECT_EQ((Lines{"1 debug log lines could not be written", "kept"}), locked.Messages("debug.log"));

    // A held history file neither hangs nor stops the log; once released, the
    // next roll replaces it.
    LogHost history("log_heldhist", 1);
    WriteFileText(history.File("debug.001"), "held by a viewer");
    ASSERT_TRUE(history.Ok({"hold=" + history.File("debug.001"), "lines=30", "release", "lines=30", "line=last"}));
    const auto live = history.Messages("debug.log");
    EXPECT_EQ("last", live.empty() ? "" : live.back());
    EXPECT_NE("held by a viewer", ReadFileText(history.File("debug.001")));
}

TEST(DebugLogFaults, AWriterKilledMidWriteOrRollHoldsNobodyUpAndLosesNoOtherLine) {
    // Two floods of four threads rolling at 1 KB are killed while the paced
    // writer goes on; most of a flood's time is spent holding the file's lock
    // or rolling, so the kills land there.
    LogHost paced("log_paced", 10);
    ASSERT_TRUE(paced.host.Start({"log_script", paced.install.iniPath(), "comp=stress", "numbered=paced:600:2"}));
    for (const char* name : {"log_flood1", "log_flood2"}) {
        kvtest::ChildHost flood(name);
        flood.SetSetting("DebugLogSize", 1);
        flood.SetSetting("DebugLogHistoryFiles", 10);
        ASSERT_TRUE(flood.Start({"log_stress", paced.install.iniPath(), name, "4", "100000000"}));
        EXPECT_TRUE(flood.Wait(400).timedOut) << "the flood ended before it was killed";
    }
    const auto r = paced.host.Wait(60000);
    ASSERT_TRUE(!r.timedOut && r.exitCode == 0) << r.output;
    const auto longest = kvtest::NumberAfter(r.output, "longest=");
    EXPECT_LT(longest, 1000u) << "a writer waited for a dead one";

    // The chain has no gap, every line is whole, and the paced writer's lines
    // still in it are its last ones without a gap (older ones rolled off the end).
    std::vector<int> numbers;
    const Lines chain = LogChain(paced.install.logDir(), "debug.stress");
    EXPECT_EQ(chain.size(), ListFolder(paced.install.logDir(), "debug.stress.*").size()) << "a hole in the chain";
    for (const std::string& name : chain)
        for (const auto& message : paced.Messages(name)) {
            EXPECT_TRUE(message[0] != '~' || message == "~This file was either deleted or moved")
                << name << ": " << message;
            if (message.rfind("paced ", 0) == 0) numbers.push_back(atoi(message.c_str() + 6));
        }
    std::sort(numbers.begin(), numbers.end());
    ASSERT_FALSE(numbers.empty());
    EXPECT_EQ(599, numbers.back());
    EXPECT_EQ(size_t(600 - numbers.front()), numbers.size()) << "paced lines missing in the middle";
}

TEST(DebugLogFaults, ALockWordLeftByAnEarlierProcessOfALiveIdHoldsNobodyUp) {
    LogHost h("log_stalelock");
    CreateDirectoryA(h.install.logDir().c_str(), nullptr);
    WriteFileText(h.File("debug.log"), "");
    // The processes' lock of the live log is named after the file's index.
    const HANDLE file = CreateFileA(h.File("debug.log").c_str(), FILE_READ_ATTRIBUTES,
                                    FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr, OPEN_EXISTING, 0,
                                    nullptr);
    BY_HANDLE_FILE_INFORMATION info;
    ASSERT_TRUE(GetFileInformationByHandle(file, &info));
    CloseHandle(file);
    char name[64];
    snprintf(name, sizeof name, "Local\\KvDebugHelp.LogLock.%08lx%08lx", info.nFileIndexHigh, info.nFileIndexLow);
    const HANDLE page = CreateFileMappingA(INVALID_HANDLE_VALUE, nullptr, PAGE_READWRITE, 0, 4096, name);
    auto* word = static_cast<volatile LONG64*>(MapViewOfFile(page, FILE_MAP_WRITE, 0, 0, 8));
    ASSERT_NE(nullptr, word);
    // Taken by "this test's process id" with another start time: the id's
    // earlier owner, ended without releasing it.
    *word = LONG64(GetCurrentProcessId()) | (1LL << 32);
    ASSERT_TRUE(h.Ok({"line=through"}));
    UnmapViewOfFile(const_cast<LONG64*>(word));
    CloseHandle(page);
    EXPECT_EQ(Lines{"through"}, h.Messages("debug.log"));
}

TEST(DebugLogFaults, ALiveLogDeletedWhileOpenIsMadeAgainAndItsLostLinesCounted) {
    LogHost h("log_deleted");
    ASSERT_TRUE(h.Ok({"line=first", "delete=" + h.File("debug.log"), "line=between", "sleep=1100", "line=after"}));
    // Windows shows the deletion on the handle at once; Wine only when the
    // file, reopened by its path once a second, turns out to be another one.
    // Either way a new file is made; lines that went to the deleted one since
    // it was opened are counted when the writer can tell.
    const Lines messages = h.Messages("debug.log");
    ASSERT_FALSE(messages.empty());
    EXPECT_EQ("after", messages.back());
    for (const std::string& m : messages)
        EXPECT_TRUE(m == "between" || m == "after" || m.find(" debug log lines could not be written") != m.npos) << m;
}

TEST(DebugLogFaults, ALiveLogDeletedByAnotherProgramIsLeftWithinATenthOfASecondOfWriting) {
    LogHost h("log_deletedpaced");
    ASSERT_TRUE(h.host.Start({"log_script", h.install.iniPath(), "paced=n:1500"}));
    WIN32_FILE_ATTRIBUTE_DATA data{};
    for (int i = 0; i < 6000 && !(GetFileAttributesExA(h.File("debug.log").c_str(), GetFileExInfoStandard, &data) &&
                                  data.nFileSizeLow > 100 * 39);
         ++i)
        Sleep(10);
    ASSERT_TRUE(DeleteFileA(h.File("debug.log").c_str()));
    const DWORD deleted = GetTickCount();
    const auto r = h.host.Wait(120000);
    ASSERT_TRUE(!r.timedOut && r.exitCode == 0) << r.output;
    std::vector<DWORD> ticks;  // when each line's call began
    std::istringstream list(LineFrom(r.output, "ticks=").substr(6));
    for (DWORD tick; list >> tick;) ticks.push_back(tick);
    ASSERT_EQ(1500u, ticks.size()) << r.output;
    // The new file: how many lines went with the deleted one (where the writer
    // can tell: a new file may be given the old one's index), then every line
    // from the first that found the deletion on.
    Lines messages = h.Messages("debug.log");
    if (!messages.empty() && messages[0].find(" debug log lines could not be written") != std::string::npos)
        messages.erase(messages.begin());
    ASSERT_LT(messages.size(), 1500u) << "no line went to the deleted file";
    const size_t first = 1500 - messages.size();
    Lines expected;
    for (size_t i = first; i < 1500; ++i) expected.push_back("n " + std::to_string(10000 + i).substr(1));
    EXPECT_EQ(expected, messages);
    // The lines before it went to the deleted file, the last of them begun
    // within 100 ms of writing after the deletion.
    EXPECT_LT(long(ticks[first - 1] - deleted), 100L);
}

TEST(DebugLogFaults, ALogFolderRenamedWhileOpenIsCreatedAgain) {
    LogHost h("log_moved");
    const std::string moved = h.install.logDir() + ".old";
    // The folder is checked by its path once a second; lines meanwhile follow
    // the open file into the renamed folder.
    ASSERT_TRUE(h.Ok({"line=first", "move=" + h.install.logDir() + "|" + moved, "sleep=1100", "line=second"}));
    EXPECT_EQ(Lines{"second"}, h.Messages("debug.log"));
    EXPECT_EQ(Lines{"first"}, Messages(moved + "\\debug.log"));
}

// Run by the logging_full_disk entry, which mounts a file system of 300 KB and
// names it in KV_TEST_SMALL_DISK.
TEST(DebugLogFaults, AFullDiskDropsLinesQuietlyAndCountsThem) {
    const char* disk = getenv("KV_TEST_SMALL_DISK");
    if (!disk) GTEST_SKIP() << "needs a small file system: run by the logging_full_disk test entry";
    LogHost h("log_fulldisk");
    const std::string logs = std::string(disk) + "\\Logs", filler = std::string(disk) + "\\filler";
    h.install.SetValue("KVEDIT", "LOGS", logs);
    ASSERT_TRUE(h.Ok({"line=before", "fill=" + filler, "lines=200", "delete=" + filler, "line=after"}));
    const auto messages = Messages(logs + "\\debug.log");
    ASSERT_GE(messages.size(), 3u);
    EXPECT_EQ("before", messages.front());
    EXPECT_EQ("after", messages.back());
    // Every line whole; the line before the last says how many were lost.
    unsigned dropped = 0;
    sscanf(messages[messages.size() - 2].c_str(), "%u debug log lines could not be written", &dropped);
    EXPECT_GT(dropped, 0u) << messages[messages.size() - 2];
    EXPECT_EQ(200u, messages.size() - 3 + dropped) << "filler lines written plus dropped";
    for (const auto& message : messages) EXPECT_NE('~', message[0]) << message;
}
