// kvdiag forward: follows the selected logs like tail -f and sends every
// entry to the collector as an RFC 5424 message.
//
// Nothing is lost: each log's position is saved (CursorStore) only once the
// collector took the batch that reached it. For a stream, "took" means the
// send completed and, a poll later, the connection is still open: a collector
// only listens, so a close or reset it sent shows as something to read. When
// the connection breaks, every log goes back to its saved position and the
// batch is sent again after reconnecting, so at most the last batch arrives
// twice. While the collector is away nothing is read: the lines wait in the
// log files (and their history files) themselves.
#pragma once

#include <windows.h>

#include <functional>
#include <string>
#include <vector>

#include "forward/forward_options.h"

namespace kvdiag {

// What the forwarder has to say as it runs (a log taken up, the collector's
// state, a failure); the front end shows it.
using ForwarderNote = std::function<void(const std::string& text)>;

// Runs until stopEvent is set (or --for passes); returns the exit code.
int RunForwarder(const ForwardOptions& options, HANDLE stopEvent, const ForwarderNote& note);

}  // namespace kvdiag
