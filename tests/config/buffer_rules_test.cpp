// The rule every buffer-filling export shares: a text of n characters needs
// n + 1 bytes; with fewer the call fails without writing a byte past the size
// given (each buffer ends at a no-access page) and leaves no partial text.
#include <gtest/gtest.h>

#include <functional>

#include "KvDebugHelp.h"
#include "guarded_buffer.h"
#include "product_install.h"
#include "registry_keys.h"

using kvtest::GuardedBuffer;

TEST(BufferRules, ExactLengthFailsAndOneMoreByteSucceeds) {
    kvtest::ProductInstall install;
    install.SetValue("RuntimeManager", "Profile", "operator");
    ASSERT_EQ(1, SetKorvanIniFilePath(install.iniPath().c_str()));
    ASSERT_EQ(1, ValidateKorvanIniFile());
    kvtest::TestKey key(HKEY_CURRENT_USER, kvtest::kTestKeys + "cfg_buffers");
    key.SetString("Nine", "123456789");
    const std::string ini = install.iniPath(), sections("KVEDIT\0RuntimeManager", 21);

    struct Case {
        const char* name;
        std::function<int32_t(char*, uint32_t)> fill;
        std::string text;     // may hold NULs (lists)
        size_t needed;        // the smallest size that succeeds
        int32_t fitResult, shortResult;
        bool clearsAll;       // a failure zeroes the whole buffer, not just its first byte
    };
    const auto n = [](const std::string& s) { return int32_t(s.size()); };
    const std::string profile = install.Path("Run\\operator.ini");
    const Case cases[] = {
        {"ini path", GetKorvanIniFilePath, ini, ini.size() + 1, n(ini), -1, true},
        {"ini path as configured", GetKorvanIniFilePathAsConfigured, ini, ini.size() + 1, n(ini), -1, true},
        {"ini file name", GetKorvanIniFileName, "product.ini", 12, 11, -1, true},
        {"root key", GetRootRegistryKeyPath, "Software\\Korvan\\SCADA Installs\\8.40", 36, 35, -1, true},
        {"log folder", GetKorvanLogFolder, install.logDir(), install.logDir().size() + 1, n(install.logDir()), -1,
         true},
        // Formatted into size - 1 bytes: one byte more, and an overflow gives 0.
        {"profile path", GetKorvanProfilePath, profile, profile.size() + 2, n(profile), 0, true},
        {"ini value", [&](char* b, uint32_t s) { return IniReadValueAsString(ini.c_str(), "RuntimeManager",
                                                                             "Profile", b, s, ""); },
         "operator", 9, 8, -1, false},
        {"ini section list", [&](char* b, uint32_t s) { return IniReadValueAsString(ini.c_str(), nullptr, nullptr,
                                                                                    b, s, nullptr); },
         sections + '\0', 23, 22, -1, false},
        {"registry string", [&](char* b, uint32_t s) { return RegistryReadValueAsString(
                                                          HKEY_CURRENT_USER, key.path().c_str(), "Nine", b, &s); },
         "123456789", 10, 0, 1, true},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        GuardedBuffer fits(c.needed), tooShort(c.needed - 1), none(0);
        EXPECT_EQ(c.fitResult, c.fill(fits.data(), uint32_t(c.needed)));
        EXPECT_EQ(c.text + '\0', std::string(fits.data(), c.text.size() + 1));
        EXPECT_EQ(c.shortResult, c.fill(tooShort.data(), uint32_t(c.needed - 1)));
        EXPECT_TRUE(c.clearsAll ? tooShort.AllZero() : tooShort.data()[0] == '\0');
        EXPECT_EQ(c.shortResult, c.fill(none.data(), 0));
        EXPECT_EQ(c.shortResult, c.fill(nullptr, 0));
    }
    InvalidateKorvanIniFile();
}
