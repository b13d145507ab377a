// Whether application logs archive under a time-stamped name ("SysLogArchive"
// in section "Debug" of the product INI file) instead of one .bak file.
#pragma once

namespace kv {
bool ArchiveWithTimestamp();
}
