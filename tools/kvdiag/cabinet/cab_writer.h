// A cabinet file written with the cabinet API every Windows has (cabinet.dll,
// FCI), so Explorer and expand open it on the support side. Files are read
// with full sharing, as they stand when added: a log another process is
// writing is neither locked nor read past the size it had then.
#pragma once

#include <windows.h>
#include <fci.h>
#include <stdint.h>

#include <functional>
#include <string>

#include "common/failure.h"

namespace kvdiag {

class CabWriter {
public:
    // Starts the cabinet at path; it is written (or replaced) by Finish.
    explicit CabWriter(const std::string& path);
    ~CabWriter();
    CabWriter(const CabWriter&) = delete;
    CabWriter& operator=(const CabWriter&) = delete;

    bool ok() const { return context_ != nullptr; }
    // Why the archive could not be started, or (after Finish) written.
    const Failure& failure() const { return failure_; }
    // Called while a file is compressed: bytes of it read so far, its size.
    void OnProgress(std::function<void(uint64_t, uint64_t)> progress) { progress_ = std::move(progress); }

    // Adds source under nameInCab (a relative path with backslashes); when
    // that fails the archive keeps what it had.
    Failure Add(const std::string& source, const std::string& nameInCab);
    // The bytes the last file added went in with.
    uint64_t lastSize() const { return pendingSize_; }
    // The compressed bytes its blocks took so far (the block that holds its
    // end may be packed with the next file); all files' bytes before packing.
    uint64_t lastPacked() const { return lastPacked_; }
    uint64_t rawBytes() const { return raw_; }
    // Writes the cabinet out, or says why it could not be.
    Failure Finish();

    // Callback plumbing for FCI (public for the C callbacks only).
    struct Handle;
    Handle* TakePending();
    void Status(ULONG bytesRead);
    void RecordError(DWORD error) { lastWin32Error_ = error; }
    void Packed(ULONG bytes) { packed_ += bytes; }

private:
    Failure Reason(const char* action) const;

    HFCI context_ = nullptr;
    ERF erf_{};
    CCAB cab_{};
    Failure failure_;
    Handle* pending_ = nullptr;  // the source of the file being added
    uint64_t pendingSize_ = 0, pendingDone_ = 0;
    uint64_t packed_ = 0, lastPacked_ = 0, raw_ = 0;
    DWORD lastWin32Error_ = 0;
    std::function<void(uint64_t, uint64_t)> progress_;
};

}  // namespace kvdiag
