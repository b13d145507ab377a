// The stack lines the library writes to a debug log, read back: the 32-bit
// word lines of a guarded element's "Allocation stack trace:", the 64-bit
// address lines of a raw stack dump, and the "Stack modules:" line that says
// where the process had its images.
#pragma once

#include <stdint.h>

#include <string>
#include <vector>

namespace kvdiag {

struct LoggedModule {
    uint64_t base = 0;
    uint32_t size = 0;
    uint32_t timeDateStamp = 0;
    std::string pdbName;  // "-" when the image named none
};

// The message of a log line: what follows "date time.ms<TAB>+hh:mm ", or the
// whole line when it has no timestamp.
std::string MessageOf(const std::string& line);
// 1 to 4 words "0x%08x" (a zero word "00000000"), each followed by a blank.
bool ParseStackWords(const std::string& message, std::vector<uint32_t>& words);
// 1 to 4 addresses "0x" and 16 hex digits, each followed by a blank.
bool ParseStackAddresses(const std::string& message, std::vector<uint64_t>& addresses);
// "Stack modules: 0xBASE 0xSIZE STAMP NAME.pdb; ..."; false for any other line
// or a damaged entry.
bool ParseStackModules(const std::string& message, std::vector<LoggedModule>& modules);
// Word pairs, low word first, as the guarded allocator stores a 64-bit address.
std::vector<uint64_t> JoinWordPairs(const std::vector<uint32_t>& words);

}  // namespace kvdiag
