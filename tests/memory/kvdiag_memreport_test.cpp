// kvdiag memreport run on debug logs written here, in the library's format.
#include <gtest/gtest.h>

#include <windows.h>
#include <stdio.h>

#include <string>

#include "child_host.h"
#include "product_install.h"
#include "temp_dir.h"

namespace {

struct ToolResult {
    DWORD exitCode = 0;
    std::string output;
};

// Runs kvdiag.exe with the arguments; stdout and stderr together.
ToolResult RunKvdiag(const std::string& arguments) {
    ToolResult result;
    SECURITY_ATTRIBUTES inherit{sizeof inherit, nullptr, TRUE};
    HANDLE readEnd, writeEnd;
    if (!CreatePipe(&readEnd, &writeEnd, &inherit, 0)) return result;
    SetHandleInformation(readEnd, HANDLE_FLAG_INHERIT, 0);
    STARTUPINFOA startup{};
    startup.cb = sizeof startup;
    startup.dwFlags = STARTF_USESTDHANDLES;
    startup.hStdOutput = startup.hStdError = writeEnd;
    PROCESS_INFORMATION process{};
    std::string commandLine = "\"" + kvtest::ProgramFolder() + "\\kvdiag.exe\" " + arguments;
    const BOOL started =
        CreateProcessA(nullptr, &commandLine[0], nullptr, nullptr, TRUE, 0, nullptr, nullptr, &startup, &process);
    CloseHandle(writeEnd);
    char chunk[4096];
    DWORD got;
    while (started && ReadFile(readEnd, chunk, sizeof chunk, &got, nullptr) && got) result.output.append(chunk, got);
    CloseHandle(readEnd);
    if (!started) return result;
    WaitForSingleObject(process.hProcess, 60000);
    GetExitCodeProcess(process.hProcess, &result.exitCode);
    CloseHandle(process.hProcess);
    CloseHandle(process.hThread);
    return result;
}

size_t Find(const std::string& text, const std::string& what) { return text.find(what); }

}  // namespace

TEST(KvdiagMemReport, SummarisesTheLastReportBySiteWithOverwritesFirst) {
    kvtest::TempDir dir("memreport");
    const std::string log = dir / "debug.log";
    kvtest::WriteFileText(log,
        "2026-11-20 08:00:00 +01:00 Memory Report: old.exe PID 7 - CmdLine old.exe\r\n"
        "Type, Timestamp, Bytes, PID, Pointer, Source, Content\r\n"
        "Buffer, 2026-11-20 07:59:00, 00500, 00007, 0x0000000000100000, stale.cpp:1, \r\n"
        "2026-11-20 08:00:00 +01:00 Total memory buffers reported 1, net byte total 500\r\n"
        "\r\n"
        "2026-11-21 09:00:00 +01:00 Memory Report: pump.exe PID 42 - CmdLine pump.exe /run\r\n"
        "2026-11-21 09:00:00 +01:00 For PID 42, current memory allocation count 9, rate since last report 3/s\r\n"
        "Walking hHeap 0x0000000000A10000 for PID 42...\r\n"
        "Type, Timestamp, Bytes, PID, Pointer, Source, Content\r\n"
        "Buffer, 2026-11-21 08:10:00, 00064, 00042, 0x0000000000200010, C:\\src\\pump_table.cpp:120, \r\n"
        "Overwrite, 000000000, 00012, 00042, 0x0000000000200100, , \r\n"
        "2026-11-21 09:00:00 +01:00 a line of another process sharing the log\r\n"
        "Buffer, 2026-11-21 08:05:00, 00064, 00042, 0x0000000000200050, C:\\src\\pump_table.cpp:120, \r\n"
        "Buffer, 2026-11-21 08:30:00, 01000, 00042, 0x0000000000200200, tags, big.cpp:9, \r\n"
        "Buffer, 000000000, 00016, 00042, 0x0000000000200300, , , \r\n"
        "... (maximum buffer report count was reached)\r\n"
        "2026-11-21 09:00:00 +01:00 Total memory buffers reported 5, net byte total 1156\r\n"
        "\r\n"
        "2026-11-21 09:00:01 +01:00 later lines\r\n");
    const ToolResult r = RunKvdiag("memreport \"" + log + "\"");
    ASSERT_EQ(0u, r.exitCode) << r.output;
    const std::string& out = r.output;
    EXPECT_NE(std::string::npos, Find(out, "Memory Report: pump.exe PID 42 - CmdLine pump.exe /run")) << out;
    EXPECT_EQ(std::string::npos, Find(out, "stale.cpp")) << "only the last report counts\n" << out;
    // Overwritten blocks come before the sites.
    const size_t overwrite = Find(out, "0x0000000000200100  12 bytes");
    const size_t sites = Find(out, "Allocations by source site: 3");
    ASSERT_NE(std::string::npos, overwrite) << out;
    ASSERT_NE(std::string::npos, sites) << out;
    EXPECT_LT(overwrite, sites) << out;
    EXPECT_NE(std::string::npos, Find(out, "Overwritten blocks: 1")) << out;
    // Two blocks of one site with the older of their times; a file name that
    // holds ", " stays whole; the largest site comes first.
    const size_t pump = Find(out, "      2          128  2026-11-21 08:05:00  C:\\src\\pump_table.cpp:120");
    const size_t big = Find(out, "      1         1000  2026-11-21 08:30:00  tags, big.cpp:9");
    ASSERT_NE(std::string::npos, pump) << out;
    ASSERT_NE(std::string::npos, big) << out;
    EXPECT_LT(big, pump) << out;
    EXPECT_NE(std::string::npos, Find(out, "      1           16  -                    (not instrumented)")) << out;
    EXPECT_NE(std::string::npos, Find(out, "maximum record count")) << out;
    EXPECT_NE(std::string::npos, Find(out, "\nTotal memory buffers reported 5, net byte total 1156")) << out;
    EXPECT_EQ(std::string::npos, Find(out, "another process")) << out;
}

