// The memory report: header, allocation-rate line and the table of the
// light-mode allocations found by walking the process heap.
#include <stdarg.h>
#include <stdio.h>
#include <string.h>
#include <time.h>

#include "KvLogging.h"
#include "crash/callstack_state.h"
#include "logging/debug_log.h"
#include "memory/heap_report.h"
#include "memory/winmem_state.h"

namespace kv {
namespace {

constexpr uint32_t kMaxRecords = 10000;

struct ReportRecord {
    const void* data;
    uint32_t size;
    uint32_t trailer;
    const char* file;
    uint32_t line;
    uint32_t time;
};

// Static so that nothing is allocated while the heap is locked.
ReportRecord Records[kMaxRecords];
uint32_t RecordCount = 0;

uint64_t RateTotal = 0;
clock_t RateClock = 0;

uint32_t ComputeRate() {
    const uint64_t total = AllocationTotal;
    const clock_t now = clock();
    float seconds = float(now - RateClock) / 1000.0f;
    if (seconds < 0.1f) seconds = 0.1f;
    const uint32_t rate = uint32_t(float(total - RateTotal) / seconds);
    RateTotal = total;
    RateClock = now;
    return rate;
}

void CollectRecords(uint32_t fromTime, uint32_t toTime) {
    RecordCount = 0;
    PROCESS_HEAP_ENTRY entry{};
    while (HeapWalk(Layout.heap, &entry)) {
        if (!(entry.wFlags & PROCESS_HEAP_ENTRY_BUSY) || entry.cbData < 9) continue;
        const char* block = static_cast<const char*>(entry.lpData);
        if (ReadU32(block + 4) != kShortMagic) continue;
        const uint32_t size = ReadU32(block);
        // A size word that does not fit the block is an element overwritten at its start.
        const uint32_t trailer =
            SIZE_T(size) + kPlainFrameBytes <= entry.cbData ? ReadU32(block + kShortHeaderBytes + size) : 0;
        InstrumentedTrailer t{};
        if (trailer == kPlainTrailer) {
            if (!Instrumentation.plainListing) continue;
        } else if (trailer == kInstrumentedTrailer) {
            if (!Instrumentation.instrumentedTrailers || RecordCount >= kMaxRecords) continue;
            memcpy(&t, block + kShortHeaderBytes + size, sizeof t);
            if (t.time < fromTime || t.time > toTime) continue;
        }
        if (RecordCount >= kMaxRecords) continue;
        Records[RecordCount++] = ReportRecord{block + kShortHeaderBytes, size, trailer, t.file, t.line, t.time};
    }
}

// The table's lines are gathered in a static batch and appended to the debug
// log a batch at a time: one flush and one size check per batch instead of
// per line, and no allocation while the table is printed. The bytes in the
// file are the same as line-by-line writes would give. A batch is flushed as
// soon as it fills the room left before the log rolls, so the log passes its
// size limit by one line at most, as with line-by-line writes.
class TableWriter {
public:
    TableWriter() : room_(DebugLogRoom()) {}
    ~TableWriter() { Flush(); }

    __attribute__((format(printf, 2, 3))) void Line(const char* format, ...) {
        va_list args;
        va_start(args, format);
        int length = vsnprintf(batch_ + used_, sizeof batch_ - used_, format, args);
        va_end(args);
        if (length < 0) return;
        if (size_t(length) >= sizeof batch_ - used_) {
            Flush();
            va_start(args, format);
            length = vsnprintf(batch_, sizeof batch_, format, args);
            va_end(args);
            if (length < 0 || size_t(length) >= sizeof batch_) return;  // longer than any real line
        }
        const char* added = batch_ + used_;
        for (const char* lf = added; (lf = static_cast<const char*>(memchr(lf, '\n', added + length - lf))); ++lf)
            ++lineEnds_;  // each becomes CR LF in the file
        used_ += size_t(length);
        if (used_ + lineEnds_ >= room_) Flush();
    }

