#include "dump/x64_unwind.h"

namespace kvdiag {
namespace {

enum UnwindOp : uint8_t {
    kPushNonVol = 0,
    kAllocLarge = 1,
    kAllocSmall = 2,
    kSetFpReg = 3,
    kSaveNonVol = 4,
    kSaveNonVolFar = 5,
    kEpilogOrSaveXmm = 6,
    kSaveXmmFar = 7,
    kSaveXmm128 = 8,
    kSaveXmm128Far = 9,
    kPushMachFrame = 10,
};
constexpr int kRsp = 4;
constexpr uint8_t kChainInfo = 0x4;

struct UnwindInfoHeader {
    uint8_t versionAndFlags;
    uint8_t sizeOfProlog;
    uint8_t countOfCodes;
    uint8_t frameRegisterAndOffset;
};

// Slots one code takes, itself included.
unsigned SlotsOf(uint8_t op, uint8_t info) {
    switch (op) {
    case kAllocLarge: return info == 0 ? 2 : 3;
    case kSaveNonVol:
    case kEpilogOrSaveXmm:
    case kSaveXmm128: return 2;
    case kSaveNonVolFar:
    case kSaveXmmFar:
    case kSaveXmm128Far: return 3;
    default: return 1;
    }
}

// Undoes the prolog of one function (and of the functions its unwind data is
// chained to), the way the system's own unwinder does. Codes of the primary
// entry whose prolog offset lies past the current address have not run yet.
bool UndoProlog(const PeImage& image, const RUNTIME_FUNCTION* function, uint32_t rva, const DumpMemory& memory,
                UnwindRegisters& regs, bool& machineFrame) {
    uint32_t prologOffset = rva - function->BeginAddress;
    for (int depth = 0; depth < 32; ++depth) {
        const auto* header = reinterpret_cast<const UnwindInfoHeader*>(image.At(function->UnwindData, 4));
        if (!header) return false;
        const auto* codes = reinterpret_cast<const uint16_t*>(image.At(function->UnwindData + 4, header->countOfCodes * 2u));
        if (header->countOfCodes && !codes) return false;
        const uint8_t frameRegister = header->frameRegisterAndOffset & 0xF;
        const uint64_t frameOffset = (header->frameRegisterAndOffset >> 4) * 16ull;
        bool framePointerSet = false;
        for (unsigned i = 0; i < header->countOfCodes; i += SlotsOf(codes[i] >> 8 & 0xF, codes[i] >> 12))
            if ((codes[i] >> 8 & 0xF) == kSetFpReg && (codes[i] & 0xFF) <= prologOffset) framePointerSet = true;
        // Saved registers are addressed from the frame base: the frame
        // register minus its offset once it is set, else the stack pointer.
        const uint64_t frame = frameRegister && framePointerSet ? regs.gpr[frameRegister] - frameOffset
                                                                : regs.gpr[kRsp];
        for (unsigned i = 0; i < header->countOfCodes;) {
            const uint8_t codeOffset = codes[i] & 0xFF, op = codes[i] >> 8 & 0xF, info = codes[i] >> 12;
            const unsigned slots = SlotsOf(op, info);
            if (i + slots > header->countOfCodes) return false;
            const uint16_t* operand = codes + i + 1;
            i += slots;
            if (codeOffset > prologOffset) continue;
            switch (op) {
            case kPushNonVol:
                if (!memory.Read64(regs.gpr[kRsp], regs.gpr[info])) return false;
                regs.gpr[kRsp] += 8;
                break;
            case kAllocLarge:
                regs.gpr[kRsp] += info == 0 ? operand[0] * 8ull : (operand[0] | uint32_t(operand[1]) << 16);
                break;
            case kAllocSmall: regs.gpr[kRsp] += info * 8ull + 8; break;
            case kSetFpReg: regs.gpr[kRsp] = frame; break;
            case kSaveNonVol:
                if (!memory.Read64(frame + operand[0] * 8ull, regs.gpr[info])) return false;
                break;
            case kSaveNonVolFar:
                if (!memory.Read64(frame + (operand[0] | uint32_t(operand[1]) << 16), regs.gpr[info])) return false;
                break;
            case kPushMachFrame: {
                // An interrupt or exception frame: rip and rsp were pushed by the processor.
                const uint64_t base = regs.gpr[kRsp] + (info ? 8 : 0);
                if (!memory.Read64(base, regs.rip) || !memory.Read64(base + 24, regs.gpr[kRsp])) return false;
                machineFrame = true;
                break;
            }
            default: break;  // xmm saves and epilog descriptions change no integer register
            }
        }
        if (!(header->versionAndFlags >> 3 & kChainInfo)) return true;
        // The chained entry follows the codes, padded to an even count.
        const uint32_t chained = function->UnwindData + 4 + ((header->countOfCodes + 1u) & ~1u) * 2;
        function = reinterpret_cast<const RUNTIME_FUNCTION*>(image.At(chained, sizeof(RUNTIME_FUNCTION)));
        if (!function) return false;
        prologOffset = ~0u;  // a chained prolog has run in full
    }
    return false;
}

}  // namespace

bool UnwindLeaf(const DumpMemory& memory, UnwindRegisters& regs) {
    if (!memory.Read64(regs.gpr[kRsp], regs.rip)) return false;
    regs.gpr[kRsp] += 8;
    return true;
}

bool UnwindFrame(const PeImage& image, uint64_t imageBase, const DumpMemory& memory, UnwindRegisters& regs) {
    const uint32_t rva = static_cast<uint32_t>(regs.rip - imageBase);
    const RUNTIME_FUNCTION* function = image.FunctionAt(rva);
    if (!function) return UnwindLeaf(memory, regs);
    bool machineFrame = false;
    if (!UndoProlog(image, function, rva, memory, regs, machineFrame)) return false;
    return machineFrame || UnwindLeaf(memory, regs);
}

}  // namespace kvdiag
