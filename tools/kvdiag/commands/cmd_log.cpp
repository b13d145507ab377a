// kvdiag log: writes one debug-log line as a component, as a product process
// would, and says so only when the lines reached the file.
#include <windows.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <string>
#include <vector>

#include "KvLogging.h"
#include "command.h"
#include "commands/ini_status.h"
#include "logs/log_files.h"

namespace {

uint64_t SizeOf(const char* path) {
    WIN32_FILE_ATTRIBUTE_DATA data;
    if (!GetFileAttributesExA(path, GetFileExInfoStandard, &data)) return 0;
    return (static_cast<uint64_t>(data.nFileSizeHigh) << 32) | data.nFileSizeLow;
}

// The library drops a line it cannot write without a word, so the file is
// asked: it grew by the lines, or (when it rolled meanwhile) the live log or
// its first history file ends with the text.
bool LinesArrived(const char* live, uint64_t before, int count, const char* text) {
    const size_t shortest = strlen(text) < 512 ? strlen(text) + 1 : 512;  // a long line is cut to the line size
    if (SizeOf(live) >= before + uint64_t(count) * shortest) return true;
    char history[MAX_PATH];
    const bool rolled = GetDebugLogFilePath(1, 1, history, sizeof history) >= 0;
    for (const char* path : {live, rolled ? history : live}) {
        std::vector<std::string> last;
        unsigned long error = 0;
        if (!kvdiag::LastLines(path, 1, last, error) || last.empty()) continue;
        const std::string& line = last.back();
        if (line.size() >= strlen(text) && line.compare(line.size() - strlen(text), std::string::npos, text) == 0)
            return true;
    }
    return false;
}

}  // namespace

KVDIAG_COMMAND(log, "log COMPONENT TEXT [-r COUNT] [--ini PATH]", "write TEXT (COUNT times) to COMPONENT's debug log") {
    const char* ini = kvdiag::TakeIniOption(argc, argv);
    if (argc != 2 && !(argc == 4 && !strcmp(argv[2], "-r"))) {
        fprintf(stderr, "usage: kvdiag log COMPONENT TEXT [-r COUNT] [--ini PATH]\n");
        return 2;
    }
    const int count = argc == 4 ? atoi(argv[3]) : 1;
    if (count < 1) {
        fprintf(stderr, "kvdiag: -r needs a positive count\n");
        return 2;
    }
    if (!kvdiag::CheckComponentName(argv[0])) return 2;
    const kvdiag::IniStatus status = kvdiag::ValidateProductIni(ini);
    if (!status.valid) {
        fprintf(stderr, "kvdiag: the product INI file is not usable: %s\n", status.reason.c_str());
        return 1;
    }
    SetComponentName(argv[0]);
    char path[260];
    if (GetDebugLogFilePath(-1, 1, path, sizeof path) < 0) {
        fprintf(stderr, "kvdiag: the log folder cannot be found or created\n");
        return 1;
    }
    const uint64_t before = SizeOf(path);
    for (int i = 0; i < count; ++i) DbgLogWrite("%s", argv[1]);
    if (!LinesArrived(path, before, count, argv[1])) {
        fprintf(stderr, "kvdiag: the line%s did not reach %s (held by another program, or the folder or file is "
                "read-only)\n", count == 1 ? "" : "s", path);
        return 1;
    }
    printf("%d line%s written to %s\n", count, count == 1 ? "" : "s", path);
    return 0;
}
