#include "dump/dump_stack.h"

#include <windows.h>
#include <dbghelp.h>
#include <stdio.h>
#include <string.h>

#include <memory>

#include "dump/dump_memory.h"
#include "dump/dump_threads.h"
#include "common/path_parts.h"
#include "dump/pe_image.h"
#include "dump/x64_unwind.h"

namespace kvdiag {
namespace {

constexpr int kMaxFrames = 64;

// "KvDebugHelp" for "C:\...\KvDebugHelp.dll", as debuggers name modules.
std::string ShortName(const std::string& path) {
    std::string name = FileNameOf(path);
    const size_t dot = name.rfind('.');
    return dot == std::string::npos ? name : name.substr(0, dot);
}

struct DumpModule {
    std::string path;  // as the dump names it
    uint64_t base = 0, size = 0;
    uint32_t timeDateStamp = 0;
    std::unique_ptr<PeImage> image;  // null when no matching file was found
};

// The first candidate file that is the image the dump saw: same size and,
// where the dump recorded one, the same link time stamp.
std::unique_ptr<PeImage> FindImage(const DumpModule& m, const std::string& dumpPath,
                                   const std::vector<std::string>& folders) {
    const std::string dumpFolder = FolderOf(dumpPath).empty() ? "." : FolderOf(dumpPath);
    std::vector<std::string> candidates = {m.path, dumpFolder + "\\" + FileNameOf(m.path)};
    for (const auto& folder : folders) candidates.push_back(folder + "\\" + FileNameOf(m.path));
    for (const auto& candidate : candidates) {
        auto image = std::make_unique<PeImage>(candidate);
        if (image->usable() && image->sizeOfImage() == m.size &&
            (m.timeDateStamp == 0 || image->timeDateStamp() == m.timeDateStamp))
            return image;
    }
    return nullptr;
}

// A private DbgHelp session for the dump's modules, at the addresses the dump
// recorded. The handle only names the session: no process is read.
class DumpSymbols {
public:
    // Without nameFrames the session stays closed: frames are given as module+offset.
    DumpSymbols(const std::vector<DumpModule>& modules, const std::string& dumpPath,
                const std::vector<std::string>& folders, bool nameFrames) {
        if (!nameFrames) return;
        std::vector<std::string> elements;
        auto add = [&elements](const std::string& element) {
            for (const auto& known : elements)
                if (_stricmp(known.c_str(), element.c_str()) == 0) return;
            if (!element.empty()) elements.push_back(element);
        };
        for (const auto& folder : folders) add(folder);
        add(FolderOf(dumpPath));
        for (const auto& m : modules)
            if (m.image) add(FolderOf(m.image->path()));
        for (const char* variable : {"_NT_SYMBOL_PATH", "_NT_ALTERNATE_SYMBOL_PATH"}) {
            char value[4096];
            const DWORD length = GetEnvironmentVariableA(variable, value, sizeof value);
            if (length > 0 && length < sizeof value) add(value);
        }
        std::string searchPath;
        for (const auto& element : elements) searchPath += (searchPath.empty() ? "" : ";") + element;
        SymSetOptions(SYMOPT_UNDNAME | SYMOPT_LOAD_LINES | SYMOPT_FAIL_CRITICAL_ERRORS | SYMOPT_NO_PROMPTS);
        ready_ = SymInitialize(session_, searchPath.c_str(), FALSE);
        if (!ready_) return;
        for (const auto& m : modules)
            if (m.image)
                SymLoadModuleEx(session_, nullptr, m.image->path().c_str(), nullptr, m.base, DWORD(m.size),
                                nullptr, 0);
    }
    ~DumpSymbols() {
        if (ready_) SymCleanup(session_);
    }
    DumpSymbols(const DumpSymbols&) = delete;
    DumpSymbols& operator=(const DumpSymbols&) = delete;

