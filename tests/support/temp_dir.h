// Private temporary folders and small file helpers for tests.
#pragma once

#include <string>
#include <vector>

namespace kvtest {

// A new empty folder under the temporary folder, removed with everything in it
// when the object goes away.
class TempDir {
public:
    explicit TempDir(const std::string& label = "kvtest");
    ~TempDir();
    TempDir(const TempDir&) = delete;
    TempDir& operator=(const TempDir&) = delete;

    const std::string& path() const { return path_; }
    std::string operator/(const std::string& relative) const;

private:
    std::string path_;
};

bool FileExists(const std::string& path);
bool DirectoryExists(const std::string& path);
// Whole file as bytes; empty when it cannot be read.
std::string ReadFileText(const std::string& path);
bool WriteFileText(const std::string& path, const std::string& text);
// Lines without their line ends (LF or CR LF).
std::vector<std::string> ReadLines(const std::string& path);
// Names (not paths) of the entries of a folder matching a pattern such as "debug*".
std::vector<std::string> ListFolder(const std::string& folder, const std::string& pattern = "*");
void RemoveTree(const std::string& path);
// The folder that holds the running test program (and the DLL and hosts).
std::string ProgramFolder();

}  // namespace kvtest
