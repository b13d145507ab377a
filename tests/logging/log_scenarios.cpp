// Child-host scenarios of the logging subsystem. Most run a small script of
// operations against a product installation whose INI path is the first
// argument, so one process can show a fault and its recovery.
#include <windows.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <string>
#include <thread>
#include <vector>

#include "KvConfig.h"
#include "KvLogging.h"
#include "scenario.h"

namespace {

// Arguments cannot carry line breaks reliably: they are written as <LF> and
// <CR> and decoded here.
std::string Unescape(const char* text) {
    std::string out = text;
    for (const char* token : {"<LF>", "<CR>"}) {
        for (size_t at; (at = out.find(token)) != std::string::npos;)
            out.replace(at, 4, token[1] == 'L' ? "\n" : "\r");
    }
    return out;
}

bool UseProductIni(const char* iniPath) {
    SetKorvanIniFilePath(iniPath);
    return ValidateKorvanIniFile() == 1;
}

HANDLE heldFile = INVALID_HANDLE_VALUE;

std::string LivePath() {
    char path[MAX_PATH];
    return GetDebugLogFilePath(-1, 1, path, sizeof path) > 0 ? path : "";
}

// One operation "name=value" (or "name"); false for an unknown operation.
bool RunOperation(const std::string& op, LogFile*& appLog) {
    const size_t eq = op.find('=');
    const std::string name = op.substr(0, eq);
    const std::string value = eq == std::string::npos ? "" : Unescape(op.c_str() + eq + 1);
    if (name == "comp") SetComponentName(value.c_str());
    else if (name == "line") DbgLogWrite("%s", value.c_str());
    else if (name == "format") DbgLogWrite(value.c_str());  // a format without conversions
    else if (name == "x5") DbgLogWrite("x=%d", 5);
    else if (name == "wide") DbgLogWriteW(L"w=%d %ls", 7, std::wstring(value.begin(), value.end()).c_str());
    else if (name == "file") DbgFileWrite("%s", value.c_str());
    else if (name == "long") DbgLogWrite("%s", std::string(size_t(atoi(value.c_str())), 'L').c_str());
    else if (name == "lines") {
        for (int i = 0; i < atoi(value.c_str()); ++i) DbgLogWrite("filler %04d %s", i, std::string(40, '.').c_str());
    } else if (name == "path") printf("live=%s\n", LivePath().c_str());
    else if (name == "hold") {  // opens a file the way another program would, sharing nothing
        heldFile = CreateFileA(value.c_str(), GENERIC_READ, 0, nullptr, OPEN_EXISTING, 0, nullptr);
        printf("held=%d\n", heldFile != INVALID_HANDLE_VALUE);
    } else if (name == "release") {
        CloseHandle(heldFile);
        heldFile = INVALID_HANDLE_VALUE;
    } else if (name == "delete") printf("deleted=%d\n", DeleteFileA(value.c_str()) != 0);
    else if (name == "probe") {  // can another program read, and write, the file now?
        for (DWORD access : {GENERIC_READ, DWORD(GENERIC_WRITE)}) {
            HANDLE h = CreateFileA(value.c_str(), access, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE,
                                   nullptr, OPEN_EXISTING, 0, nullptr);
            printf("%s=%d ", access == GENERIC_READ ? "read" : "write", h != INVALID_HANDLE_VALUE);
            if (h != INVALID_HANDLE_VALUE) CloseHandle(h);
        }
        printf("\n");
    } else if (name == "handles") {  // the process's handles to files named like value: inheritable?
        int found = 0, inheritable = 0;
        for (uintptr_t value4 = 4; value4 < 65536; value4 += 4) {
            HANDLE h = reinterpret_cast<HANDLE>(value4);
            DWORD flags;
            char path[MAX_PATH];
            if (!GetHandleInformation(h, &flags) || GetFileType(h) != FILE_TYPE_DISK ||
                !GetFinalPathNameByHandleA(h, path, sizeof path, 0) || !strstr(path, value.c_str()))
                continue;
            ++found;
            if (flags & HANDLE_FLAG_INHERIT) ++inheritable;
        }
        printf("found=%d inheritable=%d\n", found, inheritable);
    } else if (name == "widelong") {  // a wide message longer than its buffer
        DbgLogWriteW(L"%ls", std::wstring(3000, L'W').c_str());
    } else if (name == "sys") DirectSyslogWrite("%s", value.c_str());
    else if (name == "sysw") DirectSyslogWriteW(L"%ls", std::wstring(value.begin(), value.end()).c_str());
    else if (name == "sysoff") DirectSyslogWriteEx(false, "%s", value.c_str());
    else if (name == "open" || name == "openshut") {  // open=NAME:KB
        const size_t colon = value.find(':');
        appLog = OpenLog(value.substr(0, colon).c_str(), uint32_t(atoi(value.c_str() + colon + 1)), name == "open");
        printf("opened=%d\n", appLog != nullptr);
    } else if (name == "write") WriteLog(appLog, "%s\n", value.c_str());
    else if (name == "route") SetApplicationSyslog(appLog);
    else if (name == "unroute") SetApplicationSyslog(nullptr);
    else if (name == "close") {
        CloseLog(appLog);
        appLog = nullptr;
    } else return false;
    return true;
}

}  // namespace

// log_script INI OP...: runs the operations in order.
KV_SCENARIO(log_script) {
    if (argc < 1 || !UseProductIni(argv[0])) {
        printf("product INI not valid\n");
        return 3;
    }
    LogFile* appLog = nullptr;
    for (int i = 1; i < argc; ++i)
        if (!RunOperation(argv[i], appLog)) {
            printf("unknown operation %s\n", argv[i]);
            return 2;
        }
    return 0;
}

// Prints the timestamp (the time zone comes from TZ), or writes it to the file
// named by the first argument.
KV_SCENARIO(log_stamp) {
    if (argc >= 1) {
        FILE* out = fopen(argv[0], "w");
        if (!out) return 3;
        fputs(GetDateTimeString(nullptr, nullptr), out);
        fclose(out);
        return 0;
    }
    uint32_t length = 99;
    char buffer[32];
    const char* used = GetDateTimeString(buffer, &length);
    printf("stamp=%s|length=%u|own=%d\n", used, length, used == buffer);
    const char* shared = GetDateTimeString(nullptr, nullptr);
    printf("shared=%s|\n", shared);
    const char* tz = getenv("TZ");
    printf("TZ=%s\n", tz ? tz : "(unset)");
    return 0;
}

// log_stress INI TAG THREADS LINES: THREADS threads each write LINES numbered
// lines to the debug log of component "stress".
KV_SCENARIO(log_stress) {
    if (argc < 4 || !UseProductIni(argv[0])) return 3;
    SetComponentName("stress");
    const std::string tag = argv[1];
    const int threads = atoi(argv[2]);
    const int lines = atoi(argv[3]);
    std::vector<std::thread> workers;
    for (int t = 0; t < threads; ++t)
        workers.emplace_back([&, t] {
            for (int i = 0; i < lines; ++i) DbgLogWrite("%s t%d n%d", tag.c_str(), t, i);
        });
    for (auto& w : workers) w.join();
    return 0;
}
