// Fixtures of the utility tests: a scenario's printed results, tool keys below the product root key in the
// 32-bit view of HKEY_LOCAL_MACHINE, and the recording tool program with the
// events it signals.
#pragma once

#include <windows.h>

#include <map>
#include <string>
#include <vector>

namespace utiltest {

constexpr const char* kRootKey = "Software\\Korvan\\SCADA Installs\\8.40";

// A tool key, removed again at destruction. An empty command writes an empty
// default value; writeCommand false writes none.
class ToolKey {
public:
    ToolKey(const std::string& name, const std::string& command, const std::string& workingDirectory = "",
            bool writeCommand = true);
    ~ToolKey();
    ToolKey(const ToolKey&) = delete;
    ToolKey& operator=(const ToolKey&) = delete;

private:
    std::string path_;
};

// A named event created unsignalled for the life of the object.
class NamedEvent {
public:
    explicit NamedEvent(const char* name);
    ~NamedEvent();
    bool Wait(DWORD ms) const { return WaitForSingleObject(handle_, ms) == WAIT_OBJECT_0; }
    void Set() const { SetEvent(handle_); }

private:
    HANDLE handle_;
};

// The recording tool in the program folder, quoted.
std::string QuotedRecorder();
// "cmdline" and "cwd" of a record file, and "finished" once the tool ended.
std::map<std::string, std::string> ReadRecord(const std::string& path);
// The values of the "result=N" lines a scenario printed, in order.
std::vector<std::string> Results(const std::string& output);

}  // namespace utiltest
