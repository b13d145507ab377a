// File names and the exported path functions, in process: without a validated
// product INI file only folder types other than 1 give a path.
#include <gtest/gtest.h>

#include <string.h>

#include "KvLogging.h"
#include "guarded_buffer.h"

using kvtest::GuardedBuffer;

namespace {

// "result name" of a path function with a roomy buffer.
template <typename Fn, typename... Args>
std::string Path(Fn fn, Args... args) {
    char buffer[260] = "";
    return std::to_string(fn(args..., buffer, uint32_t(sizeof buffer))) + " " + buffer;
}

}  // namespace

TEST(FileNames, NamesCarryTheComponentBeforeTheExtension) {
    FileNameGenerator names;
    EXPECT_EQ("debug.log", names.GetDebugLogFileName(-5));
    EXPECT_EQ("debug.001", names.GetDebugLogFileName(1));
    EXPECT_EQ("debug.1000", names.GetDebugLogFileName(1000));

    SetComponentName("Alarm");
    EXPECT_EQ("debug.Alarm.log", names.GetDebugLogFileName(-1));
    EXPECT_EQ("debug.Alarm.003", names.GetDebugLogFileName(3));
    EXPECT_EQ("syslog.Alarm.dat", names.GetSyslogFileName(false));
    EXPECT_EQ("Params.Alarm.bak", names.GetParamsFileName(true));
    EXPECT_EQ("user.Alarm.dmp", names.GetMemoryDumpFileName());
    EXPECT_EQ("DBLog.Alarm", names.GetDBLogDirName());

    SetComponentName(nullptr);  // ignored
    EXPECT_EQ("kernel.Alarm.dat", names.GetKernelDataFileName());
    // A name that would leave the log folder or that Windows refuses is refused: the old one stays.
    for (const char* bad : {"..\\Pump", "a/b", "C:x", "Pump*", "Pu?mp", "a<b", "a>b", "a|b", "\"q\"", "..", "Pump.",
                            "Pump ", "tab\there"}) {
        SetComponentName(bad);
        EXPECT_EQ("debug.Alarm.log", names.GetDebugLogFileName(-1)) << bad;
    }
    SetComponentName("Pump.7 east");
    EXPECT_EQ("debug.Pump.7 east.log", names.GetDebugLogFileName(-1)) << "dots and blanks inside a name are fine";
    SetComponentName("Alarm");
    SetComponentName("");  // removes the dot too
    EXPECT_EQ("debug.log", names.GetDebugLogFileName(0));

    // The path functions: folder types other than the logs give bare names.
    EXPECT_EQ("10 syslog.dat", Path(GetSyslogFilePath, 0, 0));
    EXPECT_EQ("10 syslog.bak", Path(GetSyslogFilePath, 5, 7));
    EXPECT_EQ("9 debug.012", Path(GetDebugLogFilePath, 12, 0));
    EXPECT_EQ("0 ", Path(GetDebugLogDirPath, 0));

    SetComponentName("Kernel");
    EXPECT_EQ("27 tracelog.RuntimeManager.dat", Path(GetRuntimeManagerLogPath, 0, 0));
    EXPECT_EQ("27 tracelog.RuntimeManager.bak", Path(GetRuntimeManagerLogPath, 0, 1));
    EXPECT_EQ("12 DBLog.Kernel", Path(GetAlarmServerDBLogDirPath, 0));
    SetComponentName("");
}

TEST(FileNames, BadInputGetsItsResultAndNeverTakesAByteMore) {
    // debug.log is 9 characters: 9 bytes are too few and leave only zeros.
    GuardedBuffer exact(9), enough(10);
    EXPECT_EQ(-1, GetDebugLogFilePath(-1, 0, exact.data(), 9));
    EXPECT_TRUE(exact.AllZero());
    EXPECT_EQ(9, GetDebugLogFilePath(-1, 0, enough.data(), 10));
    EXPECT_STREQ("debug.log", enough.data());

    GuardedBuffer none(0);
    EXPECT_EQ(-1, GetSyslogFilePath(0, 0, none.data(), 0));
    EXPECT_EQ(-2, GetSyslogFilePath(0, 0, nullptr, 0));

    // The DBLog folder name follows the copy rule: too small is -2.
    GuardedBuffer dbLog(5), dbLogFits(6);
    EXPECT_EQ(-2, GetAlarmServerDBLogDirPath(0, dbLog.data(), 5));
    EXPECT_EQ(5, GetAlarmServerDBLogDirPath(0, dbLogFits.data(), 6));

    // Without a validated INI file the log folder is unavailable.
    GuardedBuffer buffer(260);
    EXPECT_EQ(-2, GetDebugLogFilePath(-1, 1, buffer.data(), 260));
    EXPECT_EQ(-2, GetDebugLogDirPath(1, buffer.data(), 260));
    EXPECT_EQ(-2, GetMemoryDumpPath(1, buffer.data(), 260));
    EXPECT_TRUE(buffer.Untouched());
    // The DBLog folder never fails on the folder: the bare name comes back.
    EXPECT_EQ("5 DBLog", Path(GetAlarmServerDBLogDirPath, 1));
    // Without a validated INI file the folder is empty: the path starts at the
    // drive's root, where an over-long name cannot be opened either.
    EXPECT_EQ(nullptr, OpenLog(std::string(300, 'n').c_str(), 1, true));
}
