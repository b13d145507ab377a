// Validation of the product INI file, each case in a fresh child process
// (the INI location is process-wide, and tolerating a missing file cannot be
// undone).
#include <gtest/gtest.h>

#include <sstream>

#include "child_host.h"
#include "default_ini_path_guard.h"
#include "product_install.h"
#include "temp_dir.h"

using kvtest::ChildHost;
using kvtest::ProductInstall;

namespace {

std::vector<std::string> RunSteps(const char* host, const std::vector<std::string>& steps) {
    ChildHost child(host);
    std::vector<std::string> args{"config_steps"};
    args.insert(args.end(), steps.begin(), steps.end());
    const auto result = child.Run(args);
    EXPECT_EQ(0u, result.exitCode) << result.output;
    std::vector<std::string> lines;
    std::istringstream in(result.output);
    for (std::string line; std::getline(in, line);) {
        if (!line.empty() && line.back() == '\r') line.pop_back();
        lines.push_back(line);
    }
    return lines;
}

std::string Length(const std::string& text) { return std::to_string(text.size()); }

// Holds a file open for reading while denying others write access. On
// Windows the read-only attribute alone makes the append-open fail; under
// Wine a process running as root ignores that attribute, but a handle that
// does not share writing stops the append-open on both.
class WriteBlocker {
public:
    explicit WriteBlocker(const std::string& path) {
        SetFileAttributesA(path.c_str(), FILE_ATTRIBUTE_READONLY);
        handle_ = CreateFileA(path.c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING, 0, nullptr);
        path_ = path;
    }
    ~WriteBlocker() {
        if (handle_ != INVALID_HANDLE_VALUE) CloseHandle(handle_);
        SetFileAttributesA(path_.c_str(), FILE_ATTRIBUTE_NORMAL);
    }
    bool held() const { return handle_ != INVALID_HANDLE_VALUE; }

private:
    HANDLE handle_ = INVALID_HANDLE_VALUE;
    std::string path_;
};

}  // namespace

TEST(IniValidation, NothingAnswersBeforeValidation) {
    ProductInstall install;
    install.SetValue("RuntimeManager", "Profile", "operator");
    const std::string ini = install.iniPath();
    const auto out = RunSteps("cfg_unvalidated",
                              {"configured", "set=" + ini, "folder=1", "folder=2", "profile", "name", "configured", "inipath"});
    EXPECT_EQ((std::vector<std::string>{"configured 0 ", "set 1", "folder1 -2 ", "folder2 -2 ", "profile 0 ",
                                        "name -2 ", "configured " + Length(ini) + " " + ini,
                                        "inipath -3 " + ini}),  // shown, but marked as not validated
              out);
    EXPECT_FALSE(kvtest::DirectoryExists(install.logDir()));
}

TEST(IniValidation, ReadOnlyFileNeedsReadOnlyMode) {
    ProductInstall install;
    const std::string ini = install.iniPath();
    WriteBlocker blocker(ini);
    ASSERT_TRUE(blocker.held());
    const auto out = RunSteps("cfg_readonly", {"set=" + ini, "setro=" + ini, "validate", "validate_ro", "inipath",
                                               "validate", "inipath"});
    ASSERT_EQ(7u, out.size());
    EXPECT_EQ("set 0", out[0]);
    EXPECT_EQ("setro 1", out[1]);
    EXPECT_EQ("validate 0 error 19", out[2]);
    EXPECT_EQ("validate_ro 1 error 0", out[3]);
    EXPECT_EQ("inipath " + Length(ini) + " " + ini, out[4]);
    // A failed validation leaves the earlier success standing.
    EXPECT_EQ("validate 0 error 19", out[5]);
    EXPECT_EQ("inipath " + Length(ini) + " " + ini, out[6]);
}

TEST(IniValidation, MissingFileFailsUnlessTolerated) {
    kvtest::TempDir dir("cfgmissing");
    const std::string ini = dir / "absent.ini";
    const auto strict = RunSteps("cfg_missing", {"set=" + ini, "validate", "validate_ro", "folder=1", "inipath"});
    ASSERT_EQ(5u, strict.size());
    EXPECT_EQ("set 0", strict[0]);
    EXPECT_EQ("validate 0 error 2", strict[1]);
    EXPECT_EQ("validate_ro 0 error 2", strict[2]);
    EXPECT_EQ("folder1 -2 ", strict[3]);
    EXPECT_EQ("inipath -3 " + ini, strict[4]);

    const auto tolerant = RunSteps("cfg_tolerant", {"tolerate", "set=" + ini, "validate", "folder=1", "inipath"});
    ASSERT_EQ(5u, tolerant.size());
    EXPECT_EQ("set 1", tolerant[1]);
    EXPECT_EQ("validate 1 error 0", tolerant[2]);
    EXPECT_EQ("folder1 -2 ", tolerant[3]);  // valid, but the missing file names no folders
    EXPECT_EQ("inipath " + Length(ini) + " " + ini, tolerant[4]);
    EXPECT_FALSE(kvtest::FileExists(ini));  // the check never creates the file
}

TEST(IniValidation, EmptyPathComesFromDefaultIniPath) {
    ProductInstall install;
    const std::string ini = install.iniPath();
    cfgtest::DefaultIniPathGuard guard;
    guard.Set(ini);
    const auto found = RunSteps("cfg_registry", {"validate", "inipath", "folder=1", "name"});
    ASSERT_EQ(4u, found.size());
    EXPECT_EQ("validate 1 error 0", found[0]);
    EXPECT_EQ("inipath " + Length(ini) + " " + ini, found[1]);
    EXPECT_EQ("folder1 " + Length(install.logDir()) + " " + install.logDir(), found[2]);
    EXPECT_EQ("name 11 product.ini", found[3]);

    guard.Remove();
    const auto absent = RunSteps("cfg_noregistry", {"validate", "configured", "folder=1"});
    ASSERT_EQ(3u, absent.size());
    EXPECT_EQ("validate 0", absent[0].substr(0, 10));
    EXPECT_EQ("configured 0 ", absent[1]);
    EXPECT_EQ("folder1 -2 ", absent[2]);
}
