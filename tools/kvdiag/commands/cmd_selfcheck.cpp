// kvdiag selfcheck: the library's built-in checks on this machine.
#include <stdio.h>
#include <string.h>

#include "KvDebugHelp.h"
#include "command.h"
#include "common/console_text.h"
#include "commands/ini_status.h"
#include "commands/scratch_install.h"

KVDIAG_COMMAND(selfcheck, "", "run the library's self-check; prints how many checks failed, exit 1 when any did",
               kvdiag::kIniOption, {"--file", "NAME", "also write the summary to the file NAME"}) {
    const char* ini = kvdiag::TakeIniOption(argc, argv);
    const char* file = nullptr;
    for (int i = 0; i < argc; ++i) {
        if (!strcmp(argv[i], "--file") && i + 1 < argc) {
            file = argv[++i];
        } else {
            return kvdiag::UsageError();
        }
    }
    SetLog_ErrorCodes(1);
    const kvdiag::IniStatus status = kvdiag::ValidateProductIni(ini);
    // The checks write error reports on purpose: into a scratch copy of the
    // installation, so the plant's logs hold only the plant's lines.
    if (status.valid && !kvdiag::UseScratchInstall(status.path, "selfcheck").empty()) {
        RunKvDebugHelpTestsAfterStartup();
    } else {
        RunKvDebugHelpTests();
        Log("product checks not run: %s", status.reason.empty() ? "no product INI file" : status.reason.c_str());
    }
    PrintCurrentPath();
    const int failed = PrintUnitTestSummary();
    if (file) {
        const unsigned error = PrintUnitTestSummaryToFile(file);
        if (error) kvdiag::ReportFailure(kvdiag::Failure(std::string("summary file ") + file + " not written", error));
        else printf("Summary written to %s%s\n", strpbrk(file, "\\/:") ? "" : "the log folder as ", file);
    }
    // The count is in the summary; the exit code keeps the meaning it has in
    // every command (a count of 2 must not read as a usage error).
    return failed ? 1 : 0;
}
