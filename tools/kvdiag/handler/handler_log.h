// What the crash handler does, said on its console and in its own debug log
// (debug.CrashHandler.log in the product log folder of its first client).
#pragma once

namespace kvdiag {

// One line; lines said before a product INI file is known reach the debug log
// once it is (UseClientIni).
void HandlerSay(const char* format, ...);

// The first client's product INI file becomes the handler's own.
void UseClientIni(const char* iniPath);

}  // namespace kvdiag
