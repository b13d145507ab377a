#include "handler/crash_events.h"

#include "handler/client_checks.h"

#include <stdio.h>
#include <string.h>

#include <algorithm>
#include <mutex>
#include <vector>

#include "KvLogging.h"
#include "dump/dump_reader.h"
#include "handler/client_checks.h"
#include "handler/handler_log.h"
#include "platform/file_replace.h"
#include "platform/owned_handle.h"

namespace kvdiag {
namespace {

using kv::platform::FileHandle;
using kv::platform::KernelHandle;

constexpr unsigned long long kArchiveBytes = 1024 * 1024;
constexpr size_t kSignatureFrames = 3;

std::mutex fileLock;  // the handler's own threads; processes append atomically

std::string FileNameOf(const std::string& path) { return path.substr(path.find_last_of("\\/") + 1); }

// Tabs and line ends separate fields and events: none may be in a value.
std::string Field(const std::string& text) {
    std::string clean = text;
    for (char& c : clean)
        if (static_cast<unsigned char>(c) < 32) c = ' ';
    return clean;
}

// What "kvdiag dumpinfo" tells of the dump. Another process of its own: it
// names frames through the symbol handler, which the dump writer uses on
// other threads of this one; and a damaged dump cannot harm the handler.
std::vector<std::string> DumpinfoLines(const std::string& dumpPath) {
    constexpr DWORD kDumpinfoMs = 10000;
    std::vector<std::string> lines;
    char self[MAX_PATH], folder[MAX_PATH], name[MAX_PATH];
    const DWORD n = GetTempPathA(sizeof folder, folder);
    if (!GetModuleFileNameA(nullptr, self, sizeof self) || n == 0 || n >= sizeof folder ||
        !GetTempFileNameA(folder, "kvd", 0, name))
        return lines;
    SECURITY_ATTRIBUTES inherit{sizeof inherit, nullptr, TRUE};
    const FileHandle out(CreateFileA(name, GENERIC_READ | GENERIC_WRITE,
                                     FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, &inherit, CREATE_ALWAYS,
                                     FILE_ATTRIBUTE_TEMPORARY | FILE_FLAG_DELETE_ON_CLOSE, nullptr));
    if (!out) {
        DeleteFileA(name);
        return lines;
    }
    std::string command = "\"" + std::string(self) + "\" dumpinfo \"" + dumpPath + "\"";
    STARTUPINFOA startup{};
    startup.cb = sizeof startup;
    startup.dwFlags = STARTF_USESTDHANDLES;
    startup.hStdOutput = startup.hStdError = out.get();
    PROCESS_INFORMATION child{};
    if (CreateProcessA(nullptr, &command[0], nullptr, nullptr, TRUE, CREATE_NO_WINDOW, nullptr, nullptr, &startup,
                       &child)) {
        const KernelHandle process(child.hProcess), thread(child.hThread);
        if (WaitForSingleObject(process.get(), kDumpinfoMs) != WAIT_OBJECT_0) TerminateProcess(process.get(), 1);
        std::string text;
        char chunk[4096];
        DWORD got = 0;
        SetFilePointer(out.get(), 0, nullptr, FILE_BEGIN);
        while (text.size() < (1u << 20) && ReadFile(out.get(), chunk, sizeof chunk, &got, nullptr) && got)
            text.append(chunk, got);
        for (size_t at = 0; at < text.size();) {
            const size_t end = std::min(text.find('\n', at), text.size());
            lines.push_back(text.substr(at, end - at - (end > at && text[end - 1] == '\r')));
            at = end + 1;
        }
    }
    return lines;
}

std::string After(const std::string& line, const char* prefix) {
    const size_t n = strlen(prefix);
    if (line.compare(0, n, prefix) != 0) return {};
    const size_t from = line.find_first_not_of(' ', n);
    return from == std::string::npos ? std::string() : line.substr(from);
}

// The exception code (from the dump itself) and the signature: dumpinfo's
// own "Signature:" where it gives one, otherwise the code and the innermost
// frames of the first stack it shows.
void ReadDump(const std::string& dumpPath, CrashEvent& event) {
    WIN32_FILE_ATTRIBUTE_DATA data;
    if (GetFileAttributesExA(dumpPath.c_str(), GetFileExInfoStandard, &data))
        event.size = (static_cast<unsigned long long>(data.nFileSizeHigh) << 32) | data.nFileSizeLow;
    {
        const MappedDump dump(dumpPath.c_str());
        const auto* e = dump.opened() ? dump.Stream<MINIDUMP_EXCEPTION_STREAM>(ExceptionStream) : nullptr;
        char code[16];
        snprintf(code, sizeof code, "0x%08lx", e ? static_cast<unsigned long>(e->ExceptionRecord.ExceptionCode) : 0ul);
        if (e) event.code = code;
    }
    std::string signature, frames;
    size_t frameCount = 0;
    for (const std::string& line : DumpinfoLines(dumpPath)) {
        if (signature.empty()) signature = After(line, "Signature:");
        const std::string frame = After(line, "  #");
        if (!frame.empty() && frameCount < kSignatureFrames) {
            const size_t at = frame.find(' ');
            const std::string where = at == std::string::npos ? frame : After(frame.substr(at), " ");
            frames += (frameCount++ ? " < " : "") + where.substr(0, where.find(" ("));  // without its source line
        }
    }
    event.signature = !signature.empty() ? signature : event.code.empty() ? frames : event.code + " " + frames;
    while (!event.signature.empty() && event.signature.back() == ' ') event.signature.pop_back();
}

// The client's product log folder ("LOGS" of "KVEDIT") when it passes the
// handler's own checks (a local, existing folder, not a link), else the
// folder the handler wrote the dump into; nothing else a client names.
std::string EventFolder(const std::string& iniPath, const std::string& dumpPath) {
    std::string folder;
    if (!iniPath.empty() && !ClientLogFolder(iniPath, folder)) return folder;
    const size_t slash = dumpPath.find_last_of('\\');
    return slash == std::string::npos ? std::string() : dumpPath.substr(0, slash);
}

std::string EventLine(const CrashEvent& e) {
    char stamp[64] = "";
    uint32_t length = sizeof stamp;
    GetDateTimeString(stamp, &length);
    return std::string(stamp) + "\t" + e.kind + "\tpid=" + std::to_string(e.pid) + "\texe=" + Field(e.exe) +
           "\tcomponent=" + Field(e.component) + "\tcode=" + e.code + "\tsignature=" + Field(e.signature) +
           "\tdump=" + Field(e.dump) + "\tsize=" + std::to_string(e.size) + "\tresult=" + e.result + "\r\n";
}

// One append, in one write: a reader never sees half an event, and handlers
// of other sessions appending at the same time do not mix theirs in.
bool Append(const std::string& folder, const std::string& line) {
    const std::string path = folder + "\\" + kCrashEventsFile;
    std::lock_guard<std::mutex> hold(fileLock);
    WIN32_FILE_ATTRIBUTE_DATA data;
    if (GetFileAttributesExA(path.c_str(), GetFileExInfoStandard, &data) &&
        ((static_cast<unsigned long long>(data.nFileSizeHigh) << 32) | data.nFileSizeLow) >= kArchiveBytes)
        kv::platform::RenameFileDurably(path, folder + "\\crash-events.bak", true);  // failing, the file grows on
    const FileHandle file(CreateFileA(path.c_str(), FILE_APPEND_DATA, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE,
                                      nullptr, OPEN_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr));
    DWORD written = 0;
    return file && WriteFile(file.get(), line.data(), DWORD(line.size()), &written, nullptr) && written == line.size();
}

}  // namespace

void RecordDumpEvent(const char* kind, HANDLE process, unsigned long pid, const std::string& iniPath,
                     const std::string& component, const char* dumpPath, long result) {
    CrashEvent event;
    event.kind = kind;
    event.pid = pid;
    event.component = component;
    char image[MAX_PATH];
    DWORD size = sizeof image;
    event.exe = QueryFullProcessImageNameA(process, 0, image, &size) ? FileNameOf(image) : "";
    const std::string dump = dumpPath ? dumpPath : "";
    char outcome[48];
    snprintf(outcome, sizeof outcome, "failed (HRESULT 0x%08lx)", static_cast<unsigned long>(result));
    event.result = result == S_OK ? "written" : result == 1 ? "skipped" : outcome;
    if (result == S_OK) {
        event.dump = dump;
        ReadDump(dump, event);
    }
    const std::string folder = EventFolder(iniPath, dump);
    if (folder.empty() || !Append(folder, EventLine(event))) {
        const Failure failure = Failure::FromLastError("its " + std::string(kind) + " event could not be written to " +
                                                       kCrashEventsFile + " in \"" + folder + "\"");
        HandlerSay("process %lu: %s", pid, failure.text().c_str());
    }
}

bool ParseCrashEvent(const std::string& text, CrashEvent& event) {
    event = CrashEvent{};
    size_t at = text.find('\t');
    event.kind = text.substr(0, at);
    if (event.kind != "CRASH" && event.kind != "HANG") return false;
    bool havePid = false;
    while (at != std::string::npos) {
        const size_t from = at + 1;
        at = text.find('\t', from);
        const std::string field = text.substr(from, at == std::string::npos ? std::string::npos : at - from);
        const size_t eq = field.find('=');
        const std::string key = field.substr(0, eq), value = eq == std::string::npos ? "" : field.substr(eq + 1);
        char* end = nullptr;
        if (key == "pid") havePid = (event.pid = strtoul(value.c_str(), &end, 10), *end == 0 && !value.empty());
        else if (key == "exe") event.exe = value;
        else if (key == "component") event.component = value;
        else if (key == "code") event.code = value;
        else if (key == "signature") event.signature = value;
        else if (key == "dump") event.dump = value;
        else if (key == "size") event.size = strtoull(value.c_str(), nullptr, 10);
        else if (key == "result") event.result = value;
    }
    return havePid;
}

}  // namespace kvdiag
