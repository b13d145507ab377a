// A log's lines grouped into entries the way their writers meant them: a
// timestamped line with the lines that continue it (stack texts, memory
// reports, KvException dumps), each banner ("*** ... ***") starting an entry
// of its own. The lines of one entry can arrive in several polls, so the last
// entry stays open until a line starts another, its report's last line
// arrives, or the log has been quiet a while (Flush).
#pragma once

#include <string>
#include <vector>

namespace kvdiag {

struct LogEntry {
    std::string stamp;  // RFC 3339
    std::string text;   // its lines joined by line feeds
};

class EntryAssembler {
public:
    // stamped: lines carry the log timestamp (debug logs, system logs, the
    // crash events); otherwise each line is an entry, stamped when it was
    // read (application logs).
    explicit EntryAssembler(bool stamped) : stamped_(stamped) {}

    // The entries that the lines (one poll's, oldest first) complete.
    std::vector<LogEntry> Add(const std::vector<std::string>& lines);
    // The open entry as it stands (none when there is none).
    std::vector<LogEntry> Flush();
    bool open() const { return open_; }
    // Index among the last Add's lines of the open entry's first line;
    // npos when it began in an earlier Add or none is open.
    size_t openedAt() const { return openedAt_; }
    // The stamp in force before the open entry (or now), for going back to
    // where it began.
    const std::string& stampBefore() const { return open_ ? stampBeforeOpen_ : lastStamp_; }
    // Drops the open entry: its lines will be read again, after `stamp`.
    void Restart(const std::string& stamp);

private:
    void Open(const std::string& stamp, const std::string& text, size_t at, int report);
    void Close(std::vector<LogEntry>& done);

    bool stamped_;
    bool open_ = false;
    LogEntry entry_;
    int report_ = -1;  // which kind of report the open entry is, -1: none
    size_t openedAt_ = std::string::npos;
    std::string lastStamp_, stampBeforeOpen_;
};

}  // namespace kvdiag
