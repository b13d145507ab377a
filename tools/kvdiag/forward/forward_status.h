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

bool WriteForwardStatus(const std::string& folder, const ForwardStatus& status);
// Prints the status file, whether its forwarder still runs and the saved cursors; 1 when there is none.
int PrintForwardStatus(const std::string& folder);

}  // namespace kvdiag
