// Child-host scenarios of the utilities: the crash mail, which needs the
// stand-in MAPI32.DLL loaded ahead of Wine's own (an environment setting that
// only applies to a new process), and the registered tools.
#include <windows.h>
#include <stdio.h>
#include <string.h>

#include "KvDebugHelp.h"
#include "scenario.h"

namespace {

const char* Arg(const char* text) { return strcmp(text, "<null>") ? text : nullptr; }

}  // namespace

// Arguments in threes: recipient, note, attachment path ("<null>" for null).
// Prints one "result=N" line per mail.
KV_SCENARIO(util_crash_mail) {
    for (int i = 0; i + 2 < argc; i += 3)
        printf("result=%d\n", KvSendCrashHandlerMail(Arg(argv[i]), Arg(argv[i + 1]), Arg(argv[i + 2])));
    return 0;
}

// DbgHlpSendMail with its six arguments as given.
KV_SCENARIO(util_send_mail) {
    if (argc < 6) return 2;
    printf("result=%lu\n", DbgHlpSendMail(Arg(argv[0]), Arg(argv[1]), Arg(argv[2]), Arg(argv[3]), Arg(argv[4]),
                                          Arg(argv[5])));
    return 0;
}

// Arguments: product INI path, then tool names. Validates the INI file and
// starts each tool, printing "result=N" per tool.
KV_INI_SCENARIO(util_start_tools) {
    for (int i = 1; i < argc; ++i) printf("result=%d\n", StartRegisteredTool(argv[i]));
    return 0;
}
