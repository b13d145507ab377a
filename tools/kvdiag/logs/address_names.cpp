#include "logs/address_names.h"

#include <windows.h>
#include <dbghelp.h>
#include <stdio.h>

#include "common/path_parts.h"
#include "dump/pe_image.h"

namespace kvdiag {
namespace {

// Names the session: no process is read.
const HANDLE kSession = reinterpret_cast<HANDLE>(static_cast<uintptr_t>(0x4B56534D));  // "KVSM"

}  // namespace

AddressNames::AddressNames(std::vector<std::string> folders) : folders_(std::move(folders)) {}

AddressNames::~AddressNames() {
    if (ready_) SymCleanup(kSession);
}

// A module is logged by its PDB's name, or (a system DLL) by its own file name.
std::string AddressNames::FindImage(const LoggedModule& m) const {
    if (m.pdbName == "-") return {};
    std::string stem = m.pdbName;
    const size_t dot = stem.rfind('.');
    const bool byPdb = dot != std::string::npos && _stricmp(stem.c_str() + dot, ".pdb") == 0;
    if (byPdb) stem.resize(dot);
    std::vector<std::string> folders = folders_;
    char system[MAX_PATH];
    const UINT length = GetSystemDirectoryA(system, sizeof system);
    if (!byPdb && length && length < sizeof system) folders.push_back(system);
    for (const auto& folder : folders)
        for (const char* extension : {".exe", ".dll", ""}) {
            if (byPdb == !*extension) continue;
            const std::string candidate = folder + "\\" + stem + extension;
            PeImage image(candidate);
            if (image.usable() && image.sizeOfImage() == m.size && image.timeDateStamp() == m.timeDateStamp)
                return candidate;
        }
    return {};
}

bool AddressNames::Add(const std::vector<LoggedModule>& modules) {
    if (!started_) {
        started_ = true;
        std::string searchPath;
        for (const auto& folder : folders_) searchPath += folder + ";";
        char value[4096];
        for (const char* variable : {"_NT_SYMBOL_PATH", "_NT_ALTERNATE_SYMBOL_PATH"}) {
            const DWORD length = GetEnvironmentVariableA(variable, value, sizeof value);
            if (length > 0 && length < sizeof value) searchPath += std::string(value) + ";";
        }
        SymSetOptions(SYMOPT_UNDNAME | SYMOPT_LOAD_LINES | SYMOPT_FAIL_CRITICAL_ERRORS | SYMOPT_NO_PROMPTS);
        ready_ = SymInitialize(kSession, searchPath.c_str(), FALSE) != FALSE;
    }
    if (!ready_) return false;
    for (const LoggedModule& m : modules) {
        bool seen = false;
        for (const Known& k : known_)
            seen = seen || (k.logged.base == m.base && k.logged.size == m.size && k.logged.pdbName == m.pdbName);
        if (seen) continue;
        Known k{m, FindImage(m)};
        // Another process of the same log may have had another image at this base.
        for (auto it = known_.begin(); it != known_.end();)
            if (it->logged.base == m.base) {
                SymUnloadModule64(kSession, it->logged.base);
                it = known_.erase(it);
            } else {
                ++it;
            }
        if (!k.image.empty())
            SymLoadModuleEx(kSession, nullptr, k.image.c_str(), nullptr, m.base, m.size, nullptr, 0);
        known_.push_back(std::move(k));
    }
    return true;
}

std::string AddressNames::Describe(uint64_t address) const {
    const Known* module = nullptr;
    for (const Known& k : known_)
        if (address >= k.logged.base && address - k.logged.base < k.logged.size) module = &k;
    if (!module) return "(in no logged module)";
    char text[900];
    if (module->image.empty()) {
        snprintf(text, sizeof text, "%s+0x%llx (no matching image found)",
                 module->logged.pdbName == "-" ? "(unnamed module)" : module->logged.pdbName.c_str(),
                 static_cast<unsigned long long>(address - module->logged.base));
        return text;
    }
    std::string imageName = FileNameOf(module->image);
    imageName.resize(imageName.rfind('.'));
    alignas(SYMBOL_INFO) char storage[sizeof(SYMBOL_INFO) + 512] = {};
    auto* symbol = reinterpret_cast<SYMBOL_INFO*>(storage);
    symbol->SizeOfStruct = sizeof(SYMBOL_INFO);
    symbol->MaxNameLen = 511;
    DWORD64 displacement = 0;
    // A return address: the call lies one byte before it.
    if (!ready_ || !SymFromAddr(kSession, address - 1, &displacement, symbol) || !symbol->Name[0]) {
        snprintf(text, sizeof text, "%s+0x%llx", imageName.c_str(),
                 static_cast<unsigned long long>(address - module->logged.base));
        return text;
    }
    snprintf(text, sizeof text, "%s!%s+0x%llx", imageName.c_str(), symbol->Name,
             static_cast<unsigned long long>(address - symbol->Address));
    std::string out = text;
    IMAGEHLP_LINE64 line{};
    line.SizeOfStruct = sizeof line;
    DWORD lineDisplacement = 0;
    if (SymGetLineFromAddr64(kSession, address - 1, &lineDisplacement, &line) && line.FileName)
        out += " (" + std::string(line.FileName) + ":" + std::to_string(line.LineNumber) + ")";
    return out;
}

}  // namespace kvdiag
