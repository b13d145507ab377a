// Merges the lines of several logs in time order. Each log's own order is
// kept: the next line is taken from the log whose next line carries the
// earliest timestamp, and lines without a timestamp (the rest of a
// multi-line report) follow the line before them.
#pragma once

#include <deque>
#include <string>
#include <vector>

namespace kvdiag {

class LineMerge {
public:
    explicit LineMerge(size_t sources) : queues_(sources) {}

    void Add(size_t source, const std::vector<std::string>& lines) {
        queues_[source].insert(queues_[source].end(), lines.begin(), lines.end());
    }
    // The next line and the log it came from; false when all are empty.
    bool Next(size_t& source, std::string& line);

private:
    std::vector<std::deque<std::string>> queues_;
    size_t current_ = 0;  // the log of the line given out last
};

// "2024-03-05 14:07:09.042" at the start of a log line, or empty.
std::string LineTime(const std::string& line);

}  // namespace kvdiag
