// kvdiag symbols add: images and their PDBs into a symbol store that the
// platform's debuggers and kvdiag dumpinfo read through srv*DIR.
#include <windows.h>
#include <stdio.h>
#include <string.h>

#include <string>
#include <vector>

#include "command.h"
#include "common/console_text.h"
#include "common/path_parts.h"
#include "platform/error_text.h"
#include "platform/folder_tree.h"
#include "symbols/symbol_store.h"

KVDIAG_COMMAND(symbols, "add PATH... --store DIR",
               "adds executables, DLLs and their PDBs to a symbol store (srv*DIR) by identity",
               {"add", nullptr, "add files (an image takes the PDB it names from beside it) or every image and PDB "
                                "of a folder"},
               {"--store", "DIR", "the store, laid out as name\\<identity>\\name (created when missing)"}) {
    std::vector<std::string> paths;
    std::string store;
    bool wrongUse = argc < 1 || _stricmp(argv[0], "add") != 0;
    for (int i = 1; i < argc && !wrongUse; ++i) {
        if (!strcmp(argv[i], "--store") && i + 1 < argc && store.empty()) store = argv[++i];
        else if (argv[i][0] != '-') paths.push_back(argv[i]);
        else wrongUse = true;
    }
    if (wrongUse || paths.empty() || store.empty()) return kvdiag::UsageError();
    while (store.size() > 3 && (store.back() == '\\' || store.back() == '/')) store.pop_back();
    if (const DWORD error = kv::platform::CreateFolderTree(store)) {
        kvdiag::ReportFailure(kvdiag::Failure("cannot create the store " + store, error));
        return 1;
    }
    // PDBs named on the command line are offered to every image as well.
    std::vector<std::string> givenPdbs;
    for (const auto& p : paths)
        if (p.size() > 4 && _stricmp(p.c_str() + p.size() - 4, ".pdb") == 0) givenPdbs.push_back(p);
    printf("Adding to the symbol store %s\n", store.c_str());
    kvdiag::SymbolStore symbolStore(store, stdout);
    for (const auto& p : paths) symbolStore.Add(p, givenPdbs);
    const kvdiag::StoreTally& t = symbolStore.tally();
    printf("Store %s: %d stored, %d already present, %d image%s without a PDB, %d problem%s\n", store.c_str(), t.stored,
           t.present, t.noPdb, t.noPdb == 1 ? "" : "s", t.problems, t.problems == 1 ? "" : "s");
    printf("Debuggers read it with the symbol path srv*%s\n", store.c_str());
    return t.problems ? 1 : 0;
}
