#include "logs/log_merge.h"

#include <ctype.h>

namespace kvdiag {

std::string LineTime(const std::string& line) {
    static const char kShape[] = "0000-00-00 00:00:00.000";
    constexpr size_t kLength = sizeof kShape - 1;
    if (line.size() < kLength) return {};
    for (size_t i = 0; i < kLength; ++i)
        if (kShape[i] == '0' ? !isdigit(static_cast<unsigned char>(line[i])) : line[i] != kShape[i]) return {};
    return line.substr(0, kLength);
}

bool LineMerge::Next(size_t& source, std::string& line) {
    const bool continues = current_ < queues_.size() && !queues_[current_].empty() &&
                           LineTime(queues_[current_].front()).empty();
    if (!continues) {
        bool found = false;
        std::string earliest;
        for (size_t i = 0; i < queues_.size(); ++i) {
            if (queues_[i].empty()) continue;
            const std::string time = LineTime(queues_[i].front());
            if (!found || time < earliest) {
                found = true;
                earliest = time;
                current_ = i;
            }
        }
        if (!found) return false;
    }
    source = current_;
    line = std::move(queues_[current_].front());
    queues_[current_].pop_front();
    return true;
}

}  // namespace kvdiag
