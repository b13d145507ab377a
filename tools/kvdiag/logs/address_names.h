// Names addresses of a process that is gone, from the modules it logged: the
// images are found on disk by PDB name, size and link time, and loaded into a
// private DbgHelp session at the addresses the process had them.
#pragma once

#include <stdint.h>

#include <string>
#include <vector>

#include "logs/stack_lines.h"

namespace kvdiag {

class AddressNames {
public:
    // folders: where images and PDBs are looked for, in order (the PDBs also
    // on _NT_SYMBOL_PATH).
    explicit AddressNames(std::vector<std::string> folders);
    ~AddressNames();
    AddressNames(const AddressNames&) = delete;
    AddressNames& operator=(const AddressNames&) = delete;

    // Makes the modules known (each once); false when DbgHelp cannot start.
    bool Add(const std::vector<LoggedModule>& modules);
    // "image!function+0xoffset (file:line)" for a return address, "image+0xoffset"
    // without symbols, "(no image found for NAME.pdb)", or "(in no logged module)".
    std::string Describe(uint64_t returnAddress) const;

private:
    struct Known {
        LoggedModule logged;
        std::string image;  // the file found, empty when none matched
    };
    std::string FindImage(const LoggedModule& m) const;

    std::vector<std::string> folders_;
    std::vector<Known> known_;
    bool started_ = false;
    bool ready_ = false;
};

}  // namespace kvdiag
