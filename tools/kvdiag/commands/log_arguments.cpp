#include "commands/log_arguments.h"

#include <stdio.h>
#include <stdlib.h>

#include "KvLogging.h"
#include "command.h"
#include "common/console_text.h"

namespace kvdiag {

bool CheckComponentName(const std::string& name) {
    if (FileNameGenerator::IsComponentName(name)) return true;
    UsageError("\"" + ShownLine(name) + "\" is not a component name: it names files in the log folder, so it may "
               "not hold \\ / : * ? \" < > |, \"..\", control characters or a trailing dot or blank");
    return false;
}

bool TakeLineCount(std::vector<std::string>& args, int& count) {
    for (size_t i = 0; i < args.size(); ++i) {
        if (args[i] != "-n") continue;
        char* end = nullptr;
        if (i + 1 >= args.size() || (count = int(strtol(args[i + 1].c_str(), &end, 10)), *end) || count < 0) {
            kvdiag::ReportFailure(kvdiag::Failure("-n needs a line count"));  // the caller adds the usage
            return false;
        }
        args.erase(args.begin() + long(i), args.begin() + long(i) + 2);
        return true;
    }
    return true;
}

}  // namespace kvdiag
