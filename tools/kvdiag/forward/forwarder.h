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

#include <string>
#include <vector>

#include "forward/forward_options.h"

namespace kvdiag {

// Runs until stopEvent is set (or --for passes); returns the exit code.
int RunForwarder(const ForwardOptions& options, HANDLE stopEvent);

}  // namespace kvdiag
