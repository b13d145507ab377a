// Reads files out of a cabinet with the cabinet API every Windows has
// (cabinet.dll, FDI), as support receives them from kvdiag collect. Names in
// a cabinet are hostile: each file taken goes into the caller's folder under
// a plain file name the caller gives it.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "common/failure.h"

namespace kvdiag {

struct CabEntry {
    std::string nameInCab;      // as the cabinet spells it ("Logs\user.dmp")
    std::string extractedPath;  // where it was written
};

// Extracts into `folder` the files for which `targetFor` gives a file name
// ("" skips one; a name with a path in it is refused); fails when the
// cabinet cannot be read (what was extracted before stays listed).
Failure ExtractCabinet(const std::string& cabinet, const std::string& folder,
                       const std::function<std::string(const std::string& nameInCab)>& targetFor,
                       std::vector<CabEntry>& entries);

}  // namespace kvdiag
