// The checks that need the validated product INI file.
#include <windows.h>
#include <dbghelp.h>
#include <stdio.h>
#include <string.h>

#include <string>

#include "KvConfig.h"
#include "KvCrash.h"
#include "KvLogging.h"
#include "KvSelfCheck.h"
#include "config/product_folder_table.h"
#include "frame/process_state.h"
#include "memory/winmem_report.h"
#include "memory/winmem_state.h"
#include "platform/owned_handle.h"
#include "selfcheck/check_record.h"
#include "selfcheck/startup_checks.h"

namespace kv {
namespace selfcheck {
namespace {

const int kPathSize = 260;

CheckResult IniValidated() {
    char path[kPathSize] = "";
    const int length = GetKorvanIniFilePath(path, kPathSize);
    if (length > 0) return Pass(path);
    if (length == -3) return Fail(std::string("set but not validated: ") + path);
    return Fail("no product INI file has been validated (SetKorvanIniFilePath, ValidateKorvanIniFile)");
}

// Resolvable (the lookup creates a missing folder) and writable: a private
// temporary file is created there and deleted again.
CheckResult FolderWritable(int code) {
    char folder[kPathSize] = "";
    const int length = GetKorvanFolderByType(code, folder, kPathSize);
    if (length <= 0) {
        char reason[64];
        snprintf(reason, sizeof reason, "folder type %d not resolvable (result %d)", code, length);
        return Fail(reason);
    }
    char probe[MAX_PATH] = "";
    if (!GetTempFileNameA(folder, "kvs", 0, probe)) return Fail(std::string("cannot create a file in ") + folder, GetLastError());
    DeleteFileA(probe);
    return Pass(folder);
}

// Opened for appending as the writers do, without writing anything.
CheckResult LogFileWritable(int length, const char* path) {
    if (length <= 0) return Fail("the log path is not available");
    const platform::FileHandle file(CreateFileA(path, FILE_APPEND_DATA, FILE_SHARE_READ | FILE_SHARE_WRITE |
                                                FILE_SHARE_DELETE, nullptr, OPEN_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr));
    if (!file) return Fail(std::string("cannot open ") + path + " for appending", GetLastError());
    return Pass(path);
}

CheckResult DebugLogWritable() {
    char path[kPathSize] = "";
    return LogFileWritable(GetDebugLogFilePath(-1, 1, path, kPathSize), path);
}

CheckResult SyslogWritable() {
    char path[kPathSize] = "";
    return LogFileWritable(GetSyslogFilePath(1, 0, path, kPathSize), path);
}

// A guarded element built in private storage (never linked into the heap
// list): intact it must pass the element check, with one byte written past its
// end it must fail it.
CheckResult GuardedOverrunDetected() {
    if (Settings.crashOnError) return Skip("CrashOnError is on: a detected overrun would stop this process");
    if (Layout.guardBytes == 0) return Skip("MemoryBufferSize is 0: elements have no guard bytes to check");
    const uint32_t userBytes = 16;
    const size_t total = Layout.overhead + userBytes;
    alignas(16) static thread_local unsigned char storage[4096];
    if (total > sizeof storage) return Skip("guard buffers larger than the private element");
    memset(storage, 0, total);
    auto* element = reinterpret_cast<DbgMemElement*>(storage);
    element->magic = kElementMagic;
    element->size = userBytes;
    memset(LeadGuard(element), kGuardByte, Layout.guardBytes);
    memset(TrailGuard(element), kGuardByte, Layout.guardBytes);
    if (!CheckElement(element)) return Fail("an intact private element was reported as damaged");
    DbgLogWrite("KvDebugHelp self-check: the memory error below is a deliberate overrun of a private element\n");
    UserData(element)[userBytes] = 0x21;  // one byte past the end, into the trail guard
    if (CheckElement(element)) return Fail("a one-byte overrun was not detected");
    return Pass("one-byte overrun of a private element detected");
}

// A light dump of this thread into a private file of the log folder, read
// back with DbgHelp and deleted.
CheckResult LightDumpReadsBack() {
    char folder[kPathSize] = "";
    if (GetKorvanLogFolder(folder, kPathSize) <= 0) return Fail("the log folder is not available");
    char path[MAX_PATH] = "";
    if (!GetTempFileNameA(folder, "kvd", 0, path)) return Fail(std::string("cannot create a file in ") + folder, GetLastError());

    CONTEXT context{};
    RtlCaptureContext(&context);
    EXCEPTION_RECORD record{};
    record.ExceptionCode = 0xE0000001;  // an application-defined code: no real fault
    record.ExceptionAddress = reinterpret_cast<void*>(context.Rip);
    EXCEPTION_POINTERS pointers{&record, &context};
    HRESULT written;
    {
        LightMiniDump dump(CreateFileA(path, GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr),
                           &pointers);
        written = dump.WriteDump();
    }
    CheckResult result;
    if (written != S_OK) {
        char reason[64];
        snprintf(reason, sizeof reason, "writing failed with HRESULT 0x%lx", static_cast<unsigned long>(written));
        result = Fail(reason, GetLastError());
    } else {
        result = Fail("the dump has no exception stream for this thread");
        const platform::FileHandle file(CreateFileA(path, GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING, 0, nullptr));
        const platform::KernelHandle mapping(file ? CreateFileMappingA(file.get(), nullptr, PAGE_READONLY, 0, 0, nullptr)
                                                  : nullptr);
        void* base = mapping ? MapViewOfFile(mapping.get(), FILE_MAP_READ, 0, 0, 0) : nullptr;
        PMINIDUMP_DIRECTORY dir = nullptr;
        void* stream = nullptr;
        ULONG size = 0;
        if (base && MiniDumpReadDumpStream(base, ExceptionStream, &dir, &stream, &size) &&
            size >= sizeof(MINIDUMP_EXCEPTION_STREAM)) {
            const auto* exception = static_cast<const MINIDUMP_EXCEPTION_STREAM*>(stream);
            if (exception->ThreadId == GetCurrentThreadId() && exception->ExceptionRecord.ExceptionCode == 0xE0000001)
                result = Pass(std::string("written to and read back from ") + folder);
        }
        if (base) UnmapViewOfFile(base);
    }
    DeleteFileA(path);
    return result;
}

// "folder LOGS\Drivers writable"; a second code for the same folder says its code.
void RecordFolder(const ProductFolderRow& row) {
    std::string name = std::string("folder ") + row.key + row.below;
    for (const ProductFolderRow* other = kProductFolders; other != &row; ++other)
        if (!strcmp(other->key, row.key) && !strcmp(other->below, row.below)) {
            name += " (type " + std::to_string(row.code) + ")";
            break;
        }
    Record(name + " writable", FolderWritable(row.code));
}

}  // namespace

void RunProductChecks() {
    if (!RunCheck("product INI file validated", IniValidated)) return;  // nothing below can work
    for (const ProductFolderRow& row : kProductFolders) RecordFolder(row);
    RunCheck("debug log writable", DebugLogWritable);
    RunCheck("system log writable", SyslogWritable);
    RunCheck("guarded overrun detected", GuardedOverrunDetected);
    RunCheck("light dump written and read back", LightDumpReadsBack);
}

}  // namespace selfcheck
}  // namespace kv

extern "C" int RunKvDebugHelpTestsAfterStartup(void) {
    kv::selfcheck::ClearRecord();
    kv::selfcheck::RunStartupChecks();
    kv::selfcheck::RunProductChecks();
    return kv::selfcheck::FailedCount();
}
