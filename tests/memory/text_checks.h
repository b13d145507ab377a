// Text checks for logs and program output: the whole text is shown on failure.
#pragma once

#include <gtest/gtest.h>

#include <string>

#define EXPECT_HAS(text, what) EXPECT_NE(std::string::npos, std::string(text).find(what)) << (text)
#define EXPECT_LACKS(text, what) EXPECT_EQ(std::string::npos, std::string(text).find(what)) << (text)

inline size_t Count(const std::string& text, const std::string& what) {
    size_t n = 0;
    for (size_t at = text.find(what); at != std::string::npos; at = text.find(what, at + 1)) ++n;
    return n;
}

// The rest of the line that starts at the first occurrence of what ("" when absent).
inline std::string LineFrom(const std::string& text, const std::string& what) {
    const size_t at = text.find(what);
    return at == std::string::npos ? std::string() : text.substr(at, text.find_first_of("\r\n", at) - at);
}
