#include "dump/dump_stack.h"

#include <dbghelp.h>
#include <stdio.h>
#include <string.h>

#include <atomic>

#include "common/path_parts.h"
#include "platform/owned_handle.h"

namespace kvdiag {
namespace {

constexpr int kMaxFrames = 64;
constexpr int kRsp = 4;

// Each session gets its own made-up process handle: DbgHelp keys its state on it.
std::atomic<uintptr_t> nextSession{0x4B564400};  // "KVD\0"

}  // namespace

std::string StackFrame::Text() const {
    char text[64];
    if (!module) {
        snprintf(text, sizeof text, "0x%016llx", static_cast<unsigned long long>(address));
        return text;
    }
    if (function.empty()) {
        snprintf(text, sizeof text, "+0x%llx", static_cast<unsigned long long>(address - module->base));
        return module->name + text;
    }
    snprintf(text, sizeof text, "+0x%llx", static_cast<unsigned long long>(displacement));
    std::string out = module->name + "!" + function + text;
    if (!file.empty()) out += " (" + file + ":" + std::to_string(line) + ")";
    return out;
}

DumpStacks::DumpStacks(const DumpView& dump, const std::string& dumpPath, const WalkOptions& options)
    : memory_(dump),
      modules_(LocateModules(dump, dumpPath, options.symbols, memory_, options.findFiles, options.nameFrames)),
      session_(reinterpret_cast<HANDLE>(nextSession++)) {
    if (!options.nameFrames || modules_.empty()) return;
    SymSetOptions(SYMOPT_UNDNAME | SYMOPT_LOAD_LINES | SYMOPT_FAIL_CRITICAL_ERRORS | SYMOPT_NO_PROMPTS |
                  SYMOPT_EXACT_SYMBOLS);
    ready_ = SymInitialize(session_, "", FALSE);
    loadTried_.assign(modules_.size(), false);
}

DumpStacks::~DumpStacks() {
    if (ready_) SymCleanup(session_);
    for (auto it = copies_.rbegin(); it != copies_.rend(); ++it)
        if (!DeleteFileA(it->c_str())) RemoveDirectoryA(it->c_str());
}

// DbgHelp reads images from files only: a rebuilt one is written to a
// private folder under the module's own file name.
std::string DumpStacks::CopyForDbgHelp(const DumpModule& m) const {
    char temp[MAX_PATH];
    if (!GetTempPathA(sizeof temp, temp)) return {};
    const std::string folder = std::string(temp) + "kvdiag-image-" + std::to_string(GetCurrentProcessId()) + "-" +
                               std::to_string(reinterpret_cast<uintptr_t>(session_)) + "-" +
                               std::to_string(copies_.size());
    if (!CreateDirectoryA(folder.c_str(), nullptr)) return {};
    copies_.push_back(folder);
    const std::string path = folder + "\\" + FileNameOf(m.path);
    const kv::platform::FileHandle file(
        CreateFileA(path.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_NEW, FILE_ATTRIBUTE_TEMPORARY, nullptr));
    if (!file) return {};
    copies_.push_back(path);
    const ByteView bytes = m.image->bytes();
    DWORD written = 0;
    return WriteFile(file.get(), bytes.base(), DWORD(bytes.size()), &written, nullptr) && written == bytes.size()
               ? path
               : std::string();
}

void DumpStacks::LoadSymbols(const DumpModule& module) const {
    const size_t index = size_t(&module - modules_.data());
    if (loadTried_[index]) return;
    loadTried_[index] = true;
    DumpModule& m = modules_[index];
    if (!m.image) return;
    // The search path is the one folder that holds the PDB this module was
    // built with (already checked by identity), so DbgHelp cannot pick up
    // another build's file of the same name from anywhere else.
    const std::string imagePath = m.image->fromDump() ? CopyForDbgHelp(m) : m.image->path();
    if (imagePath.empty()) return;
    const std::string folder = FolderOf(m.pdbPath.empty() ? imagePath : m.pdbPath);
    SymSetSearchPath(session_, folder.empty() ? "." : folder.c_str());
    if (!SymLoadModuleEx(session_, nullptr, imagePath.c_str(), nullptr, m.base, DWORD(m.size), nullptr, 0))
        return;
    IMAGEHLP_MODULE64 info{};
    info.SizeOfStruct = sizeof info;
    const bool pdb = SymGetModuleInfo64(session_, m.base, &info) && info.SymType == SymPdb;
    if (pdb && m.pdbPath.empty()) m.pdbPath = info.LoadedPdbName;  // DbgHelp checked its identity
    // A product module is named from its PDB only: its nearest export would
    // be a guess. The system's modules are named by their exports too.
    m.symbolsLoaded = pdb || m.operatingSystem;
}

void DumpStacks::Name(StackFrame& frame, bool returnAddress) const {
    if (!ready_) return;
    LoadSymbols(*frame.module);
    if (!frame.module->symbolsLoaded) return;
    alignas(SYMBOL_INFO) char storage[sizeof(SYMBOL_INFO) + 512] = {};
    auto* symbol = reinterpret_cast<SYMBOL_INFO*>(storage);
    symbol->SizeOfStruct = sizeof(SYMBOL_INFO);
    symbol->MaxNameLen = 511;
    // The call site of a return address is the byte before it.
    const uint64_t lookup = returnAddress ? frame.address - 1 : frame.address;
    DWORD64 displacement = 0;
    if (!SymFromAddr(session_, lookup, &displacement, symbol) || !symbol->Name[0]) return;
    frame.function = symbol->Name;
    frame.displacement = frame.address - symbol->Address;
    IMAGEHLP_LINE64 line{};
    line.SizeOfStruct = sizeof line;
    DWORD lineDisplacement = 0;
    if (SymGetLineFromAddr64(session_, lookup, &lineDisplacement, &line) && line.FileName) {
        frame.file = line.FileName;
        frame.line = line.LineNumber;
    }
}

std::string DumpStacks::DataName(uint64_t address) const {
    StackFrame place;
    place.address = address;
    place.module = ModuleAt(modules_, address);
    if (!place.module) return {};
    Name(place, false);
    return place.function.empty() || place.displacement ? std::string() : place.module->name + "!" + place.function;
}

ThreadStack DumpStacks::Walk(DWORD threadId, const CONTEXT& context) const {
    ThreadStack stack;
    stack.threadId = threadId;
    UnwindRegisters regs;
    const DWORD64* gpr = &context.Rax;  // rax rcx rdx rbx rsp rbp rsi rdi r8..r15, as unwind codes number them
    for (int i = 0; i < 16; ++i) regs.gpr[i] = gpr[i];
    regs.rip = context.Rip;
    for (int depth = 0; depth < kMaxFrames && regs.rip; ++depth) {
        StackFrame frame;
        frame.address = regs.rip;
        frame.module = ModuleAt(modules_, regs.rip);
        frame.registers = regs;
        if (frame.module) Name(frame, depth > 0);
        stack.frames.push_back(frame);

        const uint64_t previousRsp = regs.gpr[kRsp];
        bool unwound;
        if (frame.module && frame.module->image) {
            unwound = UnwindFrame(*frame.module->image, frame.module->base, memory_, regs);
        } else if (depth == 0 && !frame.module) {
            unwound = UnwindLeaf(memory_, regs);  // a call through a bad pointer lands outside any module
        } else {
            stack.stop = "walk ends: no image of " +
                         (frame.module ? FileNameOf(frame.module->path) : std::string("this address")) +
                         " found to unwind with";
            return stack;
        }
        if (!unwound) {
            stack.stop = "walk ends: the stack memory or unwind data of this frame is not in the dump or image";
            return stack;
        }
        if (regs.gpr[kRsp] <= previousRsp) break;  // a stack only grows toward callers
    }
    return stack;
}

bool ExceptionContext(const DumpView& dump, CONTEXT& context, DWORD& threadId) {
    const auto* e = dump.Stream<MINIDUMP_EXCEPTION_STREAM>(ExceptionStream);
    if (!e || e->ThreadContext.DataSize < sizeof(CONTEXT) || !dump.file().Read(e->ThreadContext.Rva, context))
        return false;
    threadId = e->ThreadId;
    return true;
}

}  // namespace kvdiag
