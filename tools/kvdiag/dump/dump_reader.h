// A minidump file mapped read-only, its streams found with DbgHelp's
// MiniDumpReadDumpStream.
#pragma once

#include <windows.h>
#include <dbghelp.h>
#include <stdint.h>

#include <string>

#include "common/mapped_file.h"

namespace kvdiag {

class MappedDump : public MappedFile {
public:
    using MappedFile::MappedFile;

    template <typename T>
    const T* Stream(MINIDUMP_STREAM_TYPE type) const {
        PMINIDUMP_DIRECTORY dir = nullptr;
        void* stream = nullptr;
        ULONG streamSize = 0;
        if (!base() || !MiniDumpReadDumpStream(const_cast<BYTE*>(base()), type, &dir, &stream, &streamSize))
            return nullptr;
        return streamSize >= sizeof(T) ? static_cast<const T*>(stream) : nullptr;
    }
    // A MINIDUMP_STRING at an offset of the file, as narrow text.
    std::string Text(RVA rva) const {
        if (!base() || rva + sizeof(ULONG32) > size()) return "?";
        const auto* s = reinterpret_cast<const MINIDUMP_STRING*>(base() + rva);
        if (uint64_t(rva) + sizeof(ULONG32) + s->Length > size()) return "?";
        char text[MAX_PATH * 2] = "";
        WideCharToMultiByte(CP_ACP, 0, s->Buffer, static_cast<int>(s->Length / sizeof(WCHAR)), text,
                            sizeof text - 1, nullptr, nullptr);
        return text;
    }
};

}  // namespace kvdiag
