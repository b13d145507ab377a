#include "dump/symbol_path.h"

#include <windows.h>
#include <string.h>

namespace kvdiag {
namespace {

std::string Trimmed(const std::string& text) {
    const size_t first = text.find_first_not_of(" \t\"");
    if (first == std::string::npos) return {};
    std::string out = text.substr(first, text.find_last_not_of(" \t\"") - first + 1);
    while (out.size() > 3 && (out.back() == '\\' || out.back() == '/')) out.pop_back();
    return out;
}

bool StartsWithIgnoringCase(const std::string& text, const char* prefix) {
    return _strnicmp(text.c_str(), prefix, strlen(prefix)) == 0;
}

bool IsServer(const std::string& part) {
    return StartsWithIgnoringCase(part, "http://") || StartsWithIgnoringCase(part, "https://");
}

}  // namespace

SymbolPath SymbolPath::Parse(const std::string& text) {
    SymbolPath path;
    for (size_t at = 0; at <= text.size();) {
        size_t end = text.find(';', at);
        if (end == std::string::npos) end = text.size();
        const std::string element = Trimmed(text.substr(at, end - at));
        at = end + 1;
        if (element.empty()) continue;
        const bool server = StartsWithIgnoringCase(element, "srv*") || StartsWithIgnoringCase(element, "symsrv*");
        if (!server && !StartsWithIgnoringCase(element, "cache*")) {
            path.elements.push_back({element, false});
            continue;
        }
        // Every local folder of the chain is a store (downstream caches
        // included); "symsrv*" names the server DLL first.
        size_t part = element.find('*') + 1;
        if (StartsWithIgnoringCase(element, "symsrv*")) part = element.find('*', part) + 1;
        while (part != 0 && part <= element.size()) {
            size_t stop = element.find('*', part);
            if (stop == std::string::npos) stop = element.size();
            const std::string folder = Trimmed(element.substr(part, stop - part));
            if (IsServer(folder)) path.ignored.push_back(folder);
            else if (!folder.empty()) path.elements.push_back({folder, true});
            part = stop + 1;
        }
    }
    return path;
}

SymbolPath SymbolPath::FromOptionOrEnvironment(const std::string& given) {
    if (!given.empty()) return Parse(given);
    SymbolPath path;
    for (const char* variable : {"_NT_SYMBOL_PATH", "_NT_ALTERNATE_SYMBOL_PATH"}) {
        char value[8192];
        const DWORD length = GetEnvironmentVariableA(variable, value, sizeof value);
        if (length > 0 && length < sizeof value) path.Append(Parse(value));
    }
    return path;
}

void SymbolPath::Append(const SymbolPath& other) {
    elements.insert(elements.end(), other.elements.begin(), other.elements.end());
    ignored.insert(ignored.end(), other.ignored.begin(), other.ignored.end());
}

std::vector<std::string> SymbolPath::Candidates(const std::string& name, const std::string& key) const {
    std::vector<std::string> out;
    for (const Element& e : elements)
        out.push_back(e.store ? e.folder + "\\" + name + "\\" + key + "\\" + name : e.folder + "\\" + name);
    return out;
}

}  // namespace kvdiag
