// Follows one debug log across rolls, like tail -F. Nothing is held open
// between polls: each poll opens the live file and the newest history files
// for a moment (with full sharing, so a writer can roll meanwhile), reads
// what was added since the last poll and closes them again. (On Windows a
// file deleted while another handle is open keeps its name until that handle
// goes, and the writer's roll could then not move its live file into it.) A roll shows as
// a live file with another identity; the files seen before are then found
// further down the history chain and read to their end first, so no line is
// lost or repeated as long as the log rolls fewer times between two polls
// than it keeps history files.
#pragma once

#include <string>
#include <vector>

#include "logs/shared_file.h"

namespace kvdiag {

class LogFollower {
public:
    // chain[0]: the live log; chain[i]: history file i.
    explicit LogFollower(std::vector<std::string> chain) : chain_(std::move(chain)) {}

    const std::string& livePath() const { return chain_.front(); }
    // The chain as it stands now, for a log whose archives get new names.
    void Rechain(std::vector<std::string> chain) { chain_ = std::move(chain); }
    // The last count complete lines of the live file; following starts after them.
    std::vector<std::string> Start(int count);
    // The complete lines added since the last call, oldest first. gap is set
    // when files went out of the chain before they could be read to the end.
    // With takeUnfinished the live file's last line counts even without its
    // line end; when that end arrives later it is skipped, not read as a line.
    std::vector<std::string> Poll(bool& gap, bool takeUnfinished = false);
    // Bytes at the live file's end after its last line end, at the last Poll.
    uint64_t unfinishedBytes() const { return unfinished_; }
    // Files of the last Poll whose position did not fit them (past their
    // end, or not after a line end: a position of another file, or one
    // edited): each was read again from its start, as a new file.
    size_t resets() const { return resets_; }

    // A file is known by its identity and its first bytes: file systems
    // reuse the index of a deleted file for a new one, but a log's first
    // line (with its time to the millisecond) is its own.
    struct Seen {
        FileIdentity identity;
        std::string head;
        uint64_t consumed;  // bytes already given out
        // consumed ends a line taken without its line end (not kept in cursors:
        // a saved position inside a line is read again from the file's start).
        bool midLine = false;
    };
    // Where following stands, newest file first; a follower given a position
    // saved before goes on right after it (Poll), even in another process.
    const std::vector<Seen>& position() const { return seen_; }
    void Resume(std::vector<Seen> position) {
        seen_ = std::move(position);
        lastReads_.clear();
    }
    // The position from which line `index` of the last Poll's lines is read
    // again (index = their count: position()).
    std::vector<Seen> PositionBefore(size_t index) const;

private:
    struct ChainFile {
        SharedFile file;
        std::string head;
        size_t index;  // 0: live
    };

    // False when rolls kept the chain moving during every attempt.
    bool OpenChain(size_t knownToFind, std::vector<ChainFile>& files) const;
    const Seen* Find(const ChainFile& file) const;
    static bool FitsFile(const SharedFile& file, uint64_t offset, std::string& text);

    // What the last Poll read of one file: where each of its lines starts.
    struct FileRead {
        Seen after;        // the file as read to the end of its last line
        uint64_t from;     // where reading began
        bool seenBefore;
        size_t firstLine;  // index of its first line among the poll's lines
        std::vector<uint64_t> lineStarts;
    };

    std::vector<std::string> chain_;
    std::vector<Seen> seen_;  // newest first
    std::vector<FileRead> lastReads_;  // newest first
    uint64_t unfinished_ = 0;
    int unsettledPolls_ = 0;
    size_t resets_ = 0;
};

// Splits text into lines without their line ends. With wholeTail, a last line
// without a line end counts too; otherwise it is left unread. Returns the bytes used.
size_t SplitLines(const std::string& text, bool wholeTail, std::vector<std::string>& lines);

}  // namespace kvdiag
