#include "logs/log_files.h"

#include <windows.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <deque>

#include "KvConfig.h"
#include "KvLogging.h"

namespace kvdiag {

bool UseProductIni() {
    if (ValidateKorvanIniFile() == 1) return true;
    fprintf(stderr, "kvdiag: the product INI file is not valid (see DefaultINIPath of the product's root key)\n");
    return false;
}

bool TakeLineCount(std::vector<std::string>& args, int& count) {
    for (size_t i = 0; i < args.size(); ++i) {
        if (args[i] != "-n") continue;
        char* end = nullptr;
        if (i + 1 >= args.size() || (count = int(strtol(args[i + 1].c_str(), &end, 10)), *end) || count < 0) {
            fprintf(stderr, "kvdiag: -n needs a line count\n");
            return false;
        }
        args.erase(args.begin() + long(i), args.begin() + long(i) + 2);
        return true;
    }
    return true;
}

std::vector<std::string> LastLines(const std::string& path, int count) {
    std::deque<std::string> lines;
    FILE* file = fopen(path.c_str(), "rb");
    if (!file) return {};
    std::string line;
    for (int c; (c = fgetc(file)) != EOF;) {
        if (c == '\n') {
            if (!line.empty() && line.back() == '\r') line.pop_back();
            lines.push_back(line);
            line.clear();
            if (int(lines.size()) > count) lines.pop_front();
        } else {
            line += char(c);
        }
    }
    if (!line.empty()) {
        lines.push_back(line);
        if (int(lines.size()) > count) lines.pop_front();
    }
    fclose(file);
    return {lines.begin(), lines.end()};
}

std::vector<std::string> DebugLogChain(const std::string& component) {
    constexpr int kMaxHistoryFiles = 10;
    SetComponentName(component.c_str());
    std::vector<std::string> chain;
    for (int i = 0; i <= kMaxHistoryFiles; ++i) {
        char path[MAX_PATH];
        if (GetDebugLogFilePath(i == 0 ? -1 : i, 1, path, sizeof path) < 0) return {};
        chain.push_back(path);
    }
    return chain;
}

bool DebugLogComponent(const std::string& fileName, std::string& component) {
    if (_stricmp(fileName.c_str(), "debug.log") == 0) {
        component.clear();
        return true;
    }
    const size_t n = fileName.size();
    if (n <= 10 || _strnicmp(fileName.c_str(), "debug.", 6) != 0 || _stricmp(fileName.c_str() + n - 4, ".log") != 0)
        return false;
    component = fileName.substr(6, n - 10);
    return true;
}

}  // namespace kvdiag
