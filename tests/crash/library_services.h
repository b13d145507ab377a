// Product INI set-up shared by the crash scenarios.
#pragma once

#include "KvConfig.h"

namespace kvtest {

// SetKorvanIniFilePath(path) then ValidateKorvanIniFile(); true when valid.
inline bool UseProductIniFile(const char* path) {
    SetKorvanIniFilePath(path);
    return ValidateKorvanIniFile() == 1;
}

}  // namespace kvtest
