// The self-check record: one row per check or note, kept for the process.
#pragma once

#include <windows.h>

#include <string>

namespace kv {
namespace selfcheck {

enum class Outcome { Pass, Fail, Skip, Note };

// What one built-in check found. error is the Win32 error of a failure (0 when
// none applies); it is shown only with error codes on.
struct CheckResult {
    Outcome outcome = Outcome::Pass;
    std::string reason;
    DWORD error = 0;
};

CheckResult Pass(const std::string& reason);
CheckResult Fail(const std::string& reason, DWORD error = 0);
CheckResult Skip(const std::string& reason);

void ClearRecord();
void Record(const std::string& name, const CheckResult& result);
// Runs a built-in check and records it; returns true when it did not fail.
bool RunCheck(const char* name, CheckResult (*check)());
bool ErrorCodesOn();
int FailedCount();
// The whole summary text, lines ended by "\n".
std::string SummaryText();

}  // namespace selfcheck
}  // namespace kv
