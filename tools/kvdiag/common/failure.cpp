#include "common/failure.h"

#include <stdarg.h>
#include <stdio.h>

#include "platform/error_text.h"

namespace kvdiag {

Failure::Failure(std::string text, DWORD osError) : text_(std::move(text)), osError_(osError) {
    text_ += " (" + kv::platform::ErrorText(osError) + ")";
}

Failure Failure::Printf(const char* format, ...) {
    va_list args;
    va_start(args, format);
    va_list again;
    va_copy(again, args);
    const int length = vsnprintf(nullptr, 0, format, args);
    va_end(args);
    std::string text(length > 0 ? size_t(length) : 0, '\0');
    if (length > 0) vsnprintf(&text[0], text.size() + 1, format, again);
    va_end(again);
    return Failure(std::move(text));
}

Failure& Failure::Note(const std::string& note) {
    if (!note.empty() && !text_.empty()) text_ += "; " + note;
    return *this;
}

}  // namespace kvdiag
