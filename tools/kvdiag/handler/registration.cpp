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
    Failure refusal;
    if (registration.protocol != kv::kCrashHandlerProtocol)
        refusal = Failure("protocol " + std::to_string(registration.protocol) + ", this handler speaks " +
                          std::to_string(kv::kCrashHandlerProtocol));
    else if (clientId == 0 || registration.processId != clientId)
        refusal = Failure("it registers process " + std::to_string(registration.processId) + ", not itself");
    else if (!(refusal = ServeClient(registration, connected)))
        reply.handlerProcessId = GetCurrentProcessId();
    if (refusal) {
        HandlerSay("process %lu refused: %s", static_cast<unsigned long>(clientId), refusal.text().c_str());
        snprintf(reply.refusal, sizeof reply.refusal, "%s", refusal.text().c_str());
    }
    // Disconnecting discards what the client has not read yet: the reply is
    // left until the client closes its end (the read below then fails at
    // once), or for the time limit.
    char none;
    if (kv::PipeTransfer(pipe, &reply, sizeof reply, true, kRegistrationMs))
        kv::PipeTransfer(pipe, &none, sizeof none, false, kRegistrationMs);
}

}  // namespace kvdiag
