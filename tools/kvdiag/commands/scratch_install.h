// A private copy of the product INI file in a new folder under the temporary
// folder, with a log folder of its own. Commands that crash, dump or log on
// purpose work there, so the plant's INI file, dumps and logs stay as they
// were even when kvdiag is killed half way. The folder is kept afterwards:
// it holds what the test produced. Only the newest few of one command are
// kept (a heavy crash test leaves a full dump of hundreds of MB): older ones
// go when a new one is made, unless the kvdiag that made them still runs.
#pragma once

#include <string>

#include "common/failure.h"

namespace kvdiag {

class ScratchInstall {
public:
    // Copies liveIni into %TEMP%\kvdiag-<label>-<time>-<pid>\ and points its
    // [KVEDIT] LOGS there; failure() says what failed.
    ScratchInstall(const std::string& liveIni, const char* label);

    bool ok() const { return !failure_; }
    const Failure& failure() const { return failure_; }
    const std::string& root() const { return root_; }
    std::string iniPath() const { return root_ + "\\product.ini"; }
    std::string logDir() const { return root_ + "\\Logs"; }
    // Writes a value into the copy; false when it could not be written.
    bool Set(const char* section, const char* key, const char* value) const;

private:
    std::string root_;
    Failure failure_;
};

// The scratch installations of label that kvdiag made in the temporary
// folder, beyond the newest keep, whose maker no longer runs, are removed;
// returns how many.
size_t RemoveOldScratchInstalls(const char* label, size_t keep);

// Sets up a scratch installation from the product INI file and makes it this
// process's installation (the library's INI file and log folder); prints
// where it is, or why it could not be made. Returns its INI path, empty on failure.
std::string UseScratchInstall(const std::string& liveIni, const char* label, const char* valueSection = nullptr,
                              const char* valueKey = nullptr, const char* value = nullptr);

}  // namespace kvdiag
