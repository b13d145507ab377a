// Dumps grouped by crash signature, largest group first: how many, which
// exception, when first and last, from which components, machines and
// versions, and one dump of each group to read. Damaged dumps form a row of
// their own.
#pragma once

#include <stdint.h>
#include <stdio.h>

#include <string>
#include <vector>

namespace kvdiag {

struct TriagedDump {
    std::string path;       // as shown (inside a cabinet: "x.cab\Logs\user.dmp")
    bool damaged = false;   // not readable as a sound minidump
    std::string reason;     // why, for a damaged one
    std::string signature;
    std::string exception;  // "0xc0000005", "hang"
    std::string component, machine, version;
    uint32_t time = 0;      // when the dump was written (time_t, UTC); 0 unknown
};

class TriageTable {
public:
    void Add(TriagedDump dump) { dumps_.push_back(std::move(dump)); }
    size_t size() const { return dumps_.size(); }
    void Print(FILE* out) const;
    void PrintCsv(FILE* out) const;

private:
    struct Group {
        std::vector<const TriagedDump*> dumps;
        std::string Distinct(std::string TriagedDump::*field) const;
        uint32_t First() const;
        uint32_t Last() const;
    };
    std::vector<Group> Groups() const;

    std::vector<TriagedDump> dumps_;
};

}  // namespace kvdiag
