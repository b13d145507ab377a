#include "config/default_layout.h"

#include <windows.h>
#include <string.h>

#include "frame/process_state.h"
#include "platform/module_path.h"

namespace kv {
namespace {

bool IsSeparator(char c) { return c == '/' || c == '\\'; }

// The folder of this library's own module file, ending in its separator.
std::string ModuleFolder() {
    std::string folder = platform::ModuleFolder(ModuleHandle);
    if (!folder.empty() && !IsSeparator(folder.back())) folder += '\\';
    return folder;
}

struct DefaultKey {
    const char* key;
    const char* belowRoot;  // null: not a folder below the data root
    bool inIniFile;
};

// In writing order. "Logs" keeps its mixed case; INI keys ignore case, so the
// readers asking for "LOGS" find it. The last database starts in the user folder.
constexpr DefaultKey kRootKeys[] = {
    {"INCREMENTALCOMPILE", nullptr, false}, {"DATA", "Data", true},        {"USER", "User", true},
    {"CONFIG", "Config", true},             {"Logs", "Logs", true},        {"STARTER", "Starter", true},
    {"LASTDATABASEPATH", "User\\Include", true},
};

}  // namespace

void SplitParentLeaf(const std::string& path, std::string& parent, std::string& leaf) {
    std::string trimmed = path;
    while (trimmed.size() > 1 && IsSeparator(trimmed.back())) trimmed.pop_back();
    const size_t slash = trimmed.rfind('/');
    const size_t backslash = trimmed.rfind('\\');
    if ((slash == std::string::npos) == (backslash == std::string::npos)) {
        parent.clear();
        leaf = trimmed;
        return;
    }
    const size_t at = slash == std::string::npos ? backslash : slash;
    parent = trimmed.substr(0, at + 1);
    leaf = trimmed.substr(at + 1);
}

std::string DataRootOf(const std::string& iniPath) {
    std::string folder, file;
    SplitParentLeaf(iniPath, folder, file);
    if (folder.empty()) return "";
    std::string root, folderName;
    SplitParentLeaf(folder, root, folderName);
    return _stricmp(folderName.c_str(), "Config") == 0 ? root : "";
}

void WriteDefaultKeys(const char* file, const std::string& iniPath, bool profile) {
    // A failed single write is not checked: the remaining keys still go in.
    WritePrivateProfileStringA("KVEDIT", "BIN", ModuleFolder().c_str(), file);
    const std::string root = DataRootOf(iniPath);
    if (root.empty()) return;
    for (const DefaultKey& entry : kRootKeys) {
        if (!profile && !entry.inIniFile) continue;
        const std::string value = entry.belowRoot ? root + entry.belowRoot : "1";
        WritePrivateProfileStringA("KVEDIT", entry.key, value.c_str(), file);
    }
}

}  // namespace kv
