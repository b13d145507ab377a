// kvdiag memreport run on debug logs written here, in the library's format.
// The log the library writes itself is summarised in detection_test.cpp.
#include <gtest/gtest.h>

#include <string>

#include "kvdiag_runner.h"
#include "temp_dir.h"

using kvtest::RunKvdiag;

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
    const kvtest::HostResult r = RunKvdiag("memreport \"" + log + "\"");
    ASSERT_EQ(0u, r.exitCode) << r.output;
    const std::string out = kvtest::Squeezed(r.output);
    for (const char* part : {"Memory Report: pump.exe PID 42 - CmdLine pump.exe /run", "Overwritten blocks: 1",
                             "1 16 - (not instrumented)", "maximum record count",
                             "\nTotal memory buffers reported 5, net byte total 1156"})
        EXPECT_HAS(out, part);
    for (const char* other : {"stale.cpp", "another process"}) EXPECT_LACKS(out, other);  // only the last report counts
    // In this order: overwritten blocks before the sites; the largest site first;
    // two blocks of one site with the older of their times; a file name that
    // holds ", " stays whole.
    EXPECT_TRUE(kvtest::InOrder(out, {"0x0000000000200100 12 bytes", "Allocations by source site: 3",
                                      "1 1000 2026-11-21 08:30:00 tags, big.cpp:9",
                                      "2 128 2026-11-21 08:05:00 C:\\src\\pump_table.cpp:120"}))
        << out;
}

TEST(KvdiagMemReport, LogsWithoutAReportAndMissingLogsFail) {
    kvtest::TempDir dir("memreport");
    kvtest::WriteFileText(dir / "debug.log",
                          "2026-11-21 09:00:00 +01:00 Memory Report: cut.exe PID 1 - CmdLine cut\r\n");
    kvtest::ExpectKvdiagRuns({{"memreport \"" + dir / "debug.log\"", 1, "No memory report in "},
                              {"memreport \"" + dir / "absent.log\"", 1, "cannot read"}});
    // A table cut short (the process ended while writing it) still summarises.
    kvtest::WriteFileText(dir / "cut.log",
                          "Type, Timestamp, Bytes, PID, Pointer, Source, Content\r\n"
                          "Buffer, 2026-11-21 08:10:00, 00064, 00042, 0x0000000000200010, a.cpp:1, \r\n"
                          "Buffer, 2026-11-21 08:10:00, 000");
    const kvtest::HostResult r = RunKvdiag("memreport \"" + (dir / "cut.log") + "\"");
    EXPECT_EQ(0u, r.exitCode) << r.output;
    EXPECT_HAS(kvtest::Squeezed(r.output), "1 64 2026-11-21 08:10:00 a.cpp:1");
    EXPECT_HAS(r.output, "(no totals line: the report is incomplete)");
}
