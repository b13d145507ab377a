// Why kvdiag could not do what it was asked. Every engine says it the same
// way: it returns a Failure, empty when all went well, holding the words said
// to the user and, when the operating system refused, its error, spelled once
// (kv::platform::ErrorText) at the end: "cannot read X (error 5: Access is
// denied)". The front ends print it in one place (ReportFailure, console_text.h).
#pragma once

#include <windows.h>

#include <string>

namespace kvdiag {

class Failure {
public:
    Failure() = default;  // nothing failed
    explicit Failure(std::string text) : text_(std::move(text)) {}
    // text, then the system's words for osError in parentheses.
    Failure(std::string text, DWORD osError);
    // text with GetLastError()'s words.
    static Failure FromLastError(std::string text) { return Failure(std::move(text), GetLastError()); }
    // The text made with a printf format.
    static Failure Printf(const char* format, ...) __attribute__((format(printf, 1, 2)));

    // True when something failed: if (Failure failure = Step()) return failure;
    explicit operator bool() const { return !text_.empty(); }
    const std::string& text() const { return text_; }
    DWORD osError() const { return osError_; }  // 0 when the failure was not the system's

    // Adds "; note" (nothing when note is empty): advice after the system's words.
    Failure& Note(const std::string& note);

private:
    std::string text_;
    DWORD osError_ = 0;
};

}  // namespace kvdiag
