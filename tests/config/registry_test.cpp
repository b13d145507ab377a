// Registry access: RegKey and the one-shot exports, on private test keys.
#include <gtest/gtest.h>

#include <algorithm>

#include "KvDebugHelp.h"
#include "guarded_buffer.h"
#include "registry_test_key.h"

using cfgtest::TestKey;
using kvtest::GuardedBuffer;

namespace {

bool ValueExistsInView(HKEY root, const std::string& path, const char* value, REGSAM view) {
    HKEY key;
    if (RegOpenKeyExA(root, path.c_str(), 0, KEY_READ | view, &key) != ERROR_SUCCESS) return false;
    const bool found = RegQueryValueExA(key, value, nullptr, nullptr, nullptr, nullptr) == ERROR_SUCCESS;
    RegCloseKey(key);
    return found;
}

}  // namespace

TEST(Registry, MachineWritesGoToThe32BitView) {
    TestKey key(HKEY_LOCAL_MACHINE, "cfg_view");
    ASSERT_EQ(0, RegistryWriteValueAsDword(HKEY_LOCAL_MACHINE, key.path().c_str(), "Answer", 42));
    EXPECT_TRUE(ValueExistsInView(HKEY_LOCAL_MACHINE, key.path(), "Answer", KEY_WOW64_32KEY));
    EXPECT_FALSE(ValueExistsInView(HKEY_LOCAL_MACHINE, key.path(), "Answer", KEY_WOW64_64KEY));
    uint32_t read = 0;
    EXPECT_EQ(0, RegistryReadValueAsDword(HKEY_LOCAL_MACHINE, key.path().c_str(), "Answer", &read));
    EXPECT_EQ(42u, read);
}

TEST(Registry, DwordReadsAndWrites) {
    TestKey key(HKEY_CURRENT_USER, "cfg_dword");
    const std::string path = key.path();
    uint32_t value = 7;
    EXPECT_EQ(2, RegistryReadValueAsDword(HKEY_CURRENT_USER, path.c_str(), "Missing", &value));
    // A key that cannot be opened is a failure, not "not found".
    EXPECT_EQ(1, RegistryReadValueAsDword(HKEY_CURRENT_USER, (path + "\\NoKey").c_str(), "Any", &value));
    // Keys are never created: a write to a missing key fails.
    EXPECT_EQ(1, RegistryWriteValueAsDword(HKEY_CURRENT_USER, (path + "\\NoKey").c_str(), "Any", 1));
    EXPECT_EQ(1, RegistryWriteValueAsDword(HKEY_CURRENT_USER, nullptr, "Any", 1));
    EXPECT_EQ(1, RegistryReadValueAsDword(HKEY_CURRENT_USER, path.c_str(), nullptr, &value));

    // No type check: a short string fills the low bytes, a long one does not fit.
    key.SetString("Short", "ab");
    value = 0;
    EXPECT_EQ(0, RegistryReadValueAsDword(HKEY_CURRENT_USER, path.c_str(), "Short", &value));
    EXPECT_EQ(uint32_t('a' | 'b' << 8), value);
    key.SetString("Long", "abcdefgh");
    EXPECT_EQ(1, RegistryReadValueAsDword(HKEY_CURRENT_USER, path.c_str(), "Long", &value));

    EXPECT_EQ(0, RegistryWriteValueAsDword(HKEY_CURRENT_USER, path.c_str(), "Count", 0xFFFFFFFFu));
    EXPECT_EQ(0, RegistryReadValueAsDword(HKEY_CURRENT_USER, path.c_str(), "Count", &value));
    EXPECT_EQ(0xFFFFFFFFu, value);
}

TEST(Registry, StringReadHonoursTheCallersSize) {
    TestKey key(HKEY_CURRENT_USER, "cfg_string");
    key.SetString("Nine", "123456789");
    uint32_t size = 10;
    GuardedBuffer exact(10);
    EXPECT_EQ(0, RegistryReadValueAsString(HKEY_CURRENT_USER, key.path().c_str(), "Nine", exact.data(), &size));
    EXPECT_STREQ("123456789", exact.data());
    EXPECT_EQ(9u, size);

    size = 9;
    GuardedBuffer shortBuffer(9);
    EXPECT_EQ(1, RegistryReadValueAsString(HKEY_CURRENT_USER, key.path().c_str(), "Nine", shortBuffer.data(), &size));
    EXPECT_TRUE(shortBuffer.AllZero());
    EXPECT_EQ(9u, size);

    // Failing paths still clear the buffer over *size bytes first.
    GuardedBuffer missing(16);
    size = 16;
    EXPECT_EQ(2, RegistryReadValueAsString(HKEY_CURRENT_USER, key.path().c_str(), "Nope", missing.data(), &size));
    EXPECT_TRUE(missing.AllZero());
    GuardedBuffer nullName(16);
    EXPECT_EQ(1, RegistryReadValueAsString(HKEY_CURRENT_USER, key.path().c_str(), nullptr, nullName.data(), &size));
    EXPECT_TRUE(nullName.AllZero());
    EXPECT_EQ(1, RegistryReadValueAsString(HKEY_CURRENT_USER, key.path().c_str(), "Nine", nullptr, &size));
}

