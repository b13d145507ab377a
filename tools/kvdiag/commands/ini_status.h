// Locating and validating the product INI file the way a product process
// does, with the reason in words when it is not usable.
#pragma once

#include <string>

namespace kvdiag {

struct IniStatus {
    std::string path;    // as configured (empty: none found)
    bool valid = false;  // validated with write access, or for reading only
    bool readOnly = false;
    std::string reason;  // why it is not (fully) usable; empty when it is
};

// iniOption: a path given on the command line, or null to take
// "DefaultINIPath" from the product's root key.
IniStatus ValidateProductIni(const char* iniOption);

// Picks "--ini PATH" out of the arguments (removing it); null when absent.
const char* TakeIniOption(int& argc, char** argv);

}  // namespace kvdiag
