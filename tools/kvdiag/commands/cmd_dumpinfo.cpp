// kvdiag dumpinfo: what a minidump holds, with the faulting thread's call
// stack (every thread's for a hang or with --threads), its crash signature,
// the locks its threads wait for and what of the file is damaged. Module
// files are found by identity along a symbol path, so a dump is read as
// well on a support desk as on the plant.
#include <windows.h>
#include <stdio.h>
#include <string.h>

#include <string>

#include "command.h"
#include "common/console_text.h"
#include "common/progress.h"
#include "dump/dump_reader.h"
#include "dump/dump_summary.h"

KVDIAG_COMMAND(dumpinfo, "FILE", "what a minidump holds: exception, named stacks, signature, locks, modules, memory",
               {"--threads", nullptr, "every thread's stack, not only the faulting one's"},
               {"--symbols", "PATH",
                "where images and PDBs are looked for by identity: folders and srv*DIR stores separated by ';' "
                "(may be given more than once; default _NT_SYMBOL_PATH)"},
               {"--no-symbols", nullptr, "frames as module+offset, without reading PDBs (quick)"}) {
    const char* path = nullptr;
    std::string symbolPath;
    kvdiag::SummaryOptions options;
    bool wrongUse = false;
    for (int i = 0; i < argc; ++i) {
        if (strcmp(argv[i], "--symbols") == 0 && i + 1 < argc) symbolPath += std::string(";") + argv[++i];
        else if (strcmp(argv[i], "--no-symbols") == 0) options.walk.nameFrames = false;
        else if (strcmp(argv[i], "--threads") == 0) options.allThreads = true;
        else if (!path && argv[i][0] != '-') path = argv[i];
        else wrongUse = true;
    }
    if (!path || wrongUse) return kvdiag::UsageError();
    options.walk.symbols = kvdiag::SymbolPath::FromOptionOrEnvironment(symbolPath);
    kvdiag::Progress progress("dumpinfo");
    progress.Stage("mapping the dump");
    kvdiag::MappedDump dump(path);
    if (!dump.opened()) {
        return kvdiag::ReportFailure(kvdiag::Failure::FromLastError(std::string("cannot open ") + path));
    }
    progress.Stage("reading the dump");
    return kvdiag::PrintDumpSummary(dump, path, options, stdout);
}
