#include "logging/syslog_archive.h"

#include "KvConfig.h"

namespace kv {
bool ArchiveWithTimestamp() { return KorvanIniReadValueAsBool("Debug", "SysLogArchive", 0) != 0; }
}  // namespace kv
