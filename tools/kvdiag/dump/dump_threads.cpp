#include "dump/dump_threads.h"

#include <string.h>

#include <algorithm>

namespace kvdiag {

std::vector<DumpThread> ThreadsOf(const MappedDump& dump) {
    std::vector<DumpThread> threads;
    PMINIDUMP_DIRECTORY directory = nullptr;
    void* stream = nullptr;
    ULONG streamSize = 0;
    if (!dump.base() || !MiniDumpReadDumpStream(const_cast<BYTE*>(dump.base()), ThreadListStream, &directory, &stream,
                                                &streamSize))
        return threads;
    const uint64_t streamOffset = static_cast<const BYTE*>(stream) - dump.base();
    // The count and every entry are checked against both the stream's size and the file's end.
    const uint64_t room = std::min<uint64_t>(streamSize, dump.size() > streamOffset ? dump.size() - streamOffset : 0);
    if (room < sizeof(ULONG32)) return threads;
    const auto* list = static_cast<const MINIDUMP_THREAD_LIST*>(stream);
    const uint64_t fits = (room - sizeof(ULONG32)) / sizeof(MINIDUMP_THREAD);
    const uint64_t count = std::min<uint64_t>(list->NumberOfThreads, fits);
    for (uint64_t i = 0; i < count; ++i) {
        const MINIDUMP_THREAD& t = list->Threads[i];
        DumpThread thread;
        thread.id = t.ThreadId;
        const MINIDUMP_LOCATION_DESCRIPTOR& where = t.ThreadContext;
        thread.haveContext = where.DataSize >= sizeof(CONTEXT) && uint64_t(where.Rva) + sizeof(CONTEXT) <= dump.size();
        if (thread.haveContext) memcpy(&thread.context, dump.base() + where.Rva, sizeof(CONTEXT));
        threads.push_back(thread);
    }
    return threads;
}

}  // namespace kvdiag
