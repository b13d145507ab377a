// kvdiag mail RECIPIENT FILE: hands a crash report with FILE attached to the
// user's MAPI mail client, as a product program does after a crash.
#include <windows.h>
#include <stdio.h>

#include <string>

#include "KvDebugHelp.h"
#include "command.h"
#include "common/console_text.h"

KVDIAG_COMMAND(mail, "RECIPIENT FILE [NOTE]",
               "hand a crash report with FILE attached to the mail client (RECIPIENT \"\": the support mailbox)") {
    if (argc < 2 || argc > 3) return kvdiag::UsageError();
    // A mail client may take a missing attachment and send the mail without
    // it; support would then get a report without the file it is about.
    const DWORD attributes = GetFileAttributesA(argv[1]);
    if (attributes == INVALID_FILE_ATTRIBUTES || (attributes & FILE_ATTRIBUTE_DIRECTORY)) {
        kvdiag::ReportFailure(kvdiag::Failure::Printf("%s %s; no mail sent", argv[1],
                attributes == INVALID_FILE_ATTRIBUTES ? "does not exist" : "is a folder, not a file"));
        return 1;
    }
    char computer[MAX_COMPUTERNAME_LENGTH + 1] = {};
    DWORD size = sizeof computer;
    GetComputerNameA(computer, &size);
    const std::string note =
        argc == 3 ? std::string(argv[2]) : std::string("Crash report sent with kvdiag from ") + computer + ".";
    const int result = KvSendCrashHandlerMail(argv[0], note.c_str(), argv[1]);
    switch (result) {
    case 0: printf("The mail client accepted the crash report.\n"); return 0;
    case 2: kvdiag::ReportFailure(kvdiag::Failure("no mail: MAPI is switched off or no mail client is installed (MAPI error 2)")); return 1;
    default: kvdiag::ReportFailure(kvdiag::Failure::Printf("the mail client answered MAPI error %d", result)); return 1;
    }
}
