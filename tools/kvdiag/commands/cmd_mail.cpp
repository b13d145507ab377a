// kvdiag mail RECIPIENT FILE: hands a crash report with FILE attached to the
// user's MAPI mail client, as a product program does after a crash.
#include <windows.h>
#include <stdio.h>

#include <string>

#include "KvDebugHelp.h"
#include "command.h"

KVDIAG_COMMAND(mail, "RECIPIENT FILE [NOTE]",
               "hand a crash report with FILE attached to the mail client (RECIPIENT \"\": the support mailbox)") {
    if (argc < 2 || argc > 3) return kvdiag::UsageError();
    if (GetFileAttributesA(argv[1]) == INVALID_FILE_ATTRIBUTES)
        printf("Note: %s does not exist; the mail client may refuse the attachment.\n", argv[1]);
    char computer[MAX_COMPUTERNAME_LENGTH + 1] = {};
    DWORD size = sizeof computer;
    GetComputerNameA(computer, &size);
    const std::string note =
        argc == 3 ? std::string(argv[2]) : std::string("Crash report sent with kvdiag from ") + computer + ".";
    const int result = KvSendCrashHandlerMail(argv[0], note.c_str(), argv[1]);
    switch (result) {
    case 0: printf("The mail client accepted the crash report.\n"); return 0;
    case 2: printf("No mail: MAPI is switched off or no mail client is installed (MAPI error 2).\n"); return 1;
    default: printf("The mail client answered MAPI error %d.\n", result); return 1;
    }
}
