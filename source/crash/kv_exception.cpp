// KvException: construction records and logs; copies and assignment do not.
#include "KvCrash.h"

#include <string.h>

#include <unordered_map>

#include "KvCallStack.h"
#include "KvLogging.h"
#include "KvMemory.h"
#include "crash/callstack_caller.h"

namespace {

volatile long liveCount = 0;

// Assignment makes two exceptions point at the same previous copy. Instead of
// giving every object a reference count (which would change the exported
// layout), the extra owners of such a shared copy are counted here: a
// destructor that finds its previous copy in this table only drops one owner,
// and the last owner deletes it. Only assigned exceptions ever get an entry.
SRWLOCK sharedLock = SRWLOCK_INIT;
std::unordered_map<const KvException*, unsigned>* extraOwners = nullptr;

void AddOwner(const KvException* shared) {
    AcquireSRWLockExclusive(&sharedLock);
    if (!extraOwners) extraOwners = new std::unordered_map<const KvException*, unsigned>();
    ++(*extraOwners)[shared];
    ReleaseSRWLockExclusive(&sharedLock);
}

// True when another owner keeps the copy alive (one owner was dropped).
bool DropExtraOwner(const KvException* shared) {
    bool kept = false;
    AcquireSRWLockExclusive(&sharedLock);
    if (extraOwners) {
        auto it = extraOwners->find(shared);
        if (it != extraOwners->end()) {
            kept = true;
            if (--it->second == 0) extraOwners->erase(it);
        }
    }
    ReleaseSRWLockExclusive(&sharedLock);
    return kept;
}

void Release(KvException*& previous) {
    if (previous && !DropExtraOwner(previous)) delete previous;
    previous = nullptr;
}

}  // namespace

KvException::KvException(long hResult_, const std::string& description_, const KvException* previous_,
                         const std::string& fileName_, int lineNumber_)
    : previous(nullptr),
      hResult(hResult_),
      description(description_),
      fileName(fileName_),
      processId(GetCurrentProcessId()),
      lineNumber(lineNumber_),
      threadId(GetCurrentThreadId()),
      callStackCount(0),
      callStack{} {
    if (previous_) previous = new KvException(*previous_);
    InterlockedIncrement(&liveCount);
    callStackCount = kv::CaptureFromCaller(reinterpret_cast<void**>(callStack), kCallStackSize);
    writeToLogFile();
}

KvException::KvException(const KvException& other)
    : previous(nullptr),
      hResult(other.hResult),
      description(other.description),
      fileName(other.fileName),
      processId(other.processId),
      lineNumber(other.lineNumber),
      threadId(other.threadId),
      callStackCount(0),
      callStack{} {
    // Deep copy: if it throws, the strings are released by the unwinding and
    // nothing else was allocated yet.
    if (other.previous) previous = new KvException(*other.previous);
    memcpy(callStack, other.callStack, 20 * sizeof callStack[0]);
    InterlockedIncrement(&liveCount);
}

KvException& KvException::operator=(const KvException& other) {
    if (this == &other) return *this;
    // other may live in this exception's own chain (cur = *cur.getLastException()),
    // so everything is taken from it before the old chain is released, and
    // nothing of it is read afterwards. The string copies come first: if they
    // throw, this object is unchanged.
    std::string newDescription = other.description;
    std::string newFileName = other.fileName;
    KvException* shared = other.previous;
    if (shared) AddOwner(shared);
    KvException* old = previous;
    previous = shared;
    hResult = other.hResult;
    description.swap(newDescription);
    fileName.swap(newFileName);
    processId = other.processId;
    lineNumber = other.lineNumber;
    threadId = other.threadId;
    callStackCount = other.callStackCount;
    memcpy(callStack, other.callStack, sizeof callStack);
    Release(old);
    return *this;
}

KvException::~KvException() {
    Release(previous);
    InterlockedDecrement(&liveCount);
}

const KvException* KvException::getLastException() const { return previous; }
long KvException::getHResult() const { return hResult; }
const std::string KvException::getDescription() const { return description; }
const std::string KvException::getFileName() const { return fileName; }
int KvException::getLineNumber() const { return lineNumber; }
unsigned long KvException::getThreadID() const { return threadId; }
const uint64_t* KvException::getCallStackArray() const { return callStack; }

void KvException::writeToLogFile() {
    if (!previous) {
        DbgFileWrite("%s", "\n*** KvException Dump to follow ***\n");
        DbgHlpDumpStack();
    }
    DbgLogWrite("KvException : pid=%d thread_id=0x%04x description:\"%s\" error=0x%08x (%s:%04d)\n",
                static_cast<int>(processId), static_cast<unsigned>(threadId), description.c_str(),
                static_cast<unsigned>(hResult), fileName.c_str(), lineNumber);
    DbgFileWrite("\n");
    LogInstrumentedAndKvcodeCallStacks(reinterpret_cast<void**>(callStack), callStackCount);
    DirectSyslogWrite("An error has been detected. \"%s\", error code: 0x%08x", description.c_str(),
                      static_cast<unsigned>(hResult));
}

extern "C" void KvExceptionCreateDummyException(uint64_t) {
    KvException dummy(static_cast<long>(0xC0000010), "this is a dummy exception", nullptr, "KvException", 125);
}

extern "C" long KvExceptionGetLiveCount(void) { return liveCount; }
