// Registry access through RegKey and the one-shot exports, on private keys.
#include <gtest/gtest.h>

#include <algorithm>

#include "KvDebugHelp.h"
#include "guarded_buffer.h"
#include "registry_keys.h"

using kvtest::TestKey;

// The value the library wrote is found in the 32-bit view, where it opened the key.
TEST(Registry, MachineValuesLiveInThe32BitView) {
    TestKey key(HKEY_LOCAL_MACHINE, kvtest::kTestKeys + "cfg_view");
    ASSERT_EQ(0, RegistryWriteValueAsDword(HKEY_LOCAL_MACHINE, key.path().c_str(), "Answer", 42));
    DWORD read = 0, size = sizeof read;
    EXPECT_EQ(ERROR_SUCCESS, RegGetValueA(HKEY_LOCAL_MACHINE, key.path().c_str(), "Answer",
                                          RRF_RT_REG_DWORD | RRF_SUBKEY_WOW6432KEY, nullptr, &read, &size));
    EXPECT_EQ(42u, read);
}

TEST(Registry, DwordsMissingKeysAndValues) {
    TestKey key(HKEY_CURRENT_USER, kvtest::kTestKeys + "cfg_dword");
    const std::string path = key.path(), noKey = path + "\\NoKey";
    uint32_t value = 7;
    const struct { HKEY root; const std::string& subKey; const char* name; int32_t expected; } reads[] = {
        {HKEY_CURRENT_USER, path, "Missing", 2},
        {HKEY_CURRENT_USER, noKey, "Any", 2},  // "not installed", told apart from other failures
        {nullptr, path, "Any", 1},             // a key that cannot be opened at all
        {HKEY_CURRENT_USER, path, nullptr, 1}};
    for (const auto& r : reads) {
        SCOPED_TRACE(r.subKey + " " + (r.name ? r.name : "(null)"));
        EXPECT_EQ(r.expected, RegistryReadValueAsDword(r.root, r.subKey.c_str(), r.name, &value));
        kvtest::GuardedBuffer text(8);  // cleared on every path
        uint32_t size = 8;
        EXPECT_EQ(r.expected, RegistryReadValueAsString(r.root, r.subKey.c_str(), r.name, text.data(), &size));
        EXPECT_TRUE(text.AllZero());
    }
    EXPECT_EQ(1, RegistryWriteValueAsDword(HKEY_CURRENT_USER, noKey.c_str(), "Any", 1));  // never creates keys
    // No type check: a short string fills the low bytes, a long one does not fit.
    key.SetString("Short", "ab");
    key.SetString("Long", "abcdefgh");
    EXPECT_EQ(0, RegistryReadValueAsDword(HKEY_CURRENT_USER, path.c_str(), "Short", &value));
    EXPECT_EQ(uint32_t('a' | 'b' << 8), value);
    EXPECT_EQ(1, RegistryReadValueAsDword(HKEY_CURRENT_USER, path.c_str(), "Long", &value));
}

TEST(Registry, StringsAndListsByLengthAndType) {
    TestKey key(HKEY_CURRENT_USER, kvtest::kTestKeys + "cfg_strings");
    const std::string longText(300, 'x');
    key.SetString("Long", longText);
    key.SetString("Edge", std::string(259, 'y'));
    const char list[] = "one\0two\0\0three\0";
    key.SetRaw("List", REG_MULTI_SZ, list, sizeof list);
    key.SetRaw("Expand", REG_EXPAND_SZ, "%TEMP%\\x", 9);
    key.SetRaw("Binary", REG_BINARY, "\1\2\3", 3);
    RegKey reader(key.path(), HKEY_CURRENT_USER, true);
    ASSERT_TRUE(reader.IsOpen());
    std::string text = "untouched";
    EXPECT_EQ(RegAccessFailed, reader.ReadValueAsString("Long", text));  // only the list read takes it
    EXPECT_EQ("untouched", text);
    EXPECT_EQ(RegAccessSuccess, reader.ReadValueAsString("Edge", text));
    EXPECT_EQ(std::string(259, 'y'), text);

    using List = std::vector<std::string>;
    List values;
    EXPECT_EQ(RegAccessSuccess, reader.ReadValueAsMultiString("Long", values));
    EXPECT_EQ(List{longText}, values);
    EXPECT_EQ(RegAccessSuccess, reader.ReadValueAsMultiString("List", values));
    EXPECT_EQ((List{"one", "two"}), values);  // stops at the first empty string
    EXPECT_EQ(RegAccessSuccess, reader.ReadValueAsMultiString("Expand", values));
    EXPECT_EQ(List{"%TEMP%\\x"}, values);  // not expanded
    values = {"stale"};
    EXPECT_EQ(RegAccessFailed, reader.ReadValueAsMultiString("Binary", values));
    EXPECT_TRUE(values.empty());
    EXPECT_EQ(RegAccessNotFound, reader.ReadValueAsMultiString("Missing", values));
}

TEST(Registry, ReadOnlyKeysRefuseWritesAndSubKeysAreListed) {
    TestKey key(HKEY_CURRENT_USER, kvtest::kTestKeys + "cfg_readonly");
    RegKey readOnly(key.path(), HKEY_CURRENT_USER, true), writable(key.path(), HKEY_CURRENT_USER, false);
    EXPECT_EQ(RegAccessFailed, RegKey(key.path() + "\\NoKey", HKEY_CURRENT_USER, false).WriteValueAsDword("K", 9));
    EXPECT_EQ(RegAccessFailed, readOnly.WriteValueAsDword("Kept", 9));
    EXPECT_EQ(RegAccessSuccess, writable.WriteValueAsDword("Kept", 5));
    uint32_t value = 0;
    EXPECT_EQ(RegAccessSuccess, readOnly.ReadValueAsDword("Kept", value));
    EXPECT_EQ(5u, value);

    key.AddSubKey("Alpha");
    key.AddSubKey("Beta\\Nested");
    std::vector<std::string> names{"stale"};
    EXPECT_EQ(RegAccessSuccess, readOnly.EnumerateKeys(names));
    std::sort(names.begin(), names.end());
    EXPECT_EQ((std::vector<std::string>{"Alpha", "Beta"}), names);
}
