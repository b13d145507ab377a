// Logging scenarios: mostly a script of operations against the product
// installation whose INI path comes first, so one process shows a fault and
// its recovery (and writes what the forwarding tests' collectors must read).
#include <windows.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <algorithm>
#include <string>
#include <thread>
#include <vector>

#include "KvDebugHelp.h"
#include "scenario.h"

namespace {

// Arguments cannot carry line breaks reliably: they are written as <LF> and
// <CR> and decoded here.
std::string Unescape(std::string text) {
    for (size_t at; (at = text.find("<LF>")) != std::string::npos;) text.replace(at, 4, "\n");
    for (size_t at; (at = text.find("<CR>")) != std::string::npos;) text.replace(at, 4, "\r");
    return text;
}

HANDLE heldFile = INVALID_HANDLE_VALUE;

// One operation "name=value" (or "name"); false for an unknown operation.
bool RunOperation(const std::string& op, LogFile*& appLog) {
    const size_t eq = op.find('=');
    const std::string name = op.substr(0, eq);
    const std::string value = eq == std::string::npos ? "" : Unescape(op.substr(eq + 1));
    const std::wstring wideValue(value.begin(), value.end());
    if (name == "comp") SetComponentName(value.c_str());
    else if (name == "line") DbgLogWrite("%s", value.c_str());
    else if (name == "format") DbgLogWrite(value.c_str());  // a format without conversions
    else if (name == "wide") DbgLogWriteW(L"w=%d %ls", 7, wideValue.c_str());
    else if (name == "widelong") DbgLogWriteW(L"%ls", std::wstring(3000, L'W').c_str());  // longer than its buffer
    else if (name == "file") DbgFileWrite("%s", value.c_str());
    else if (name == "long") DbgLogWrite("%s", std::string(size_t(atoi(value.c_str())), 'L').c_str());
    else if (name == "numbered") {  // numbered=TAG:COUNT:PAUSE_MS numbered lines; prints the longest call
        const size_t colon = value.find(':');
        const int count = atoi(value.c_str() + colon + 1), pause = atoi(value.c_str() + value.rfind(':') + 1);
        DWORD longest = 0;
        for (int i = 0; i < count; ++i, Sleep(DWORD(pause))) {
            const DWORD before = GetTickCount();
            DbgLogWrite("%s %04d", value.substr(0, colon).c_str(), i);
            longest = std::max(longest, GetTickCount() - before);
        }
        printf("longest=%lu\n", static_cast<unsigned long>(longest));
    } else if (name == "paced") {  // paced=TAG:COUNT[:EVENT] lines 1 ms apart, or until EVENT is set; prints their ticks
        const size_t colon = value.find(':'), stop = value.find(':', colon + 1);
        const HANDLE event = stop == std::string::npos ? nullptr
                                                       : OpenEventA(SYNCHRONIZE, FALSE, value.c_str() + stop + 1);
        // A millisecond between lines; false once the event is set.
        const auto pause = [event] { return event ? WaitForSingleObject(event, 1) == WAIT_TIMEOUT : (Sleep(1), true); };
        std::string ticks;
        for (int i = 0; i < atoi(value.c_str() + colon + 1) && pause(); ++i) {
            ticks += " " + std::to_string(GetTickCount());
            DbgLogWrite("%s %04d", value.substr(0, colon).c_str(), i);
        }
        printf("ticks=%s\n", ticks.c_str());
    } else if (name == "set") {
        const HANDLE event = OpenEventA(EVENT_MODIFY_STATE, FALSE, value.c_str());
        printf("set=%d\n", event && SetEvent(event));
    } else if (name == "lines") {
        for (int i = 0; i < atoi(value.c_str()); ++i) DbgLogWrite("filler %04d %s", i, std::string(40, '.').c_str());
    } else if (name == "hold") {  // opens a file the way another program would, sharing nothing
        heldFile = CreateFileA(value.c_str(), GENERIC_READ, 0, nullptr, OPEN_EXISTING, 0, nullptr);
        printf("held=%d\n", heldFile != INVALID_HANDLE_VALUE);
    } else if (name == "release") CloseHandle(heldFile);
    else if (name == "delete") printf("deleted=%d\n", DeleteFileA(value.c_str()) != 0);
    else if (name == "probe") {  // can another program read, and write, the file now?
        const auto opens = [&](DWORD access) {
            const HANDLE h = CreateFileA(value.c_str(), access, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE,
                                         nullptr, OPEN_EXISTING, 0, nullptr);
            return h != INVALID_HANDLE_VALUE && CloseHandle(h);
        };
        const bool read = opens(GENERIC_READ);
        printf("read=%d write=%d\n", read, opens(GENERIC_WRITE));
    } else if (name == "handles") {  // the process's handles to files named like value: inheritable?
        int found = 0, inheritable = 0;
        char path[MAX_PATH];
        DWORD flags;
        for (uintptr_t slot = 4; slot < 65536; slot += 4) {
            const HANDLE h = reinterpret_cast<HANDLE>(slot);
            if (GetHandleInformation(h, &flags) && GetFileType(h) == FILE_TYPE_DISK &&
                GetFinalPathNameByHandleA(h, path, sizeof path, 0) && strstr(path, value.c_str()))
                found++, inheritable += (flags & HANDLE_FLAG_INHERIT) != 0;
        }
        printf("found=%d inheritable=%d\n", found, inheritable);
    } else if (name == "fill") {  // writes a file until the disk is full
        const HANDLE h = CreateFileA(value.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, 0, nullptr);
        static const char block[4096] = {};
        DWORD written = 0;
        for (DWORD size = sizeof block; size; size /= 2)
            while (WriteFile(h, block, size, &written, nullptr) && written == size) {
            }
        printf("filled=%d\n", CloseHandle(h) != 0);
    } else if (name == "move") printf("moved=%d\n", MoveFileA(value.substr(0, value.find('|')).c_str(),
                                                               value.substr(value.find('|') + 1).c_str()) != 0);
    else if (name == "sleep") Sleep(DWORD(atoi(value.c_str())));
    else if (name == "pid") printf("pid=%lu\n", GetCurrentProcessId());
    else if (name == "kvexception") KvExceptionCreateDummyException(0);
    else if (name == "memreport") {  // a memory report of COUNT instrumented allocations
        EnableCallStackAndAllocationInstrumentation(0, 2, const_cast<char*>(""), 0);
        for (int n = atoi(value.c_str()); n > 0; --n) osMemAlloc(16, 0);
        DbgMemHeapReport(0, 0xFFFFFFFFu, 0);
    }
    else if (name == "sys") DirectSyslogWrite("%s", value.c_str());
    else if (name == "sysw") DirectSyslogWriteW(L"%ls", wideValue.c_str());
    else if (name == "sysoff") DirectSyslogWriteEx(false, "%s", value.c_str());
    else if (name == "nulls") {  // every logging export given null where it takes a pointer
        DbgLogWrite(nullptr);
        DbgLogWriteW(nullptr);
        DbgFileWrite(nullptr);
        DirectSyslogWrite(nullptr);
        DirectSyslogWriteW(nullptr);
        DirectSyslogWriteEx(true, nullptr);
        WriteLog(nullptr, "%s", "nothing");
        CloseLog(nullptr);
        SetApplicationSyslog(nullptr);
        printf("null open=%d\n", OpenLog(nullptr, 1, true) != nullptr);
    }
    else if (name == "open" || name == "openshut") {  // open=NAME:KB
        const size_t colon = value.find(':');
        appLog = OpenLog(value.substr(0, colon).c_str(), uint32_t(strtoul(value.c_str() + colon + 1, nullptr, 0)),
                         name == "open");
        printf("opened=%d\n", appLog != nullptr);
    } else if (name == "write") WriteLog(appLog, "%s\n", value.c_str());
    else if (name == "part") WriteLog(appLog, "%s", value.c_str());  // without its line end
    else if (name == "route") SetApplicationSyslog(appLog);
    else if (name == "limit") SetSyslogSize(appLog, uint32_t(strtoul(value.c_str(), nullptr, 0)));
    else if (name == "close") {
        CloseLog(appLog);
        appLog = nullptr;
    } else return false;
    return true;
}

}  // namespace

