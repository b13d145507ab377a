#include "forward/forward_status.h"

#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "forward/cursor_store.h"

namespace kvdiag {

namespace {

constexpr char kStatusFile[] = "\\forward.status";

bool ProcessRuns(DWORD pid) {
    HANDLE process = OpenProcess(SYNCHRONIZE, FALSE, pid);
    if (!process) return false;
    const bool runs = WaitForSingleObject(process, 0) == WAIT_TIMEOUT;
    CloseHandle(process);
    return runs;
}

}  // namespace

bool WriteForwardStatus(const std::string& folder, const ForwardStatus& status) {
    SYSTEMTIME t;
    GetLocalTime(&t);
    char head[256];
    snprintf(head, sizeof head, "pid: %lu\nupdated: %04u-%02u-%02u %02u:%02u:%02u\n", GetCurrentProcessId(), t.wYear,
             t.wMonth, t.wDay, t.wHour, t.wMinute, t.wSecond);
    std::string text = head;
    text += "collector: " + status.collector + "\nstate: " + status.state + "\n";
    text += "sent: " + std::to_string(status.messages) + " lines in " + std::to_string(status.batches) + " batches\n";
    text += "gaps: " + std::to_string(status.gaps) + "\n";
    for (const std::string& log : status.logs) text += "follows: " + log + "\n";
    const std::string path = folder + kStatusFile, aside = path + ".new";
    HANDLE file = CreateFileA(aside.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr);
    if (file == INVALID_HANDLE_VALUE) return false;
    DWORD written = 0;
    const bool ok = WriteFile(file, text.data(), DWORD(text.size()), &written, nullptr) && written == text.size();
    CloseHandle(file);
    return ok && MoveFileExA(aside.c_str(), path.c_str(), MOVEFILE_REPLACE_EXISTING);
}

int PrintForwardStatus(const std::string& folder) {
    FILE* file = fopen((folder + kStatusFile).c_str(), "rb");
    if (!file) {
        printf("no forwarder has run with the state folder %s\n", folder.c_str());
        return 1;
    }
    char line[1024];
    DWORD pid = 0;
    while (fgets(line, sizeof line, file)) {
        if (!strncmp(line, "pid: ", 5)) pid = strtoul(line + 5, nullptr, 10);
        fputs(line, stdout);
    }
    fclose(file);
    printf("running: %s\n", pid && ProcessRuns(pid) ? "yes" : "no");
    for (const auto& [log, position] : CursorStore(folder).LoadAll()) {
        printf("cursor: %s", log.c_str());
        for (const LogFollower::Seen& seen : position)
            printf(" [file %llx at %llu]", static_cast<unsigned long long>(seen.identity.index),
                   static_cast<unsigned long long>(seen.consumed));
        printf("\n");
    }
    return 0;
}

}  // namespace kvdiag
