// The self-check record, its summary and the exports that add to it.
#include "selfcheck/check_record.h"

#include <stdarg.h>
#include <stdio.h>

#include <vector>

#include "KvSelfCheck.h"
#include "frame/process_state.h"

namespace kv {
namespace selfcheck {
namespace {

struct Row {
    std::string name;
    CheckResult result;
};

// Checks run on the caller's thread; a host may run them from several.
SRWLOCK recordLock = SRWLOCK_INIT;
std::vector<Row>* rows = nullptr;  // created on first use, never freed: safe after unload order games
volatile long errorCodes = 0;

const char* Label(Outcome outcome) {
    switch (outcome) {
        case Outcome::Pass: return "PASS";
        case Outcome::Fail: return "FAIL";
        case Outcome::Skip: return "SKIP";
        default: return "NOTE";
    }
}

}  // namespace

CheckResult Pass(const std::string& reason) { return {Outcome::Pass, reason, 0}; }
CheckResult Fail(const std::string& reason, DWORD error) { return {Outcome::Fail, reason, error}; }
CheckResult Skip(const std::string& reason) { return {Outcome::Skip, reason, 0}; }

void ClearRecord() {
    AcquireSRWLockExclusive(&recordLock);
    if (rows) rows->clear();
    ReleaseSRWLockExclusive(&recordLock);
}

void Record(const std::string& name, const CheckResult& result) {
    AcquireSRWLockExclusive(&recordLock);
    if (!rows) rows = new std::vector<Row>();
    rows->push_back({name, result});
    ReleaseSRWLockExclusive(&recordLock);
}

bool RunCheck(const char* name, CheckResult (*check)()) {
    CheckResult result;
    try {
        result = check();
    } catch (const std::exception& e) {
        result = Fail(std::string("exception: ") + e.what());
    }
    Record(name, result);
    return result.outcome != Outcome::Fail;
}

bool ErrorCodesOn() { return errorCodes != 0; }

int FailedCount() {
    int failed = 0;
    AcquireSRWLockShared(&recordLock);
    if (rows)
        for (const Row& row : *rows) failed += row.result.outcome == Outcome::Fail;
    ReleaseSRWLockShared(&recordLock);
    return failed;
}

std::string SummaryText() {
    SYSTEMTIME now;
    GetLocalTime(&now);
    char line[1024];
    snprintf(line, sizeof line, "KvDebugHelp self-check of %s (pid %lu) at %04d-%02d-%02d %02d:%02d:%02d\n", ExeName,
             GetCurrentProcessId(), now.wYear, now.wMonth, now.wDay, now.wHour, now.wMinute, now.wSecond);
    std::string text = line;
    int counts[4] = {};
    AcquireSRWLockShared(&recordLock);
    if (rows) {
        for (const Row& row : *rows) {
            ++counts[static_cast<int>(row.result.outcome)];
            text += Label(row.result.outcome);
            text += "  " + row.name;
            if (!row.name.empty() && !row.result.reason.empty()) text += " - ";
            text += row.result.reason;
            if (row.result.outcome == Outcome::Fail && row.result.error && ErrorCodesOn()) {
                snprintf(line, sizeof line, " (Win32 error %lu)", row.result.error);
                text += line;
            }
            text += "\n";
        }
    }
    ReleaseSRWLockShared(&recordLock);
    const int checks = counts[0] + counts[1] + counts[2];
    snprintf(line, sizeof line, "%d checks: %d passed, %d failed, %d skipped\n", checks, counts[0], counts[1],
             counts[2]);
    return text + line;
}

}  // namespace selfcheck
}  // namespace kv

using namespace kv::selfcheck;

extern "C" int PrintUnitTestSummary(void) {
    const std::string text = SummaryText();
    fputs(text.c_str(), stdout);
    fflush(stdout);
    return FailedCount();
}

extern "C" void Log(const char* format, ...) {
    if (!format) return;
    char note[512];
    va_list args;
    va_start(args, format);
    vsnprintf(note, sizeof note, format, args);
    va_end(args);
    Record("", {Outcome::Note, note, 0});
    printf("%s\n", note);
    fflush(stdout);
}

extern "C" int log_test(const char* name, int passed, const char* reason) {
    const DWORD error = passed ? 0 : GetLastError();
    Record(name ? name : "(unnamed)", {passed ? Outcome::Pass : Outcome::Fail, reason ? reason : "", error});
    return passed ? 1 : 0;
}

extern "C" int call_test(const char* name, KvSelfCheckFn check) {
    if (!check) return log_test(name, 0, "no check function");
    char reason[512] = "";
    SetLastError(0);
    const int passed = check(reason, sizeof reason);
    reason[sizeof reason - 1] = '\0';
    return log_test(name, passed, reason);
}

extern "C" int SetLog_ErrorCodes(int on) { return InterlockedExchange(&errorCodes, on ? 1 : 0) != 0; }
