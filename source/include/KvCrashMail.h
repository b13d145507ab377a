// KvCrashMail.h - the crash report mail, handed to the user's MAPI mail client.
#pragma once

#include "KvExport.h"

// One recipient, at most one attachment (none when attachmentPath is null or
// empty), passed to MAPISendMail of MAPI32.DLL. Returns the MAPI result (0 is
// success), or 2 when MAPI is switched off in the Windows profile or missing.
KVDH_C_API unsigned long DbgHlpSendMail(const char* recipientName, const char* recipientAddress,
                                        const char* subject, const char* noteText,
                                        const char* attachmentFileName, const char* attachmentPath);

// The crash report to recipient (empty: the product's support mailbox) with
// the version and the current time in the subject. -1 when recipient is null,
// otherwise the result of DbgHlpSendMail.
KVDH_C_API int KvSendCrashHandlerMail(const char* recipient, const char* noteText, const char* attachmentPath);
