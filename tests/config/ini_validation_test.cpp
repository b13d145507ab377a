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

TEST(IniValidation, NothingAnswersBeforeValidation) {
    ProductInstall install;
    install.SetValue("RuntimeManager", "Profile", "operator");
    const std::string ini = install.iniPath();
    EXPECT_EQ((Lines{"configured 0 ", "set 1", "folder1 -2 ", "profile 0 ", "name -2 ", Shown("configured", ini),
                     "inipath -3 " + ini}),  // shown, but marked as not validated
              RunSteps("cfg_unvalidated", {"configured", "set=" + ini, "folder=1", "profile", "name", "configured",
                                           "inipath"}));
    EXPECT_FALSE(kvtest::DirectoryExists(install.logDir()));
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

TEST(IniValidation, MissingFileFailsUnlessTolerated) {
    kvtest::TempDir dir("cfgmissing");
    const std::string ini = dir / "absent.ini";
    EXPECT_EQ((Lines{"set 0", "validate 0 error 2", "validate_ro 0 error 2", "folder1 -2 ", "inipath -3 " + ini}),
              RunSteps("cfg_missing", {"set=" + ini, "validate", "validate_ro", "folder=1", "inipath"}));
    // Tolerated: valid, but the missing file names no folders and is never created.
    EXPECT_EQ((Lines{"tolerate", "set 1", "validate 1 error 0", "folder1 -2 ", Shown("inipath", ini)}),
              RunSteps("cfg_tolerant", {"tolerate", "set=" + ini, "validate", "folder=1", "inipath"}));
    EXPECT_FALSE(kvtest::FileExists(ini));
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

// A name or extension longer than the runtime's 256-byte split buffers, in a
// path within 259 characters (a tolerated missing file: Unix file names stop
// at 255 bytes).
TEST(IniValidation, TheFileNameOfAPathAtTheLimitIsShownWhole) {
    const std::string names[] = {std::string(256, 'n'), "." + std::string(255, 'e'), "n." + std::string(253, 'e')};
    for (const std::string& name : names) {
        const std::string ini = "C:\\" + name;
        EXPECT_EQ((Lines{"tolerate", "set 1", "validate 1 error 0", Shown("name", name)}),
                  RunSteps("cfg_longname", {"tolerate", "set=" + ini, "validate", "name"}));
    }
}
