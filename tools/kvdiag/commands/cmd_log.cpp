// kvdiag log: writes one debug-log line as a component, as a product process
// would, and says so only when the lines reached the file.
#include <windows.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <fstream>
#include <string>
#include <vector>

#include "KvLogging.h"
#include "command.h"
#include "common/console_text.h"
#include "commands/ini_status.h"
#include "commands/log_arguments.h"
#include "logs/log_files.h"
#include "platform/owned_handle.h"

namespace {

// Where a log file stood before the lines were written: its identity and size
// (an index of 0: there was none).
struct FileMark {
    unsigned long long index = 0;
    uint64_t size = 0;
    FILETIME written{};
};

FileMark MarkOf(const std::string& path) {
    FileMark mark;
    const kv::platform::FileHandle file(CreateFileA(path.c_str(), FILE_READ_ATTRIBUTES,
                                                    FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr,
                                                    OPEN_EXISTING, 0, nullptr));
    if (!file) return mark;
    BY_HANDLE_FILE_INFORMATION info;
    if (GetFileInformationByHandle(file.get(), &info)) {
        mark.index = (static_cast<unsigned long long>(info.nFileIndexHigh) << 32) | info.nFileIndexLow;
        mark.size = (static_cast<uint64_t>(info.nFileSizeHigh) << 32) | info.nFileSizeLow;
        mark.written = info.ftLastWriteTime;
    }
    return mark;
}

// File systems stamp a write with a clock that may lag the system time by a
// tick or more.
FILETIME SecondsAgo(int seconds) {
    FILETIME now;
    GetSystemTimeAsFileTime(&now);
    ULARGE_INTEGER t{{now.dwLowDateTime, now.dwHighDateTime}};
    t.QuadPart -= static_cast<ULONGLONG>(seconds) * 10000000ull;
    return FILETIME{t.LowPart, t.HighPart};
}

// What the log files hold of the lines written: how many, whether the last
// line of the log is one, and whether the library noted lines it could not write.
struct Arrival {
    int found = 0;
    bool lastKnown = false;  // the newest file with lines was read
    bool lastIsOurs = false;
    bool dropNoted = false;
};

// Counts the lines of a file from offset on whose message is text, or its
// start when the library cut a long line. Files come newest first.
// A numbered line's message without its " (n/COUNT)".
std::string Unnumbered(const std::string& message, int count) {
    const std::string end = "/" + std::to_string(count) + ")";
    const size_t open = message.rfind(" (");
    if (!count || open == std::string::npos || message.size() < end.size() ||
        message.compare(message.size() - end.size(), end.size(), end) != 0)
        return message;
    for (size_t i = open + 2; i < message.size() - end.size(); ++i)
        if (message[i] < '0' || message[i] > '9') return message;
    return message.substr(0, open);
}

void CountLines(const std::string& path, uint64_t offset, const std::string& text, int numbered, Arrival& arrival) {
    std::ifstream file(path, std::ios::binary);
    if (!file || !file.seekg(static_cast<std::streamoff>(offset))) return;
    bool any = false, ours = false;
    for (std::string line; std::getline(file, line); any = true) {
        if (!line.empty() && line.back() == '\r') line.pop_back();
        // "YYYY-MM-DD HH:MM:SS.mmm<tab>+HH:MM " before the message
        const size_t tab = line.find('\t');
        if (tab == std::string::npos || line.size() < tab + 8) continue;
        const std::string message = Unnumbered(line.substr(tab + 8), numbered);
        ours = message == text || (!message.empty() && message.size() < text.size() && line.size() >= 1000 &&
                                   text.compare(0, message.size(), message) == 0);
        arrival.found += ours;
        arrival.dropNoted = arrival.dropNoted || message.find(" debug log lines could not be written") != std::string::npos;
    }
    if (any && !arrival.lastKnown) {
        arrival.lastKnown = true;
        arrival.lastIsOurs = ours;
    }
}

// The library drops a line it cannot write without a word to its caller, and
// other processes may write to the same log meanwhile, so the lines are
// counted in the files: in the live log past where it stood, and, when it
// rolled meanwhile, in the history files written since (the file that was
// live past the same point).
Arrival LinesArrived(const std::vector<std::string>& chain, const FileMark& before, const std::string& text,
                     int numbered) {
    Arrival arrival;
    for (size_t i = 0; i < chain.size(); ++i) {  // the live log, then its history files newest first
        const FileMark now = MarkOf(chain[i]);
        if (!now.index) continue;
        if (now.index == before.index) CountLines(chain[i], before.size, text, numbered, arrival);
        else if (CompareFileTime(&now.written, &before.written) >= 0) CountLines(chain[i], 0, text, numbered, arrival);
    }
    return arrival;
}

// The message as the log holds it: the library reads a written line as a
// format once more, so "%%" arrives as "%".
std::string AsWritten(const std::string& text) {
    std::string out;
    for (size_t i = 0; i < text.size(); ++i) {
        out += text[i];
        if (text[i] == '%' && i + 1 < text.size() && text[i + 1] == '%') ++i;
    }
    return out;
}

}  // namespace

