// Symbols on a machine like a plant's: the DLL, a host, kvdiag and their PDBs
// copied into a fresh folder away from the build tree, each program started
// from a third folder as its current directory. Names, files and lines must
// come from the PDBs beside the modules; without them, addresses and export
// names only, never a wrong file or line.
#include <gtest/gtest.h>
#include <stdlib.h>

#include <map>
#include <memory>

#include "child_host.h"
#include "product_install.h"
#include "temp_dir.h"
#include "text_checks.h"

namespace {

using kvtest::HostResult;
using kvtest::LineFrom;

// The number the host printed after "<label> " ("0", a line no site has, when it printed none).
std::string Printed(const std::string& output, const std::string& label) {
    return std::to_string(kvtest::NumberAfter(output, label + " "));
}

// Where the PDBs go: beside the binaries, nowhere, or into a folder that
// _NT_SYMBOL_PATH names.
enum class Pdbs { kBeside, kNone, kOnSymbolPath };

class AwayInstall {
public:
    explicit AwayInstall(Pdbs pdbs) : pdbs_(pdbs) {
        for (const char* file : {"KvDebugHelp.dll", "KvDebugHelp.pdb", "scenario_host.pdb", "kvdiag.pdb"}) {
            const std::string name = file;
            const bool pdb = name.find(".pdb") != std::string::npos;
            if (pdb && pdbs == Pdbs::kNone) continue;
            const std::string target = pdb && pdbs == Pdbs::kOnSymbolPath ? symbols_ / name : bin_ / name;
            EXPECT_TRUE(CopyFileA((kvtest::ProgramFolder() + "\\" + name).c_str(), target.c_str(), FALSE)) << name;
        }
    }
    // Runs a copy of a test-side program (scenario_host.exe, kvdiag.exe) as
    // name.exe; the copy stays until the installation goes, as a crashed
    // program's image stays on a plant machine for its dump to be read.
    HostResult Run(const std::string& name, const std::string& program, const std::vector<std::string>& args) {
        if (!hosts_.count(name)) hosts_[name] = std::make_unique<kvtest::ChildHost>(name, bin_.path(), program);
        hosts_[name]->SetWorkingDirectory(cwd_.path());
        if (pdbs_ == Pdbs::kOnSymbolPath) hosts_[name]->SetEnv("_NT_SYMBOL_PATH", symbols_.path());
        return hosts_[name]->Run(args, 120000);
    }
    std::string Bin(const std::string& file) const { return bin_ / file; }
    std::string DebugLog() const { return kvtest::ReadFileText(install.logDir() + "\\debug.log"); }

    kvtest::ProductInstall install;

private:
    Pdbs pdbs_;
    kvtest::TempDir bin_{"kvaway"}, cwd_{"kvcwd"}, symbols_{"kvsymbols"};
    std::map<std::string, std::unique_ptr<kvtest::ChildHost>> hosts_;  // gone before the folders
};

}  // namespace

TEST(SymbolsAwayFromBuild, ReportsNameHostFunctionsFilesAndLinesFromPdbs) {
    for (Pdbs place : {Pdbs::kBeside, Pdbs::kOnSymbolPath}) {
        SCOPED_TRACE(place == Pdbs::kBeside ? "beside the modules" : "on _NT_SYMBOL_PATH");
        AwayInstall away(place);
        const HostResult r = away.Run("symbols_host", "scenario_host.exe", {"symbols_report", away.install.iniPath()});
        ASSERT_EQ(0u, r.exitCode) << r.output;
        const std::string log = away.DebugLog();
        // Windows names the PDB loaded with its path, Wine by its file name.
        EXPECT_HAS(LineFrom(r.output, "dll symtype=3 pdb="), "KvDebugHelp.pdb");
        EXPECT_HAS(LineFrom(r.output, "host symtype=3 pdb="), "scenario_host.pdb");
        const std::string file = "symbols_scenarios.cpp";
        EXPECT_HAS(log, "Callstack instrumentation has been enabled (PID ");
        EXPECT_HAS(LineFrom(log, "(symbols_host.exe) LogStackHere(0x"),
                   file + " Line " + Printed(r.output, "stack site"));
        EXPECT_NE(std::string::npos, log.find("symbols_report_scenario", log.find("LogStackHere(0x"))) << log;
        EXPECT_HAS(log, file + ":" + Printed(r.output, "alloc site") + ",");  // the memory report row
        EXPECT_HAS(LineFrom(log, "ThrowHere(0x"), file + " Line " + Printed(r.output, "throw site"));
        const std::string check = LineFrom(r.output, "PASS  symbols resolve - RunKvDebugHelpTests resolved as "
                                                     "RunKvDebugHelpTests from ");
        EXPECT_HAS(check, "KvDebugHelp.pdb (");
        EXPECT_HAS(check, "startup_checks.cpp:");
    }
}

