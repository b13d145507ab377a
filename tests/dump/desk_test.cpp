// Dumps read on a support desk: a host runs from a plant folder of its own,
// crashes or deadlocks and is dumped; the plant folder is then removed, and
// kvdiag reads the dumps from a desk folder that holds only them, finding
// every image and PDB by identity in a store that kvdiag symbols add made.
#include <gtest/gtest.h>

#include <map>
#include <memory>

#include "kvdiag_runner.h"
#include "temp_dir.h"
#include "text_checks.h"

namespace {

using kvtest::HostResult;

std::string Quoted(const std::string& path) { return "\"" + path + "\""; }

// The host "name" with the library and the PDBs in a folder of its own.
class Plant {
public:
    explicit Plant(const std::string& name) {
        for (const char* file : {"KvDebugHelp.dll", "KvDebugHelp.pdb", "scenario_host.pdb"})
            EXPECT_TRUE(CopyFileA((kvtest::ProgramFolder() + "\\" + file).c_str(), (bin_ / file).c_str(), FALSE));
        host = std::make_unique<kvtest::ChildHost>(name, bin_.path(), "scenario_host.exe");
    }
    // Puts the plant's binaries into a store, as a release build does.
    void AddToStore(const std::string& store) {
        const HostResult r = kvtest::RunKvdiag("symbols add " + Quoted(bin_.path()) + " --store " + Quoted(store));
        EXPECT_EQ(0u, r.exitCode) << r.output;
    }
    std::string Dump(const std::string& name) const { return dumps_ / name; }