KVDIAG_COMMAND(log, "COMPONENT TEXT", "write TEXT (COUNT times) to COMPONENT's debug log",
               {"-r", "COUNT", "write the line COUNT times"},
               {"--numbered", nullptr, "with -r: end each line with \" (n/COUNT)\""}, kvdiag::kIniOption) {
    const char* ini = kvdiag::TakeIniOption(argc, argv);
    const bool numbered = argc == 5 && !strcmp(argv[4], "--numbered");
    if (argc != 2 && !(argc == 4 && !strcmp(argv[2], "-r")) && !(numbered && !strcmp(argv[2], "-r")))
        return kvdiag::UsageError();
    const int count = argc >= 4 ? atoi(argv[3]) : 1;
    if (count < 1) return kvdiag::UsageError("-r needs a positive count");
    if (!kvdiag::CheckComponentName(argv[0])) return 2;
    const kvdiag::IniStatus status = kvdiag::ValidateProductIni(ini);
    if (!status.valid) {
        kvdiag::ReportFailure(kvdiag::Failure::Printf("the product INI file is not usable: %s", status.reason.c_str()));
        return 1;
    }
    SetComponentName(argv[0]);
    char path[260];
    if (GetDebugLogFilePath(-1, 1, path, sizeof path) < 0) {
        kvdiag::ReportFailure(kvdiag::Failure("the log folder cannot be found or created"));
        return 1;
    }
    const std::vector<std::string> chain = kvdiag::DebugLogChain(argv[0]);
    FileMark before = MarkOf(path);
    if (!before.index) before.written = SecondsAgo(2);  // a log made now: every file written since counts
    for (int i = 0; i < count; ++i) {
        if (numbered) DbgLogWrite("%s (%d/%d)", argv[1], i + 1, count);
        else DbgLogWrite("%s", argv[1]);
    }
    const Arrival arrival =
        chain.empty() ? Arrival{} : LinesArrived(chain, before, AsWritten(argv[1]), numbered ? count : 0);
    // Fewer found is still all written when the log rolled its oldest ones
    // away: the last line is one of them and the library noted no loss.
    if (arrival.found < count && !(arrival.found > 0 && arrival.lastIsOurs && !arrival.dropNoted)) {
        kvdiag::ReportFailure(kvdiag::Failure::Printf("%s reach %s (held by another program, or the folder or file is read-only)",
                arrival.found ? (std::to_string(count - arrival.found) + " of the lines did not").c_str()
                              : count == 1 ? "the line did not" : "the lines did not",
                path));
        return 1;
    }
    printf("%d line%s written to %s", count, count == 1 ? "" : "s", path);
    if (arrival.found < count)
        printf(" (%d still in it and its history files, the older ones rolled past the last history file)", arrival.found);
    printf("\n");
    return 0;
}