TEST(SymbolsAwayFromBuild, WithoutPdbsAddressesAndExportNamesOnly) {
    AwayInstall away(Pdbs::kNone);
    const HostResult r = away.Run("symbols_host", "scenario_host.exe", {"symbols_report", away.install.iniPath()});
    ASSERT_EQ(0u, r.exitCode) << r.output;
    const std::string log = away.DebugLog();
    EXPECT_LACKS(r.output, "symtype=3");
    // No frame of the host or the DLL carries a source line. (Wine's own
    // DLLs come with line information of their own.)
    for (const auto& line : kvtest::ReadLines(away.install.logDir() + "\\debug.log"))
        if (line.find("(symbols_host.exe) ") == 0 || line.find("(KvDebugHelp.dll) ") == 0) EXPECT_LACKS(line, " Line ");
    EXPECT_HAS(log, "Unable to determine address info");  // the host's own frames, by address
    EXPECT_HAS(r.output, "dll symtype=4");  // the DLL's symbols: its exports
    EXPECT_LACKS(log, "symbols_scenarios.cpp:" + Printed(r.output, "alloc site"));
    EXPECT_HAS(r.output, "PASS  symbols resolve - RunKvDebugHelpTests resolved as "
                         "RunKvDebugHelpTests from the export table only");
}

// kvdiag dumpinfo walks the faulting thread of the dump from the exception
// context through the three functions of the host, innermost first.
TEST(SymbolsAwayFromBuild, DumpinfoPrintsTheFaultingStackWithFilesAndLines) {
    AwayInstall away(Pdbs::kBeside);
    const std::string dump = away.install.logDir() + "\\user.dmp";
    for (const bool fullMemory : {true, false}) {
        SCOPED_TRACE(fullMemory ? "MiniDumpType 3" : "MiniDumpType 1");
        DeleteFileA(dump.c_str());
        away.install.SetValue("Debug", "MiniDumpType", fullMemory ? "3" : "1");
        const HostResult crash =
            away.Run("symbols_crasher", "scenario_host.exe", {"symbols_crash_three_deep", away.install.iniPath()});
        ASSERT_EQ(0xC0000005u, crash.exitCode) << crash.output;
        const HostResult info = away.Run("kvdiag", "kvdiag.exe", {"dumpinfo", dump});
        ASSERT_EQ(0u, info.exitCode) << info.output;
        for (const char* part : {"Exception: code 0xc0000005 at 0x", "write of address 0x0000000000000010",
                                 "Faulting thread: ", "Modules: ", "Memory: "})
            EXPECT_HAS(kvtest::Squeezed(info.output), part);
        // Windows keeps the modules a light dump's stack points into; Wine
        // keeps none, and kvdiag says so.
        if (!fullMemory && info.output.find("the dump lists no modules") != std::string::npos) continue;
        kvtest::Lines stack = {"Stack:"};  // each frame with its own line: the levels' lines differ
        for (const char* level : {"level3", "level2", "level1"})
            stack.insert(stack.end(), {std::string("symbols_crasher!CrashLevel") + level[5] + "+0x",
                                       "symbols_scenarios.cpp:" + Printed(crash.output, level) + ")"});
        stack.push_back("!symbols_crash_three_deep_scenario+0x");
        EXPECT_TRUE(kvtest::InOrder(info.output, stack)) << info.output;
        if (!fullMemory) continue;
        // Without the host's PDB the same frames are module+offset, never a guess.
        DeleteFileA(away.Bin("scenario_host.pdb").c_str());
        const HostResult bare = away.Run("kvdiag", "kvdiag.exe", {"dumpinfo", dump});
        EXPECT_LACKS(bare.output, "CrashLevel");
        EXPECT_LACKS(bare.output, "symbols_scenarios.cpp");
        EXPECT_GE(kvtest::Count(bare.output, "  symbols_crasher+0x"), 4u) << bare.output;
        ASSERT_TRUE(CopyFileA((kvtest::ProgramFolder() + "\\scenario_host.pdb").c_str(),
                              away.Bin("scenario_host.pdb").c_str(), FALSE));
    }
}