TEST(Registry, LongStringsNeedTheMultiStringRead) {
    TestKey key(HKEY_CURRENT_USER, "cfg_long");
    const std::string longText(300, 'x');
    key.SetString("Long", longText);
    key.SetString("Edge", std::string(259, 'y'));
    RegKey reader(key.path(), HKEY_CURRENT_USER, true);
    ASSERT_TRUE(reader.IsOpen());
    std::string text = "untouched";
    EXPECT_EQ(RegAccessFailed, reader.ReadValueAsString("Long", text));
    EXPECT_EQ("untouched", text);
    EXPECT_EQ(RegAccessSuccess, reader.ReadValueAsString("Edge", text));
    EXPECT_EQ(std::string(259, 'y'), text);
    std::vector<std::string> values;
    EXPECT_EQ(RegAccessSuccess, reader.ReadValueAsMultiString("Long", values));
    ASSERT_EQ(1u, values.size());
    EXPECT_EQ(longText, values[0]);
}

TEST(Registry, MultiStringByType) {
    TestKey key(HKEY_CURRENT_USER, "cfg_multi");
    const char list[] = "one\0two\0\0three\0";
    key.SetRaw("List", REG_MULTI_SZ, list, sizeof list);
    key.SetRaw("Empty", REG_MULTI_SZ, "\0", 2);
    key.SetRaw("Expand", REG_EXPAND_SZ, "%TEMP%\\x", 9);
    const unsigned char bytes[] = {1, 2, 3};
    key.SetRaw("Binary", REG_BINARY, bytes, sizeof bytes);
    RegKey reader(key.path(), HKEY_CURRENT_USER, true);
    std::vector<std::string> values{"stale"};
    EXPECT_EQ(RegAccessSuccess, reader.ReadValueAsMultiString("List", values));
    EXPECT_EQ((std::vector<std::string>{"one", "two"}), values);  // stops at the first empty string
    EXPECT_EQ(RegAccessSuccess, reader.ReadValueAsMultiString("Empty", values));
    EXPECT_TRUE(values.empty());
    EXPECT_EQ(RegAccessSuccess, reader.ReadValueAsMultiString("Expand", values));
    EXPECT_EQ((std::vector<std::string>{"%TEMP%\\x"}), values);  // not expanded
    values = {"stale"};
    EXPECT_EQ(RegAccessFailed, reader.ReadValueAsMultiString("Binary", values));
    EXPECT_TRUE(values.empty());
    EXPECT_EQ(RegAccessNotFound, reader.ReadValueAsMultiString("Missing", values));
}

TEST(Registry, ReadOnlyKeysRefuseWrites) {
    TestKey key(HKEY_CURRENT_USER, "cfg_readonly");
    key.SetDword("Kept", 5);
    RegKey readOnly(key.path(), HKEY_CURRENT_USER, true);
    EXPECT_EQ(RegAccessFailed, readOnly.WriteValueAsDword("Kept", 9));
    uint32_t value = 0;
    EXPECT_EQ(RegAccessSuccess, readOnly.ReadValueAsDword("Kept", value));
    EXPECT_EQ(5u, value);

    RegKey missing(key.path() + "\\NoKey", HKEY_CURRENT_USER, false);
    EXPECT_FALSE(missing.IsOpen());
    EXPECT_EQ(RegAccessFailed, missing.WriteValueAsDword("Kept", 9));
    EXPECT_EQ(RegAccessFailed, missing.ReadValueAsDword("Kept", value));

    RegKey writable(key.path(), HKEY_CURRENT_USER, false);
    EXPECT_EQ(RegAccessSuccess, writable.WriteValueAsDword("Kept", 9));
    EXPECT_EQ(RegAccessSuccess, readOnly.ReadValueAsDword("Kept", value));
    EXPECT_EQ(9u, value);
}

TEST(Registry, EnumerateKeysListsDirectSubKeys) {
    TestKey key(HKEY_CURRENT_USER, "cfg_enum");
    RegKey reader(key.path(), HKEY_CURRENT_USER, true);
    std::vector<std::string> names{"stale"};
    EXPECT_EQ(RegAccessSuccess, reader.EnumerateKeys(names));
    EXPECT_TRUE(names.empty());

    key.AddSubKey("Alpha");
    key.AddSubKey("Beta");
    key.AddSubKey("Beta\\Nested");
    RegKey again(key.path(), HKEY_CURRENT_USER, true);
    EXPECT_EQ(RegAccessSuccess, again.EnumerateKeys(names));
    std::sort(names.begin(), names.end());
    EXPECT_EQ((std::vector<std::string>{"Alpha", "Beta"}), names);
}
