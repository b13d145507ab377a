// The INI file check: can the file be opened for reading, and for writing?
#include <windows.h>
#include <stdio.h>

#include "config/ini_location.h"

namespace kv {

bool CheckIniFile(const char* path, bool readOnly, bool tolerateMissing) {
    // Converted with the ANSI code page so that non-ASCII names open exactly
    // as the narrow API would find them.
    wchar_t wide[kIniPathBytes * 2] = L"";
    const bool converted = path && MultiByteToWideChar(CP_ACP, 0, path, -1, wide, int(sizeof wide / sizeof *wide)) > 0;
    FILE* in = converted ? _wfopen(wide, L"rb") : nullptr;
    if (in) {
        fclose(in);
        if (readOnly) return true;
        // Append mode: the check must never truncate the file.
        FILE* out = _wfopen(wide, L"ab");
        if (out) {
            fclose(out);
            return true;
        }
        SetLastError(ERROR_WRITE_PROTECT);
        return false;
    }
    if (tolerateMissing) return true;
    SetLastError(ERROR_FILE_NOT_FOUND);
    return false;
}

}  // namespace kv
