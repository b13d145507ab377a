#include "common/console_text.h"

namespace kvdiag {

std::string ShownLine(const char* text, size_t length) {
    const size_t shown = length < kShownLineBytes ? length : kShownLineBytes;
    std::string out;
    out.reserve(shown + 32);
    for (size_t i = 0; i < shown; ++i) {
        const unsigned char c = static_cast<unsigned char>(text[i]);
        if ((c < 0x20 && c != '\t') || c == 0x7F) {
            char escaped[8];
            snprintf(escaped, sizeof escaped, "\\x%02X", c);
            out += escaped;
        } else {
            out += static_cast<char>(c);
        }
    }
    if (shown < length) out += " ... (" + std::to_string(length - shown) + " more bytes)";
    return out;
}

void PrintLine(const std::string& line, const char* prefix, FILE* out) {
    const std::string shown = ShownLine(line);
    fprintf(out, "%s%s\n", prefix, shown.c_str());
}

int ReportFailure(const Failure& failure) {
    PrintLine(failure.text(), "kvdiag: ", stderr);
    return 1;
}

}  // namespace kvdiag
