#include "forward/forwarder.h"

#include <algorithm>
#include <memory>

#include "forward/collector_link.h"
#include "forward/cursor_store.h"
#include "forward/entry_assembler.h"
#include "forward/entry_record.h"
#include "forward/forward_status.h"
#include "forward/record_limit.h"
#include "logs/log_follower.h"
#include "platform/error_text.h"
#include "platform/folder_tree.h"

namespace kvdiag {

namespace {

constexpr DWORD kPollMs = 100;
constexpr DWORD kRescanMs = 1000;
constexpr DWORD kStatusMs = 1000;
constexpr DWORD kFirstRetryMs = 500;
constexpr DWORD kLastRetryMs = 8000;
// How long a log stays quiet before its open entry is taken as complete, and
// before a last line without its line end is sent as it stands (WriteLog
// adds none; a writer that ends its line later is usually quicker).
constexpr ULONGLONG kEntryQuietMs = 1000;
constexpr ULONGLONG kUnfinishedQuietMs = 3000;

class Forwarder {
public:
    Forwarder(const ForwardOptions& options, HANDLE stopEvent, const ForwarderNote& note)
        : options_(options), stop_(stopEvent), note_(note), cursors_(options.stateFolder),
          link_(options.url, options.caFile, options.framing) {
        status_.collector = options.url.text;
    }

    int Run();

private:
    struct Source {
        FollowedLog log;
        std::unique_ptr<LogFollower> follower;
        EntryAssembler entries;
        LogPosition committed, openEntryAt;  // openEntryAt: where the open entry's first line is
        std::string committedStamp;
        ULONGLONG lastLines = 0;             // when lines last came
        uint64_t unfinished = 0;             // bytes of a line without its end, and since when
        ULONGLONG unfinishedSince = 0;
    };

    void AddNewLogs(bool atStart);
    std::vector<std::string> Gather(bool stopping);
    void Commit();
    void Rewind();
    void SetState(const std::string& state);
    void SaveStatus(bool now);
    bool StopRequested(DWORD waitMs) const { return WaitForSingleObject(stop_, waitMs) == WAIT_OBJECT_0; }

