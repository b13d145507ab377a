// kvdiag tail: the last lines of debug logs and their history files; with -f
// it follows them as they grow and roll, several logs merged by time.
#include <windows.h>
#include <limits.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <atomic>
#include <string>
#include <vector>

#include "KvLogging.h"
#include "command.h"
#include "common/console_text.h"
#include "commands/ini_status.h"
#include "commands/log_arguments.h"
#include "logs/log_files.h"
#include "logs/log_follower.h"
#include "logs/log_merge.h"
#include "logs/product_paths.h"

namespace {

constexpr DWORD kPollMs = 50;

struct TailOptions {
    std::vector<std::string> components;
    bool all = false;
    bool follow = false;
    int count = 10;
    double seconds = 0;  // 0: until Ctrl+C
    long long maxLines = 0;  // 0: no limit
};

bool ParseOptions(std::vector<std::string> args, TailOptions& options) {
    if (!kvdiag::TakeLineCount(args, options.count)) return false;
    for (size_t i = 0; i < args.size(); ++i) {
        const std::string& a = args[i];
        const bool hasValue = i + 1 < args.size();
        char* end = nullptr;
        if (a == "-f") {
            options.follow = true;
        } else if (a == "--all") {
            options.all = true;
        } else if (a == "--for" && hasValue) {
            options.seconds = strtod(args[++i].c_str(), &end);
            if (*end || options.seconds <= 0) return false;
        } else if (a == "--count" && hasValue) {
            options.maxLines = strtoll(args[++i].c_str(), &end, 10);
            if (*end || options.maxLines <= 0) return false;
        } else if (a.empty() || a[0] == '-') {
            return false;
        } else {
            // A log named by its file ("debug.Pump.log", as a directory listing shows it) means its component.
            std::string component = a;
            kvdiag::DebugLogComponent(a, component);
            options.components.push_back(component);
        }
    }
    if (options.all && !options.components.empty()) return false;
    // No log named: every log of the folder ("debug.log" names the one without a component).
    if (options.components.empty()) options.all = true;
    return true;
}

bool HasHistory(const std::vector<std::string>& chain) {
    for (size_t i = 1; i < chain.size(); ++i)
        if (GetFileAttributesA(chain[i].c_str()) != INVALID_FILE_ATTRIBUTES) return true;
    return false;
}

void PrintHistory(const std::vector<std::string>& chain) {
    printf("== history files\n");
    int found = 0;
    for (size_t i = 1; i < chain.size(); ++i) {
        WIN32_FILE_ATTRIBUTE_DATA data;
        if (!GetFileAttributesExA(chain[i].c_str(), GetFileExInfoStandard, &data)) continue;
        printf("  %-40s %10llu bytes\n", chain[i].c_str(),
               (static_cast<unsigned long long>(data.nFileSizeHigh) << 32) | data.nFileSizeLow);
        ++found;
    }
    if (!found) printf("  (none)\n");
}

std::atomic<bool> stopRequested{false};

BOOL WINAPI OnConsoleControl(DWORD event) {
    if (event != CTRL_C_EVENT && event != CTRL_BREAK_EVENT && event != CTRL_CLOSE_EVENT) return FALSE;
    stopRequested = true;
    return TRUE;
}

class Tail {
public:
    explicit Tail(const TailOptions& options) : options_(options) {}

    bool Add(const std::string& component) {
        for (const auto& f : followers_)
            if (f.component == component) return true;
        std::vector<std::string> chain = kvdiag::DebugLogChain(component);
        if (chain.empty()) return false;
        followers_.push_back({component, kvdiag::LogFollower(std::move(chain))});
        return true;
    }

    // The last lines of each log, merged.
    void Start() {
        kvdiag::LineMerge merge(followers_.size());
        for (size_t i = 0; i < followers_.size(); ++i) merge.Add(i, followers_[i].follower.Start(options_.count));
        Print(merge, false);
    }

    // Follows until Ctrl+C, --for or --count.
    void Follow() {
        if (followers_.size() == 1) {
            printf("== following %s; Ctrl+C ends\n", followers_[0].follower.livePath().c_str());
        } else {
            std::string folder;
            kvdiag::LogFolder(folder);
            printf("== following %zu logs in %s; Ctrl+C ends\n", followers_.size(), folder.c_str());
        }
        fflush(stdout);
        const ULONGLONG started = GetTickCount64();
        ULONGLONG lastFolderScan = started;
        while (!stopRequested && (options_.maxLines == 0 || printed_ < options_.maxLines)) {
            if (options_.seconds > 0 && double(GetTickCount64() - started) >= options_.seconds * 1000) break;
            const size_t known = followers_.size();
            if (options_.all && GetTickCount64() - lastFolderScan >= 1000) {
                for (const auto& component : kvdiag::DebugLogComponents()) Add(component);
                lastFolderScan = GetTickCount64();
            }
            kvdiag::LineMerge merge(followers_.size());
            for (size_t i = 0; i < followers_.size(); ++i) {
                bool gap = false;
                // A log that appeared while following is new: all of it is shown.
                merge.Add(i, i < known ? followers_[i].follower.Poll(gap) : followers_[i].follower.Start(INT_MAX));
                if (gap)
                    kvdiag::PrintLine(followers_[i].follower.livePath() +
                                          " rolled past its history files between two reads; lines may be missing",
                                      "kvdiag: ", stderr);
            }
            if (!Print(merge, true)) Sleep(kPollMs);
        }
    }

private:
    struct Followed {
        std::string component;
        kvdiag::LogFollower follower;
    };

