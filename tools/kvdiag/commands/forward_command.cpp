#include "commands/forward_command.h"

#include <stdio.h>

#include "command.h"
#include "commands/ini_status.h"
#include "common/console_text.h"
#include "forward/cursor_store.h"
#include "forward/forward_status.h"
#include "forward/forwarder.h"

namespace kvdiag {
namespace {

// The status file, whether its forwarder still runs and the saved cursors.
// The file is shown as text read from the machine: a crafted one cannot
// steer the console.
int PrintForwardStatus(const std::string& folder) {
    std::string text;
    DWORD pid = 0;
    if (!ReadForwardStatus(folder, text, pid)) {
        printf("no forwarder has run with the state folder %s\n", ShownLine(folder).c_str());
        return kExitFailed;
    }
    for (size_t at = 0, end; at < text.size(); at = end + 1) {
        end = text.find('\n', at);
        if (end == std::string::npos) end = text.size();
        PrintLine(text.substr(at, end - at));
    }
    printf("running: %s\n", ForwarderRuns(pid) ? "yes" : "no");
    for (const SavedCursor& cursor : CursorStore(folder).LoadAll()) {
        std::string line = "cursor: " + cursor.logName;
        for (const LogFollower::Seen& seen : cursor.position) {
            char place[64];
            snprintf(place, sizeof place, " [file %llx at %llu]", static_cast<unsigned long long>(seen.identity.index),
                     static_cast<unsigned long long>(seen.consumed));
            line += place;
        }
        if (cursor.state == CursorState::Damaged) line += " damaged: " + cursor.problem;
        PrintLine(line);
    }
    return kExitOk;
}

}  // namespace

int RunForwardCommand(const std::vector<std::string>& args, HANDLE stopEvent) {
    ForwardOptions options;
    if (const Failure wrong = ParseForwardOptions(args, options)) return UsageError(wrong.text());
    if (options.status) return PrintForwardStatus(options.stateFolder);
    const IniStatus ini = ValidateProductIni(options.ini.empty() ? nullptr : options.ini.c_str());
    if (!ini.valid) return ReportFailure(Failure("the product INI file is not usable: " + ini.reason));
    // The forwarder's notes name logs and collectors from the plant's own settings.
    return RunForwarder(options, stopEvent, [](const std::string& text) { PrintLine(text, "kvdiag: ", stderr); });
}

}  // namespace kvdiag
