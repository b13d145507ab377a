// The product's root registry key path under HKEY_LOCAL_MACHINE, built once.
#pragma once

namespace kv {

// "Software\Korvan\SCADA Installs\8.40"; built on first use under its own lock.
const char* RootRegistryKeyPath();

}  // namespace kv