// log_script INI OP...: runs the operations in order.
KV_INI_SCENARIO(log_script) {
    LogFile* appLog = nullptr;
    for (int i = 1; i < argc; ++i)
        if (!RunOperation(argv[i], appLog)) return printf("unknown operation %s\n", argv[i]), 2;
    return 0;
}

// Prints the timestamp into a caller's buffer and the shared one; the time
// zone comes from TZ.
namespace {
unsigned long long Milliseconds(const SYSTEMTIME& fields) {
    FILETIME time{};
    SystemTimeToFileTime(&fields, &time);
    return ((static_cast<unsigned long long>(time.dwHighDateTime) << 32) | time.dwLowDateTime) / 10000;
}
unsigned long long LocalMilliseconds() {
    SYSTEMTIME now;
    GetLocalTime(&now);
    return Milliseconds(now);
}
}  // namespace

// The stamp, and whether its time lies between two readings of the local
// time taken around it (inlocal=1).
KV_SCENARIO(log_stamp) {
    uint32_t length = 99;
    char buffer[32];
    const unsigned long long before = LocalMilliseconds();
    const char* used = GetDateTimeString(buffer, &length);
    const unsigned long long after = LocalMilliseconds();
    SYSTEMTIME stamped{};
    sscanf(buffer, "%hu-%hu-%hu %hu:%hu:%hu.%hu", &stamped.wYear, &stamped.wMonth, &stamped.wDay, &stamped.wHour,
           &stamped.wMinute, &stamped.wSecond, &stamped.wMilliseconds);
    const unsigned long long at = Milliseconds(stamped);
    printf("inlocal=%d|", before <= at && at <= after);
    printf("stamp=%s|length=%u|own=%d\n", used, length, used == buffer);
    printf("shared=%s|\n", GetDateTimeString(nullptr, nullptr));
    return 0;
}

