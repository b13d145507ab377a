#include "spdlog_peer.h"

#ifdef KV_BENCH_SPDLOG
#include <spdlog/sinks/basic_file_sink.h>
#include <spdlog/spdlog.h>

namespace kvbench {

namespace {
std::unique_ptr<spdlog::logger> peer;
}

bool OpenSpdlogPeer(const char* path) {
    auto sink = std::make_shared<spdlog::sinks::basic_file_sink_mt>(path);
    peer = std::make_unique<spdlog::logger>("peer", sink);
    peer->set_pattern("%Y-%m-%d %H:%M:%S.%e\t%z %v");
    peer->flush_on(spdlog::level::trace);
    return true;
}

void SpdlogPeerLine(const char* text) { peer->info("{}", text); }

}  // namespace kvbench

#else

namespace kvbench {
bool OpenSpdlogPeer(const char*) { return false; }
void SpdlogPeerLine(const char*) {}
}  // namespace kvbench

#endif
