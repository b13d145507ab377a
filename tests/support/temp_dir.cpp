#include "temp_dir.h"

#include "text_checks.h"

#include <windows.h>

#include <atomic>
#include <fstream>
#include <iterator>

namespace kvtest {

TempDir::TempDir(const std::string& label) {
    static std::atomic<unsigned> counter{0};
    char base[MAX_PATH];
    GetTempPathA(MAX_PATH, base);
    do path_ = base + label + "_" + std::to_string(GetCurrentProcessId()) + "_" + std::to_string(counter++);
    while (!CreateDirectoryA(path_.c_str(), nullptr));  // a name left by an earlier run is skipped
}

TempDir::~TempDir() { RemoveTree(path_); }

std::string TempDir::operator/(const std::string& relative) const { return path_ + "\\" + relative; }

bool FileExists(const std::string& path) {
    const DWORD a = GetFileAttributesA(path.c_str());
    return a != INVALID_FILE_ATTRIBUTES && !(a & FILE_ATTRIBUTE_DIRECTORY);
}

bool DirectoryExists(const std::string& path) {
    const DWORD a = GetFileAttributesA(path.c_str());
    return a != INVALID_FILE_ATTRIBUTES && (a & FILE_ATTRIBUTE_DIRECTORY);
}

std::string ReadFileText(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

bool WriteFileText(const std::string& path, const std::string& text) {
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out << text;
    return bool(out);
}

std::vector<std::string> ReadLines(const std::string& path) { return SplitLines(ReadFileText(path)); }

std::vector<std::string> ListFolder(const std::string& folder, const std::string& pattern) {
    std::vector<std::string> names;
    WIN32_FIND_DATAA data;
    HANDLE h = FindFirstFileA((folder + "\\" + pattern).c_str(), &data);
    if (h == INVALID_HANDLE_VALUE) return names;
    do {
        const std::string name = data.cFileName;
        if (name != "." && name != "..") names.push_back(name);
    } while (FindNextFileA(h, &data));
    FindClose(h);
    return names;
}

void RemoveTree(const std::string& path) {
    for (const auto& name : ListFolder(path)) {
        const std::string child = path + "\\" + name;
        SetFileAttributesA(child.c_str(), FILE_ATTRIBUTE_NORMAL);
        if (DirectoryExists(child))
            RemoveTree(child);
        else
            DeleteFileA(child.c_str());
    }
    RemoveDirectoryA(path.c_str());
}

std::string ProgramFolder() {
    char path[MAX_PATH];
    GetModuleFileNameA(nullptr, path, MAX_PATH);
    std::string folder = path;
    return folder.substr(0, folder.find_last_of('\\'));
}

}  // namespace kvtest
