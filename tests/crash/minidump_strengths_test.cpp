// The dump strengths' callback filters fed with hand-made callback inputs, and
// the write operation's own refusals; written dumps are read back in child hosts.
#include <gtest/gtest.h>

#include "KvDebugHelp.h"

// Runs a strength's filter the way the dump writer does, through the routine
// and parameter its callback information hands out; returns its answer and
// the flags it left.
static BOOL Filter(MiniDump& dump, ULONG type, ULONG& flags) {
    MINIDUMP_CALLBACK_INFORMATION info{};
    bool present = false;
    dump.GetCallbackInfo(info, present);
    EXPECT_TRUE(present && info.CallbackRoutine) << "no filter routine";
    if (!present || !info.CallbackRoutine) return FALSE;
    MINIDUMP_CALLBACK_INPUT input{};
    input.CallbackType = type;
    MINIDUMP_CALLBACK_OUTPUT output{};
    output.ModuleWriteFlags = flags;
    const BOOL answer = info.CallbackRoutine(info.CallbackParam, &input, &output);
    flags = output.ModuleWriteFlags;
    return answer;
}

TEST(MiniDumpStrengths, FiltersKeepWhatTheirStrengthNeeds) {
    LightMiniDump light(nullptr, nullptr);
    MediumMiniDump medium(nullptr, nullptr);
    const ULONG module = ModuleWriteModule, dataSeg = ModuleWriteDataSeg, referenced = ModuleReferencedByMemory;
    const struct {
        MiniDump* filter;
        ULONG type, flagsIn;
        BOOL answer;
        ULONG flagsOut;
    } cases[] = {
        {&light, ModuleCallback, module | dataSeg, TRUE, dataSeg},  // no memory refers to it
        {&light, ModuleCallback, module | referenced, TRUE, module | referenced},
        {&light, ThreadCallback, module, TRUE, module},  // thread and inclusion callbacks: kept, flags untouched
        {&light, 100, 0, FALSE, 0},
        {&medium, ModuleCallback, module | dataSeg, TRUE, module},
        {&medium, ModuleCallback, module, FALSE, module},  // a module without data segments is refused
        {&medium, IncludeModuleCallback, 0, TRUE, 0},
        {&medium, MemoryCallback, 0, FALSE, 0},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(testing::Message() << (c.filter == &light ? "light" : "medium") << " type " << c.type);
        ULONG flags = c.flagsIn;
        EXPECT_EQ(c.answer, Filter(*c.filter, c.type, flags));
        EXPECT_EQ(c.flagsOut, flags);
    }
    MINIDUMP_CALLBACK_INPUT input{};
    MINIDUMP_CALLBACK_OUTPUT output{};
    EXPECT_FALSE(light.Callback(nullptr, &output));
    EXPECT_FALSE(light.Callback(&input, nullptr));
    EXPECT_FALSE(medium.Callback(nullptr, &output));
}

TEST(MiniDumpStrengths, HeavyHasNoFilter) {
    HeavyMiniDump heavy(nullptr, nullptr);
    MINIDUMP_CALLBACK_INFORMATION info{};
    bool present = true;
    heavy.GetCallbackInfo(info, present);
    EXPECT_FALSE(present);
    EXPECT_TRUE(heavy.Callback(nullptr, nullptr)) << "no filter: everything is kept";
}

// A missing file is reported before missing exception pointers.
TEST(MiniDumpWrite, RefusesMissingFile) {
    EXCEPTION_POINTERS pointers{};
    EXPECT_EQ(static_cast<HRESULT>(0x80070005), LightMiniDump(nullptr, &pointers).WriteDump());
    EXPECT_EQ(static_cast<HRESULT>(0x80070005), LightMiniDump(INVALID_HANDLE_VALUE, &pointers).WriteDump());
    EXPECT_EQ(static_cast<HRESULT>(0x80070005), HeavyMiniDump(nullptr, nullptr).WriteDump());
}
