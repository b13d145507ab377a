// The crash report mail: Simple MAPI's MAPISendMail, loaded for each call.
#include <windows.h>
#include <mapi.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <string>

#include "KvCrashMail.h"
#include "KvLogging.h"

namespace {

// The product's support mailbox, used when the caller names no recipient.
constexpr char kSupportAddress[] = "support@korvan-scada.com";
constexpr int kVersionMajor = 8, kVersionMinor = 40, kVersionBuild = 487;

// Version and time of the subject. Shared by all calls, so two simultaneous
// crash mails race on it, as documented for the export.
char g_subjectParts[128];

struct LibraryHolder {
    HMODULE module;
    ~LibraryHolder() {
        if (module) FreeLibrary(module);
    }
};

}  // namespace

extern "C" unsigned long DbgHlpSendMail(const char* recipientName, const char* recipientAddress,
                                        const char* subject, const char* noteText,
                                        const char* attachmentFileName, const char* attachmentPath) {
    if (GetProfileIntA("MAIL", "MAPI", 1) == 0) return MAPI_E_FAILURE;
    LibraryHolder mapi{LoadLibraryA("MAPI32.DLL")};
    if (!mapi.module) return MAPI_E_FAILURE;
    auto send = reinterpret_cast<LPMAPISENDMAIL>(reinterpret_cast<void*>(GetProcAddress(mapi.module, "MAPISendMail")));
    if (!send) return MAPI_E_FAILURE;

    MapiRecipDesc recipient{};
    recipient.ulRecipClass = MAPI_TO;
    recipient.lpszName = const_cast<char*>(recipientName);
    recipient.lpszAddress = const_cast<char*>(recipientAddress);

    MapiFileDesc file{};
    file.nPosition = 0xFFFFFFFF;  // no position in the text
    file.lpszPathName = const_cast<char*>(attachmentPath);
    file.lpszFileName = const_cast<char*>(attachmentFileName);

    MapiMessage message{};
    message.lpszSubject = const_cast<char*>(subject);
    message.lpszNoteText = const_cast<char*>(noteText);
    message.nRecipCount = 1;
    message.lpRecips = &recipient;
    message.nFileCount = (attachmentPath && *attachmentPath) ? 1 : 0;
    message.lpFiles = &file;

    // No logon dialog, no UI flag: the mail client decides what to show.
    return send(0, 0, &message, 0, 0);
}

extern "C" int KvSendCrashHandlerMail(const char* recipient, const char* noteText, const char* attachmentPath) {
    if (!recipient) return -1;
    const std::string name = *recipient ? recipient : kSupportAddress;
    const std::string address = "SMTP:" + name;  // always prefixed

    char dateTime[64] = {};
    GetDateTimeString(dateTime, nullptr);
    snprintf(g_subjectParts, sizeof g_subjectParts, "v%d.%d.0.%d -", kVersionMajor, kVersionMinor, kVersionBuild);
    std::string subject = std::string("Korvan32 crash details message ") + g_subjectParts;
    // The debug log's date-time text as the log writes it (its tab included)
    // and one blank: support desks filter crash mails on this exact subject.
    snprintf(g_subjectParts, sizeof g_subjectParts, "%s ", dateTime);
    subject += g_subjectParts;

    std::string fileName;
    if (attachmentPath && strlen(attachmentPath) < _MAX_PATH) {
        char base[_MAX_FNAME] = {}, ext[_MAX_EXT] = {};
        _splitpath(attachmentPath, nullptr, nullptr, base, ext);
        if (*base) fileName = std::string(base) + ext;
    }
    return int(DbgHlpSendMail(name.c_str(), address.c_str(), subject.c_str(), noteText, fileName.c_str(),
                              attachmentPath));
}
