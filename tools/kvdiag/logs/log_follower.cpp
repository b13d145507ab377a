#include "logs/log_follower.h"

#include <algorithm>

namespace kvdiag {

size_t SplitLines(const std::string& text, bool wholeTail, std::vector<std::string>& lines) {
    size_t start = 0;
    for (size_t end; (end = text.find('\n', start)) != std::string::npos; start = end + 1)
        lines.push_back(text.substr(start, end - start - (end > start && text[end - 1] == '\r')));
    if (wholeTail && start < text.size()) {
        lines.push_back(text.substr(start));
        start = text.size();
    }
    return start;
}

namespace {

constexpr size_t kHeadBytes = 64;
// Polls that may pass while rolls keep the chain moving before what could be
// opened is read anyway (a history file deleted by hand leaves a lasting hole).
constexpr int kMaxUnsettledPolls = 20;
// Files seen before but not opened by a poll that are still recognised later.
constexpr size_t kUnopenedKept = 4;

// The last count whole lines of a file, read from a window at its end that
// doubles until it holds them (a long log costs only its tail); returns the
// offset after the last whole line.
uint64_t LastWholeLines(const SharedFile& file, int count, std::vector<std::string>& lines) {
    const uint64_t size = file.size();
    for (uint64_t window = 64 * 1024;; window *= 2) {
        const uint64_t from = size > window ? size - window : 0;
        std::string text;
        file.ReadFrom(from, text);
        std::vector<std::string> found;
        const uint64_t consumed = from + SplitLines(text, false, found);
        if (from > 0 && !found.empty()) found.erase(found.begin());  // cut by the window
        if (from == 0 || found.size() >= size_t(count)) {
            if (found.size() > size_t(count)) found.erase(found.begin(), found.end() - count);
            lines.insert(lines.end(), found.begin(), found.end());
            return consumed;
        }
    }
}

}  // namespace

const LogFollower::Seen* LogFollower::Find(const ChainFile& file) const {
    for (const Seen& seen : seen_)
        if (seen.identity == file.file.identity() && file.head.compare(0, seen.head.size(), seen.head) == 0) return &seen;
    return nullptr;
}

// Opens the live file, then history file 1, 2, ... until knownToFind files
// seen before have turned up or the chain ends. A roll during the walk moves
// a file already opened into the next slot, so it turns up twice; and while
// a roll moves the history files up one by one, the chain has a hole for a
// moment. Either way the walk starts again, since its files do not form one
// moment of the chain.
bool LogFollower::OpenChain(size_t knownToFind, std::vector<ChainFile>& files) const {
    constexpr int kAttempts = 5;
    for (int attempt = 0; attempt < kAttempts; ++attempt) {
        if (attempt) Sleep(1);
        files.clear();
        bool moved = false;
        size_t known = 0;
        for (size_t i = 0; i < chain_.size() && known < knownToFind && !moved; ++i) {
            SharedFile file(chain_[i]);
            if (!file.opened()) {
                if (i == 0) continue;  // rolled, and not written again yet
                // The chain ends here, unless a roll is moving it up just now.
                moved = i + 1 < chain_.size() && GetFileAttributesA(chain_[i + 1].c_str()) != INVALID_FILE_ATTRIBUTES;
                break;
            }
            moved = std::any_of(files.begin(), files.end(),
                                [&](const ChainFile& f) { return f.file.identity() == file.identity(); });
            if (moved) break;
            std::string head = file.Head(kHeadBytes);
            files.push_back({std::move(file), std::move(head), i});
            known += Find(files.back()) != nullptr;
        }
        if (!moved) return true;
    }
    return false;
}

std::vector<std::string> LogFollower::Start(int count) {
    std::vector<std::string> lines;
    std::vector<ChainFile> files;
    seen_.clear();
    lastReads_.clear();
    OpenChain(chain_.size(), files);
    for (ChainFile& f : files) {
        uint64_t consumed = f.file.size();
        if (f.index == 0) consumed = LastWholeLines(f.file, count, lines);
        seen_.push_back({f.file.identity(), f.head, consumed});
    }
    return lines;
}

// Whether offset can be where reading stopped in file: within it, and (unless
// at its end) right after a line end. When it is, text holds the file from offset on.
bool LogFollower::FitsFile(const SharedFile& file, uint64_t offset, std::string& text) {
    if (offset > file.size()) return false;
    if (offset == 0 || offset == file.size()) return true;
    file.ReadFrom(offset - 1, text);
    if (text.empty() || text[0] != '\n') {
        text.clear();
        return false;
    }
    text.erase(0, 1);
    return true;
}

std::vector<std::string> LogFollower::Poll(bool& gap, bool takeUnfinished) {
    gap = false;
    resets_ = 0;
    // The live file and the one before it: a process that still wrote to the
    // old file when another rolled it adds its line there after the roll.
    std::vector<ChainFile> files;
    if (!OpenChain(2, files) && ++unsettledPolls_ < kMaxUnsettledPolls) return {};
    unsettledPolls_ = 0;
    gap = !seen_.empty() && std::none_of(files.begin(), files.end(), [&](const ChainFile& f) { return Find(f); });
    std::vector<std::string> lines;
    std::vector<Seen> now;
    std::vector<FileRead> reads;
    unfinished_ = 0;
    for (auto f = files.rbegin(); f != files.rend(); ++f) {
        const Seen* seen = Find(*f);
        uint64_t from = seen ? seen->consumed : 0;
        std::string text;
        size_t skip = 0;
        if (seen && seen->midLine && from <= f->file.size()) {
            // After a line taken without its end: that end, when it arrives,
            // is skipped; text added before it is a line of its own.
            f->file.ReadFrom(from, text);
            skip = text.compare(0, 2, "\r\n") == 0 ? 2 : !text.empty() && text[0] == '\n' ? 1 : 0;
        } else if (seen && !FitsFile(f->file, from, text)) {
            from = 0;
            ++resets_;
        }
        if (text.empty()) f->file.ReadFrom(from, text);
        text.erase(0, skip);
        const uint64_t start = from + skip;
        // A history file never read before is complete; the hole note of a
        // chain has no line end.
        const bool wholeTail = (!seen && f->index > 0) || (takeUnfinished && f->index == 0);
        FileRead read{{f->file.identity(), f->head, 0}, start, seen != nullptr, lines.size(), {}};
        const size_t used = SplitLines(text, wholeTail, lines);
        for (size_t at = 0; read.lineStarts.size() < lines.size() - read.firstLine; at = text.find('\n', at) + 1)
            read.lineStarts.push_back(start + at);
        read.after.consumed = start + used;
        read.after.midLine = used ? text[used - 1] != '\n' : seen && seen->midLine && skip == 0 && from == seen->consumed;
        if (f->index == 0) unfinished_ = text.size() - used;
        now.insert(now.begin(), read.after);
        reads.insert(reads.begin(), std::move(read));
    }
    // Files known before that this poll did not open stay known for a while:
    // a log archived under a new name between the listing of its chain and
    // this poll is missing from this chain but in the next one, and must be
    // read on from where it was left, not again from its start.
    for (const Seen& before : seen_) {
        if (now.size() >= files.size() + kUnopenedKept) break;
        const bool opened = std::any_of(files.begin(), files.end(), [&](const ChainFile& f) { return Find(f) == &before; });
        if (!opened) now.push_back(before);
    }
    seen_ = std::move(now);
    lastReads_ = std::move(reads);
    return lines;
}

std::vector<LogFollower::Seen> LogFollower::PositionBefore(size_t index) const {
    std::vector<Seen> position;
    for (const FileRead& read : lastReads_) {
        if (index >= read.firstLine + read.lineStarts.size()) {
            position.push_back(read.after);  // read before the line
        } else if (index >= read.firstLine) {
            position.push_back({read.after.identity, read.after.head, read.lineStarts[index - read.firstLine]});
        } else if (read.seenBefore) {
            position.push_back({read.after.identity, read.after.head, read.from});  // newer: not read yet
        }  // a newer file not seen before is read whole again
    }
    return position;
}

}  // namespace kvdiag
