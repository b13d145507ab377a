// The account checks of the crash handler's pipe, shared by both ends: one
// handler per account, logon session and integrity level, on a pipe named for
// them that admits that account only; a client registers only with a handler of its own
// account, and the handler serves only processes of its own.
//
// On Windows the pipe's access list keeps other accounts out and the token
// checks below tell a stranger that created the pipe name first. Wine runs
// every process as one user and enforces no access list: there only the
// access-list check of VerifyPipeServer tells a stranger from the handler.
#pragma once

#include <windows.h>
#include <aclapi.h>
#include <sddl.h>
#include <stdio.h>

#include <string>

#include "platform/owned_handle.h"

namespace kv {

// A SID copied out of a token.
struct AccountSid {
    alignas(8) BYTE bytes[SECURITY_MAX_SID_SIZE];
    PSID get() { return bytes; }
};

// The user account a process runs under (it needs PROCESS_QUERY_LIMITED_INFORMATION).
inline bool AccountOf(HANDLE process, AccountSid& sid) {
    platform::KernelHandle token;
    if (!OpenProcessToken(process, TOKEN_QUERY, token.put())) return false;
    union {
        TOKEN_USER user;
        BYTE bytes[sizeof(TOKEN_USER) + SECURITY_MAX_SID_SIZE];
    } info;
    DWORD size = 0;
    return GetTokenInformation(token.get(), TokenUser, &info, sizeof info, &size) &&
           CopySid(sizeof sid.bytes, sid.bytes, info.user.User.Sid);
}

// The integrity level of a process (the last part of its token's mandatory
// label: 0x2000 medium, 0x3000 high, ...); 0 when it cannot be read.
inline DWORD IntegrityOf(HANDLE process) {
    platform::KernelHandle token;
    if (!OpenProcessToken(process, TOKEN_QUERY, token.put())) return 0;
    union {
        TOKEN_MANDATORY_LABEL label;
        BYTE bytes[sizeof(TOKEN_MANDATORY_LABEL) + SECURITY_MAX_SID_SIZE];
    } info;
    DWORD size = 0, level = 0;
    if (GetTokenInformation(token.get(), TokenIntegrityLevel, &info, sizeof info, &size))
        level = *GetSidSubAuthority(info.label.Label.Sid, *GetSidSubAuthorityCount(info.label.Label.Sid) - 1);
    return level;
}

// True when process runs under this process's account, in this logon
// session, at this integrity level: an elevated process and a plain one of
// the same account each have their own handler, so that none is ever served
// by a process with more rights than it has.
inline bool OfOwnAccountSessionAndLevel(HANDLE process) {
    AccountSid own, other;
    DWORD ownSession = 0, otherSession = 0;
    return AccountOf(GetCurrentProcess(), own) && AccountOf(process, other) && EqualSid(own.get(), other.get()) &&
           ProcessIdToSessionId(GetCurrentProcessId(), &ownSession) &&
           ProcessIdToSessionId(GetProcessId(process), &otherSession) && ownSession == otherSession &&
           IntegrityOf(GetCurrentProcess()) == IntegrityOf(process);
}

constexpr size_t kPipeNameRoom = 256;

// \\.\pipe\KvDebugHelp.CrashHandler.<session>.<account SID>.<integrity level>;
// false when this process's account cannot be read.
inline bool CrashHandlerPipeName(char (&name)[kPipeNameRoom]) {
    AccountSid own;
    char* text = nullptr;
    DWORD session = 0;
    if (!AccountOf(GetCurrentProcess(), own) || !ProcessIdToSessionId(GetCurrentProcessId(), &session) ||
        !ConvertSidToStringSidA(own.get(), &text))
        return false;
    const int n = snprintf(name, sizeof name, "\\\\.\\pipe\\KvDebugHelp.CrashHandler.%lu.%s.%lx",
                           static_cast<unsigned long>(session), text,
                           static_cast<unsigned long>(IntegrityOf(GetCurrentProcess())));
    LocalFree(text);
    return n > 0 && size_t(n) < sizeof name;
}

// True when the pipe's access list admits no account but this process's
// (deny entries may name anyone). An access list that cannot be read, or
// none at all (everyone admitted), fails.
inline bool PipeAdmitsOwnAccountOnly(HANDLE pipe) {
    PACL dacl = nullptr;
    PSECURITY_DESCRIPTOR descriptor = nullptr;
    if (GetSecurityInfo(pipe, SE_KERNEL_OBJECT, DACL_SECURITY_INFORMATION, nullptr, nullptr, &dacl, nullptr,
                        &descriptor) != ERROR_SUCCESS)
        return false;
    AccountSid own;
    bool only = dacl != nullptr && AccountOf(GetCurrentProcess(), own);
    for (DWORD i = 0; only && i < dacl->AceCount; ++i) {
        ACE_HEADER* ace = nullptr;
        if (!GetAce(dacl, i, reinterpret_cast<void**>(&ace))) only = false;
        else if (ace->AceType == ACCESS_ALLOWED_ACE_TYPE)
            only = EqualSid(&reinterpret_cast<ACCESS_ALLOWED_ACE*>(ace)->SidStart, own.get()) != FALSE;
        else if (ace->AceType != ACCESS_DENIED_ACE_TYPE) only = false;  // callback and object entries: not ours
    }
    LocalFree(descriptor);
    return only;
}

// Checks the process serving a pipe this process opened: it must run under
// this account in this session, and the pipe must admit this account only.
// Returns that process (SYNCHRONIZE | PROCESS_QUERY_LIMITED_INFORMATION), or
// null with the reason in words.
inline HANDLE VerifyPipeServer(HANDLE pipe, std::string& reason) {
    ULONG serverId = 0;
    if (!GetNamedPipeServerProcessId(pipe, &serverId)) {
        reason = "the pipe does not tell its server process (error " + std::to_string(GetLastError()) + ")";
        return nullptr;
    }
    const std::string who = "process " + std::to_string(serverId);
    platform::KernelHandle server(OpenProcess(SYNCHRONIZE | PROCESS_QUERY_LIMITED_INFORMATION, FALSE, serverId));
    if (!server) {
        reason = who + " serves the pipe and cannot be opened (error " + std::to_string(GetLastError()) + ")";
        return nullptr;
    }
    if (!OfOwnAccountSessionAndLevel(server.get()))
        reason = who + " serves the pipe under another account, session or integrity level";
    else if (!PipeAdmitsOwnAccountOnly(pipe)) reason = who + " serves the pipe with an access list that admits others";
    else return server.release();
    return nullptr;
}

}  // namespace kv
