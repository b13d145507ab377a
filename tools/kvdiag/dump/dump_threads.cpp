#include "dump/dump_threads.h"

namespace kvdiag {

std::vector<DumpThread> ThreadsOf(const DumpView& dump) {
    std::vector<DumpThread> threads;
    for (const MINIDUMP_THREAD& t : dump.List<MINIDUMP_THREAD>(ThreadListStream)) {
        DumpThread thread;
        thread.id = t.ThreadId;
        thread.haveContext =
            t.ThreadContext.DataSize >= sizeof(CONTEXT) && dump.file().Read(t.ThreadContext.Rva, thread.context);
        threads.push_back(thread);
    }
    return threads;
}

}  // namespace kvdiag
