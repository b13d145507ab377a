// KvExport.h - the one export macro of KvDebugHelp.
//
// CMake defines KvDebugHelp_EXPORTS while it builds the DLL itself: the
// library's own classes and functions are then exported, and imported by every
// host that includes these headers. The C functions are also listed by name in
// the module-definition file, so their exported names are exact and undecorated.
#pragma once

#if defined(KvDebugHelp_EXPORTS)
#define KVDH_API __declspec(dllexport)
#else
#define KVDH_API __declspec(dllimport)
#endif

#ifdef __cplusplus
#define KVDH_C_API extern "C" KVDH_API
#else
#define KVDH_C_API KVDH_API
#endif
