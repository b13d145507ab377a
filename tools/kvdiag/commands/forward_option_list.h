// The options of a forwarder, which kvdiag forward and kvdiag service install forward take.
#pragma once

#include <vector>

#include "command.h"

namespace kvdiag {

inline const std::vector<Option>& ForwardOptionList() {
    static const std::vector<Option> options = {
        {"--to", "URL", "the collector: tcp://HOST[:PORT], udp://HOST[:PORT] or tls://HOST[:PORT] (514, TLS 6514)"},
        {"--all", nullptr, "every debug log of the log folder (instead of naming COMPONENTs)"},
        {"--system", nullptr, "the system log files too"},
        {"--apps", nullptr, "the application logs too"},
        {"--framing", "octet|lf", "over TCP and TLS: octet counting (default) or a line feed after each message"},
        {"--ca", "FILE", "with tls://: trust the collector's certificate chain to this CA certificate"},
        {"--max-record", "SIZE", "the longest record the collector takes (default 8k); a longer entry goes in parts"},
        {"--state", "FOLDER", "where the cursors and the status are kept (default %ProgramData%\\KvDiag\\forward)"},
        {"--for", "SECONDS", "end after SECONDS (default: until stopped)"},
        kIniOption,
    };
    return options;
}

}  // namespace kvdiag
