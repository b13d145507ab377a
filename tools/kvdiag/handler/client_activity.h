// Work the crash handler does for a registered client besides waiting for
// its crash (a hang watchdog reading the client's crash block, ...). Each
// activity runs on the client's own thread, between that thread's waits, so
// it never overlaps the client's crash dump and needs no lock of its own.
//
// To add one: a class derived from ClientActivity, a maker function, and in
// its file `static const kvdiag::ClientActivityRegistrar registrar(Maker);`.
#pragma once

#include <windows.h>

#include <memory>
#include <vector>

namespace kvdiag {

struct RegisteredClient;

class ClientActivity {
public:
    virtual ~ClientActivity() = default;
    // Runs once when the client is registered and again each time the
    // milliseconds it returned have passed (INFINITE: never again). It must
    // not wait long: the client's crash is taken between runs.
    virtual DWORD Run(const RegisteredClient& client) = 0;
};

// Makes an activity for a client, or null when it has nothing to do there
// (an activity not made costs the client nothing).
using ClientActivityMaker = std::unique_ptr<ClientActivity> (*)(const RegisteredClient& client);

struct ClientActivityRegistrar {
    explicit ClientActivityRegistrar(ClientActivityMaker maker);
};

// Every registered activity's instance for one client.
std::vector<std::unique_ptr<ClientActivity>> MakeClientActivities(const RegisteredClient& client);

}  // namespace kvdiag
