// Validation of the product INI file, each case in a fresh child process
// (the INI location is process-wide, and tolerating a missing file cannot be
// undone).
#include <gtest/gtest.h>

#include "child_host.h"
#include "product_install.h"
#include "registry_keys.h"
#include "text_checks.h"

using kvtest::Lines;
using kvtest::ProductInstall;

namespace {

Lines RunSteps(const char* host, Lines steps) {
    kvtest::ChildHost child(host);
    steps.insert(steps.begin(), "config_steps");
    const auto result = child.Run(steps);
    EXPECT_EQ(0u, result.exitCode) << result.output;
    return kvtest::SplitLines(result.output);
}

// A getter's line when it answers with the whole text.
std::string Shown(const char* step, const std::string& text) {
    return std::string(step) + " " + std::to_string(text.size()) + " " + text;
}

}  // namespace

// Each row a fresh process running its steps, and the lines they print.
TEST(IniValidation, EachStepAnswersAsTheValidationStands) {
    ProductInstall install;
    install.SetValue("RuntimeManager", "Profile", "operator");
    kvtest::TempDir dir("cfgmissing");
    const std::string ini = install.iniPath(), absent = dir / "absent.ini";
    struct Case { const char* host; Lines steps, expected; };
    std::vector<Case> cases = {
        // Nothing answers before validation; the path is shown, but marked as not validated.
        {"cfg_unvalidated", {"configured", "set=" + ini, "folder=1", "profile", "name", "configured", "inipath"},
         {"configured 0 ", "set 1", "folder1 -2 ", "profile 0 ", "name -2 ", Shown("configured", ini), "inipath -3 " + ini}},
        {"cfg_missing", {"set=" + absent, "validate", "validate_ro", "folder=1", "inipath"},
         {"set 0", "validate 0 error 2", "validate_ro 0 error 2", "folder1 -2 ", "inipath -3 " + absent}},
        // Tolerated: valid, but the missing file names no folders and is never created.
        {"cfg_tolerant", {"tolerate", "set=" + absent, "validate", "folder=1", "inipath"},
         {"tolerate", "set 1", "validate 1 error 0", "folder1 -2 ", Shown("inipath", absent)}}};
    // A name or extension longer than the runtime's 256-byte split buffers, in a
    // path within 259 characters, is shown whole (a tolerated missing file:
    // Unix file names stop at 255 bytes).
    for (const std::string& name : {std::string(256, 'n'), "." + std::string(255, 'e'), "n." + std::string(253, 'e')})
        cases.push_back({"cfg_longname", {"tolerate", "set=C:\\" + name, "validate", "name"},
                         {"tolerate", "set 1", "validate 1 error 0", Shown("name", name)}});
    for (const Case& c : cases) EXPECT_EQ(c.expected, RunSteps(c.host, c.steps)) << c.steps[1];
    EXPECT_FALSE(kvtest::DirectoryExists(install.logDir()));
    EXPECT_FALSE(kvtest::FileExists(absent));
}

TEST(IniValidation, ReadOnlyFileNeedsReadOnlyMode) {
    ProductInstall install;
    const std::string ini = install.iniPath();
    // On Windows the read-only attribute alone makes the append-open fail;
    // under Wine a process running as root ignores it, but a handle that does
    // not share writing stops the append-open on both.
    SetFileAttributesA(ini.c_str(), FILE_ATTRIBUTE_READONLY);
    HANDLE blocker = CreateFileA(ini.c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING, 0, nullptr);
    ASSERT_NE(INVALID_HANDLE_VALUE, blocker);
    const Lines out = RunSteps("cfg_readonly", {"set=" + ini, "setro=" + ini, "validate", "validate_ro", "inipath",
                                                "validate", "inipath"});
    CloseHandle(blocker);
    // A failed validation leaves the earlier success standing.
    EXPECT_EQ((Lines{"set 0", "setro 1", "validate 0 error 19", "validate_ro 1 error 0", Shown("inipath", ini),
                     "validate 0 error 19", Shown("inipath", ini)}),
              out);
}

TEST(IniValidation, EmptyPathComesFromDefaultIniPath) {
    ProductInstall install;
    kvtest::DefaultIniPathGuard guard;
    guard.Set(install.iniPath());
    EXPECT_EQ((Lines{"validate 1 error 0", Shown("inipath", install.iniPath()), Shown("folder1", install.logDir()),
                     "name 11 product.ini"}),
              RunSteps("cfg_registry", {"validate", "inipath", "folder=1", "name"}));
    guard.Remove();
    const Lines absent = RunSteps("cfg_noregistry", {"validate", "configured", "folder=1"});
    ASSERT_EQ(3u, absent.size());
    EXPECT_EQ("validate 0", absent[0].substr(0, 10));
    EXPECT_EQ((Lines{"configured 0 ", "folder1 -2 "}), Lines(absent.begin() + 1, absent.end()));
}
