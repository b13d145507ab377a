#include "log_follower.h"

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

const LogFollower::Seen* LogFollower::Find(const FileIdentity& identity) const {
    for (const Seen& seen : seen_)
        if (seen.identity == identity) return &seen;
    return nullptr;
}

// Opens the live file, then history file 1, 2, ... until knownToFind files
// seen before have turned up or the chain ends. A roll during the walk moves
// a file already opened into the next slot, so it turns up twice: the walk
// then starts again, since its files no longer form one moment of the chain.
std::vector<LogFollower::ChainFile> LogFollower::OpenChain(size_t knownToFind) const {
    std::vector<ChainFile> files;
    for (int attempt = 0; attempt < 5; ++attempt) {
        files.clear();
        bool moved = false;
        size_t known = 0;
        for (size_t i = 0; i < chain_.size() && known < knownToFind && !moved; ++i) {
            SharedFile file(chain_[i]);
            if (!file.opened()) {
                if (i == 0) continue;  // rolled, and not written again yet
                break;                 // the chain ends
            }
            moved = std::any_of(files.begin(), files.end(),
                                [&](const ChainFile& f) { return f.file.identity() == file.identity(); });
            known += Find(file.identity()) != nullptr;
            if (!moved) files.push_back({std::move(file), i});
        }
        if (!moved) break;
    }
    return files;
}

std::vector<std::string> LogFollower::Start(int count) {
    std::vector<std::string> lines;
    seen_.clear();
    for (ChainFile& f : OpenChain(chain_.size())) {
        uint64_t consumed = f.file.size();
        if (f.index == 0) {
            std::string text;
            f.file.ReadFrom(0, text);
            consumed = SplitLines(text, false, lines);
            if (lines.size() > size_t(count)) lines.erase(lines.begin(), lines.end() - count);
        }
        seen_.push_back({f.file.identity(), consumed});
    }
    return lines;
}

std::vector<std::string> LogFollower::Poll(bool& gap) {
    // The live file and the one before it: a process that still wrote to the
    // old file when another rolled it adds its line there after the roll.
    std::vector<ChainFile> files = OpenChain(2);
    gap = !seen_.empty() &&
          std::none_of(files.begin(), files.end(), [&](const ChainFile& f) { return Find(f.file.identity()); });
    std::vector<std::string> lines;
    std::vector<Seen> now;
    for (auto f = files.rbegin(); f != files.rend(); ++f) {
        const Seen* seen = Find(f->file.identity());
        // A file smaller than what was read of it is a new file that reuses
        // the identity of a deleted one (file systems reuse index numbers).
        const uint64_t from = seen && seen->consumed <= f->file.size() ? seen->consumed : 0;
        std::string text;
        f->file.ReadFrom(from, text);
        // A history file never read before is complete; the hole note of a
        // chain has no line end.
        const bool wholeTail = !seen && f->index > 0;
        now.insert(now.begin(), {f->file.identity(), from + SplitLines(text, wholeTail, lines)});
    }
    seen_ = std::move(now);
    return lines;
}

}  // namespace kvdiag
