// Each dump strength writes a dump of this process that, read back, holds
// what the strength promises; the write refuses what it cannot use.
#include <gtest/gtest.h>

#include <string>

#include "KvDebugHelp.h"
#include "dump/dump_reader.h"
#include "temp_dir.h"

namespace {

constexpr DWORD kCode = 0xE0004B56;

struct ReadBack {
    uint64_t size = 0;
    DWORD code = 0, threadId = 0;
    bool fullMemory = false, handles = false, program = false;
    size_t modules = 0;
};

template <class Strength>
ReadBack WriteAndRead(const std::string& path) {
    CONTEXT context{};
    RtlCaptureContext(&context);
    EXCEPTION_RECORD record{};
    record.ExceptionCode = kCode;
    record.ExceptionAddress = reinterpret_cast<void*>(context.Rip);
    EXCEPTION_POINTERS pointers{&record, &context};
    const HANDLE file = CreateFileA(path.c_str(), GENERIC_READ | GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, 0, nullptr);
    EXPECT_EQ(S_OK, Strength(file, &pointers).WriteDump());  // the dump object closes the file
    ReadBack got;
    kvdiag::MappedDump dump(path.c_str());
    got.size = dump.size();
    if (const auto* exception = dump.Stream<MINIDUMP_EXCEPTION_STREAM>(ExceptionStream)) {
        got.code = exception->ExceptionRecord.ExceptionCode;
        got.threadId = exception->ThreadId;
    }
    got.fullMemory = dump.FullMemory().ranges.count > 0;
    got.handles = dump.StreamBytes(HandleDataStream).size() > 0;
    for (const MINIDUMP_MODULE& module : dump.List<MINIDUMP_MODULE>(ModuleListStream)) {
        ++got.modules;
        const std::string name = dump.Text(module.ModuleNameRva);
        got.program |= name.size() >= 14 && _stricmp(name.c_str() + name.size() - 14, "test_crash.exe") == 0;
    }
    return got;
}

}  // namespace

TEST(MiniDumpStrengths, EachDumpHoldsWhatItsStrengthPromises) {
    kvtest::TempDir dir("kvstrength");
    const ReadBack light = WriteAndRead<LightMiniDump>(dir / "light.dmp");
    const ReadBack medium = WriteAndRead<MediumMiniDump>(dir / "medium.dmp");
    const ReadBack heavy = WriteAndRead<HeavyMiniDump>(dir / "heavy.dmp");
    for (const ReadBack* dump : {&light, &medium, &heavy}) {
        EXPECT_EQ(kCode, dump->code);
        EXPECT_EQ(GetCurrentThreadId(), dump->threadId);
    }
    // Only heavy carries the whole memory, with every module (it has no filter).
    EXPECT_TRUE(heavy.fullMemory);
    EXPECT_FALSE(light.fullMemory || medium.fullMemory);
    EXPECT_TRUE(heavy.program);
    EXPECT_LT(light.size, heavy.size);
    EXPECT_LT(medium.size, heavy.size);
    // The light filter drops modules nothing in memory refers to (under Wine,
    // which marks none as referenced, all of them); medium keeps handle data.
    EXPECT_LE(light.modules, heavy.modules);
    EXPECT_FALSE(light.handles);
    EXPECT_EQ(heavy.handles, medium.handles);
}

// A missing file is reported before missing exception pointers.
TEST(MiniDumpWrite, RefusesMissingFileThenMissingPointers) {
    EXCEPTION_POINTERS pointers{};
    EXPECT_EQ(static_cast<HRESULT>(0x80070005), LightMiniDump(nullptr, &pointers).WriteDump());
    EXPECT_EQ(static_cast<HRESULT>(0x80070005), LightMiniDump(INVALID_HANDLE_VALUE, &pointers).WriteDump());
    EXPECT_EQ(static_cast<HRESULT>(0x80070005), HeavyMiniDump(nullptr, nullptr).WriteDump());
    kvtest::TempDir dir("kvstrength");
    const HANDLE file = CreateFileA((dir / "none.dmp").c_str(), GENERIC_READ | GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, 0, nullptr);
    EXPECT_EQ(E_INVALIDARG, MediumMiniDump(file, nullptr).WriteDump());
}
