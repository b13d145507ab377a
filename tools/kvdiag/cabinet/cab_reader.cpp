#include "cabinet/cab_reader.h"

#include <windows.h>
#include <fcntl.h>
#include <fdi.h>
#include <stdio.h>
#include <stdlib.h>

#include "common/path_parts.h"

namespace kvdiag {
namespace {

struct Extraction {
    std::string folder;
    const std::function<std::string(const std::string&)>* targetFor;
    std::vector<CabEntry>* entries;
};

FNALLOC(Allocate) { return malloc(cb); }
FNFREE(Release) { free(pv); }

FNOPEN(OpenFile) {
    (void)pmode;
    const bool write = oflag & (_O_WRONLY | _O_RDWR);
    const HANDLE h = CreateFileA(pszFile, write ? GENERIC_WRITE : GENERIC_READ, write ? 0 : FILE_SHARE_READ, nullptr,
                                 write ? CREATE_NEW : OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr);
    return h == INVALID_HANDLE_VALUE ? -1 : reinterpret_cast<INT_PTR>(h);
}

FNREAD(ReadFromFile) {
    DWORD got = 0;
    return ReadFile(reinterpret_cast<HANDLE>(hf), pv, cb, &got, nullptr) ? got : UINT(-1);
}

FNWRITE(WriteToFile) {
    DWORD written = 0;
    return WriteFile(reinterpret_cast<HANDLE>(hf), pv, cb, &written, nullptr) && written == cb ? written : UINT(-1);
}

// FDI holds each file as an INT_PTR from its open callback to this one: no owner can.
FNCLOSE(CloseFile) { return CloseHandle(reinterpret_cast<HANDLE>(hf)) ? 0 : -1; }

FNSEEK(SeekFile) {
    const DWORD method = seektype == SEEK_SET ? FILE_BEGIN : seektype == SEEK_CUR ? FILE_CURRENT : FILE_END;
    LARGE_INTEGER distance, at;
    distance.QuadPart = dist;
    return SetFilePointerEx(reinterpret_cast<HANDLE>(hf), distance, &at, method) ? long(at.QuadPart) : -1;
}

FNFDINOTIFY(Notify) {
    auto* x = static_cast<Extraction*>(pfdin->pv);
    switch (fdint) {
    case fdintCOPY_FILE: {
        const std::string name = pfdin->psz1 ? pfdin->psz1 : "";
        const std::string file = (*x->targetFor)(name);
        if (file.empty() || file == "." || file == ".." || file.find_first_of("\\/:") != std::string::npos)
            return 0;  // skipped
        const std::string target = x->folder + "\\" + file;
        const INT_PTR h = OpenFile(const_cast<char*>(target.c_str()), _O_WRONLY | _O_CREAT, 0);
        if (h == -1) return 0;  // a second file of that name: the first is kept, the rest is still read
        x->entries->push_back({name, target});
        return h;
    }
    case fdintCLOSE_FILE_INFO:
        CloseFile(pfdin->hf);
        return TRUE;
    case fdintNEXT_CABINET: return -1;  // kvdiag writes single cabinets
    default: return 0;
    }
}

}  // namespace

Failure ExtractCabinet(const std::string& cabinet, const std::string& folder,
                       const std::function<std::string(const std::string& nameInCab)>& targetFor,
                       std::vector<CabEntry>& entries) {
    ERF erf{};
    const HFDI fdi = FDICreate(Allocate, Release, OpenFile, ReadFromFile, WriteToFile, CloseFile, SeekFile, cpuUNKNOWN,
                               &erf);
    if (!fdi) return Failure("the cabinet API is not available");
    Extraction x{folder, &targetFor, &entries};
    std::string path = FolderOf(cabinet);
    path = path.empty() ? ".\\" : path + "\\";
    std::string name = FileNameOf(cabinet);
    const BOOL ok = FDICopy(fdi, &name[0], &path[0], 0, Notify, nullptr, &x);
    FDIDestroy(fdi);
    if (ok) return {};
    return Failure(erf.erfOper == FDIERROR_NOT_A_CABINET     ? "not a cabinet"
                   : erf.erfOper == FDIERROR_CORRUPT_CABINET ? "the cabinet is damaged"
                   : erf.erfOper == FDIERROR_TARGET_FILE     ? "a file could not be written to " + folder
                                                             : "the cabinet cannot be read (FDI error " +
                                                                   std::to_string(erf.erfOper) + ")");
}

}  // namespace kvdiag
