#include "common/progress.h"

#include <windows.h>
#include <stdio.h>
#include <stdlib.h>

namespace kvdiag {

namespace {

bool StderrIsConsole() {
    DWORD mode;
    return GetConsoleMode(GetStdHandle(STD_ERROR_HANDLE), &mode) != 0;
}

}  // namespace

Progress::Progress(std::string task) : task_(std::move(task)), console_(StderrIsConsole()), started_(GetTickCount64()) {
    if (const char* delay = getenv("KVDIAG_PROGRESS_AFTER_MS")) delayMs_ = strtoull(delay, nullptr, 10);
    watcher_ = std::thread(&Progress::Watch, this);
}

Progress::~Progress() {
    {
        std::lock_guard<std::mutex> lock(mutex_);
        ending_ = true;
        if (console_ && lineWidth_) fprintf(stderr, "\r%*s\r", int(lineWidth_), "");
    }
    wake_.notify_all();
    watcher_.join();
}

bool Progress::Due() const { return GetTickCount64() - started_ >= delayMs_; }

void Progress::Stage(const std::string& what) {
    std::lock_guard<std::mutex> lock(mutex_);
    stage_ = what;
    stageShown_ = false;
    done_ = total_ = 0;
    if (Due()) ShowLocked();
}

void Progress::Count(uint64_t done, uint64_t total) {
    std::lock_guard<std::mutex> lock(mutex_);
    done_ = done;
    total_ = total;
}

void Progress::ShowLocked() {
    if (!console_) {
        if (!stageShown_) fprintf(stderr, "%s: %s\n", task_.c_str(), stage_.c_str());
        stageShown_ = true;
        return;
    }
    char line[400];
    int length = snprintf(line, sizeof line, "%s: %s", task_.c_str(), stage_.c_str());
    if (total_ && length > 0 && size_t(length) < sizeof line)
        snprintf(line + length, sizeof line - size_t(length), " %llu%%", 100ull * done_ / total_);
    const std::string text(line);
    fprintf(stderr, "\r%-*s", int(lineWidth_ > text.size() ? lineWidth_ : text.size()), text.c_str());
    lineWidth_ = text.size() > lineWidth_ ? text.size() : lineWidth_;
    stageShown_ = true;
}

// Shows a stage that has run past the delay without being shown, and keeps
// the console counter moving.
void Progress::Watch() {
    std::unique_lock<std::mutex> lock(mutex_);
    while (!wake_.wait_for(lock, std::chrono::milliseconds(250), [this] { return ending_; }))
        if (Due() && !stage_.empty() && (console_ || !stageShown_)) ShowLocked();
}

}  // namespace kvdiag
