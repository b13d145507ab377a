// Allocation instrumentation: the switches, the real source location of an
// allocation (cached per return address), the allocation watcher and the
// symbolic stack with the script engine's own stack.
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <unordered_map>

#include "KvCallStack.h"
#include "KvLogging.h"
#include "crash/callstack_caller.h"
#include "crash/callstack_state.h"
#include "crash/callstack_symbols.h"
#include "frame/process_state.h"
#include "platform/lock_scope.h"

namespace kv {
namespace {

constexpr int kMaxFrames = 40;
// Frames captured first for a location: the site is nearly always among them,
// and under Wine each frame unwound costs about a microsecond.
constexpr int kFirstFrames = 8;
constexpr int kMaxSkipFragments = 19;
constexpr size_t kFragmentRoom = 32;
constexpr int kPoolEntries = 1000;
constexpr size_t kNameRoom = 32;
constexpr size_t kWatchRoom = 31;

struct CallStackLockScope : platform::LockScope {
    CallStackLockScope() : LockScope(CallStackLock) {}
};

// Split in place: a later call with an empty list sees only the first fragment.
char DefaultSkipList[] = "vc\\include;source\\include;kor\\commonlibrary;api\\common;\\kvanmobj;\\winmem";
char SkipFragments[kMaxSkipFragments][kFragmentRoom];
int SkipFragmentCount = 0;

void* Frames[kMaxFrames];

struct Location {
    const char* file;
    uint32_t line;
};

// What one return address contributes to a location, asked of the symbol
// handler once per address: a frame without line information, or whose file
// is in the skip list, is passed over; any other decides the location (none
// when its name found no room in the pool or its line is 0). Keyed by
// address rather than by the hash of a whole stack, a new stack costs a
// lookup only for the addresses it has not shown before.
struct FrameSite {
    bool decides;
    Location location;
};
std::unordered_map<const void*, FrameSite> SiteCache;

// Interned file names live until the process ends: trailers point at them.
char NamePool[kPoolEntries][kNameRoom];
int NamePoolUsed = 0;  // entry 0 is never used
char LastName[kNameRoom];
const char* LastNameResult = nullptr;

struct Watcher {
    char file[kWatchRoom] = "";
    uint32_t line = 0;
    int limit = 0;
    int triggers = 0;
    bool armed = false;
} Watch;

KvcodeStackDumpFn KvcodeStackDump = nullptr;

void KeepTail(char* out, size_t room, const char* text) {
    const size_t length = strlen(text);
    strcpy(out, length < room ? text : text + length - (room - 1));
}

void SplitSkipList(char* list) {
    SkipFragmentCount = 0;
    char* piece = list;
    while (piece && SkipFragmentCount < kMaxSkipFragments) {
        char* end = strchr(piece, ';');
        if (end) *end = 0;
        if (*piece) KeepTail(SkipFragments[SkipFragmentCount++], kFragmentRoom, piece);
        piece = end ? end + 1 : nullptr;
    }
}

bool InSkipList(const char* file) {
    for (int i = 0; i < SkipFragmentCount; ++i)
        if (strstr(file, SkipFragments[i])) return true;
    return false;
}

const char* InternName(const char* name) {
    if (LastNameResult && memcmp(name, LastName, kNameRoom) == 0) return LastNameResult;
    const char* result = nullptr;
    for (int i = 1; i <= NamePoolUsed; ++i)
        if (strcmp(NamePool[i], name) == 0) result = NamePool[i];
    if (!result) {
        if (NamePoolUsed >= kPoolEntries - 1) return nullptr;
        result = strcpy(NamePool[++NamePoolUsed], name);
    }
    memcpy(LastName, name, kNameRoom);
    LastNameResult = result;
    return result;
}

// A frame in a module of the Windows folder: the thread start in kernel32,
// the loader, a system DLL calling back into the host. Such a frame never
// names an allocation site, even where the module has line information (Wine
// builds its own DLLs with it): below a host frame without lines it would
// blame kernel32's thread start for every allocation of the host. (Windows'
// own public PDBs carry no lines, so there this changes nothing.)
bool InSystemModule(const void* frame) {
    // The symbol handler's module list, not the loader's: no loader lock is
    // taken while CallStackLock is held.
    static char windows[MAX_PATH];
    static UINT folder = GetSystemWindowsDirectoryA(windows, sizeof windows);
    IMAGEHLP_MODULE64 module{};
    module.SizeOfStruct = sizeof module;
    if (!folder || folder >= sizeof windows ||
        !Symbols.moduleInfo(SymbolProcess, reinterpret_cast<DWORD64>(frame), &module))
        return false;
    return _strnicmp(module.ImageName, windows, folder) == 0 && module.ImageName[folder] == '\\';
}

FrameSite SiteOf(const void* frame) {
    const auto cached = SiteCache.find(frame);
    if (cached != SiteCache.end()) return cached->second;
    FrameSite site{false, {nullptr, 0}};
    const char* file;
    uint32_t line;
    if (!InSystemModule(frame) && SourceLineOf(const_cast<void*>(frame), file, line) && !InSkipList(file)) {
        // The pool form: the last 31 characters, and a leading "*" that marks
        // a name that may have been cut.
        char name[kNameRoom] = {};
        KeepTail(name, kNameRoom, file);
        if (strlen(name) > 1) name[0] = '*';
        const char* interned = InternName(name);
        site = {true, interned && line != 0 ? Location{interned, line} : Location{nullptr, 0}};
    }
    SiteCache.emplace(frame, site);
    return site;
}

// The location that frames [from, count) decide; false when none decides.
bool FindLocation(uint16_t from, uint16_t count, Location& found) {
    for (uint16_t i = from; i < count; ++i) {
        const FrameSite site = SiteOf(Frames[i]);
        if (!site.decides) continue;
        found = site.location;
        return true;
    }
    return false;
}

void CheckWatcher(const char* file, uint32_t line, uint16_t frameCount) {
    if (!Watch.armed || line != Watch.line || !file || !strstr(file, Watch.file)) return;
    DbgLogWrite("Memory Alloc StackTrace Trigger on %s:%d\n", Watch.file, int(Watch.line));
    LogInstrumentedAndKvcodeCallStacks(Frames, frameCount);
    if (++Watch.triggers >= Watch.limit) Watch.armed = false;
}

}  // namespace
}  // namespace kv

