// What a log entry tells the collector beyond its text: how severe it is,
// which process wrote it, and for a crash event the crash itself.
//
// Structured data: every record names its file in [kvlog@32473 file="..."];
// a crash or hang event adds [kvcrash@32473 pid exe component code signature
// dump size result]. 32473 is the private enterprise number IANA reserves
// for documentation (RFC 5612): a placeholder until the product registers
// its own, and to be changed in one place (kEnterpriseNumber).
#pragma once

#include "forward/entry_assembler.h"
#include "forward/syslog_message.h"

namespace kvdiag {

constexpr char kEnterpriseNumber[] = "32473";

// Severity from the entry's first line: critical for "## EXCEPTION ##" (a
// process crashed), error for "Memory error", "An error has been detected"
// and KvException lines and dumps, informational otherwise. PROCID from a
// "pid=N", "PID N" or "(pid N)" in the entry; "-" where none is.
SyslogRecord RecordOf(const LogIdentity& log, const LogEntry& entry);

}  // namespace kvdiag
