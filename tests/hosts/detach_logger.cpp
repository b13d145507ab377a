// A module of the host that logs in its own detach, as product DLLs do: at
// process exit it detaches before the library it uses.
#include <windows.h>

#include "KvLogging.h"

extern "C" BOOL WINAPI DllMain(HINSTANCE, DWORD reason, LPVOID) {
    if (reason == DLL_PROCESS_DETACH) DbgLogWrite("logged by a module's detach");
    return TRUE;
}