    // "function+0xoffset (file:line)" for an address (the call site of a
    // return address is looked up one byte before it); empty when unknown.
    std::string Describe(uint64_t address, bool returnAddress) const {
        if (!ready_) return {};
        alignas(SYMBOL_INFO) char storage[sizeof(SYMBOL_INFO) + 512] = {};
        auto* symbol = reinterpret_cast<SYMBOL_INFO*>(storage);
        symbol->SizeOfStruct = sizeof(SYMBOL_INFO);
        symbol->MaxNameLen = 511;
        const uint64_t lookup = returnAddress ? address - 1 : address;
        DWORD64 displacement = 0;
        if (!SymFromAddr(session_, lookup, &displacement, symbol) || !symbol->Name[0]) return {};
        char text[800];
        snprintf(text, sizeof text, "%s+0x%llx", symbol->Name,
                 static_cast<unsigned long long>(address - symbol->Address));
        std::string out = text;
        IMAGEHLP_LINE64 line{};
        line.SizeOfStruct = sizeof line;
        DWORD lineDisplacement = 0;
        if (SymGetLineFromAddr64(session_, lookup, &lineDisplacement, &line) && line.FileName)
            out += " (" + std::string(line.FileName) + ":" + std::to_string(line.LineNumber) + ")";
        return out;
    }

private:
    HANDLE session_ = reinterpret_cast<HANDLE>(static_cast<uintptr_t>(0x4B564447));  // "KVDG"
    bool ready_ = false;
};

std::vector<DumpModule> ModulesOf(const DumpView& dump) {
    std::vector<DumpModule> modules;
    for (const MINIDUMP_MODULE& m : dump.List<MINIDUMP_MODULE>(ModuleListStream)) {
        DumpModule module;
        module.path = dump.Text(m.ModuleNameRva);
        module.base = m.BaseOfImage;
        module.size = m.SizeOfImage;
        module.timeDateStamp = m.TimeDateStamp;
        modules.push_back(std::move(module));
    }
    return modules;
}

const DumpModule* ModuleAt(const std::vector<DumpModule>& modules, uint64_t address) {
    for (const auto& m : modules)
        if (address >= m.base && address - m.base < m.size) return &m;
    return nullptr;
}

bool ReadExceptionContext(const DumpView& dump, CONTEXT& context, DWORD& threadId) {
    const auto* e = dump.Stream<MINIDUMP_EXCEPTION_STREAM>(ExceptionStream);
    if (!e || e->ThreadContext.DataSize < sizeof(CONTEXT) || !dump.file().Read(e->ThreadContext.Rva, context))
        return false;
    threadId = e->ThreadId;
    return true;
}

// Unwinds from a register context and prints one frame a line.
void WalkFrames(const std::vector<DumpModule>& modules, const DumpMemory& memory, const DumpSymbols& symbols,
                const CONTEXT& context, FILE* out) {
    UnwindRegisters regs;
    const DWORD64* gpr = &context.Rax;  // rax rcx rdx rbx rsp rbp rsi rdi r8..r15, as unwind codes number them
    for (int i = 0; i < 16; ++i) regs.gpr[i] = gpr[i];
    regs.rip = context.Rip;
    for (int frame = 0; frame < kMaxFrames && regs.rip; ++frame) {
        const DumpModule* module = ModuleAt(modules, regs.rip);
        std::string where;
        if (module) {
            const std::string name = symbols.Describe(regs.rip, frame > 0);
            char offset[32];
            snprintf(offset, sizeof offset, "+0x%llx", static_cast<unsigned long long>(regs.rip - module->base));
            where = ShortName(module->path) + (name.empty() ? offset : "!" + name);
        } else {
            char address[32];
            snprintf(address, sizeof address, "0x%016llx", static_cast<unsigned long long>(regs.rip));
            where = address;
        }
        fprintf(out, "  #%-2d %s\n", frame, where.c_str());

        const uint64_t previousRsp = regs.gpr[4];
        bool unwound;
        if (module && module->image) {
            unwound = UnwindFrame(*module->image, module->base, memory, regs);
        } else if (frame == 0) {
            unwound = UnwindLeaf(memory, regs);  // a call through a bad pointer lands outside any module
        } else {
            fprintf(out, "  (walk ends: no image of %s found to unwind with; try --symbols DIR)\n",
                    module ? FileNameOf(module->path).c_str() : "this address");
            return;
        }
        if (!unwound) {
            fprintf(out, "  (walk ends: the stack memory or unwind data of this frame is not in the dump or image)\n");
            return;
        }
        if (regs.gpr[4] <= previousRsp) return;  // a stack only grows toward callers
    }
}

// Windows keeps the modules a light dump's stacks point into; Wine keeps
// none, so there is nothing to unwind or name frames with.
const char kNoModules[] = "not walked: the dump lists no modules, so no frame can be unwound or named";

}  // namespace

void PrintFaultingStack(const DumpView& dump, const std::string& dumpPath,
                        const std::vector<std::string>& symbolFolders, bool nameFrames, FILE* out) {
    CONTEXT context;
    DWORD threadId = 0;
    if (!ReadExceptionContext(dump, context, threadId)) {
        fprintf(out, "Stack:          none: the dump records no exception context\n");
        return;
    }
    std::vector<DumpModule> modules = ModulesOf(dump);
    if (modules.empty()) {
        fprintf(out, "Stack:          thread %lu, %s\n  #0  0x%016llx\n", static_cast<unsigned long>(threadId),
                kNoModules, static_cast<unsigned long long>(context.Rip));
        return;
    }
    for (auto& m : modules) m.image = FindImage(m, dumpPath, symbolFolders);
    const DumpSymbols symbols(modules, dumpPath, symbolFolders, nameFrames);
    const DumpMemory memory(dump);
    fprintf(out, "Stack:          thread %lu, innermost frame first\n", static_cast<unsigned long>(threadId));
    WalkFrames(modules, memory, symbols, context, out);
}

void PrintThreadStacks(const DumpView& dump, const std::string& dumpPath,
                       const std::vector<std::string>& symbolFolders, bool nameFrames, FILE* out) {
    const std::vector<DumpThread> threads = ThreadsOf(dump);
    fprintf(out, "Threads:        %zu\n", threads.size());
    if (threads.empty()) return;
    std::vector<DumpModule> modules = ModulesOf(dump);
    if (modules.empty()) {
        fprintf(out, "  stacks %s\n", kNoModules);
        return;
    }
    for (auto& m : modules) m.image = FindImage(m, dumpPath, symbolFolders);
    const DumpSymbols symbols(modules, dumpPath, symbolFolders, nameFrames);
    const DumpMemory memory(dump);
    for (const DumpThread& thread : threads) {
        fprintf(out, "Thread %lu, innermost frame first\n", static_cast<unsigned long>(thread.id));
        if (thread.haveContext) WalkFrames(modules, memory, symbols, thread.context, out);
        else fprintf(out, "  (no register context in the dump)\n");
    }
}

}  // namespace kvdiag