extern "C" {

int IsInstrumentationEnabled(void) {
    return kv::Instrumentation.callStackLogging || kv::Instrumentation.locationLookup;
}

void EnableCallStackAndAllocationInstrumentation(int callStacks, int allocationMode, char* skipList,
                                                 int reportAtUnload) {
    using namespace kv;
    CallStackLockScope lock;
    const bool lookupMode = (allocationMode & ~4) == 2;
    const bool active = callStacks || lookupMode;
    if (active) {
        SplitSkipList(skipList && *skipList ? skipList : DefaultSkipList);
        SiteCache.clear();  // what a frame decides depends on the skip list
        InitializeSymbols(true);
    }
    const bool ready = Instrumentation.symbolsReady;
    Instrumentation.callStackLogging = active && ready && callStacks;
    Instrumentation.locationLookup = ready && lookupMode;
    Instrumentation.reportAtUnload = reportAtUnload != 0;
    Instrumentation.instrumentedTrailers = allocationMode != 0;
    Instrumentation.plainListing = (allocationMode & 4) != 0;
}

int SetAllocationWatcher(const char* spec) {
    using namespace kv;
    char text[256] = "";
    if (spec) snprintf(text, sizeof text, "%s", spec);
    char* line = strchr(text, ':');
    if (line) *line++ = 0;
    char* limit = line ? strchr(line, ':') : nullptr;
    if (limit) *limit++ = 0;
    CallStackLockScope lock;
    Watch.line = line ? uint32_t(atoi(line)) : 0;
    Watch.limit = limit ? atoi(limit) : 0;
    Watch.triggers = 0;
    Watch.armed = Watch.limit != 0;
    const size_t length = strlen(text);
    return strcpy_s(Watch.file, sizeof Watch.file, length < kWatchRoom ? text : text + length - (kWatchRoom - 1));
}

void RegisterKvcodeStackDump(KvcodeStackDumpFn callback) { kv::KvcodeStackDump = callback; }

uint32_t GetActualAllocationLocation(uint32_t skip, const char* file, uint32_t line, const char** outFile) {
    using namespace kv;
    static const char kEmpty[] = "";
    if (!Instrumentation.locationLookup) {
        if (outFile) *outFile = kEmpty;
        return 0;
    }
    CallStackLockScope lock;
    // An armed watcher logs whole stacks, so it gets all frames at once.
    uint16_t count = Capture(skip + 1, Watch.armed ? kMaxFrames : kFirstFrames, Frames);
    Location found{nullptr, 0};
    if (!FindLocation(0, count, found) && count == kFirstFrames) {
        count = Capture(skip + 1, kMaxFrames, Frames);
        FindLocation(kFirstFrames, count, found);
    }
    const char* resultFile = found.file;
    if (!found.file) {
        if (!Watch.armed) {
            if (outFile) *outFile = kEmpty;
            return 0;
        }
        resultFile = file;
        CheckWatcher(file, line, count);
    } else {
        CheckWatcher(found.file, found.line, count);
    }
    if (outFile) *outFile = resultFile ? resultFile : kEmpty;
    return found.line;
}

void LogInstrumentedAndKvcodeCallStacks(void** frames, uint32_t count) {
    using namespace kv;
    if (!Instrumentation.callStackLogging) return;
    CallStackLockScope lock;
    if (!frames) {
        count = CaptureFromCaller(Frames, kMaxFrames);
        frames = Frames;
    }
    const char* text = FormatStackText(frames, count);
    DbgFileWrite("%s\n", text);
    if (KvcodeStackDump && (strstr(text, "(Client.dll) CodeSlice") || strstr(text, "(Client.dll) PageCodeExec"))) {
        char kvcode[500] = "";
        KvcodeStackDump(kvcode, sizeof kvcode);
        kvcode[sizeof kvcode - 1] = 0;
        DbgFileWrite("=> Kvcode detected, kvcode trace:\n");
        DbgFileWrite("%s\n\n", kvcode);
    }
}

}  // extern "C"
