#include "handler/client_activity.h"

namespace kvdiag {
namespace {

// Filled by static registrars before main; only read afterwards.
std::vector<ClientActivityMaker>& Makers() {
    static std::vector<ClientActivityMaker> makers;
    return makers;
}

}  // namespace

ClientActivityRegistrar::ClientActivityRegistrar(ClientActivityMaker maker) { Makers().push_back(maker); }

std::vector<std::unique_ptr<ClientActivity>> MakeClientActivities(const RegisteredClient& client) {
    std::vector<std::unique_ptr<ClientActivity>> activities;
    for (ClientActivityMaker maker : Makers())
        if (auto activity = maker(client)) activities.push_back(std::move(activity));
    return activities;
}

}  // namespace kvdiag