TEST(KvdiagMemReport, LogsWithoutAReportAndMissingLogsFail) {
    kvtest::TempDir dir("memreport");
    kvtest::WriteFileText(dir / "debug.log", "2026-11-21 09:00:00 +01:00 Memory Report: cut.exe PID 1 - CmdLine cut\r\n");
    ToolResult r = RunKvdiag("memreport \"" + (dir / "debug.log") + "\"");
    EXPECT_EQ(1u, r.exitCode) << r.output;
    EXPECT_NE(std::string::npos, Find(r.output, "No memory report in ")) << r.output;
    r = RunKvdiag("memreport \"" + (dir / "absent.log") + "\"");
    EXPECT_EQ(1u, r.exitCode) << r.output;
    EXPECT_NE(std::string::npos, Find(r.output, "cannot read")) << r.output;
    // A table cut short (the process ended while writing it) still summarises.
    kvtest::WriteFileText(dir / "cut.log",
                          "Type, Timestamp, Bytes, PID, Pointer, Source, Content\r\n"
                          "Buffer, 2026-11-21 08:10:00, 00064, 00042, 0x0000000000200010, a.cpp:1, \r\n"
                          "Buffer, 2026-11-21 08:10:00, 000");
    r = RunKvdiag("memreport \"" + (dir / "cut.log") + "\"");
    EXPECT_EQ(0u, r.exitCode) << r.output;
    EXPECT_NE(std::string::npos, Find(r.output, "      1           64  2026-11-21 08:10:00  a.cpp:1")) << r.output;
    EXPECT_NE(std::string::npos, Find(r.output, "(no totals line: the report is incomplete)")) << r.output;
}

// The report as the library writes it: a child host reports two instrumented
// allocations into an installation's live log, which memreport finds itself.
TEST(KvdiagMemReport, ReadsTheLiveLogTheLibraryWrote) {
    kvtest::ProductInstall install;
    kvtest::ChildHost host("mem_kvdiag_report");
    const auto child = host.Run({"mem_report_instrumented", install.iniPath()});
    ASSERT_EQ(0u, child.exitCode) << child.output;
    int sites[2] = {0, 0};
    ASSERT_EQ(2, sscanf(child.output.c_str(), "site %d site %d", &sites[0], &sites[1])) << child.output;
    const ToolResult r = RunKvdiag("memreport --ini \"" + install.iniPath() + "\"");
    ASSERT_EQ(0u, r.exitCode) << r.output;
    EXPECT_NE(std::string::npos, Find(r.output, "Memory Report: mem_kvdiag_report PID ")) << r.output;
    EXPECT_NE(std::string::npos, Find(r.output, "Overwritten blocks: 0")) << r.output;
    EXPECT_NE(std::string::npos, Find(r.output, "Allocations by source site: 2")) << r.output;
    const char* bytes[2] = {"      1          111  ", "      1          222  "};
    for (int i = 0; i < 2; ++i) {
        const size_t row = Find(r.output, bytes[i]);
        ASSERT_NE(std::string::npos, row) << r.output;
        const std::string line = r.output.substr(row, r.output.find('\n', row) - row);
        EXPECT_NE(std::string::npos, Find(line, "detection_scenarios.cpp:" + std::to_string(sites[i]))) << line;
    }
    EXPECT_NE(std::string::npos, Find(r.output, "Total memory buffers reported 2, net byte total 333")) << r.output;
}
