// How kvdiag and the library spell an operating-system error.
#pragma once

#include <windows.h>

#include <string>

namespace kv {
namespace platform {

// "error 5: Access is denied" - the number always (it is what a search finds),
// the system's message when it has one, without its trailing period and line end.
std::string ErrorText(DWORD code);

}  // namespace platform
}  // namespace kv