    // Prints merged lines, each prefixed by its component when there are
    // several logs; counted ones stop at --count. Returns whether any came.
    bool Print(kvdiag::LineMerge& merge, bool counted) {
        const bool prefixed = options_.all || followers_.size() > 1;
        bool any = false;
        size_t source;
        std::string line;
        while ((!counted || options_.maxLines == 0 || printed_ < options_.maxLines) && merge.Next(source, line)) {
            if (prefixed) {
                const std::string& c = followers_[source].component;
                printf("%s | ", c.empty() ? "(none)" : kvdiag::ShownLine(c).c_str());
            }
            kvdiag::PrintLine(line);
            any = true;
            printed_ += counted;
        }
        fflush(stdout);
        return any;
    }

    TailOptions options_;
    std::vector<Followed> followers_;
    long long printed_ = 0;
};

}  // namespace

KVDIAG_COMMAND(tail, "[COMPONENT...|--all]", "last lines of debug logs (every log without COMPONENT; debug.log names the one without a "
               "component) and their history files; -f follows them across rolls",
               {"--all", nullptr, "every debug log in the log folder"}, kvdiag::kLineCountOption,
               {"-f", nullptr, "follow the logs as they grow and roll, merged by time (Ctrl+C ends)"},
               {"--for", "SECONDS", "with -f: end after SECONDS"},
               {"--count", "LINES", "with -f: end after LINES new lines"}, kvdiag::kIniOption) {
    const char* ini = kvdiag::TakeIniOption(argc, argv);
    TailOptions options;
    if (!ParseOptions(std::vector<std::string>(argv, argv + argc), options)) return kvdiag::UsageError();
    const kvdiag::IniStatus status = kvdiag::ValidateProductIni(ini);
    if (!status.valid) {
        kvdiag::ReportFailure(kvdiag::Failure::Printf("the product INI file is not usable: %s", status.reason.c_str()));
        return 1;
    }
    Tail tail(options);
    if (options.all) options.components = kvdiag::DebugLogComponents();
    if (options.all && options.components.empty() && !options.follow) {
        std::string folder;
        if (!kvdiag::LogFolder(folder)) {
            kvdiag::ReportFailure(kvdiag::Failure("the product INI file names no log folder"));
            return 1;
        }
        kvdiag::ReportFailure(kvdiag::Failure::Printf("no debug log in %s (no program has logged yet)", folder.c_str()));
        return 1;
    }
    for (const auto& component : options.components) {
        if (!kvdiag::CheckComponentName(component)) return 2;
        if (tail.Add(component)) continue;
        kvdiag::ReportFailure(kvdiag::Failure("the product INI file names no log folder"));
        return 1;
    }
    if (!options.follow) {
        int rc = 0;
        for (const auto& component : options.components) {
            const std::vector<std::string> chain = kvdiag::DebugLogChain(component);
            std::vector<std::string> lines;
            const kvdiag::Failure failure = kvdiag::LastLines(chain[0], options.count, lines);
            const DWORD error = failure.osError();
            const bool absent = error == ERROR_FILE_NOT_FOUND || error == ERROR_PATH_NOT_FOUND;  // no folder yet
            if (failure && absent && !HasHistory(chain)) {
                kvdiag::ReportFailure(kvdiag::Failure::Printf("no debug log %s: %s does not exist",
                        component.empty() ? "without a component" : ("of component \"" + component + "\"").c_str(),
                        chain[0].c_str()));
                rc = 1;
                continue;
            }
            if (failure && !absent) {
                kvdiag::ReportFailure(failure);
                rc = 1;
                continue;
            }
            if (&component != &options.components.front()) printf("\n");
            printf("== %s\n", chain[0].c_str());
            for (const auto& line : lines) kvdiag::PrintLine(line);
            PrintHistory(chain);
        }
        return rc;
    }
    SetConsoleCtrlHandler(OnConsoleControl, TRUE);
    tail.Start();
    tail.Follow();
    return 0;
}
