// Registry state for one test, in the 32-bit view the product uses: keys
// created for the test and removed with their contents at the end, and the
// product's "DefaultINIPath" saved and put back (the demo's sample
// installation relies on it).
#pragma once

#include <windows.h>

#include <string>

namespace kvtest {

constexpr REGSAM kAllAccess32 = KEY_ALL_ACCESS | KEY_WOW64_32KEY;
const std::string kProductRootKey = "Software\\Korvan\\SCADA Installs\\8.40";
const std::string kTestKeys = "Software\\Korvan\\KvDebugHelpTests\\";

class TestKey {
public:
    TestKey(HKEY root, const std::string& path) : root_(root), path_(path) {
        RegCreateKeyExA(root_, path_.c_str(), 0, nullptr, 0, kAllAccess32, nullptr, &key_, nullptr);
    }
    ~TestKey() {
        RegDeleteTreeA(key_, nullptr);
        RegCloseKey(key_);
        RegDeleteKeyExA(root_, path_.c_str(), KEY_WOW64_32KEY, 0);
    }
    TestKey(const TestKey&) = delete;
    TestKey& operator=(const TestKey&) = delete;

    const std::string& path() const { return path_; }
    void SetRaw(const char* value, DWORD type, const void* data, DWORD size) const {
        RegSetValueExA(key_, value, 0, type, static_cast<const BYTE*>(data), size);
    }
    void SetString(const char* value, const std::string& text) const {
        SetRaw(value, REG_SZ, text.c_str(), DWORD(text.size() + 1));
    }
    void AddSubKey(const char* name) const {
        HKEY sub;
        if (!RegCreateKeyExA(key_, name, 0, nullptr, 0, kAllAccess32, nullptr, &sub, nullptr)) RegCloseKey(sub);
    }

private:
    HKEY root_;
    std::string path_;
    HKEY key_ = nullptr;
};

// A registered tool: its key below the product root key, with the command as
// the default value and, when given, its working folder.
struct ToolKey : TestKey {
    ToolKey(const std::string& name, const std::string& command, const std::string& folder = "")
        : TestKey(HKEY_LOCAL_MACHINE, kProductRootKey + "\\" + name) {
        SetString("", command);
        if (!folder.empty()) SetString("WorkingDirectory", folder);
    }
};

class DefaultIniPathGuard {
public:
    DefaultIniPathGuard() {
        RegCreateKeyExA(HKEY_LOCAL_MACHINE, kProductRootKey.c_str(), 0, nullptr, 0, kAllAccess32, nullptr, &key_,
                        nullptr);
        char text[1024] = "";
        DWORD size = sizeof text - 1;
        had_ = !RegQueryValueExA(key_, kValue, nullptr, &type_, reinterpret_cast<BYTE*>(text), &size);
        saved_ = text;
    }
    ~DefaultIniPathGuard() {
        had_ ? Set(saved_, type_) : Remove();
        RegCloseKey(key_);
    }
    DefaultIniPathGuard(const DefaultIniPathGuard&) = delete;
    DefaultIniPathGuard& operator=(const DefaultIniPathGuard&) = delete;

    void Set(const std::string& text, DWORD type = REG_SZ) const {
        RegSetValueExA(key_, kValue, 0, type, reinterpret_cast<const BYTE*>(text.c_str()), DWORD(text.size() + 1));
    }
    void Remove() const { RegDeleteValueA(key_, kValue); }

private:
    static constexpr const char* kValue = "DefaultINIPath";
    HKEY key_ = nullptr;
    bool had_ = false;
    DWORD type_ = REG_SZ;
    std::string saved_;
};

}  // namespace kvtest
