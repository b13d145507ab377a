// kvdiag dumpinfo: what a minidump holds, with the faulting thread's call
// stack (every thread's for a hang or with --threads) and what of the file is
// damaged.
#include <windows.h>
#include <stdio.h>
#include <string.h>

#include <string>
#include <vector>

#include "command.h"
#include "dump/dump_reader.h"
#include "dump/dump_summary.h"
#include "common/progress.h"

KVDIAG_COMMAND(dumpinfo, "FILE", "what a minidump holds: exception, faulting stack (every thread's), modules, memory",
               {"--threads", nullptr, "every thread's stack, not only the faulting one's"},
               {"--symbols", "DIR", "look for PDBs and module images in DIR too (may be given more than once)"},
               {"--no-symbols", nullptr, "frames as module+offset, without reading PDBs (quick)"}) {
    const char* path = nullptr;
    std::vector<std::string> symbolFolders;
    bool wrongUse = false, nameFrames = true, allThreads = false;
    for (int i = 0; i < argc; ++i) {
        if (strcmp(argv[i], "--symbols") == 0 && i + 1 < argc) symbolFolders.push_back(argv[++i]);
        else if (strcmp(argv[i], "--no-symbols") == 0) nameFrames = false;
        else if (strcmp(argv[i], "--threads") == 0) allThreads = true;
        else if (!path && argv[i][0] != '-') path = argv[i];
        else wrongUse = true;
    }
    if (!path || wrongUse) return kvdiag::UsageError();
    kvdiag::Progress progress("dumpinfo");
    progress.Stage("mapping the dump");
    kvdiag::MappedDump dump(path);
    if (!dump.opened()) {
        fprintf(stderr, "cannot open %s (error %lu)\n", path, GetLastError());
        return 1;
    }
    progress.Stage("reading the dump");
    return kvdiag::PrintDumpSummary(dump, path, symbolFolders, nameFrames, allThreads, stdout);
}