    std::unique_ptr<kvtest::ChildHost> host;

private:
    kvtest::TempDir bin_{"kvplant"}, dumps_{"kvplantdumps"};
};

bool MoveTo(const std::string& from, const std::string& to) { return MoveFileExA(from.c_str(), to.c_str(), 0); }

TEST(SupportDesk, NamesALightCrashDumpThroughTheStoreAndSaysWhatIsMissingWithout) {
    kvtest::TempDir store("kvstore"), desk("kvdesk"), foreign("kvforeign");
    std::string foreignPdb;
    {
        Plant plant("desk_crasher");
        const HostResult crash = plant.host->Run({"triage_crash", "parse", plant.Dump("user.dmp")});
        ASSERT_EQ(0xC0000005u, crash.exitCode) << crash.output;
        plant.AddToStore(store.path());
        plant.AddToStore(foreign.path());
        ASSERT_TRUE(MoveTo(plant.Dump("user.dmp"), desk / "user.dmp"));
    }  // the plant's folders are gone
    const auto keys = kvtest::ListFolder(foreign / "scenario_host.pdb", "????????????????????????????????*");
    ASSERT_EQ(1u, keys.size());
    foreignPdb = foreign / ("scenario_host.pdb\\" + keys[0] + "\\scenario_host.pdb");
    ASSERT_TRUE(CopyFileA((kvtest::ProgramFolder() + "\\kvdiag.pdb").c_str(), foreignPdb.c_str(), FALSE));
    const std::string dump = Quoted(desk / "user.dmp"), srv = "srv*" + store.path();
    const struct {
        const char* label;
        std::string arguments;
        std::map<std::string, std::string> env;
        DWORD exitCode;
        kvtest::Lines parts;
    } cases[] = {
        {"through the store", "dumpinfo " + dump + " --symbols " + Quoted(srv), {}, 0,
         {"#0 desk_crasher!WriteThroughNull+0x", "dump_scenarios.cpp:", "#1 desk_crasher!ParseRecipe+0x",
          "Signature: 0xc0000005 | desk_crasher!WriteThroughNull | desk_crasher!ParseRecipe | "
          "desk_crasher!triage_crash_scenario",
          "desk_crasher: image " + store.path() + "\\desk_crasher.exe\\",
          "desk_crasher: PDB " + store.path() + "\\scenario_host.pdb\\"}},
        {"through _NT_SYMBOL_PATH", "dumpinfo " + dump, {{"_NT_SYMBOL_PATH", "c:\\nowhere;" + srv}}, 0,
         {"#0 desk_crasher!WriteThroughNull+0x", "KvDebugHelp: PDB " + store.path() + "\\KvDebugHelp.pdb\\"}},
        // Without the images (the dump names only where they were): nothing to unwind or name with.
        {"without the store", "dumpinfo " + dump + " --symbols " + Quoted(desk.path()), {}, 1,
         {"#0 desk_crasher+0x", "(walk ends: no image of desk_crasher.exe found to unwind with)",
          "desk_crasher: image missing (time stamp 0x", "looked in: ", desk / "desk_crasher.exe", "Unnamed: "}},
        // A store whose PDB is of another build under the right name: refused, never used.
        {"another build's PDB", "dumpinfo " + dump + " --symbols srv*" + Quoted(foreign.path()), {}, 1,
         {"#0 desk_crasher+0x", "refused " + foreignPdb + " is a PDB of another build ({", "Unnamed: "}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.label);
        const HostResult r = kvtest::RunKvdiag(c.arguments, c.env, 180000, desk.path());
        EXPECT_EQ(c.exitCode, r.exitCode);
        EXPECT_TRUE(kvtest::InOrder(kvtest::Squeezed(r.output), c.parts)) << r.output;
    }
}

// N threads each hold one lock and want the next: the heavy hang dump,
// read at the desk, names every wait and the cycle with both locks' owners.
TEST(SupportDesk, ExplainsDeadlocksOfTwoAndThreeThreadsFromAHangDump) {
    for (const int threads : {2, 3}) {
        SCOPED_TRACE(std::to_string(threads) + " threads");
        kvtest::TempDir store("kvstore"), desk("kvdesk");
        std::vector<std::string> ids, locks;
        {
            Plant plant("desk_ring");
            ASSERT_TRUE(plant.host->Start({"deadlock_ring", std::to_string(threads)}));
            ASSERT_TRUE(plant.host->WaitForOutput("deadlocked"));
            const HostResult dumped =
                kvtest::RunKvdiag("dump desk_ring heavy --out " + Quoted(plant.Dump("desk_ring.hang.dmp")));
            ASSERT_EQ(0u, dumped.exitCode) << dumped.output;
            const std::string said = plant.host->Wait(1).output;
            for (const auto& line : kvtest::SplitLines(said))
                if (line.rfind("thread ", 0) == 0) {
                    ids.push_back(line.substr(7, line.find(' ', 7) - 7));
                    locks.push_back(line.substr(line.find("holds ") + 6));
                }
            ASSERT_EQ(size_t(threads), ids.size()) << said;
            plant.AddToStore(store.path());
            ASSERT_TRUE(MoveTo(plant.Dump("desk_ring.hang.dmp"), desk / "ring.dmp"));
        }
        // With the store, and with the PDBs alone as collect packs them: the
        // images are then rebuilt from the full dump's memory.
        kvtest::TempDir pdbs("kvcabsymbols");
        for (const char* pdb : {"scenario_host.pdb", "KvDebugHelp.pdb"})
            ASSERT_TRUE(CopyFileA((kvtest::ProgramFolder() + "\\" + pdb).c_str(), (pdbs / pdb).c_str(), FALSE));
        for (const std::string& symbols : {"srv*" + store.path(), pdbs.path()}) {
            SCOPED_TRACE(symbols);
            const HostResult r = kvtest::RunKvdiag("dumpinfo " + Quoted(desk / "ring.dmp") + " --symbols " + Quoted(symbols),
                                                   {}, 180000, desk.path());
            EXPECT_EQ(0u, r.exitCode) << r.output;
            if (symbols == pdbs.path())
                EXPECT_HAS(r.output, "desk_ring: image rebuilt from the dump's memory; no file of it in: ");
            const std::string deadlock = kvtest::LineFrom(r.output, "Deadlock: ");
            EXPECT_EQ(size_t(threads), kvtest::Count(deadlock, " waits for lock ")) << r.output;
            for (int i = 0; i < threads; ++i) {
                const int next = (i + 1) % threads;
                const std::string wait =
                    "thread " + ids[i] + " waits for lock " + locks[next] + " owned by thread " + ids[next];
                EXPECT_HAS(deadlock, wait);
                EXPECT_TRUE(kvtest::InOrder(r.output, {deadlock, "  Thread " + ids[i], "desk_ring!TakeNextLock+0x",
                                                       "dump_scenarios.cpp:", "desk_ring!RingThread+0x"}))
                    << r.output;
            }
            EXPECT_HAS(r.output, "Signature:      deadlock | desk_ring!TakeNextLock | desk_ring!RingThread");
        }
    }
}

}  // namespace