// log_stress INI TAG THREADS LINES: THREADS threads each write LINES numbered
// lines to the debug log of component "stress".
KV_INI_SCENARIO(log_stress) {
    if (argc < 4) return 2;
    SetComponentName("stress");
    const int lines = atoi(argv[3]);
    std::vector<std::thread> workers;
    for (int t = 0; t < atoi(argv[2]); ++t)
        workers.emplace_back([&, t] {
            for (int i = 0; i < lines; ++i) DbgLogWrite("%s t%d n%d", argv[1], t, i);
        });
    for (auto& w : workers) w.join();
    return 0;
}

// log_exit_busy INI MODE: a thread logs without pause while the process exits
// after 30 ms, so ExitProcess ends it anywhere in the log writer; then the
// library's memory report at unload (MODE report) or another module's detach
// (MODE module) logs.
KV_INI_SCENARIO(log_exit_busy) {
    const std::string mode = argc > 1 ? argv[1] : "";
    if (mode == "report") EnableCallStackAndAllocationInstrumentation(0, 0, const_cast<char*>(""), 1);
    if (mode == "module" && !LoadLibraryA("detach_logger.dll")) return printf("detach_logger.dll not loaded\n"), 3;
    // The 30 ms count from the busy thread's first line: its log is open by then.
    static HANDLE started = CreateEventA(nullptr, TRUE, FALSE, nullptr);
    const HANDLE busy = CreateThread(nullptr, 0, [](void*) -> DWORD {
        DbgLogWrite("busy first");
        SetEvent(started);
        for (unsigned i = 0;; ++i) DbgLogWrite("busy %u", i);
    }, nullptr, 0, nullptr);
    WaitForSingleObject(started, 60000);
    Sleep(30);
    printf("exiting busy=%d\n", busy != nullptr);
    return 0;
}