    ForwardOptions options_;
    HANDLE stop_;
    const ForwarderNote& note_;
    CursorStore cursors_;
    CollectorLink link_;
    std::string hostName_ = MachineName();
    std::vector<Source> sources_;
    ForwardStatus status_;
    ULONGLONG statusSaved_ = 0;
};

// A log goes on from its saved cursor. Without one, a log found at the
// first start is forwarded from its end (what was there before is not
// forwarded) and one that appears later whole, as it is new; either way the
// forwarder says where it starts. A damaged cursor cannot say where the
// collector stands: the whole log, history files first, is sent again (a
// line twice is better than a line lost).
void Forwarder::AddNewLogs(bool atStart) {
    for (FollowedLog& log : SelectLogs(options_.selection)) {
        const std::string& name = log.identity.fileName;
        const auto known = std::find_if(sources_.begin(), sources_.end(), [&](const Source& s) { return s.log.identity.fileName == name; });
        if (known != sources_.end()) continue;
        const bool stamped = log.identity.msgId != "applog";
        Source source{log, std::make_unique<LogFollower>(log.chain), EntryAssembler(stamped), {}, {}, {}, 0, 0, 0};
        const SavedCursor cursor = cursors_.Load(name);
        const std::string live = log.chain.front();
        if (cursor.state == CursorState::Loaded) {
            source.follower->Resume(cursor.position);
            note_("forwarding " + live + " from its cursor");
        } else if (cursor.state == CursorState::Damaged) {
            note_("the cursor " + cursors_.PathOf(name) + " is damaged (" + cursor.problem + "): forwarding " + live +
                  " again from the start of its oldest file; the collector may get lines twice");
        } else if (atStart) {
            source.follower->Start(0);
            const LogPosition& at = source.follower->position();
            note_("no cursor for " + live + " in " + cursors_.folder() + ": forwarding starts at its end (byte " +
                  std::to_string(at.empty() ? 0 : at.front().consumed) + "); earlier lines are not sent");
        } else {
            note_("forwarding " + live + ", a new log, from its first line");
        }
        source.committed = source.follower->position();
        cursors_.Save(name, source.committed);
        status_.logs.push_back(live);
        sources_.push_back(std::move(source));
    }
}

// Entries complete in what the logs hold now; stopping sends the open ones too.
std::vector<std::string> Forwarder::Gather(bool stopping) {
    std::vector<std::string> messages;
    const ULONGLONG now = GetTickCount64();
    for (Source& source : sources_) {
        bool gap = false;
        if (source.log.archives) source.follower->Rechain(ArchiveChain(source.log.chain.front()));
        const bool takeUnfinished = source.unfinished > 0 && now - source.unfinishedSince >= kUnfinishedQuietMs;
        const std::vector<std::string> lines = source.follower->Poll(gap, takeUnfinished);
        if (gap) {
            ++status_.gaps;
            note_(source.log.chain.front() + " rolled past its history files while unread; lines are missing");
        }
        if (source.follower->resets()) {
            ++status_.gaps;
            note_("the cursor of " + source.log.chain.front() +
                  " points past the end of a file or into a line: that file is read again from its start as a new one; lines may be missing or sent twice");
        }
        const uint64_t unfinished = source.follower->unfinishedBytes();
        if (unfinished != source.unfinished) source.unfinishedSince = now;
        source.unfinished = unfinished;
        std::vector<LogEntry> entries = source.entries.Add(lines);
        if (!lines.empty()) source.lastLines = now;
        if (source.entries.openedAt() != std::string::npos)
            source.openEntryAt = source.follower->PositionBefore(source.entries.openedAt());
        if (stopping || (lines.empty() && now - source.lastLines >= kEntryQuietMs))
            for (LogEntry& entry : source.entries.Flush()) entries.push_back(std::move(entry));
        for (const LogEntry& entry : entries)
            for (std::string& message : LimitedMessages(RecordOf(source.log.identity, entry), hostName_, options_.maxRecord))
                messages.push_back(std::move(message));
    }
    return messages;
}

// An open entry is not sent yet: its log's cursor stays where it begins.
void Forwarder::Commit() {
    for (Source& source : sources_) {
        source.committed = source.entries.open() ? source.openEntryAt : source.follower->position();
        source.committedStamp = source.entries.stampBefore();
        if (!cursors_.Save(source.log.identity.fileName, source.committed))
            note_("cannot save the cursor of " + source.log.identity.fileName + " in " + cursors_.folder());
    }
}

void Forwarder::Rewind() {
    for (Source& source : sources_) {
        source.follower->Resume(source.committed);
        source.entries.Restart(source.committedStamp);
    }
}

void Forwarder::SetState(const std::string& state) {
    if (state == status_.state) return;
    status_.state = state;
    note_("collector " + options_.url.text + ": " + state);
    SaveStatus(true);
}

void Forwarder::SaveStatus(bool now) {
    if (!now && GetTickCount64() - statusSaved_ < kStatusMs) return;
    WriteForwardStatus(options_.stateFolder, status_);
    statusSaved_ = GetTickCount64();
}

int Forwarder::Run() {
    if (const DWORD error = kv::platform::CreateFolderTree(options_.stateFolder)) {
        note_(Failure("cannot create the state folder " + options_.stateFolder, error).text());
        return 1;
    }
    WinsockUse winsock;
    if (!winsock.ok()) {
        note_("Windows sockets are not available");
        return 1;
    }
    AddNewLogs(true);
    const bool rescan = options_.selection.allComponents || options_.selection.system || options_.selection.apps;
    if (sources_.empty() && !rescan) {
        note_("the log folder cannot be found or created");
        return 1;
    }
    const ULONGLONG started = GetTickCount64();
    ULONGLONG lastRescan = started;
    DWORD retryMs = kFirstRetryMs;
    bool pending = false;   // a batch sent, not yet known to be taken
    bool stopping = false;  // a last round sends the entries still open
    for (;;) {
        if (link_.connected() && !link_.Alive()) {
            Rewind();
            SetState("unreachable: the collector closed the connection");
        } else if (pending && link_.connected()) {
            Commit();
        }
        pending = false;
        if (stopping) break;
        if (StopRequested(0) || (options_.seconds > 0 && double(GetTickCount64() - started) >= options_.seconds * 1000)) {
            if (!link_.connected()) break;
            stopping = true;
        }
        if (!stopping && rescan && GetTickCount64() - lastRescan >= kRescanMs) {
            AddNewLogs(false);
            lastRescan = GetTickCount64();
        }
        if (!link_.connected()) {
            if (const Failure failure = link_.Connect()) {
                SetState("unreachable: " + failure.text());
                if (StopRequested(retryMs)) break;
                retryMs = std::min(retryMs * 2, kLastRetryMs);
                continue;
            }
            retryMs = kFirstRetryMs;
            SetState("connected");
        }
        const std::vector<std::string> messages = Gather(stopping);
        if (!messages.empty()) {
            if (const Failure failure = link_.Send(messages)) {
                Rewind();
                SetState("unreachable: " + failure.text());
                continue;
            }
            status_.messages += messages.size();
            ++status_.batches;
            pending = options_.url.stream();
            if (!pending) Commit();  // UDP: sent is all anyone will know
        }
        SaveStatus(false);
        if (stopping) Sleep(kPollMs);  // for a close or reset to show before the last commit
        else StopRequested(kPollMs);
    }
    link_.Close();
    status_.state = "stopped";
    SaveStatus(true);
    return 0;
}

}  // namespace

int RunForwarder(const ForwardOptions& options, HANDLE stopEvent, const ForwarderNote& note) {
    return Forwarder(options, stopEvent, note).Run();
}

}  // namespace kvdiag
