// What the crash handler does, said on its console and in its own debug log
// (debug.CrashHandler.log in the log folder of the product INI file it was
// given with --ini, else of the installation's, "DefaultINIPath"). Clients
// never choose where the handler writes its own lines.
#pragma once

namespace kvdiag {

// Takes the handler's own product INI file (iniOption, or null for the
// installation's); without one usable, the handler speaks on its console only.
void UseOwnIni(const char* iniOption);

// One line, on the console and in the debug log.
void HandlerSay(const char* format, ...);

}  // namespace kvdiag
