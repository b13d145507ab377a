// CDirFunctions::StringCountInFile: counts a text in a file read in 64 KB
// blocks, carrying the tail of a block into the next one.
#include <windows.h>
#include <ctype.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <memory>
#include <string>

#include "KvUtil.h"
#include "util/dir_helpers.h"

namespace {

constexpr size_t kBlockSize = 65536;

struct FileCloser {
    void operator()(FILE* f) const { fclose(f); }
};
struct BufferFree {
    void operator()(unsigned char* p) const { free(p); }
};

}  // namespace

int CDirFunctions::StringCountInFile(const char* file, const char* text, int caseSensitive, int relative) {
    return kv::Guarded(
        [&] {
            if (!file || !text) return -1;
            std::string wanted(text);
            if (!caseSensitive) CharUpperA(&wanted[0]);
            const char* path = file;
            if (relative) {
                if (!kv::CopyPath(workPath, moduleDir) || !kv::AppendPath(workPath, file)) return -1;
                path = workPath;
            }
            std::unique_ptr<FILE, FileCloser> in(fopen(path, "rb"));
            if (!in) return -1;
            const size_t L = wanted.size();
            if (L == 0 || L >= kBlockSize) return 0;
            std::unique_ptr<unsigned char, BufferFree> buffer(static_cast<unsigned char*>(malloc(kBlockSize)));
            if (!buffer) return 0;
            unsigned char* const buf = buffer.get();

            int count = 0;
            size_t carried = 0;  // bytes carried in front of the next read
            for (;;) {
                // n counts only this read, never the carried bytes in front of
                // it: the upper-casing, the scan limit and the carry offset all
                // use it, so after a carry the last L bytes of a block are
                // neither upper-cased nor scanned. Intended.
                const size_t n = fread(buf + carried, 1, kBlockSize - carried, in.get());
                if (!caseSensitive)
                    for (size_t i = 0; i < n; ++i) buf[i] = static_cast<unsigned char>(toupper(buf[i]));
                // Start positions p while n - p >= L; memchr skips to the
                // next possible first byte.
                bool carry = true;
                if (n >= L) {
                    const size_t last = n - L;
                    const unsigned char first = static_cast<unsigned char>(wanted[0]);
                    for (size_t p = 0; p <= last; ++p) {
                        const void* hit = memchr(buf + p, first, last - p + 1);
                        if (!hit) break;
                        p = size_t(static_cast<const unsigned char*>(hit) - buf);
                        if (memcmp(buf + p, wanted.data(), L) == 0) {
                            ++count;
                            if (p == last) carry = false;  // the block's last position matched
                        }
                    }
                }
                if (feof(in.get()) || ferror(in.get())) break;
                if (carry && n >= L) {
                    memmove(buf, buf + n - L, L);
                    carried = L;
                } else if (carry) {
                    break;  // fewer than L bytes without the end of file: nothing sound to carry
                } else {
                    carried = 0;
                }
            }
            return count;
        },
        -1);
}
