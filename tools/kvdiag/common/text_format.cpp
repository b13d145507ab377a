#include "common/text_format.h"

#include <stdio.h>

namespace kvdiag {

std::string FormattedV(const char* format, va_list args) {
    char text[kFormattedBytes];
    const int length = vsnprintf(text, sizeof text, format, args);
    if (length < 0) return std::string();
    return std::string(text, size_t(length) < sizeof text ? size_t(length) : sizeof text - 1);
}

}  // namespace kvdiag
