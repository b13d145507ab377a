#include "forward/followed_logs.h"

#include <windows.h>

#include <algorithm>

#include "KvLogging.h"
#include "handler/crash_events.h"
#include "logs/log_files.h"
#include "logs/product_paths.h"
#include "platform/folder_listing.h"

namespace kvdiag {

namespace {

std::string FileNameOf(const std::string& path) { return path.substr(path.find_last_of('\\') + 1); }

std::vector<std::string> FolderFiles(const std::string& folder, const char* pattern) {
    std::vector<std::string> names;
    kv::platform::VisitFolder(folder, pattern, [&](const WIN32_FIND_DATAA& found) {
        if (!(found.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY)) names.push_back(found.cFileName);
        return true;
    });
    return names;
}

FollowedLog DebugLog(const std::string& component) {
    FollowedLog log;
    log.chain = DebugLogChain(component);
    if (!log.chain.empty()) log.identity = {component.empty() ? "debug" : component, "debuglog", FileNameOf(log.chain[0])};
    return log;
}

// An archived application log made with "SysLogArchive": "name_yymmdd_hhmmss .ext".
bool IsTimestampedArchive(const std::string& name) {
    const size_t blank = name.rfind(' ');
    if (blank == std::string::npos || blank < 14) return false;
    const std::string stamp = name.substr(blank - 14, 14);
    for (size_t i = 0; i < stamp.size(); ++i)
        if ((i == 0 || i == 7) ? stamp[i] != '_' : (stamp[i] < '0' || stamp[i] > '9')) return false;
    return true;
}

FollowedLog ArchivingLog(const std::string& folder, const std::string& name, const std::string& appName, const char* msgId) {
    const std::string live = folder + "\\" + name;
    return {{appName, msgId, name}, ArchiveChain(live), true};
}

}  // namespace

std::vector<std::string> ArchiveChain(const std::string& live) {
    constexpr size_t kArchivesFollowed = 10;
    const size_t slash = live.find_last_of('\\'), dot = live.find_last_of('.');
    const bool hasExtension = dot != std::string::npos && (slash == std::string::npos || dot > slash);
    const std::string base = hasExtension ? live.substr(0, dot) : live;
    const std::string extension = hasExtension ? live.substr(dot) : "";
    const std::string folder = slash == std::string::npos ? "." : live.substr(0, slash);
    const std::string stem = base.substr(slash == std::string::npos ? 0 : slash + 1);
    // Newest first by last write: an archive keeps the time of its last line.
    std::vector<std::pair<ULONGLONG, std::string>> archives;
    kv::platform::VisitFolder(folder, (stem + "*").c_str(), [&](const WIN32_FIND_DATAA& found) {
        const std::string name = found.cFileName;
        const bool bak = _stricmp(name.c_str(), (stem + ".bak").c_str()) == 0;
        const bool stamped = name.size() == stem.size() + 15 + extension.size() &&
                             _strnicmp(name.c_str(), stem.c_str(), stem.size()) == 0 &&
                             _stricmp(name.c_str() + stem.size() + 15, extension.c_str()) == 0 &&
                             IsTimestampedArchive(name.substr(0, stem.size() + 15));
        if ((bak || stamped) && !(found.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY))
            archives.push_back({(ULONGLONG(found.ftLastWriteTime.dwHighDateTime) << 32) | found.ftLastWriteTime.dwLowDateTime,
                                folder + "\\" + name});
        return true;
    });
    std::sort(archives.begin(), archives.end(), [](const auto& a, const auto& b) { return a > b; });
    std::vector<std::string> chain{live};
    for (size_t i = 0; i < archives.size() && i < kArchivesFollowed; ++i) chain.push_back(archives[i].second);
    // A log that has not archived yet: its first archive will be the .bak or a stamped name.
    if (chain.size() == 1) chain.push_back(base + ".bak");
    return chain;
}

std::vector<FollowedLog> SelectLogs(const LogSelection& selection) {
    std::vector<FollowedLog> logs;
    std::string folder;
    if (!kvdiag::LogFolder(folder)) return logs;
    std::vector<std::string> components = selection.components;
    if (selection.allComponents) {
        const std::vector<std::string> all = DebugLogComponents();
        components.insert(components.end(), all.begin(), all.end());
    }
    for (const std::string& component : components) {
        FollowedLog log = DebugLog(component);
        if (!log.chain.empty()) logs.push_back(log);
    }
    if (selection.system) {
        // syslog.dat, and syslog.<component>.dat of processes that set a component.
        for (const std::string& name : FolderFiles(folder, "syslog*.dat")) {
            const size_t n = name.size();
            const bool ofComponent = n > 11 && _strnicmp(name.c_str(), "syslog.", 7) == 0;
            logs.push_back(ArchivingLog(folder, name, ofComponent ? name.substr(7, n - 11) : "syslog", "syslog"));
        }
    }
    // The crash handler's events, whatever else is followed: a crash must reach the collector.
    logs.push_back(ArchivingLog(folder, kCrashEventsFile, "-", "event"));
    if (selection.apps) {
        for (const std::string& name : FolderFiles(folder, "*.log")) {
            std::string component;
            if (DebugLogComponent(name, component) || IsTimestampedArchive(name)) continue;
            logs.push_back(ArchivingLog(folder, name, name.substr(0, name.find_last_of('.')), "applog"));
        }
    }
    return logs;
}

}  // namespace kvdiag
