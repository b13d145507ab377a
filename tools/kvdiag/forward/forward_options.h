// The arguments of kvdiag forward, shared by the console command and the service.
#pragma once

#include <string>
#include <vector>

#include "forward/collector_url.h"
#include "forward/followed_logs.h"

namespace kvdiag {

constexpr char kForwardUsage[] =
    "forward --to URL [COMPONENT...|--all] [--system] [--apps] [--framing octet|lf] [--ca FILE] [--max-record SIZE] "
    "[--state FOLDER] [--for SECONDS] [--ini PATH]";

struct ForwardOptions {
    CollectorUrl url;
    Framing framing = Framing::OctetCounting;
    std::string caFile;
    LogSelection selection;
    std::string stateFolder;  // cursors and status
    std::string ini;          // empty: the product's own
    double seconds = 0;       // 0: until stopped
    size_t maxRecord = 8192;  // the longest message the collector takes (kDefaultMaxRecord)
    bool status = false;      // show the state of a forwarder instead
};

// A failure names the first wrong argument (a usage error).
Failure ParseForwardOptions(const std::vector<std::string>& args, ForwardOptions& options);

// %ProgramData%\KvDiag\forward: a place every account (the service's too) shares.
std::string DefaultStateFolder();

}  // namespace kvdiag
