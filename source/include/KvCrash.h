// KvCrash.h - crash diagnostics: the exception class that carries its own
// call stack, and the minidump writer a host calls from its unhandled-exception
// filter.
#pragma once

#include <windows.h>
#include <dbghelp.h>
#include <stdint.h>

#include "KvCallStack.h"
#include "KvExport.h"

// Constructs and destroys one KvException (0xC0000010, "this is a dummy
// exception", KvException:125) so that a host can check its debug log, system
// log and call-stack output. Nothing is thrown; the argument is unused.
KVDH_C_API void KvExceptionCreateDummyException(uint64_t unused);

// Number of KvException objects alive in this process (every constructor,
// copy included, counts up; every destructor counts down). A leak check for
// hosts and the self-check.
KVDH_C_API long KvExceptionGetLiveCount(void);

// Writes a minidump of the current process, as much memory as the product INI
// file's [Debug]MiniDumpType says (0 none, 1 light, 2 light, 3 full memory),
// to the dump file of the product log folder (user.dmp). Call it from the
// unhandled-exception filter. Outcomes go to the system log only, as lines that
// begin "## EXCEPTION ## - ". With [Debug]HangProcessIfDumpFailed true a failed
// dump never returns: the process sleeps so that a debugger can attach.
KVDH_C_API void GenerateMiniDump(EXCEPTION_POINTERS* exceptionPointers);

#ifdef __cplusplus
#include <string>

// The exception the product throws for errors that must leave a trace.
// Constructing one records the raising process, thread, file and line, the
// error code and text, a private deep copy of the exception that caused it and
// the call stack, then writes all of it to the debug log (the first exception
// of a chain with a "Dump to follow" banner and a raw stack dump; the symbolic
// stack only while call-stack logging is on, see
// EnableCallStackAndAllocationInstrumentation) and a notice to the system log.
// Nothing reaches the debug log before the product INI file is validated.
// Copies and assignments log nothing. KvExceptionGetStackText (below) gives
// the stack as named text at any time.
class KVDH_API KvException {
public:
    static const int kCallStackSize = 40;

    KvException(long hResult, const std::string& description, const KvException* previous,
                const std::string& fileName, int lineNumber);
    // Deep copy of the chain; only the first 20 stack entries are copied, the
    // copy's stack count and its last 20 entries read 0.
    KvException(const KvException& other);
    // Copies every field; the previous exception is shared with 'other' (the
    // same object, see the implementation for how it is freed once).
    KvException& operator=(const KvException& other);
    virtual ~KvException();

    const KvException* getLastException() const;
    long getHResult() const;
    const std::string getDescription() const;
    const std::string getFileName() const;
    int getLineNumber() const;
    unsigned long getThreadID() const;
    // The 40-entry array of return addresses captured at construction.
    const uint64_t* getCallStackArray() const;

protected:
    void writeToLogFile();

private:
    KvException* previous;
    long hResult;
    std::string description;
    std::string fileName;
    uint32_t processId;
    int lineNumber;
    unsigned long threadId;
    uint32_t callStackCount;
    uint64_t callStack[kCallStackSize];
};

// The call stack captured when the exception was constructed, as named text
// (DbgHlpFormatCallStack: one line a frame, whether or not call-stack logging
// is on). A copy names its first 20 frames. Returns the length, -1 (text null,
// size 0, or too small: the whole lines that fit are written) or -2 (null
// exception, no symbol handler).
extern "C" KVDH_API int KvExceptionGetStackText(const KvException* exception, char* text, uint32_t size);

// One minidump write. The derived classes decide how much memory goes in (dump
// type flags) and filter what the minidump service offers (Callback).
class KVDH_API MiniDump {
public:
    // Takes ownership of file (closed by the destructor, if valid).
    MiniDump(HANDLE file, EXCEPTION_POINTERS* exceptionPointers);
    virtual ~MiniDump();
    MiniDump(const MiniDump&) = delete;
    MiniDump& operator=(const MiniDump&) = delete;

    virtual HANDLE GetProcessHandle();
    virtual DWORD GetProcessId();
    virtual MINIDUMP_TYPE GetDumpType() = 0;
    // The exception of the crashing (current) thread.
    virtual void GetExceptionInfo(MINIDUMP_EXCEPTION_INFORMATION& info, bool& present);
    // No user streams are written.
    virtual void GetUserStreamInfo(MINIDUMP_USER_STREAM_INFORMATION& info, bool& present);
    // A routine that forwards every callback to this object's Callback.
    virtual void GetCallbackInfo(MINIDUMP_CALLBACK_INFORMATION& info, bool& present);
    virtual BOOL Callback(const MINIDUMP_CALLBACK_INPUT* input, MINIDUMP_CALLBACK_OUTPUT* output);

    // 0 on success; 0x80070005 when the file is null or invalid, 0x80070057
    // when the exception pointers are null, 0x80004005 when the dump fails.
    HRESULT WriteDump();

protected:
    HANDLE file;
    EXCEPTION_POINTERS* exceptionPointers;

private:
    static BOOL WINAPI ForwardCallback(PVOID param, const PMINIDUMP_CALLBACK_INPUT input,
                                       PMINIDUMP_CALLBACK_OUTPUT output);
};

// Stacks and the memory they reference; only modules that memory refers to.
class KVDH_API LightMiniDump : public MiniDump {
public:
    LightMiniDump(HANDLE file, EXCEPTION_POINTERS* exceptionPointers);
    MINIDUMP_TYPE GetDumpType() override;
    BOOL Callback(const MINIDUMP_CALLBACK_INPUT* input, MINIDUMP_CALLBACK_OUTPUT* output) override;
};

// Data segments, handles, thread data and private read-write memory; module
// data segments are not written. Kept for 32-bit hosts: this 64-bit build
// never selects it.
class KVDH_API MediumMiniDump : public MiniDump {
public:
    MediumMiniDump(HANDLE file, EXCEPTION_POINTERS* exceptionPointers);
    MINIDUMP_TYPE GetDumpType() override;
    BOOL Callback(const MINIDUMP_CALLBACK_INPUT* input, MINIDUMP_CALLBACK_OUTPUT* output) override;
};

// The full memory of the process, unfiltered (no callback).
class KVDH_API HeavyMiniDump : public MiniDump {
public:
    HeavyMiniDump(HANDLE file, EXCEPTION_POINTERS* exceptionPointers);
    MINIDUMP_TYPE GetDumpType() override;
    void GetCallbackInfo(MINIDUMP_CALLBACK_INFORMATION& info, bool& present) override;
    BOOL Callback(const MINIDUMP_CALLBACK_INPUT* input, MINIDUMP_CALLBACK_OUTPUT* output) override;
};

#endif  // __cplusplus
