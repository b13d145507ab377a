// Application logs: a named file in the log folder, written with printf-style
// calls and archived when it grows past its size.
#include <windows.h>
#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <time.h>

#include "KvLogging.h"
#include "KvMemory.h"
#include "logging/app_log.h"
#include "logging/log_folder.h"
#include "logging/shared_stream.h"
#include "logging/syslog_archive.h"

namespace {

FILE* OpenLiveFile(const char* path, bool denyWrite) {
    FILE* stream = kv::OpenSharedStream(path, denyWrite);
    if (stream) fseek(stream, 0, SEEK_END);  // so ftell gives the size before the first write
    return stream;
}

// path with its name and extension replaced: name + suffix + extension.
void ArchivePath(const char* path, bool withTimestamp, char (&archive)[MAX_PATH]) {
    char drive[_MAX_DRIVE], folder[_MAX_DIR], name[_MAX_FNAME], extension[_MAX_EXT];
    _splitpath(path, drive, folder, name, extension);
    if (withTimestamp) {
        char stamp[32];
        const time_t now = time(nullptr);
        strftime(stamp, sizeof stamp, "_%y%m%d_%H%M%S ", localtime(&now));
        snprintf(archive, sizeof archive, "%s%s%s%s%s", drive, folder, name, stamp, extension);
    } else {
        snprintf(archive, sizeof archive, "%s%s%s.bak", drive, folder, name);
    }
}

void Archive(LogFile* log) {
    fclose(log->stream);
    log->stream = nullptr;
    char archive[MAX_PATH];
    const bool withTimestamp = kv::ArchiveWithTimestamp();
    ArchivePath(log->path, withTimestamp, archive);
    if (!withTimestamp) DeleteFileA(archive);
    MoveFileA(log->path, archive);
    log->stream = OpenLiveFile(log->path, true);
}

}  // namespace

namespace kv {
LogFile* volatile ApplicationSyslog = nullptr;
}

extern "C" {

LogFile* OpenLog(const char* fileName, uint32_t sizeKb, bool keepOpen) {
    if (!fileName) return nullptr;
    LogFile* log = static_cast<LogFile*>(osMemAlloc(sizeof(LogFile), 1));
    if (!log) return nullptr;
    memset(log, 0, sizeof *log);
    std::string folder;
    kv::ResolveLogFolder(1, folder);  // a failed lookup leaves the folder empty
    if (snprintf(log->path, sizeof log->path, "%s\\%s", folder.c_str(), fileName) >= int(sizeof log->path)) {
        osMemFree(log);
        return nullptr;
    }
    log->maxSize = sizeKb * 1024;
    log->keepOpen = keepOpen;
    log->stream = OpenLiveFile(log->path, false);
    if (!log->stream) {
        osMemFree(log);
        return nullptr;
    }
    InitializeCriticalSection(&log->lock);
    return log;
}

void WriteLog(LogFile* log, const char* format, ...) {
    if (!log || !log->stream || !format) return;
    EnterCriticalSection(&log->lock);
    if (log->stream) {
        char text[10240];
        va_list args;
        va_start(args, format);
        vsnprintf(text, sizeof text, format, args);
        va_end(args);
        fputs(text, log->stream);
        if (log->keepOpen) {
            fflush(log->stream);
        } else {
            // Readable by others between writes, write-locked while open.
            fclose(log->stream);
            log->stream = OpenLiveFile(log->path, true);
        }
        // 64-bit on both sides: a limit of 2 GiB or more is no negative long.
        if (log->stream && _ftelli64(log->stream) > static_cast<long long>(log->maxSize)) Archive(log);
    }
    LeaveCriticalSection(&log->lock);
}

void CloseLog(LogFile* log) {
    if (log && log == kv::ApplicationSyslog) kv::ApplicationSyslog = nullptr;
    if (!log) return;
    if (log->stream) fclose(log->stream);
    DeleteCriticalSection(&log->lock);
    osMemFree(log);
}

void SetSyslogSize(LogFile* log, uint32_t sizeKb) { log->maxSize = sizeKb * 1024; }

}  // extern "C"
