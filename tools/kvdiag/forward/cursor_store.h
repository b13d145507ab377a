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

enum class CursorState { Loaded, Missing, Damaged };

struct SavedCursor {
    std::string logName;
    CursorState state = CursorState::Missing;
    LogPosition position;  // when Loaded
    std::string problem;   // when Damaged: what is wrong with it
};

class CursorStore {
public:
    explicit CursorStore(std::string folder) : folder_(std::move(folder)) {}

    const std::string& folder() const { return folder_; }
    std::string PathOf(const std::string& logName) const { return folder_ + "\\" + logName + ".cursor"; }
    // A cursor that is there but not wholly as Save writes it (cut, edited,
    // overwritten, a link) is Damaged: nothing of it is used.
    SavedCursor Load(const std::string& logName) const;
    bool Save(const std::string& logName, const LogPosition& position) const;
    // Every cursor of the folder, damaged ones too, for --status.
    std::vector<SavedCursor> LoadAll() const;

private:
    std::string folder_;
};

}  // namespace kvdiag
