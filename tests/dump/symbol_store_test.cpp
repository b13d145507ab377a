// kvdiag symbols add on files a release engineer may hand it: an image
// without a CodeView record, an image beside another build's PDB, another
// file under an identity already stored, and a file that is neither.
#include <gtest/gtest.h>

#include <stddef.h>

#include "kvdiag_runner.h"
#include "temp_dir.h"
#include "text_checks.h"

namespace {

std::string Program(const std::string& name) { return kvtest::ReadFileText(kvtest::ProgramFolder() + "\\" + name); }

// The image with its debug directory entry cleared: no PDB is named.
std::string WithoutDebugDirectory(std::string image) {
    uint32_t ntAt = 0;
    memcpy(&ntAt, image.data() + offsetof(IMAGE_DOS_HEADER, e_lfanew), 4);
    const size_t entry = ntAt + offsetof(IMAGE_NT_HEADERS64, OptionalHeader.DataDirectory) +
                         IMAGE_DIRECTORY_ENTRY_DEBUG * sizeof(IMAGE_DATA_DIRECTORY);
    memset(&image[entry], 0, sizeof(IMAGE_DATA_DIRECTORY));
    return image;
}

// Same headers (so the same identity), other code.
std::string OtherBytes(std::string image) {
    image[image.size() - 100] ^= 0x5A;
    return image;
}

}  // namespace

TEST(SymbolStore, SaysWhatItStoredAndNeverReplacesAStoredFile) {
    const std::string tool = Program("kvdiag.exe");
    const struct {
        const char* label;
        std::vector<std::pair<std::string, std::string>> files;  // name, bytes
        DWORD exitCode;
        kvtest::Lines parts;
    } cases[] = {
        {"no CodeView record", {{"tool.exe", WithoutDebugDirectory(tool)}}, 0,
         {"stored tool.exe\\", "no PDB tool.exe: the image names no PDB (no CodeView record); stored without one",
          ": 1 stored, 0 already present, 1 image without a PDB, 0 problems"}},
        {"another build's PDB beside it",
         {{"host.exe", Program("scenario_host.exe")}, {"scenario_host.pdb", Program("kvdiag.pdb")}},
         0,
         {"stored host.exe\\", "no PDB host.exe: its PDB scenario_host.pdb ({", ", of another build",
          "stored scenario_host.pdb\\"}},  // kept on its own identity
        {"a stored identity, other bytes", {{"kvdiag.exe", OtherBytes(tool)}}, 1,
         {"conflict kvdiag.exe\\", "the store holds another file of the same identity; kept it", " 1 problem"}},
        {"neither image nor PDB", {{"notes.dll", "MZ but nothing more"}}, 1,
         {"failed ", "notes.dll: neither an executable image nor a PDB"}},
    };
    kvtest::TempDir store("kvstore");
    const std::string into = " --store \"" + store.path() + "\"";
    ASSERT_EQ(0u, kvtest::RunKvdiag("symbols add \"" + kvtest::ProgramFolder() + "\\kvdiag.exe\"" + into).exitCode);
    for (const auto& c : cases) {
        SCOPED_TRACE(c.label);
        kvtest::TempDir in("kvstorein");
        for (const auto& [name, bytes] : c.files) ASSERT_TRUE(kvtest::WriteFileText(in / name, bytes));
        const auto r = kvtest::RunKvdiag("symbols add \"" + in.path() + "\"" + into);
        EXPECT_EQ(c.exitCode, r.exitCode);
        EXPECT_TRUE(kvtest::InOrder(kvtest::Squeezed(r.output), c.parts)) << r.output;
    }
    // The conflict left the stored file as it was.
    const auto keys = kvtest::ListFolder(store / "kvdiag.exe");
    ASSERT_EQ(1u, keys.size());
    EXPECT_TRUE(kvtest::ReadFileText(store / ("kvdiag.exe\\" + keys[0] + "\\kvdiag.exe")) == tool);
}
