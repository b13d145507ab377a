// Registered tools: the registry values of a tool and the macros of its command.
#include <windows.h>

#include <regex>
#include <string>
#include <unordered_map>

#include "KvConfig.h"
#include "tool_registration.h"

namespace kv {

std::string ReadToolValue(const char* toolName, const char* valueName) {
    char root[MAX_PATH] = {};
    if (!toolName || GetRootRegistryKeyPath(root, sizeof root) <= 0) return std::string();
    // Read-only, through the 32-bit view like the root key above it: a 64-bit
    // host would otherwise look in the 64-bit view, where the installer (a
    // 32-bit program) never wrote the tools.
    RegKey key(std::string(root) + "\\" + toolName, HKEY_LOCAL_MACHINE, true);
    std::string value;
    if (!key.IsOpen() || key.ReadValueAsString(valueName, value) != RegAccessSuccess) return std::string();
    return value;
}

namespace {

std::string ProjectValue(const char* key) {
    char value[MAX_PATH] = {};
    if (KorvanIniReadValueAsString("KVEDIT", key, value, sizeof value, "") < 0) value[0] = '\0';
    return value;
}

std::string Folder(int32_t type) {
    char folder[MAX_PATH] = {};
    if (GetKorvanFolderByType(type, folder, sizeof folder) <= 0) folder[0] = '\0';
    return folder;
}

std::unordered_map<std::string, std::string> MacroTable() {
    return {
        {"%p%", ProjectValue("LASTDATABASE")},
        {"%d%", ProjectValue("LASTDATABASEPATH")},
        {"%i%", Folder(KvFolderConfig)},
        {"%u%", Folder(KvFolderUser)},
        {"%b%", Folder(KvFolderBin)},
    };
}

}  // namespace

std::string ExpandToolMacros(const std::string& command) {
    const auto macros = MacroTable();
    const std::regex pattern("\\^.|%[pdiub]%", std::regex::ECMAScript);
    std::string out;
    auto tail = command.cbegin();
    for (std::sregex_iterator it(command.begin(), command.end(), pattern), end; it != end; ++it) {
        const std::smatch& m = *it;
        out.append(tail, m[0].first);
        const std::string text = m.str();
        if (text[0] == '^') out += text[1];  // "^%" is a literal percent sign, "^^" one caret
        else out += macros.at(text);
        tail = m[0].second;
    }
    out.append(tail, command.cend());
    return out;
}

}  // namespace kv
