// kvdiag collect on a private installation, its cabinet read back with the
// cabinet API (FDI) and compared with the files it came from.
#include <gtest/gtest.h>
#include <windows.h>
#include <fcntl.h>
#include <fdi.h>
#include <io.h>

#include <map>
#include <regex>

#include "child_host.h"
#include "kvdiag_runner.h"
#include "product_install.h"
#include "temp_dir.h"

namespace {

using Archive = std::map<std::string, std::string>;  // name in the cabinet -> contents

FNALLOC(CabAlloc) { return malloc(cb); }
FNFREE(CabFree) { free(pv); }
FNOPEN(CabOpen) { return _open(pszFile, oflag | _O_BINARY, pmode); }
FNREAD(CabRead) { return UINT(_read(int(hf), pv, cb)); }
FNWRITE(CabWrite) {  // only the extracted files are written: into memory
    reinterpret_cast<std::string*>(hf)->append(static_cast<const char*>(pv), cb);
    return cb;
}
FNCLOSE(CabClose) { return _close(int(hf)); }
FNSEEK(CabSeek) { return _lseek(int(hf), dist, seektype); }

FNFDINOTIFY(CabNotify) {
    auto* archive = static_cast<Archive*>(pfdin->pv);
    if (fdint == fdintCOPY_FILE) return reinterpret_cast<INT_PTR>(&(*archive)[pfdin->psz1]);
    return fdint == fdintCLOSE_FILE_INFO ? TRUE : 0;
}

// Every file of a cabinet with its contents; empty when it cannot be read.
Archive ReadCabinet(const std::string& path) {
    Archive archive;
    ERF erf{};
    HFDI fdi = FDICreate(CabAlloc, CabFree, CabOpen, CabRead, CabWrite, CabClose, CabSeek, cpuUNKNOWN, &erf);
    if (!fdi) return archive;
    const size_t slash = path.find_last_of('\\') + 1;
    std::string name = path.substr(slash), folder = path.substr(0, slash);
    if (!FDICopy(fdi, &name[0], &folder[0], 0, CabNotify, nullptr, &archive)) archive.clear();
    FDIDestroy(fdi);
    return archive;
}

void WriteFileAged(const std::string& path, size_t size, int hoursOld) {
    std::string text;
    for (size_t i = 0; text.size() < size; ++i) text += "line " + std::to_string(i) + "\r\n";
    text.resize(size);
    ASSERT_TRUE(kvtest::WriteFileText(path, text)) << path;
    FILETIME now;
    GetSystemTimeAsFileTime(&now);
    ULARGE_INTEGER t{{now.dwLowDateTime, now.dwHighDateTime}};
    t.QuadPart -= ULONGLONG(hoursOld) * 36000000000ull;
    const FILETIME then{t.LowPart, t.HighPart};
    HANDLE h = CreateFileA(path.c_str(), FILE_WRITE_ATTRIBUTES, FILE_SHARE_READ, nullptr, OPEN_EXISTING, 0, nullptr);
    SetFileTime(h, nullptr, nullptr, &then);
    CloseHandle(h);
}

}  // namespace

// Everything support needs in one cabinet: files byte for byte, even one a
// writer holds open; what was left out is said with the reason.
TEST(KvdiagCollect, ArchiveHoldsTheInstallationByteForByteAndSaysWhatItLeftOut) {
    kvtest::ProductInstall install;
    kvtest::ChildHost host("kvcollect");
    host.SetSetting("Padding", 8);
    const std::string logs = install.logDir();
    CreateDirectoryA(logs.c_str(), nullptr);
    CreateDirectoryA((logs + "\\Drivers").c_str(), nullptr);
    const struct { const char* name; size_t size; int hoursOld; } files[] = {
        {"debug.Pump.log", 3000, 0}, {"debug.Pump.001", 1100, 1}, {"Drivers\\modbus.log", 500, 2},
        {"stale.log", 200, 48}, {"held.log", 100, 0}, {"new.dmp", 600 * 1024, 1}, {"old.dmp", 600 * 1024, 3}};
    for (const auto& f : files) WriteFileAged(logs + "\\" + f.name, f.size, f.hoursOld);
    // A live log as a writer holds it, and a file held by a program that shares nothing.
    const HANDLE live = CreateFileA((logs + "\\debug.Pump.log").c_str(), GENERIC_WRITE,
                                    FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr, OPEN_EXISTING, 0, nullptr);
    const HANDLE held = CreateFileA((logs + "\\held.log").c_str(), GENERIC_READ, 0, nullptr, OPEN_EXISTING, 0, nullptr);
    const std::string cab = install.Path("support.cab");
    const auto result = kvtest::RunKvdiag("collect \"" + cab + "\" --since 24 --max-mb 0.01 --ini \"" + install.iniPath() + "\"",
                                          {{"KVDIAG_PROGRESS_AFTER_MS", "0"}});
    CloseHandle(held);
    CloseHandle(live);
    ASSERT_EQ(0u, result.exitCode) << result.output;
    EXPECT_HAS(result.output, "collect: running kvdiag selfcheck");
    for (const char* left : {R"(Logs\\stale\.log +older than --since)", R"(Logs\\held\.log +held by another program)",
                             R"(the newest dump alone is over the 0\.01 MB cap: taken all the same)",
                             R"(Logs\\old\.dmp +over the 0\.01 MB cap)", R"(bytes packed from \d+ \(\d+%\))"})
        EXPECT_TRUE(std::regex_search(result.output, std::regex(std::string(left)))) << left << "\n" << result.output;

    Archive archive = ReadCabinet(cab);
    ASSERT_FALSE(archive.empty()) << result.output;
    // Every file now in the log folder (the self-check added some) except those left out.
    std::map<std::string, std::string> sources{{"Config\\product.ini", install.iniPath()}};
    for (const std::string folder : {"", "Drivers\\"})
        for (const std::string& name : kvtest::ListFolder(logs + "\\" + folder))
            if (name != "stale.log" && name != "held.log" && name != "old.dmp" && !kvtest::DirectoryExists(logs + "\\" + folder + name))
                sources["Logs\\" + folder + name] = logs + "\\" + folder + name;
    for (const std::string& pdb : kvtest::ListFolder(kvtest::ProgramFolder(), "*.pdb"))
        sources["Symbols\\" + pdb] = kvtest::ProgramFolder() + "\\" + pdb;
    for (const auto& [name, source] : sources) {
        ASSERT_TRUE(archive.count(name)) << name << "\n" << result.output;
        EXPECT_TRUE(archive[name] == kvtest::ReadFileText(source)) << name << " differs from " << source;
        archive.erase(name);
    }
    for (const char* report : {"version.txt", "paths.txt", "selfcheck.txt", "collect.txt"})
        EXPECT_EQ(1u, archive.erase(std::string("Report\\") + report)) << report;
    EXPECT_NE(std::string::npos, archive["Report\\settings\\kvcollect.txt"].find("registry (8)"));
    archive.erase("Report\\settings\\kvcollect.txt");
    for (const auto& [name, contents] : archive)
        EXPECT_EQ(0u, name.rfind("Report\\settings\\", 0)) << "unexpected " << name;
}
