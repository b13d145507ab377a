#include "handler/pipe_listener.h"

#include <memory>

#include "handler/handler_log.h"
#include "platform/error_text.h"

namespace kvdiag {
namespace {

volatile LONG connections = 0;

struct Connection {
    kv::platform::FileHandle pipe;
    FILETIME connected;
    PipeListener::ServeFn serve;
};

DWORD WINAPI ServeOne(void* parameter) {
    std::unique_ptr<Connection> c(static_cast<Connection*>(parameter));
    c->serve(c->pipe.get(), c->connected);
    DisconnectNamedPipe(c->pipe.get());
    c.reset();
    InterlockedDecrement(&connections);
    return 0;
}

}  // namespace

HANDLE PipeListener::Create(DWORD firstFlag) {
    SECURITY_ATTRIBUTES* security = security_.get();
    if (!security) return INVALID_HANDLE_VALUE;
    return CreateNamedPipeA(name_, PIPE_ACCESS_DUPLEX | FILE_FLAG_OVERLAPPED | firstFlag,
                            PIPE_TYPE_BYTE | PIPE_READMODE_BYTE | PIPE_WAIT | PIPE_REJECT_REMOTE_CLIENTS,
                            PIPE_UNLIMITED_INSTANCES, 4096, 4096, 0, security);
}

bool PipeListener::Claim() {
    *instances_[0].pipe.put() = Create(FILE_FLAG_FIRST_PIPE_INSTANCE);
    return instances_[0].pipe.valid();
}

// Starts waiting for a client; the instance's event is set when one came.
bool PipeListener::Listen(Instance& instance) {
    if (!instance.event) *instance.event.put() = CreateEventA(nullptr, TRUE, FALSE, nullptr);
    if (!instance.pipe) *instance.pipe.put() = Create(0);
    if (!instance.pipe || !instance.event) return false;
    instance.overlapped = OVERLAPPED{};
    instance.overlapped.hEvent = instance.event.get();
    if (ConnectNamedPipe(instance.pipe.get(), &instance.overlapped)) return true;  // the event is set
    const DWORD error = GetLastError();
    if (error == ERROR_PIPE_CONNECTED) SetEvent(instance.event.get());  // came between creation and here
    if (error == ERROR_PIPE_CONNECTED || error == ERROR_IO_PENDING) return true;
    instance.pipe.reset();
    return false;
}

void PipeListener::HandOver(Instance& instance, ServeFn serve) {
    DWORD unused = 0;
    const bool connected = GetOverlappedResult(instance.pipe.get(), &instance.overlapped, &unused, FALSE) ||
                           GetLastError() == ERROR_PIPE_CONNECTED;
    ResetEvent(instance.event.get());
    auto connection = std::make_unique<Connection>();
    connection->serve = serve;
    GetSystemTimeAsFileTime(&connection->connected);
    if (!connected) {
        // Gone before it was served: the instance listens again.
        DisconnectNamedPipe(instance.pipe.get());
        return;
    }
    InterlockedIncrement(&connections);
    connection->pipe = std::move(instance.pipe);
    const kv::platform::KernelHandle thread(CreateThread(nullptr, 0, ServeOne, connection.get(), 0, nullptr));
    if (thread) {
        connection.release();
        return;
    }
    HandlerSay("no thread for a connection (%s): dropped", kv::platform::ErrorText(GetLastError()).c_str());
    DisconnectNamedPipe(connection->pipe.get());
    connection.reset();
    InterlockedDecrement(&connections);
}

void PipeListener::Run(ServeFn serve, bool (*stop)()) {
    bool listening[kListening] = {};
    while (!stop()) {
        HANDLE events[kListening];
        int slotOf[kListening];
        DWORD count = 0;
        for (int i = 0; i < kListening; ++i) {
            if (!listening[i] && Connections() < kMostServed) listening[i] = Listen(instances_[i]);
            if (listening[i]) {
                slotOf[count] = i;
                events[count++] = instances_[i].event.get();
            }
        }
        if (count == 0) {
            Sleep(100);  // every instance busy or failing: must not spin
            continue;
        }
        const DWORD woken = WaitForMultipleObjects(count, events, FALSE, 1000);
        if (woken == WAIT_FAILED) Sleep(100);
        if (woken >= WAIT_OBJECT_0 + count) continue;
        const int slot = slotOf[woken - WAIT_OBJECT_0];
        HandOver(instances_[slot], serve);
        listening[slot] = false;
    }
    for (Instance& instance : instances_)
        if (instance.pipe) CancelIo(instance.pipe.get());
}

long PipeListener::Connections() { return InterlockedCompareExchange(&connections, 0, 0); }

}  // namespace kvdiag
