// Lines read from the field's files, shown on a console. A damaged or crafted
// log may hold control characters, which would move the cursor, clear the
// screen or change the console's colours and title; here they are shown as
// \xNN instead, and a line longer than a screenful is cut with its length said.
// Failures are printed here too, so that a file name or a value read from the
// plant inside one is cleaned the same way.
#pragma once

#include <stdio.h>

#include <string>

#include "common/failure.h"

namespace kvdiag {

// Longest part of one line that is printed; the rest is counted.
constexpr size_t kShownLineBytes = 8192;

// The line as it is printed: control characters (not the tab) as \xNN, cut
// after kShownLineBytes bytes of the original with " ... (N more bytes)".
std::string ShownLine(const char* text, size_t length);
inline std::string ShownLine(const std::string& text) { return ShownLine(text.data(), text.size()); }

// Prints prefix, the shown line and a line end to out.
void PrintLine(const std::string& line, const char* prefix = "", FILE* out = stdout);

// Prints "kvdiag: <failure>" to stderr, cleaned as ShownLine; returns 1
// (kExitFailed), so that a command can end with return ReportFailure(...).
int ReportFailure(const Failure& failure);

}  // namespace kvdiag
