// kvdiag log: writes one debug-log line as a component, as a product process would.
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "KvLogging.h"
#include "command.h"
#include "logs/log_files.h"

KVDIAG_COMMAND(log, "log COMPONENT TEXT [-r COUNT]", "write TEXT (COUNT times) to COMPONENT's debug log") {
    if (argc != 2 && !(argc == 4 && !strcmp(argv[2], "-r"))) {
        fprintf(stderr, "usage: kvdiag log COMPONENT TEXT [-r COUNT]\n");
        return 2;
    }
    const int count = argc == 4 ? atoi(argv[3]) : 1;
    if (count < 1) {
        fprintf(stderr, "kvdiag: -r needs a positive count\n");
        return 2;
    }
    if (!kvdiag::UseProductIni()) return 1;
    SetComponentName(argv[0]);
    char path[260];
    if (GetDebugLogFilePath(-1, 1, path, sizeof path) < 0) {
        fprintf(stderr, "kvdiag: the log folder cannot be found or created\n");
        return 1;
    }
    for (int i = 0; i < count; ++i) DbgLogWrite("%s", argv[1]);
    printf("%d line%s written to %s\n", count, count == 1 ? "" : "s", path);
    return 0;
}
