// A private registry key for one test, created in the 32-bit view under
// Software\Korvan\KvDebugHelpTests and removed with its contents at the end.
#pragma once

#include <windows.h>

#include <string>

namespace cfgtest {

class TestKey {
public:
    TestKey(HKEY root, const std::string& name) : root_(root), name_(name) {
        RegCreateKeyExA(root_, path().c_str(), 0, nullptr, 0, KEY_ALL_ACCESS | KEY_WOW64_32KEY, nullptr, &key_,
                        nullptr);
    }
    ~TestKey() {
        if (key_) RegCloseKey(key_);
        HKEY parent;
        if (RegOpenKeyExA(root_, kParent, 0, KEY_ALL_ACCESS | KEY_WOW64_32KEY, &parent) == ERROR_SUCCESS) {
            RegDeleteTreeA(parent, name_.c_str());
            RegCloseKey(parent);
        }
    }
    TestKey(const TestKey&) = delete;
    TestKey& operator=(const TestKey&) = delete;

    std::string path() const { return std::string(kParent) + "\\" + name_; }
    HKEY handle() const { return key_; }

    void SetRaw(const char* value, DWORD type, const void* data, DWORD size) const {
        RegSetValueExA(key_, value, 0, type, static_cast<const BYTE*>(data), size);
    }
    void SetString(const char* value, const std::string& text) const {
        SetRaw(value, REG_SZ, text.c_str(), DWORD(text.size() + 1));
    }
    void SetDword(const char* value, DWORD data) const { SetRaw(value, REG_DWORD, &data, sizeof data); }
    void AddSubKey(const char* name) const {
        HKEY sub;
        if (RegCreateKeyExA(key_, name, 0, nullptr, 0, KEY_ALL_ACCESS | KEY_WOW64_32KEY, nullptr, &sub, nullptr) ==
            ERROR_SUCCESS)
            RegCloseKey(sub);
    }

private:
    static constexpr const char* kParent = "Software\\Korvan\\KvDebugHelpTests";
    HKEY root_;
    std::string name_;
    HKEY key_ = nullptr;
};

}  // namespace cfgtest
