// printf-style formatting into a std::string, cut at a screenful.
#pragma once

#include <stdarg.h>

#include <string>

namespace kvdiag {

// At most kFormattedBytes - 1 characters of the formatted text.
constexpr size_t kFormattedBytes = 1024;
std::string FormattedV(const char* format, va_list args);

}  // namespace kvdiag
