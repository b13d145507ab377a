#include "platform/command_line.h"

namespace kv {
namespace platform {

std::string QuoteArgument(const std::string& arg) {
    if (!arg.empty() && arg.find_first_of(" \t\"") == std::string::npos) return arg;
    std::string quoted = "\"";
    size_t backslashes = 0;
    for (char c : arg) {
        if (c == '\\') {
            ++backslashes;
            continue;
        }
        quoted.append(c == '"' ? 2 * backslashes + 1 : backslashes, '\\');  // a quote's backslashes doubled, plus its own
        backslashes = 0;
        quoted += c;
    }
    return quoted.append(2 * backslashes, '\\') + "\"";
}

}  // namespace platform
}  // namespace kv
