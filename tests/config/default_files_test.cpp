// Default INI files and profiles: which keys, in which order, and never over
// an existing file.
#include <gtest/gtest.h>

#include "KvDebugHelp.h"
#include "child_host.h"
#include "registry_keys.h"
#include "temp_dir.h"
#include "text_checks.h"

using kvtest::TempDir;
using Keys = std::vector<std::pair<std::string, std::string>>;

namespace {

// The "KVEDIT" keys of a file in file order, with their values.
Keys KeysOf(const std::string& file) {
    char names[1024], value[300];
    const int32_t n = IniReadValueAsString(file.c_str(), "KVEDIT", nullptr, names, sizeof names, nullptr);
    Keys keys;
    for (int32_t at = 0; at < n; at += int32_t(strlen(names + at)) + 1) {
        IniReadValueAsString(file.c_str(), "KVEDIT", names + at, value, sizeof value, "");
        keys.emplace_back(names + at, value);
    }
    return keys;
}

std::pair<std::string, std::string> Bin() { return {"BIN", kvtest::ProgramFolder() + "\\"}; }

Keys KeysBelow(const TempDir& root) {
    return {Bin(), {"DATA", root / "Data"}, {"USER", root / "User"}, {"CONFIG", root / "Config"},
            {"Logs", root / "Logs"}, {"STARTER", root / "Starter"}, {"LASTDATABASEPATH", root / "User\\Include"}};
}

}  // namespace

TEST(DefaultFiles, IniFileGetsTheFoldersBesideItsConfigFolder) {
    for (const std::string folder : {"Config", "config", "Settings"}) {
        SCOPED_TRACE(folder);
        TempDir plant("cfgplant");
        CreateDirectoryA((plant / folder).c_str(), nullptr);
        const std::string ini = plant / (folder + "\\product.ini");
        SetKorvanIniFilePath(ini.c_str());     // 0: no such file yet
        ASSERT_EQ(1, CreateDefaultIniFile());  // created, then validated
        const bool inConfig = folder != "Settings";
        EXPECT_EQ(inConfig ? KeysBelow(plant) : Keys{Bin()}, KeysOf(ini));
        char text[300] = "";
        EXPECT_EQ(inConfig ? int32_t(plant.path().size() + 5) : -2, GetKorvanLogFolder(text, sizeof text));
    }
    InvalidateKorvanIniFile();
}

TEST(DefaultFiles, ExistingFilesAreNeverTouchedAndAProfileAddsIncrementalCompileAfterBin) {
    TempDir plant("cfgprofile");
    CreateDirectoryA((plant / "Config").c_str(), nullptr);
    CreateDirectoryA((plant / "Run").c_str(), nullptr);
    const std::string ini = plant / "Config\\product.ini", profile = plant / "Config\\operator.ini";
    ASSERT_TRUE(kvtest::WriteFileText(ini, "[KVEDIT]\r\n"));
    ASSERT_TRUE(kvtest::WriteFileText(profile, "keep"));
    ASSERT_EQ(1, SetKorvanIniFilePath(ini.c_str()));
    EXPECT_EQ(0, CreateDefaultIniFile());
    EXPECT_EQ("[KVEDIT]\r\n", kvtest::ReadFileText(ini));
    EXPECT_EQ(0, CreateDefaultProfile(profile.c_str()));
    EXPECT_EQ("keep", kvtest::ReadFileText(profile));
    EXPECT_EQ(0, CreateDefaultProfile(nullptr));

    ASSERT_EQ(1, ValidateKorvanIniFile());
    EXPECT_EQ(1, CreateDefaultProfile((plant / "Run\\operator.ini").c_str()));
    Keys expected = KeysBelow(plant);
    expected.insert(expected.begin() + 1, {"INCREMENTALCOMPILE", "1"});
    EXPECT_EQ(expected, KeysOf(plant / "Run\\operator.ini"));
    char text[300];  // the INI location is left as it was
    EXPECT_EQ(int32_t(ini.size()), GetKorvanIniFilePath(text, sizeof text));
    // A folder that does not exist cannot take a new file.
    SetKorvanIniFilePath((plant / "NoSuchFolder\\product.ini").c_str());
    EXPECT_EQ(0, CreateDefaultIniFile());
    InvalidateKorvanIniFile();
}

TEST(DefaultFiles, MixedSeparatorsFromTheRegistryFindNoRoot) {
    TempDir plant("cfgmixed");
    CreateDirectoryA((plant / "Config").c_str(), nullptr);
    // Taken from the registry as it stands (never made absolute), so the
    // forward slash survives and the path is not split.
    std::string mixed = plant / "Config\\product.ini";
    mixed[mixed.find('\\')] = '/';
    kvtest::DefaultIniPathGuard guard;
    guard.Set(mixed);
    const auto result = kvtest::ChildHost("cfg_mixed").Run({"config_steps", "validate", "createini", "inipath"});
    const std::string inipath = "inipath " + std::to_string(mixed.size()) + " " + mixed;
    EXPECT_EQ((kvtest::Lines{"validate 0 error 2", "createini 1", inipath}), kvtest::SplitLines(result.output));
    EXPECT_EQ(Keys{Bin()}, KeysOf(plant / "Config\\product.ini"));
}
