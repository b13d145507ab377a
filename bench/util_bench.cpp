// The text utilities against plain standard-library loops over the same data,
// measured in the same run.
#include <windows.h>
#include <stdio.h>

#include <list>
#include <string>

#include "KvDebugHelp.h"
#include "bench.h"

KV_BENCH(util_tokenize) {
    // 1 MB of wide text: words of 3 to 12 letters between runs of ";", "," and blanks.
    std::wstring plain;
    const wchar_t* separators[] = {L";", L", ", L" ;; ", L"  "};
    for (unsigned i = 0; plain.size() * sizeof(wchar_t) < 1024 * 1024; ++i) {
        plain.append(3 + i % 10, wchar_t(L'a' + i % 26));
        plain += separators[i % 4];
    }
    const KvWString text(plain.c_str(), plain.size());
    const KvWString delimiters(L";, ");
    const std::wstring plainDelimiters(L";, ");
    size_t tokens = 0;
    kvbench::Compare(
        "Tokenize 1 MB vs find_first_of loop",
        [&](int64_t n) {
            for (int64_t i = 0; i < n; ++i) {
                const std::list<KvWString>* list = MultiByteHelper::Tokenize(text, delimiters);
                tokens = list ? list->size() : 0;
                MultiByteHelper::FreeTokenList(list);
            }
        },
        [&](int64_t n) {
            for (int64_t i = 0; i < n; ++i) {
                std::list<std::wstring> list;
                size_t start = plain.find_first_not_of(plainDelimiters);
                while (start != std::wstring::npos) {
                    const size_t end = plain.find_first_of(plainDelimiters, start);
                    list.push_back(plain.substr(start, end - start));
                    start = plain.find_first_not_of(plainDelimiters, end);
                }
                tokens = list.size();
            }
        },
        10, 1.5);
    kvbench::Report("Tokenize 1 MB: tokens", std::to_string(tokens));
}

KV_BENCH(util_string_count) {
    // 100 MB of log-like lines, one "ALARM" in every tenth line.
    const std::string path = kvbench::ScratchFolder() + "\\count.log";
    std::string block;
    for (int line = 0; block.size() < 1024 * 1024; ++line)
        block += (line % 10 ? "2024-03-05 12:00:00.000 pump 3 running normally\n"
                            : "2024-03-05 12:00:00.000 ALARM pump 3 pressure high\n");
    block.resize(1024 * 1024);
    FILE* out = fopen(path.c_str(), "wb");
    for (int i = 0; out && i < 100; ++i) fwrite(block.data(), 1, block.size(), out);
    if (out) fclose(out);

    CDirFunctions dir;
    int counted = 0, plainCount = 0;
    kvbench::Compare(
        "StringCountInFile 100 MB vs 64 KB fread + find loop",
        [&](int64_t n) {
            for (int64_t i = 0; i < n; ++i) counted = dir.StringCountInFile(path.c_str(), "ALARM", 1, 0);
        },
        [&](int64_t n) {
            // The same 64 KB reads; the last 4 bytes of each block are kept in
            // front of the next, so matches across block edges all count.
            std::string data;
            std::string chunk(65536, '\0');
            for (int64_t i = 0; i < n; ++i) {
                FILE* in = fopen(path.c_str(), "rb");
                int count = 0;
                data.clear();
                size_t got;
                while (in && (got = fread(&chunk[0], 1, chunk.size(), in)) > 0) {
                    data.append(chunk, 0, got);
                    for (size_t p = data.find("ALARM"); p != std::string::npos; p = data.find("ALARM", p + 1))
                        ++count;
                    data.erase(0, data.size() > 4 ? data.size() - 4 : 0);
                }
                if (in) fclose(in);
                plainCount = count;
            }
        },
        1, 1.5);
    kvbench::Report("StringCountInFile 100 MB: matches (library / plain)",
                    std::to_string(counted) + " / " + std::to_string(plainCount));
    DeleteFileA(path.c_str());
}
