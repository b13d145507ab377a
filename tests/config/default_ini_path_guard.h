// Saves the product's "DefaultINIPath" (HKEY_LOCAL_MACHINE, 32-bit view) and
// puts it back at the end: the demo's sample installation relies on it.
#pragma once

#include <windows.h>

#include <string>

namespace cfgtest {

class DefaultIniPathGuard {
public:
    DefaultIniPathGuard() {
        RegCreateKeyExA(HKEY_LOCAL_MACHINE, kRootKey, 0, nullptr, 0, KEY_ALL_ACCESS | KEY_WOW64_32KEY, nullptr, &key_,
                        nullptr);
        char text[1024] = "";
        DWORD size = sizeof text - 1, type = 0;
        had_ = key_ && RegQueryValueExA(key_, kValue, nullptr, &type, reinterpret_cast<BYTE*>(text), &size) ==
                           ERROR_SUCCESS;
        saved_.assign(text, size);
        type_ = type;
    }
    ~DefaultIniPathGuard() {
        if (!key_) return;
        if (had_)
            RegSetValueExA(key_, kValue, 0, type_, reinterpret_cast<const BYTE*>(saved_.data()), DWORD(saved_.size()));
        else
            RegDeleteValueA(key_, kValue);
        RegCloseKey(key_);
    }
    DefaultIniPathGuard(const DefaultIniPathGuard&) = delete;
    DefaultIniPathGuard& operator=(const DefaultIniPathGuard&) = delete;

    void Set(const std::string& path) const {
        RegSetValueExA(key_, kValue, 0, REG_SZ, reinterpret_cast<const BYTE*>(path.c_str()), DWORD(path.size() + 1));
    }
    void Remove() const { RegDeleteValueA(key_, kValue); }

private:
    static constexpr const char* kRootKey = "Software\\Korvan\\SCADA Installs\\8.40";
    static constexpr const char* kValue = "DefaultINIPath";
    HKEY key_ = nullptr;
    bool had_ = false;
    DWORD type_ = REG_SZ;
    std::string saved_;
};

}  // namespace cfgtest
