// A symbol path as the platform's debuggers take it: elements separated by
// ';', each a plain folder or a store ("srv*DIR", "srv*CACHE*DIR",
// "symsrv*symsrv.dll*DIR", "cache*DIR"), searched in order.
#pragma once

#include <string>
#include <vector>

namespace kvdiag {

struct SymbolPath {
    struct Element {
        std::string folder;
        bool store = false;  // two-tier layout: <folder>\<name>\<key>\<name>
    };
    std::vector<Element> elements;
    std::vector<std::string> ignored;  // elements kvdiag cannot read (servers over http)

    static SymbolPath Parse(const std::string& text);
    // The path given, or _NT_SYMBOL_PATH (then _NT_ALTERNATE_SYMBOL_PATH) when none was.
    static SymbolPath FromOptionOrEnvironment(const std::string& given);
    void Append(const SymbolPath& other);
    // Where a file of that name and store key would be in each element, in order.
    std::vector<std::string> Candidates(const std::string& name, const std::string& key) const;
};

}  // namespace kvdiag
