// CDirFunctions: renaming, deleting, copying, moving and appending files, and
// deleting whole folder trees.
#include <windows.h>
#include <mbstring.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <string>

#include "KvUtil.h"
#include "platform/folder_listing.h"
#include "util/dir_helpers.h"

using kv::Guarded;

int CDirFunctions::ChangeFileName(const char* from, const char* to) {
    return Guarded([&] {
        if (!FileExist(from)) return 0;
        char* name = nullptr;
        const int named = ExtractFileName(to, name);
        free(name);
        return named && MoveFileA(from, to) ? 1 : 0;
    });
}

int CDirFunctions::KillFileName(const char* name, int relative) {
    return Guarded([&] {
        if (!name) return 0;
        if (relative) {
            // No existence test: DeleteFileA simply fails.
            if (!kv::CopyPath(workPath, moduleDir) || !kv::AppendPath(workPath, name)) return 0;
            return DeleteFileA(workPath) ? 1 : 0;
        }
        return FileExist(name) && DeleteFileA(name) ? 1 : 0;
    });
}

int CDirFunctions::KillDir(const char* dir) {
    return Guarded([&] {
        if (!dir || !*dir) return 0;
        // A file is nothing to do. A missing path counts as a folder (see
        // IsDirectory), so its removal below fails: intended.
        if (!IsDirectory(dir)) return 1;
        // A junction or directory link is removed as the link it is: what it
        // points to is not this folder's to delete.
        const DWORD attributes = GetFileAttributesA(dir);
        if (attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_REPARSE_POINT))
            return RemoveDirectoryA(dir) ? 1 : 0;
        const std::string base = kv::EndsInBackslash(dir) ? std::string(dir) : std::string(dir) + "\\";
        const std::string pattern = base + "*.*";
        // The members' find data is used by FileExist below: this walk keeps its own.
        int result = 1;
        if (base.size() + 3 < MAX_PATH) {
            kv::platform::VisitFolder(base, "*.*", [&](const WIN32_FIND_DATAA& entry) {
                const std::string child = base + entry.cFileName;
                if ((entry.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) &&
                    (entry.dwFileAttributes & FILE_ATTRIBUTE_REPARSE_POINT)) {
                    RemoveDirectoryA(child.c_str());  // the link only; a failure shows in the removal below
                } else if (entry.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) {
                    if (!KillDir(child.c_str())) return bool(result = 0);
                } else {
                    SetFileAttrib(child.c_str(), FA_NORMAL);  // clears read-only and hidden
                    KillFileName(child.c_str(), 0);           // a failure shows in the removal below
                }
                return true;
            });
        }
        return RemoveDirectoryA(dir) && result ? 1 : 0;
    });
}

int CDirFunctions::CopyTarget(const char* src, const char* dst, std::string& target) {
    if (!dst || !FileExist(src)) return 0;
    char full[MAX_PATH];
    char* filePart = nullptr;
    const DWORD len = GetFullPathNameA(dst, MAX_PATH, full, &filePart);
    if (len == 0 || len >= MAX_PATH) return 0;
    // A name with a three-letter extension is the target itself; anything
    // else names the folder to copy into.
    if (filePart && HasExtension(filePart)) {
        target = dst;
        return 1;
    }
    char* name = nullptr;
    const int named = ExtractFileName(src, name);
    if (named) target = std::string(full) + (kv::EndsInBackslash(full) ? "" : "\\") + name;
    free(name);
    return named && target.size() < MAX_PATH ? 1 : 0;
}

int CDirFunctions::CopyFileName(const char* src, const char* dst, int overwrite) {
    return Guarded([&] {
        std::string target;
        if (!CopyTarget(src, dst, target)) return 0;
        return CopyFileA(src, target.c_str(), !overwrite) ? 1 : 0;
    });
}

int CDirFunctions::MoveFileName(const char* src, const char* dstDir) {
    return Guarded([&] {
        if (!dstDir || !FileExist(src)) return 0;
        char fullSrc[MAX_PATH], fullDst[MAX_PATH];
        DWORD len = GetFullPathNameA(src, MAX_PATH, fullSrc, nullptr);
        if (len == 0 || len >= MAX_PATH) return 0;
        len = GetFullPathNameA(dstDir, MAX_PATH, fullDst, nullptr);
        if (len == 0 || len >= MAX_PATH) return 0;
        char srcDrive[_MAX_DRIVE], srcFolder[_MAX_DIR], name[_MAX_FNAME], ext[_MAX_EXT];
        char dstDrive[_MAX_DRIVE], dstFolder[_MAX_DIR];
        _splitpath(fullSrc, srcDrive, srcFolder, name, ext);
        // The last component of dstDir is dropped unless it ends in a backslash.
        _splitpath(fullDst, dstDrive, dstFolder, nullptr, nullptr);
        const bool sameDrive = _stricmp(srcDrive, dstDrive) == 0;
        if (!sameDrive && _mbscmp(reinterpret_cast<unsigned char*>(srcFolder),
                                  reinterpret_cast<unsigned char*>(dstFolder)) != 0)
            return 0;
        const std::string target = std::string(dstDrive) + dstFolder + name + ext;
        if (target.size() >= MAX_PATH || FileExist(target.c_str())) return 0;
        return MoveFileA(src, target.c_str()) ? 1 : 0;
    });
}

int CDirFunctions::AppendFileName(const char* src, const char* dst) {
    return Guarded([&] {
        std::string target;
        if (!CopyTarget(src, dst, target)) return 0;
        FILE* in = fopen(src, "r");
        if (!in) return 0;
        FILE* out = fopen(target.c_str(), "a+");
        if (!out) {
            fclose(in);
            return 0;
        }
        char line[MAX_PATH];
        while (!feof(in) && fgets(line, sizeof line, in)) fputs(line, out);
        fclose(in);
        fclose(out);
        return 1;
    });
}

int CDirFunctions::WriteToFileName(const char* path, const char* text) {
    if (!path || !text) return 0;
    FILE* out = fopen(path, "a+");
    if (!out) return 0;
    fprintf(out, "%s", text);
    fflush(out);
    fclose(out);
    return 1;
}
