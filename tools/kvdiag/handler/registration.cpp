#include "handler/registration.h"

#include <stdio.h>

#include <string>

#include "crash/pipe_transfer.h"
#include "handler/handler_client.h"
#include "handler/handler_log.h"

namespace kvdiag {

void ServeConnection(HANDLE pipe, const FILETIME& connected) {
    ULONG clientId = 0;
    if (!GetNamedPipeClientProcessId(pipe, &clientId)) clientId = 0;
    kv::CrashRegistration registration{};
    if (!kv::PipeTransfer(pipe, &registration, sizeof registration, false, kRegistrationMs)) {
        HandlerSay("process %lu connected without registering: dropped", static_cast<unsigned long>(clientId));
        return;
    }
    kv::CrashRegistrationReply reply{kv::kCrashHandlerProtocol, 0, ""};
    std::string refusal;
    if (registration.protocol != kv::kCrashHandlerProtocol)
        refusal = "protocol " + std::to_string(registration.protocol) + ", this handler speaks " +
                  std::to_string(kv::kCrashHandlerProtocol);
    else if (clientId == 0 || registration.processId != clientId)
        refusal = "it registers process " + std::to_string(registration.processId) + ", not itself";
    else if (ServeClient(registration, connected, refusal))
        reply.handlerProcessId = GetCurrentProcessId();
    if (!refusal.empty()) {
        HandlerSay("process %lu refused: %s", static_cast<unsigned long>(clientId), refusal.c_str());
        snprintf(reply.refusal, sizeof reply.refusal, "%s", refusal.c_str());
    }
    // Disconnecting discards what the client has not read yet: the reply is
    // left until the client closes its end (the read below then fails at
    // once), or for the time limit.
    char none;
    if (kv::PipeTransfer(pipe, &reply, sizeof reply, true, kRegistrationMs))
        kv::PipeTransfer(pipe, &none, sizeof none, false, kRegistrationMs);
}

}  // namespace kvdiag
