// The saved position of each followed log in the forwarder's state folder:
// one small text file per log, naming each file of its chain still in play
// by its identity, its first bytes and the offset forwarded up to. A file is
// replaced whole (written aside, then moved over the old one), so a crash
// leaves the previous position or the new one, never a torn one.
#pragma once

#include <string>
#include <vector>

#include "logs/log_follower.h"

namespace kvdiag {

using LogPosition = std::vector<LogFollower::Seen>;

class CursorStore {
public:
    explicit CursorStore(std::string folder) : folder_(std::move(folder)) {}

    const std::string& folder() const { return folder_; }
    // False when there is no cursor or it cannot be read (then forwarding
    // starts afresh for that log).
    bool Load(const std::string& logName, LogPosition& position) const;
    bool Save(const std::string& logName, const LogPosition& position) const;
    // Every saved log with its position, for --status.
    std::vector<std::pair<std::string, LogPosition>> LoadAll() const;

private:
    std::string PathOf(const std::string& logName) const { return folder_ + "\\" + logName + ".cursor"; }

    std::string folder_;
};

}  // namespace kvdiag
