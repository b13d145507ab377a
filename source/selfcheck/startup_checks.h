// The check sets of the self-check suite.
#pragma once

namespace kv {
namespace selfcheck {

// Settings, locks, stack capture and symbols: usable at any time.
void RunStartupChecks();
// Folders, logs, guarded-element overrun and dump: need the validated INI file.
void RunProductChecks();

}  // namespace selfcheck
}  // namespace kv
