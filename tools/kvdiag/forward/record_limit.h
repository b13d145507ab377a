// Entries longer than the collector takes. A collector cuts a longer record
// at its limit (rsyslog: maxMessageSize, 8 KB by default) and reads the rest
// of the frame as further records without a header; so the forwarder splits
// such an entry itself into whole records, each with the entry's header and
// a part marker, that together hold all of its text.
#pragma once

#include <string>
#include <vector>

#include "forward/syslog_message.h"

namespace kvdiag {

constexpr size_t kDefaultMaxRecord = 8192;
constexpr size_t kSmallestMaxRecord = 1024;  // room for the longest header and some text

// The messages of one record, none longer than maxBytes as a collector counts
// it (a line feed as the four bytes of "#012"): its own message when
// that fits; otherwise parts whose text begins "[part K/N] ", cut after a
// line end where one lies in the second half of a part, else between two
// characters (the line end a part ends at is left out).
std::vector<std::string> LimitedMessages(const SyslogRecord& record, const std::string& hostName, size_t maxBytes);

}  // namespace kvdiag
