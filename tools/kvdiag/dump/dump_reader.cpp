#include "dump/dump_reader.h"

#include <string.h>

#include "common/console_text.h"

namespace kvdiag {

DumpView::DumpView(ByteView file) : file_(file) {
    const auto* header = file_.At<MINIDUMP_HEADER>(0);
    if (!header || header->Signature != MINIDUMP_SIGNATURE) return;
    header_ = header;
    directory_ = file_.Span<MINIDUMP_DIRECTORY>(header->StreamDirectoryRva, header->NumberOfStreams);
}

bool DumpView::Lists(uint32_t type) const {
    for (const auto& entry : directory_)
        if (entry.StreamType == type) return true;
    return false;
}

ByteView DumpView::StreamBytes(uint32_t type) const {
    for (const auto& entry : directory_)
        if (entry.StreamType == type) return file_.Part(entry.Location.Rva, entry.Location.DataSize);
    return {};
}

uint64_t DumpView::ClaimedCount(uint32_t type) const {
    const ByteView stream = StreamBytes(type);
    if (type == Memory64ListStream) {
        const auto* list = stream.At<ULONG64>(0);
        return list ? *list : 0;
    }
    const auto* count = stream.At<ULONG32>(0);
    return count ? *count : 0;
}

FullMemoryList DumpView::FullMemory() const {
    FullMemoryList full;
    const ByteView stream = StreamBytes(Memory64ListStream);
    const auto* list = stream.At<MINIDUMP_MEMORY64_LIST>(0);
    if (!list) return full;
    full.claimed = list->NumberOfMemoryRanges;
    full.baseRva = list->BaseRva;
    full.ranges = stream.Span<MINIDUMP_MEMORY_DESCRIPTOR64>(offsetof(MINIDUMP_MEMORY64_LIST, MemoryRanges),
                                                            list->NumberOfMemoryRanges);
    return full;
}

std::string DumpView::Text(RVA rva) const {
    const auto* length = file_.At<ULONG32>(rva);
    if (!length) return "?";
    const ByteView text = file_.Part(uint64_t(rva) + sizeof(ULONG32), *length);
    if (text.size() != *length) return "?";
    // Names are short; a longer one is cut rather than trusted.
    const int chars = static_cast<int>((text.size() < MAX_PATH * 4 ? text.size() : MAX_PATH * 4) / sizeof(WCHAR));
    char narrow[MAX_PATH * 2] = "";
    WideCharToMultiByte(CP_ACP, 0, reinterpret_cast<const WCHAR*>(text.base()), chars, narrow, sizeof narrow - 1,
                        nullptr, nullptr);
    return ShownLine(narrow, strlen(narrow));  // a damaged name's control characters stay off the console
}

}  // namespace kvdiag
