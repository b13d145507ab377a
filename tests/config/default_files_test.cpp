// Default INI files and profiles: which keys, in which order, and never over
// an existing file.
#include <gtest/gtest.h>

#include <sstream>

#include "KvDebugHelp.h"
#include "child_host.h"
#include "default_ini_path_guard.h"
#include "temp_dir.h"

using kvtest::TempDir;

namespace {

using Keys = std::vector<std::pair<std::string, std::string>>;

// The "KVEDIT" keys of a file in file order, with their values.
Keys KeysOf(const std::string& file) {
    char names[1024];
    const int32_t n = IniReadValueAsString(file.c_str(), "KVEDIT", nullptr, names, sizeof names, nullptr);
    Keys keys;
    for (int32_t at = 0; at < n; at += int32_t(strlen(names + at)) + 1) {
        char value[300];
        IniReadValueAsString(file.c_str(), "KVEDIT", names + at, value, sizeof value, "");
        keys.emplace_back(names + at, value);
    }
    return keys;
}

std::string BinFolder() { return kvtest::ProgramFolder() + "\\"; }

Keys IniKeysBelow(const std::string& root) {
    return {{"BIN", BinFolder()},           {"DATA", root + "Data"},    {"USER", root + "User"},
            {"CONFIG", root + "Config"},    {"Logs", root + "Logs"},    {"STARTER", root + "Starter"},
            {"LASTDATABASEPATH", root + "User\\Include"}};
}

int32_t CreateIniAt(const std::string& path) {
    SetKorvanIniFilePath(path.c_str());
    return CreateDefaultIniFile();
}

}  // namespace

TEST(DefaultFiles, IniFileGetsTheFoldersBesideItsConfigFolder) {
    for (const char* folder : {"Config", "config", "Settings"}) {
        TempDir plant("cfgplant");
        CreateDirectoryA((plant / folder).c_str(), nullptr);
        const std::string ini = plant / (std::string(folder) + "\\product.ini");
        ASSERT_EQ(1, CreateIniAt(ini)) << folder;  // created, then validated
        const bool inConfig = _stricmp(folder, "Config") == 0;
        const Keys expected = inConfig ? IniKeysBelow(plant.path() + "\\") : Keys{{"BIN", BinFolder()}};
        EXPECT_EQ(expected, KeysOf(ini)) << folder;
        char text[300];
        EXPECT_EQ(inConfig ? plant / "Logs" : "-2",
                  GetKorvanLogFolder(text, sizeof text) > 0 ? std::string(text) : "-2") << folder;
    }
    InvalidateKorvanIniFile();
}

TEST(DefaultFiles, ExistingFilesAreNeverTouched) {
    TempDir plant("cfgexisting");
    CreateDirectoryA((plant / "Config").c_str(), nullptr);
    const std::string ini = plant / "Config\\product.ini";
    ASSERT_TRUE(kvtest::WriteFileText(ini, "[KVEDIT]\r\nLOGS=elsewhere\r\n"));
    EXPECT_EQ(0, CreateIniAt(ini));
    EXPECT_EQ("[KVEDIT]\r\nLOGS=elsewhere\r\n", kvtest::ReadFileText(ini));
    const std::string profile = plant / "Config\\operator.ini";
    ASSERT_TRUE(kvtest::WriteFileText(profile, "keep"));
    EXPECT_EQ(0, CreateDefaultProfile(profile.c_str()));
    EXPECT_EQ("keep", kvtest::ReadFileText(profile));
    EXPECT_EQ(0, CreateDefaultProfile(nullptr));
    // A folder that does not exist cannot take a new file.
    EXPECT_EQ(0, CreateIniAt(plant / "NoSuchFolder\\product.ini"));
    InvalidateKorvanIniFile();
}

TEST(DefaultFiles, ProfileAddsIncrementalCompileAfterBin) {
    TempDir plant("cfgprofile");
    CreateDirectoryA((plant / "Config").c_str(), nullptr);
    CreateDirectoryA((plant / "Run").c_str(), nullptr);
    const std::string ini = plant / "Config\\product.ini";
    ASSERT_TRUE(kvtest::WriteFileText(ini, "[KVEDIT]\r\n"));
    ASSERT_EQ(1, SetKorvanIniFilePath(ini.c_str()));
    ASSERT_EQ(1, ValidateKorvanIniFile());
    const std::string profile = plant / "Run\\operator.ini";
    EXPECT_EQ(1, CreateDefaultProfile(profile.c_str()));
    Keys expected = IniKeysBelow(plant.path() + "\\");
    expected.insert(expected.begin() + 1, {"INCREMENTALCOMPILE", "1"});
    EXPECT_EQ(expected, KeysOf(profile));
    // The INI location is left as it was.
    char text[300];
    EXPECT_EQ(int32_t(ini.size()), GetKorvanIniFilePath(text, sizeof text));
    EXPECT_EQ(ini, text);
    InvalidateKorvanIniFile();
}

TEST(DefaultFiles, MixedSeparatorsFromTheRegistryFindNoRoot) {
    TempDir plant("cfgmixed");
    CreateDirectoryA((plant / "Config").c_str(), nullptr);
    // Taken from the registry as it stands (never made absolute), so the
    // forward slash survives and the path is not split.
    std::string mixed = plant / "Config\\product.ini";
    mixed[mixed.find('\\')] = '/';
    cfgtest::DefaultIniPathGuard guard;
    guard.Set(mixed);
    kvtest::ChildHost host("cfg_mixed");
    const auto result = host.Run({"config_steps", "validate", "createini", "inipath"});
    EXPECT_NE(std::string::npos, result.output.find("validate 0 error 2")) << result.output;
    EXPECT_NE(std::string::npos, result.output.find("createini 1")) << result.output;
    EXPECT_NE(std::string::npos, result.output.find("inipath " + std::to_string(mixed.size()) + " " + mixed))
        << result.output;
    EXPECT_EQ((Keys{{"BIN", BinFolder()}}), KeysOf(plant / "Config\\product.ini"));
}
