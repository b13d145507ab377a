// Helpers of the tests that start programs: named events, the stand-in
// MAPI32.DLL switched on for one program, and "key=value" records.
#pragma once

#include <windows.h>

#include <map>
#include <string>
#include <vector>

#include "registry_keys.h"
#include "temp_dir.h"
#include "text_checks.h"

namespace utiltest {

using Record = std::map<std::string, std::string>;
using kvtest::ToolKey;

struct NamedEvent {
    explicit NamedEvent(const char* name) : handle(CreateEventA(nullptr, TRUE, FALSE, name)) { ResetEvent(handle); }
    ~NamedEvent() { CloseHandle(handle); }
    bool Wait(DWORD ms) const { return WaitForSingleObject(handle, ms) == WAIT_OBJECT_0; }
    HANDLE handle;
};

// Makes one program load the stand-in MAPI32.DLL beside it. Wine drops
// WINEDLLOVERRIDES from the environment a Windows parent passes on, so the
// per-program override key is used; Windows ignores it and loads the DLL
// beside the program anyway.
struct NativeMapiFor {
    explicit NativeMapiFor(const std::string& exe) : key("Software\\Wine\\AppDefaults\\" + exe) {
        RegSetKeyValueA(HKEY_CURRENT_USER, (key + "\\DllOverrides").c_str(), "mapi32", REG_SZ, "native", 7);
    }
    ~NativeMapiFor() { RegDeleteTreeA(HKEY_CURRENT_USER, key.c_str()); }
    std::string key;
};

inline std::string QuotedRecorder() { return "\"" + kvtest::ProgramFolder() + "\\util_tool_recorder.exe\""; }

// The "key=value" lines of a text, a new record at each line with firstKey.
inline std::vector<Record> Records(const std::string& text, const std::string& firstKey) {
    std::vector<Record> records;
    for (const auto& line : kvtest::SplitLines(text)) {
        const size_t eq = line.find('=');
        if (eq == std::string::npos) continue;
        if (line.compare(0, eq, firstKey) == 0) records.emplace_back();
        if (!records.empty()) records.back()[line.substr(0, eq)] = line.substr(eq + 1);
    }
    return records;
}

inline Record RecordFile(const std::string& path) {
    const auto records = Records(kvtest::ReadFileText(path), "cmdline");
    return records.empty() ? Record() : records[0];
}

// The "result=N" values a scenario printed, in order.
inline std::vector<std::string> Results(const std::string& output) {
    std::vector<std::string> results;
    for (const Record& r : Records(output, "result")) results.push_back(r.at("result"));
    return results;
}

}  // namespace utiltest
