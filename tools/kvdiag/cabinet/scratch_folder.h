// A private folder under %TEMP% for the files kvdiag collect makes before
// they go into the archive; removed with everything in it at the end.
#pragma once

#include <string>

namespace kvdiag {

class ScratchFolder {
public:
    ScratchFolder();
    ~ScratchFolder();
    ScratchFolder(const ScratchFolder&) = delete;
    ScratchFolder& operator=(const ScratchFolder&) = delete;

    bool ok() const { return !path_.empty(); }
    std::string File(const std::string& name) const { return path_ + "\\" + name; }

private:
    std::string path_;
};

}  // namespace kvdiag
