#include "handler/handler_log.h"

#include <windows.h>
#include <stdarg.h>
#include <stdio.h>

#include <mutex>
#include <string>

#include "KvDebugHelp.h"
#include "commands/ini_status.h"
#include "common/console_text.h"
#include "common/text_format.h"

namespace kvdiag {
namespace {

std::mutex logLock;  // the handler's own threads only; no client ever waits on it
bool iniKnown = false;

}  // namespace

void UseOwnIni(const char* iniOption) {
    SetComponentName("CrashHandler");
    const IniStatus ini = ValidateProductIni(iniOption);
    iniKnown = ini.valid;
    if (!iniKnown)
        HandlerSay("no product INI file of its own (%s%s%s): this handler speaks on its console only",
                   ini.path.c_str(), ini.path.empty() ? "" : ": ", ini.reason.c_str());
}

void HandlerSay(const char* format, ...) {
    va_list args;
    va_start(args, format);
    // Lines quote what clients sent (names, paths): a line end or control
    // character in them is shown escaped, never written as such.
    const std::string text = ShownLine(FormattedV(format, args));
    va_end(args);
    std::lock_guard<std::mutex> hold(logLock);
    printf("%s\n", text.c_str());
    fflush(stdout);
    if (iniKnown) DbgLogWrite("Crash handler (pid %lu): %s", GetCurrentProcessId(), text.c_str());
}

}  // namespace kvdiag
