// What a product process writes that a collector must read right: reports
// of many lines, the kinds of error lines, a line written in two parts.
#include <stdlib.h>

#include <string>

#include "KvDebugHelp.h"
#include "scenario.h"

// collector_view INI OP...: comp=NAME, line=TEXT, sys=TEXT, memreport=COUNT
// (a memory report listing COUNT allocations), kvexception, open=NAME (an
// application log), part=TEXT (written to it without a line end), end=TEXT
// (with one), sleep=MS.
KV_INI_SCENARIO(collector_view) {
    LogFile* appLog = nullptr;
    printf("pid=%lu\n", GetCurrentProcessId());
    for (int i = 1; i < argc; ++i) {
        const std::string op = argv[i], name = op.substr(0, op.find('=')), value = op.substr(op.find('=') + 1);
        if (name == "comp") SetComponentName(value.c_str());
        else if (name == "line") DbgLogWrite("%s", value.c_str());
        else if (name == "sys") DirectSyslogWrite("%s", value.c_str());
        else if (name == "memreport") {
            EnableCallStackAndAllocationInstrumentation(0, 2, const_cast<char*>(""), 0);
            for (int n = atoi(value.c_str()); n > 0; --n) osMemAlloc(16, 0);
            DbgMemHeapReport(0, 0xFFFFFFFFu, 0);
        } else if (name == "kvexception") KvExceptionCreateDummyException(0);
        else if (name == "open") appLog = OpenLog(value.c_str(), 1024, true);
        else if (name == "part") WriteLog(appLog, "%s", value.c_str());
        else if (name == "end") WriteLog(appLog, "%s\n", value.c_str());
        else if (name == "sleep") Sleep(DWORD(atoi(value.c_str())));
        else return printf("unknown operation %s\n", op.c_str()), 2;
    }
    if (appLog) CloseLog(appLog);
    return 0;
}
