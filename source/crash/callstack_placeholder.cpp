// Placeholder until the call-stack system lands.
#include "crash/callstack_lifecycle.h"
#include "frame/process_state.h"

namespace kv {
void StartCallStackSystem() { InitializeCriticalSection(&CallStackLock); }
void StopCallStackSystem() { DeleteCriticalSection(&CallStackLock); }
}  // namespace kv
