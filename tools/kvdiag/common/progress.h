// What a long piece of work is doing, shown on stderr once it has taken more
// than a second (so quick runs stay quiet and stdout stays clean for files):
// on a console one line rewritten in place with a counter, otherwise a line
// per stage. KVDIAG_PROGRESS_AFTER_MS changes the second (0 shows every stage).
#pragma once

#include <stdint.h>

#include <condition_variable>
#include <mutex>
#include <string>
#include <thread>

namespace kvdiag {

class Progress {
public:
    explicit Progress(std::string task);
    ~Progress();
    Progress(const Progress&) = delete;
    Progress& operator=(const Progress&) = delete;

    void Stage(const std::string& what);
    // Bytes (or items) done of total within the stage; shown on a console only.
    void Count(uint64_t done, uint64_t total);

private:
    void Watch();
    bool Due() const;
    void ShowLocked();

    const std::string task_;
    const bool console_;
    unsigned long long started_;
    unsigned long long delayMs_ = 1000;
    std::mutex mutex_;
    std::condition_variable wake_;
    bool ending_ = false;
    std::string stage_;
    bool stageShown_ = true;
    uint64_t done_ = 0, total_ = 0;
    size_t lineWidth_ = 0;  // of the console line to overwrite
    std::thread watcher_;
};

}  // namespace kvdiag
