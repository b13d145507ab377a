#include "platform/error_text.h"

namespace kv {
namespace platform {

std::string ErrorText(DWORD code) {
    std::string text = "error " + std::to_string(code);
    char message[512];
    DWORD length = FormatMessageA(FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS, nullptr, code,
                                  MAKELANGID(LANG_NEUTRAL, SUBLANG_DEFAULT), message, sizeof message, nullptr);
    while (length && (message[length - 1] == '\r' || message[length - 1] == '\n' || message[length - 1] == ' ' ||
                      message[length - 1] == '.'))
        --length;
    if (length) text.append(": ").append(message, length);
    return text;
}

}  // namespace platform
}  // namespace kv
