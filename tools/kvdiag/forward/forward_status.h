// What a running forwarder tells kvdiag forward --status: a small text file
// in its state folder, rewritten whole now and then.
#pragma once

#include <windows.h>

#include <string>
#include <vector>

namespace kvdiag {

struct ForwardStatus {
    std::string collector;
    std::string state;  // connected, unreachable (with the reason), stopped
    unsigned long long messages = 0;
    unsigned long long batches = 0;
    unsigned long long gaps = 0;  // logs that rolled past their history unread
    std::vector<std::string> logs;
};

// Replaces the status file of the state folder, durably (a reader sees the old one or the new).
bool WriteForwardStatus(const std::string& folder, const ForwardStatus& status);
// The status file's text and the process id of the forwarder that wrote it;
// false when no forwarder has written one there.
bool ReadForwardStatus(const std::string& folder, std::string& text, DWORD& pid);
// Whether the process of that id still runs.
bool ForwarderRuns(DWORD pid);

}  // namespace kvdiag
