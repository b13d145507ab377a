#include "handler/handler_log.h"

#include <windows.h>
#include <stdarg.h>
#include <stdio.h>

#include <mutex>
#include <string>
#include <vector>

#include "KvDebugHelp.h"
#include "common/text_format.h"

namespace kvdiag {
namespace {

std::mutex logLock;  // the handler's own threads only; no client ever waits on it
bool iniKnown = false;
std::vector<std::string> early;

}  // namespace

void HandlerSay(const char* format, ...) {
    va_list args;
    va_start(args, format);
    const std::string text = FormattedV(format, args);
    va_end(args);
    std::lock_guard<std::mutex> hold(logLock);
    printf("%s\n", text.c_str());
    fflush(stdout);
    if (iniKnown) DbgLogWrite("Crash handler (pid %lu): %s", GetCurrentProcessId(), text.c_str());
    else early.push_back(text);
}

void UseClientIni(const char* iniPath) {
    std::lock_guard<std::mutex> hold(logLock);
    if (iniKnown) return;
    SetComponentName("CrashHandler");
    SetKorvanIniFilePath(iniPath);
    if (ValidateKorvanIniFileEx(1) != 1) return;
    iniKnown = true;
    for (const auto& line : early) DbgLogWrite("Crash handler (pid %lu): %s", GetCurrentProcessId(), line.c_str());
    early.clear();
}

}  // namespace kvdiag
