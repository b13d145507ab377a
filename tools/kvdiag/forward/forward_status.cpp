#include "forward/forward_status.h"

#include <stdio.h>
#include <stdlib.h>

#include "platform/file_replace.h"
#include "platform/owned_handle.h"
#include "platform/small_file.h"

namespace kvdiag {

namespace {

constexpr char kStatusFile[] = "\\forward.status";
constexpr size_t kMaxStatusBytes = 64 * 1024;  // a few lines per followed log

}  // namespace

bool WriteForwardStatus(const std::string& folder, const ForwardStatus& status) {
    SYSTEMTIME t;
    GetLocalTime(&t);
    char head[256];
    snprintf(head, sizeof head, "pid: %lu\nupdated: %04u-%02u-%02u %02u:%02u:%02u\n", GetCurrentProcessId(), t.wYear,
             t.wMonth, t.wDay, t.wHour, t.wMinute, t.wSecond);
    std::string text = head;
    text += "collector: " + status.collector + "\nstate: " + status.state + "\n";
    text += "sent: " + std::to_string(status.messages) + " lines in " + std::to_string(status.batches) + " batches\n";
    text += "gaps: " + std::to_string(status.gaps) + "\n";
    for (const std::string& log : status.logs) text += "follows: " + log + "\n";
    return kv::platform::ReplaceFileDurably(folder + kStatusFile, text) == 0;
}

bool ReadForwardStatus(const std::string& folder, std::string& text, DWORD& pid) {
    pid = 0;
    if (kv::platform::ReadSmallFile(folder + kStatusFile, kMaxStatusBytes, text)) return false;
    const size_t at = text.find("pid: ");
    if (at == 0 || (at != std::string::npos && text[at - 1] == '\n')) pid = strtoul(text.c_str() + at + 5, nullptr, 10);
    return true;
}

bool ForwarderRuns(DWORD pid) {
    const kv::platform::KernelHandle process(pid ? OpenProcess(SYNCHRONIZE, FALSE, pid) : nullptr);
    return process && WaitForSingleObject(process.get(), 0) == WAIT_TIMEOUT;
}

}  // namespace kvdiag