    void Flush() {
        if (used_ == 0) return;
        AppendToDebugLog(crLf_, ToCrLf(batch_, used_, crLf_));
        used_ = 0;
        lineEnds_ = 0;
        room_ = DebugLogRoom();
    }

private:
    static char batch_[16384];
    static char crLf_[2 * sizeof batch_];
    size_t used_ = 0;
    size_t lineEnds_ = 0;
    size_t room_;
};
char TableWriter::batch_[16384];
char TableWriter::crLf_[2 * sizeof TableWriter::batch_];

// Local time as the table prints it; consecutive records mostly share a second,
// so the last conversion is kept.
class TimeText {
public:
    const char* For(uint32_t time) {
        if (valid_ && time == time_) return text_;
        strcpy(text_, "time_error");
        struct tm local;
        __time32_t t = __time32_t(time);
        if (_localtime32_s(&local, &t) == 0) strftime(text_, sizeof text_, "%Y-%m-%d %H:%M:%S", &local);
        time_ = time;
        valid_ = true;
        return text_;
    }

private:
    char text_[32];
    uint32_t time_ = 0;
    bool valid_ = false;
};

void WriteRecords() {
    const int pid = int(GetCurrentProcessId());
    uint32_t byteTotal = 0;
    {
        TableWriter table;
        TimeText when;
        table.Line("Type, Timestamp, Bytes, PID, Pointer, Source, Content\n");
        for (uint32_t i = 0; i < RecordCount; ++i) {
            const ReportRecord& r = Records[i];
            byteTotal += r.size;
            if (r.trailer == kInstrumentedTrailer) {
                table.Line("Buffer, %s, %05d, %05d, 0x%p, %s:%d, %s\n", when.For(r.time), int(r.size), pid, r.data,
                           r.file ? r.file : "", int(r.line), "");
            } else if (r.trailer == kPlainTrailer) {
                table.Line("Buffer, 000000000, %05d, %05d, 0x%p, , , %s\n", int(r.size), pid, r.data, "");
            } else {
                table.Line("Overwrite, 000000000, %05d, %05d, 0x%p, , %s\n", int(r.size), pid, r.data, "");
            }
        }
        if (RecordCount == kMaxRecords) table.Line("... (maximum buffer report count was reached)\n");
    }
    DbgLogWrite("Total memory buffers reported %d, net byte total %d\n", int(RecordCount), int(byteTotal));
}

void WriteHeapTable(uint32_t fromTime, uint32_t toTime) {
    DbgFileWrite("Walking hHeap %#p for PID %d...\n", Layout.heap, int(GetCurrentProcessId()));
    if (!HeapLock(Layout.heap)) {
        DbgFileWrite("Failed to lock hHeap with LastError %d.\n", int(GetLastError()));
        return;
    }
    CollectRecords(fromTime, toTime);
    if (!HeapUnlock(Layout.heap)) DbgFileWrite("Failed to unlock hHeap with LastError %d.\n", int(GetLastError()));
    EnterCriticalSection(&MemoryLock);
    WriteRecords();
    LeaveCriticalSection(&MemoryLock);
}

}  // namespace

void StartRateClock() {
    RateTotal = AllocationTotal;
    RateClock = clock();
}

void WriteMemoryReport(uint32_t fromTime, uint32_t toTime, bool rateOnly) {
    const DWORD pid = GetCurrentProcessId();
    if (!rateOnly) DbgLogWrite("Memory Report: %s PID %u - CmdLine %s\n", ExeName, unsigned(pid), CommandLine);
    const uint32_t rate = ComputeRate();
    DbgLogWrite("For PID %d, current memory allocation count %lld, rate since last report %u/s\n", int(pid),
                static_cast<long long>(AllocationsOutstanding), rate);
    if (rateOnly) return;
    WriteHeapTable(fromTime, toTime);
    DbgFileWrite("\n");
}

}  // namespace kv

extern "C" {

void DbgMemHeapReport(uint32_t fromTime, uint32_t toTime, int rateOnly) {
    kv::WriteMemoryReport(fromTime, toTime, rateOnly != 0);
}

uint64_t ReturnMemoryBufferCounts(uint64_t* outstanding, uint32_t* rate) {
    const uint32_t r = kv::ComputeRate();
    if (outstanding) *outstanding = kv::AllocationsOutstanding;
    if (rate) *rate = r;
    return kv::AllocationTotal;
}

}  // extern "C"
