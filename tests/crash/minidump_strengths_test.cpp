// The dump strengths: callback filters fed with hand-made callback inputs,
// inputs, and the write operation's own checks and result.
#include <gtest/gtest.h>

#include "KvDebugHelp.h"
#include "../../tools/kvdiag/dump_reader.h"
#include "temp_dir.h"

namespace {

// Runs a filter with a fresh input/output pair; returns its answer and the
// flags it left.
BOOL Filter(MiniDump& dump, ULONG type, ULONG& flags) {
    MINIDUMP_CALLBACK_INPUT input{};
    input.CallbackType = type;
    MINIDUMP_CALLBACK_OUTPUT output{};
    output.ModuleWriteFlags = flags;
    const BOOL answer = dump.Callback(&input, &output);
    flags = output.ModuleWriteFlags;
    return answer;
}

}  // namespace

TEST(MiniDumpStrengths, LightFilterDropsModulesNoMemoryRefersTo) {
    LightMiniDump light(nullptr, nullptr);
    ULONG flags = ModuleWriteModule | ModuleWriteDataSeg;
    EXPECT_TRUE(Filter(light, ModuleCallback, flags));
    EXPECT_EQ(static_cast<ULONG>(ModuleWriteDataSeg), flags);

    flags = ModuleWriteModule | ModuleReferencedByMemory;
    EXPECT_TRUE(Filter(light, ModuleCallback, flags));
    EXPECT_EQ(static_cast<ULONG>(ModuleWriteModule | ModuleReferencedByMemory), flags);

    for (ULONG type : {ThreadCallback, ThreadExCallback, IncludeThreadCallback, IncludeModuleCallback}) {
        flags = ModuleWriteModule;
        EXPECT_TRUE(Filter(light, type, flags)) << type;
        EXPECT_EQ(static_cast<ULONG>(ModuleWriteModule), flags) << "only module callbacks touch the flags";
    }
    for (ULONG type : {5ul, 6ul, 100ul}) {
        flags = 0;
        EXPECT_FALSE(Filter(light, type, flags)) << type;
    }
    MINIDUMP_CALLBACK_INPUT input{};
    MINIDUMP_CALLBACK_OUTPUT output{};
    EXPECT_FALSE(light.Callback(nullptr, &output));
    EXPECT_FALSE(light.Callback(&input, nullptr));
}

TEST(MiniDumpStrengths, MediumFilterDropsDataSegmentsAndRefusesModulesWithout) {
    MediumMiniDump medium(nullptr, nullptr);
    ULONG flags = ModuleWriteModule | ModuleWriteDataSeg;
    EXPECT_TRUE(Filter(medium, ModuleCallback, flags));
    EXPECT_EQ(static_cast<ULONG>(ModuleWriteModule), flags);

    flags = ModuleWriteModule;
    EXPECT_FALSE(Filter(medium, ModuleCallback, flags));
    EXPECT_EQ(static_cast<ULONG>(ModuleWriteModule), flags);

    for (ULONG type : {ThreadCallback, ThreadExCallback, IncludeThreadCallback, IncludeModuleCallback}) {
        flags = 0;
        EXPECT_TRUE(Filter(medium, type, flags)) << type;
    }
    flags = 0;
    EXPECT_FALSE(Filter(medium, MemoryCallback, flags));
    MINIDUMP_CALLBACK_OUTPUT output{};
    EXPECT_FALSE(medium.Callback(nullptr, &output));
}

TEST(MiniDumpStrengths, CallbackInfoForwardsToTheObjectExceptForHeavy) {
    LightMiniDump light(nullptr, nullptr);
    MINIDUMP_CALLBACK_INFORMATION info{};
    bool present = false;
    light.GetCallbackInfo(info, present);
    ASSERT_TRUE(present);
    ASSERT_NE(nullptr, info.CallbackRoutine);
    EXPECT_EQ(&light, info.CallbackParam);
    MINIDUMP_CALLBACK_INPUT input{};
    input.CallbackType = ModuleCallback;
    MINIDUMP_CALLBACK_OUTPUT output{};
    output.ModuleWriteFlags = ModuleWriteModule;
    EXPECT_TRUE(info.CallbackRoutine(info.CallbackParam, &input, &output));
    EXPECT_EQ(0u, output.ModuleWriteFlags) << "the light filter ran";

    HeavyMiniDump heavy(nullptr, nullptr);
    present = true;
    heavy.GetCallbackInfo(info, present);
    EXPECT_FALSE(present);
    EXPECT_EQ(nullptr, info.CallbackRoutine);
    EXPECT_EQ(nullptr, info.CallbackParam);

    EXPECT_TRUE(heavy.Callback(nullptr, nullptr)) << "no filter: everything is kept";
}

TEST(MiniDumpWrite, RefusesMissingFileBeforeMissingException) {
    EXCEPTION_POINTERS pointers{};
    EXPECT_EQ(static_cast<HRESULT>(0x80070005), LightMiniDump(nullptr, &pointers).WriteDump());
    EXPECT_EQ(static_cast<HRESULT>(0x80070005), LightMiniDump(INVALID_HANDLE_VALUE, &pointers).WriteDump());
    EXPECT_EQ(static_cast<HRESULT>(0x80070005), HeavyMiniDump(nullptr, nullptr).WriteDump());

    kvtest::TempDir dir("crashwrite");
    HANDLE file = CreateFileA((dir / "null.dmp").c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, 0, nullptr);
    ASSERT_NE(INVALID_HANDLE_VALUE, file);
    EXPECT_EQ(static_cast<HRESULT>(0x80070057), LightMiniDump(file, nullptr).WriteDump());
}

TEST(MiniDumpWrite, LightDumpOfThisProcessReadsBack) {
    CONTEXT context{};
    RtlCaptureContext(&context);
    EXCEPTION_RECORD record{};
    record.ExceptionCode = 0xE0001234;
    record.ExceptionAddress = reinterpret_cast<void*>(context.Rip);
    EXCEPTION_POINTERS pointers{&record, &context};

    kvtest::TempDir dir("crashwrite");
    const std::string path = dir / "light.dmp";
    HANDLE file = CreateFileA(path.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, 0, nullptr);
    ASSERT_NE(INVALID_HANDLE_VALUE, file);
    ASSERT_EQ(S_OK, LightMiniDump(file, &pointers).WriteDump());

    kvdiag::MappedDump dump(path.c_str());
    ASSERT_NE(nullptr, dump.base());
    const auto* exception = dump.Stream<MINIDUMP_EXCEPTION_STREAM>(ExceptionStream);
    ASSERT_NE(nullptr, exception);
    EXPECT_EQ(GetCurrentThreadId(), exception->ThreadId);
    EXPECT_EQ(0xE0001234u, exception->ExceptionRecord.ExceptionCode);
    EXPECT_NE(nullptr, dump.Stream<MINIDUMP_MODULE_LIST>(ModuleListStream));
}
