#include "tool_fixture.h"

#include <sstream>

#include "temp_dir.h"

namespace utiltest {

ToolKey::ToolKey(const std::string& name, const std::string& command, const std::string& workingDirectory,
                 bool writeCommand)
    : path_(std::string(kRootKey) + "\\" + name) {
    HKEY key;
    if (RegCreateKeyExA(HKEY_LOCAL_MACHINE, path_.c_str(), 0, nullptr, 0, KEY_WRITE | KEY_WOW64_32KEY, nullptr,
                        &key, nullptr) != ERROR_SUCCESS)
        return;
    if (writeCommand)
        RegSetValueExA(key, "", 0, REG_SZ, reinterpret_cast<const BYTE*>(command.c_str()), DWORD(command.size() + 1));
    if (!workingDirectory.empty())
        RegSetValueExA(key, "WorkingDirectory", 0, REG_SZ, reinterpret_cast<const BYTE*>(workingDirectory.c_str()),
                       DWORD(workingDirectory.size() + 1));
    RegCloseKey(key);
}

ToolKey::~ToolKey() { RegDeleteKeyExA(HKEY_LOCAL_MACHINE, path_.c_str(), KEY_WOW64_32KEY, 0); }

NamedEvent::NamedEvent(const char* name) : handle_(CreateEventA(nullptr, TRUE, FALSE, name)) { ResetEvent(handle_); }
NamedEvent::~NamedEvent() { CloseHandle(handle_); }

std::string QuotedRecorder() { return "\"" + kvtest::ProgramFolder() + "\\util_tool_recorder.exe\""; }

std::map<std::string, std::string> ReadRecord(const std::string& path) {
    std::map<std::string, std::string> record;
    for (const std::string& line : kvtest::ReadLines(path)) {
        const size_t eq = line.find('=');
        if (eq == std::string::npos) record[line] = "";
        else record[line.substr(0, eq)] = line.substr(eq + 1);
    }
    return record;
}

std::vector<std::string> Results(const std::string& output) {
    std::vector<std::string> results;
    std::istringstream in(output);
    std::string line;
    while (std::getline(in, line)) {
        if (!line.empty() && line.back() == '\r') line.pop_back();
        if (line.rfind("result=", 0) == 0) results.push_back(line.substr(7));
    }
    return results;
}

}  // namespace utiltest
