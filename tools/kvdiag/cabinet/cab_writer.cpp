#include "cabinet/cab_writer.h"

#include <fcntl.h>
#include <stdio.h>
#include <stdlib.h>

#include "platform/error_text.h"
#include "platform/owned_handle.h"

namespace kvdiag {

// A file FCI reads or writes: its handle and, for a source file, the size it
// had when it was added (a growing log is cut there).
struct CabWriter::Handle {
    kv::platform::FileHandle file;
    uint64_t limit;  // UINT64_MAX for FCI's own files
    uint64_t position;
};

namespace {

CabWriter* Writer(void* pv) { return static_cast<CabWriter*>(pv); }
CabWriter::Handle* AsHandle(INT_PTR hf) { return reinterpret_cast<CabWriter::Handle*>(hf); }

FNFCIALLOC(Allocate) { return malloc(cb); }
FNFCIFREE(Release) { free(memory); }

// FCI's own files: the cabinet and its temporary files.
FNFCIOPEN(OpenForFci) {
    (void)pmode;
    const DWORD access = (oflag & (_O_WRONLY | _O_RDWR)) ? GENERIC_READ | GENERIC_WRITE : GENERIC_READ;
    const DWORD disposition = (oflag & _O_CREAT) ? ((oflag & _O_EXCL) ? CREATE_NEW : CREATE_ALWAYS) : OPEN_EXISTING;
    const HANDLE h = CreateFileA(pszFile, access, FILE_SHARE_READ, nullptr, disposition, FILE_ATTRIBUTE_NORMAL, nullptr);
    if (h == INVALID_HANDLE_VALUE) {
        *err = int(GetLastError());
        Writer(pv)->RecordError(GetLastError());
        return -1;
    }
    return reinterpret_cast<INT_PTR>(new CabWriter::Handle{kv::platform::FileHandle(h), UINT64_MAX, 0});
}

FNFCIREAD(ReadForFci) {
    CabWriter::Handle* f = AsHandle(hf);
    const uint64_t left = f->limit - f->position;
    DWORD got = 0;
    if (!ReadFile(f->file.get(), memory, cb < left ? cb : UINT(left), &got, nullptr)) {
        *err = int(GetLastError());
        Writer(pv)->RecordError(GetLastError());
        return UINT(-1);
    }
    f->position += got;
    if (f->limit != UINT64_MAX) Writer(pv)->Status(got);
    return got;
}

FNFCIWRITE(WriteForFci) {
    CabWriter::Handle* f = AsHandle(hf);
    DWORD written = 0;
    if (!WriteFile(f->file.get(), memory, cb, &written, nullptr) || written != cb) {
        *err = int(GetLastError() ? GetLastError() : ERROR_DISK_FULL);
        Writer(pv)->RecordError(DWORD(*err));
        return UINT(-1);
    }
    f->position += written;
    return written;
}

FNFCICLOSE(CloseForFci) {
    (void)err;
    (void)pv;
    delete AsHandle(hf);
    return 0;
}

FNFCISEEK(SeekForFci) {
    CabWriter::Handle* f = AsHandle(hf);
    LARGE_INTEGER distance, at;
    distance.QuadPart = dist;
    const DWORD method = seektype == SEEK_SET ? FILE_BEGIN : seektype == SEEK_CUR ? FILE_CURRENT : FILE_END;
    if (!SetFilePointerEx(f->file.get(), distance, &at, method)) {
        *err = int(GetLastError());
        Writer(pv)->RecordError(GetLastError());
        return -1;
    }
    f->position = uint64_t(at.QuadPart);
    return __LONG32(at.QuadPart);
}

FNFCIDELETE(DeleteForFci) {
    (void)pv;
    if (DeleteFileA(pszFile)) return 0;
    *err = int(GetLastError());
    return -1;
}

FNFCIGETTEMPFILE(TempFileForFci) {
    (void)pv;
    char folder[MAX_PATH];
    char name[MAX_PATH];
    if (!GetTempPathA(sizeof folder, folder) || !GetTempFileNameA(folder, "kvc", 0, name)) return FALSE;
    DeleteFileA(name);  // FCI creates it itself, exclusively
    if (int(strlen(name)) >= cbTempName) return FALSE;
    strcpy(pszTempName, name);
    return TRUE;
}

FNFCIFILEPLACED(FilePlaced) {
    (void)pccab, (void)pszFile, (void)cbFile, (void)fContinuation, (void)pv;
    return 0;
}

// One cabinet only: the caller keeps the contents below its 2 GB limit.
FNFCIGETNEXTCABINET(NoNextCabinet) {
    (void)pccab, (void)cbPrevCab, (void)pv;
    return FALSE;
}

// Each compressed block: cb1 its packed size, cb2 the bytes it holds.
FNFCISTATUS(StatusForFci) {
    (void)cb2;
    if (typeStatus == statusFile) Writer(pv)->Packed(cb1);
    return 0;
}

// The source of FCIAddFile: already opened by Add, with its date and attributes.
FNFCIGETOPENINFO(OpenSource) {
    (void)pszName;
    CabWriter::Handle* f = Writer(pv)->TakePending();
    if (!f) {
        *err = ERROR_INVALID_HANDLE;
        return -1;
    }
    BY_HANDLE_FILE_INFORMATION info;
    FILETIME local;
    *pdate = *ptime = 0;
    *pattribs = 0;
    if (GetFileInformationByHandle(f->file.get(), &info)) {
        if (FileTimeToLocalFileTime(&info.ftLastWriteTime, &local)) FileTimeToDosDateTime(&local, pdate, ptime);
        *pattribs = USHORT(info.dwFileAttributes &
                           (FILE_ATTRIBUTE_READONLY | FILE_ATTRIBUTE_HIDDEN | FILE_ATTRIBUTE_SYSTEM | FILE_ATTRIBUTE_ARCHIVE));
    }
    return reinterpret_cast<INT_PTR>(f);
}

const char* FciErrorText(int code) {
    switch (code) {
        case FCIERR_OPEN_SRC: return "cannot open the file";
        case FCIERR_READ_SRC: return "cannot read the file";
        case FCIERR_ALLOC_FAIL: return "out of memory";
        case FCIERR_TEMP_FILE: return "cannot write a temporary file (disk full?)";
        case FCIERR_BAD_COMPR_TYPE: return "compression not supported";
        case FCIERR_CAB_FILE: return "cannot write the archive (disk full?)";
        case FCIERR_USER_ABORT: return "aborted";
        case FCIERR_MCI_FAIL: return "compression failed";
        default: return "failed";
    }
}

}  // namespace

CabWriter::CabWriter(const std::string& path) {
    char full[MAX_PATH];
    char* name = nullptr;
    const DWORD length = GetFullPathNameA(path.c_str(), sizeof full, full, &name);
    if (!length || length >= sizeof full || !name || size_t(name - full) >= sizeof cab_.szCabPath ||
        strlen(name) >= sizeof cab_.szCab) {
        failure_ = Failure("the archive name is not a usable file path");
        return;
    }
    strcpy(cab_.szCab, name);
    *name = '\0';
    strcpy(cab_.szCabPath, full);  // the folder, with its trailing backslash
    cab_.cb = CB_MAX_DISK;
    cab_.cbFolderThresh = CB_MAX_DISK;
    cab_.setID = 0x4b56;  // "KV"
    cab_.iCab = 1;
    context_ = FCICreate(&erf_, FilePlaced, Allocate, Release, OpenForFci, ReadForFci, WriteForFci, CloseForFci,
                         SeekForFci, DeleteForFci, TempFileForFci, &cab_, this);
    if (!context_) failure_ = Reason("cannot start the archive");
}

CabWriter::~CabWriter() {
    if (context_) FCIDestroy(context_);
    delete pending_;
}

CabWriter::Handle* CabWriter::TakePending() {
    Handle* f = pending_;
    pending_ = nullptr;
    return f;
}

void CabWriter::Status(ULONG bytesRead) {
    pendingDone_ += bytesRead;
    if (progress_) progress_(pendingDone_, pendingSize_);
}

Failure CabWriter::Reason(const char* action) const {
    const std::string text = std::string(action) + ": " + FciErrorText(erf_.erfOper);
    return lastWin32Error_ ? Failure(text, lastWin32Error_) : Failure(text);
}

Failure CabWriter::Add(const std::string& source, const std::string& nameInCab) {
    if (!context_) return failure_;
    kv::platform::FileHandle h(CreateFileA(source.c_str(), GENERIC_READ,
                                           FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr, OPEN_EXISTING,
                                           FILE_FLAG_SEQUENTIAL_SCAN, nullptr));
    if (!h) {
        const DWORD error = GetLastError();
        return Failure(error == ERROR_SHARING_VIOLATION ? "held by another program that shares it with nobody"
                                                        : "cannot be opened",
                       error);
    }
    LARGE_INTEGER size{};
    GetFileSizeEx(h.get(), &size);
    if (size.QuadPart >= LONGLONG(CB_MAX_DISK) / 2) return Failure("larger than an archive can hold");
    pending_ = new Handle{std::move(h), uint64_t(size.QuadPart), 0};
    pendingSize_ = uint64_t(size.QuadPart);
    pendingDone_ = 0;
    const uint64_t packedBefore = packed_;
    lastWin32Error_ = 0;
    std::string inCab = nameInCab;
    const bool added = FCIAddFile(context_, const_cast<char*>(source.c_str()), &inCab[0], FALSE, NoNextCabinet,
                                  StatusForFci, OpenSource, tcompTYPE_MSZIP) != FALSE;
    delete TakePending();  // set when FCI failed before it took the file
    lastPacked_ = packed_ - packedBefore;
    if (!added) return Reason("not added");
    raw_ += pendingSize_;
    return {};
}

Failure CabWriter::Finish() {
    if (!context_) return failure_;
    lastWin32Error_ = 0;
    const bool flushed = FCIFlushCabinet(context_, FALSE, NoNextCabinet, StatusForFci) != FALSE;
    if (!flushed) failure_ = Reason("the archive could not be written");
    FCIDestroy(context_);
    context_ = nullptr;
    return failure_;
}

}  // namespace kvdiag
