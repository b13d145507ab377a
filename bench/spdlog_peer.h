// spdlog's thread-safe basic file sink, flushed after every line: the peer the
// debug log is measured against. Built only where the spdlog and fmt headers
// were found (see CMakeLists.txt).
#pragma once

namespace kvbench {

// Opens the peer's log file; false when the peer is not built in.
bool OpenSpdlogPeer(const char* path);
// One line through the peer: its timestamp, a tab, the UTC offset and text.
void SpdlogPeerLine(const char* text);

}  // namespace kvbench
