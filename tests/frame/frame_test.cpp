// The frame's run-time setters, the settings report and the drivers' lock, in
// this test process (whose own settings key does not exist).
#include <gtest/gtest.h>
#include <windows.h>

#include <string>
#include <thread>
#include <vector>

#include "KvDebugHelp.h"
#include "guarded_buffer.h"

namespace {

long long CurrentSetting(const std::string& name) {
    DbgHlpSettingInfo rows[32];
    const int n = DbgHlpDescribeSettings(nullptr, rows, 32);
    for (int i = 0; i < n; ++i)
        if (name == rows[i].name) return rows[i].value;
    ADD_FAILURE() << "no setting " << name;
    return -1;
}

struct DebugLogSettingsGuard {
    long long size = CurrentSetting("DebugLogSize");
    uint16_t history = DbgHlpGetCountOfDebugLogHistoryFiles();
    ~DebugLogSettingsGuard() { DbgHlpSetDebugLogInis(int32_t(size / 1024), int16_t(history)); }
};

}  // namespace

TEST(FrameSetters, DebugLogInisClampAndIgnoreNonPositive) {
    DebugLogSettingsGuard restore;
    const struct { int32_t kb; int16_t count; long long size; int history; } steps[] = {
        {64, 3, 65536, 3},
        {0, -1, 65536, 3},  // neither changes anything
        {-5, 0, 65536, 0},  // a zero count is a valid count
        {99999, 12, 10485760, 10}};
    for (const auto& s : steps) {
        DbgHlpSetDebugLogInis(s.kb, s.count);
        EXPECT_EQ(s.size, CurrentSetting("DebugLogSize")) << s.kb;
        EXPECT_EQ(s.history, DbgHlpGetCountOfDebugLogHistoryFiles()) << s.count;
    }
}

// The count of all rows comes back whatever the capacity; only a null array
// with room claimed is refused.
TEST(SettingsReport, FillsNoMoreRowsThanItsCapacity) {
    const int count = DbgHlpDescribeSettings("kvtest_no_such_program", nullptr, 0);
    ASSERT_GT(count, 3);
    kvtest::GuardedBuffer three(3 * sizeof(DbgHlpSettingInfo));
    EXPECT_EQ(count, DbgHlpDescribeSettings("kvtest_no_such_program",
                                            reinterpret_cast<DbgHlpSettingInfo*>(three.data()), 3));
    EXPECT_EQ(-1, DbgHlpDescribeSettings("kvtest_no_such_program", nullptr, 4));
}

TEST(DriverLock, SerialisesCallersAcrossThreads) {
    // A read-modify-write with a yield in the middle loses updates unless the
    // section really excludes the other threads.
    volatile int counter = 0;
    auto work = [&counter] {
        for (int i = 0; i < 200; ++i) {
            EXPECT_EQ(0, EnterCritical());
            const int seen = counter;
            SwitchToThread();
            counter = seen + 1;
            ExitCritical();
        }
    };
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) threads.emplace_back(work);
    for (auto& t : threads) t.join();
    EXPECT_EQ(800, counter);
}
