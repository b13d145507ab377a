// The crash handler's events: one line for every dump it writes (or fails
// to write) of a client, appended to "crash-events.dat" in that client's
// product log folder, where kvdiag forward picks it up like a log:
//
//   <log timestamp>\tCRASH\tpid=4242\texe=AlarmServer.exe\tcomponent=Alarm\tcode=0xc0000005
//       \tsignature=...\tdump=D:\Logs\user.Alarm.dmp\tsize=81920\tresult=written
//
// (one line; fields separated by tabs, which no path, name or signature
// holds). Past 1 MB the file becomes "crash-events.bak" (the forwarder
// follows it there).
#pragma once

#include <windows.h>

#include <string>

namespace kvdiag {

constexpr char kCrashEventsFile[] = "crash-events.dat";

struct CrashEvent {
    std::string kind;       // CRASH or HANG
    unsigned long pid = 0;
    std::string exe;        // the image's file name
    std::string component;  // "" when it set none
    std::string code;       // the exception code, "0xc0000005"; "" for a hang
    std::string signature;  // what tells this crash from others: code and innermost frames
    std::string dump;       // the dump file, "" when none was written
    unsigned long long size = 0;
    std::string result;     // written, skipped, failed (HRESULT 0x...)
};

// The event of a dump the handler wrote (result S_OK), skipped (S_FALSE) or
// could not write for a client: read from the dump and the client's process,
// then appended to the event file of the client's log folder (from the
// client's product INI file; the dump's folder when that names none).
void RecordDumpEvent(const char* kind, HANDLE process, unsigned long pid, const std::string& iniPath,
                     const std::string& component, const char* dumpPath, long result);

// Reads an event line's text (after its timestamp); false for anything else.
bool ParseCrashEvent(const std::string& text, CrashEvent& event);

}  // namespace kvdiag
