// The text reports kvdiag collect puts beside the files it gathers: kvdiag's
// own commands run as child processes (so each starts as fresh as it would
// from a console) and the versions of the library and the machine.
#pragma once

#include <stdio.h>

#include <string>
#include <vector>

namespace kvdiag {

// A private folder under %TEMP%, removed with everything in it at the end.
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

// Runs "kvdiag ARGUMENTS" with stdout and stderr into outputPath; false with
// the reason when it could not be started or did not end in time.
bool RunSelf(const std::string& arguments, const std::string& outputPath, std::string& reason);

// The executables that have a per-executable settings key.
std::vector<std::string> ExecutablesWithSettings();

// Which KvDebugHelp.dll and kvdiag.exe run here, their versions, the machine.
bool WriteVersionReport(const std::string& path);
void PrintVersionReport(FILE* out);

// The folder of a loaded module (null: this program), without a trailing backslash.
std::string ModuleFolder(const char* module);

}  // namespace kvdiag
