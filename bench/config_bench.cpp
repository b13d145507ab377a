// Reading the product INI file through the library against the operating
// system's profile reader on the same file, measured in the same run.
#include <windows.h>
#include <stdio.h>
#include <string.h>

#include <string>

#include "KvDebugHelp.h"
#include "bench.h"

KV_BENCH(config_ini) {
    const std::string folder = kvbench::ScratchFolder() + "\\Config";
    CreateDirectoryA(folder.c_str(), nullptr);
    const std::string ini = folder + "\\product.ini";
    // A product INI file of typical size: the looked-up key sits in the last section.
    for (int s = 0; s < 8; ++s)
        for (int k = 0; k < 12; ++k) {
            const std::string section = "Section" + std::to_string(s), key = "Key" + std::to_string(k);
            WritePrivateProfileStringA(section.c_str(), key.c_str(), "some typical value", ini.c_str());
        }
    WritePrivateProfileStringA("Debug", "MiniDumpType", "2", ini.c_str());
    if (SetKorvanIniFilePath(ini.c_str()) != 1 || ValidateKorvanIniFile() != 1) {
        printf("config_ini: cannot validate %s\n", ini.c_str());
        return;
    }
    kvbench::Compare(
        "KorvanIniReadValueAsString vs GetPrivateProfileStringA",
        [](int64_t n) {
            char value[64];
            for (int64_t i = 0; i < n; ++i) KorvanIniReadValueAsString("Debug", "MiniDumpType", value, sizeof value, "0");
        },
        [&](int64_t n) {
            char value[64];
            for (int64_t i = 0; i < n; ++i)
                GetPrivateProfileStringA("Debug", "MiniDumpType", "0", value, sizeof value, ini.c_str());
        },
        100, 1.10);
    // Both sides above are dominated by the system opening the file, so their
    // ratio carries the machine's noise; this is what the library adds per read.
    const double own = kvbench::NanosPerOp(
        [](int64_t n) {
            char path[260];
            for (int64_t i = 0; i < n; ++i) {
                memset(path, 0, sizeof path);
                GetKorvanIniFilePath(path, sizeof path);
            }
        },
        200000);
    char text[64];
    snprintf(text, sizeof text, "%.0f ns per read", own);
    kvbench::Report("  of which the library's own work (locked path copy)", text);
}
