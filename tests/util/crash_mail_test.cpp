// The crash report mail, received by the stand-in MAPI32.DLL beside the child
// host, which records every MapiMessage field it is handed.
#include <gtest/gtest.h>

#include <windows.h>

#include <map>
#include <regex>
#include <sstream>
#include <string>
#include <vector>

#include "child_host.h"
#include "temp_dir.h"
#include "tool_fixture.h"

using kvtest::ChildHost;
using kvtest::TempDir;

namespace {

using Message = std::map<std::string, std::string>;

// The recorded messages, one map of field=value per MAPISendMail call.
std::vector<Message> ReadMessages(const std::string& record) {
    std::vector<Message> messages;
    for (const std::string& line : kvtest::ReadLines(record)) {
        if (line.rfind("session=", 0) == 0) messages.emplace_back();
        const size_t eq = line.find('=');
        if (eq == std::string::npos || messages.empty()) continue;
        messages.back()[line.substr(0, eq)] = line.substr(eq + 1);
    }
    return messages;
}

// Makes one program load the stand-in MAPI32.DLL beside it instead of Wine's
// built-in one. Wine drops WINEDLLOVERRIDES from the environment block a
// Windows parent passes to CreateProcess, so the per-program override key is
// used; Windows ignores the key and loads the DLL beside the program anyway.
class NativeMapiFor {
public:
    explicit NativeMapiFor(const std::string& exeName) : key_("Software\\Wine\\AppDefaults\\" + exeName) {
        HKEY key;
        if (RegCreateKeyExA(HKEY_CURRENT_USER, (key_ + "\\DllOverrides").c_str(), 0, nullptr, 0, KEY_SET_VALUE,
                            nullptr, &key, nullptr) == ERROR_SUCCESS) {
            RegSetValueExA(key, "mapi32", 0, REG_SZ, reinterpret_cast<const BYTE*>("native"), 7);
            RegCloseKey(key);
        }
    }
    ~NativeMapiFor() { RegDeleteTreeA(HKEY_CURRENT_USER, key_.c_str()); }

private:
    std::string key_;
};

// A child host that loads the stand-in MAPI32.DLL and records into tmp.
struct MailHost {
    explicit MailHost(const std::string& name) : host(name), native(name + ".exe") {
        host.SetEnv("KV_MAPI_RECORD", record);
    }
    TempDir tmp{"util_mail"};
    std::string record = tmp / "record.txt";
    ChildHost host;
    NativeMapiFor native;
};

// The "MAPI" switch of the Windows profile, restored at the end.
struct MapiSwitchOff {
    MapiSwitchOff() { WriteProfileStringA("MAIL", "MAPI", "0"); }
    ~MapiSwitchOff() { WriteProfileStringA("MAIL", "MAPI", nullptr); }
};

}  // namespace

TEST(CrashMail, ComposesRecipientSubjectAndAttachment) {
    MailHost mail("util_mail_compose");
    const std::string dump = mail.tmp / "AlarmServer.dmp";
    const auto r = mail.host.Run({"util_crash_mail",                           //
                                  "ops@plant.example", "Pump 3 stopped", dump,  //
                                  "SMTP:desk@plant.example", "again", "<null>",  //
                                  "", "no recipient", "",                       //
                                  "ops@plant.example", "folder only", "C:\\dumps\\"});
    ASSERT_EQ(0u, r.exitCode) << r.output;
    EXPECT_EQ(std::vector<std::string>({"0", "0", "0", "0"}), utiltest::Results(r.output)) << r.output;
    const auto messages = ReadMessages(mail.record);
    ASSERT_EQ(4u, messages.size()) << kvtest::ReadFileText(mail.record);

    const Message& m = messages[0];
    EXPECT_EQ("0 ui=0 flags=0 reserved=0", m.at("session"));  // no logon dialog, no UI flag
    EXPECT_EQ("Pump 3 stopped", m.at("note"));
    EXPECT_EQ("1", m.at("recipients"));
    EXPECT_EQ("1", m.at("recipient.class"));  // MAPI_TO
    EXPECT_EQ("ops@plant.example", m.at("recipient.name"));
    EXPECT_EQ("SMTP:ops@plant.example", m.at("recipient.address"));
    EXPECT_EQ("1", m.at("files"));
    EXPECT_EQ("4294967295", m.at("file.position"));
    EXPECT_EQ("AlarmServer.dmp", m.at("file.name"));
    EXPECT_EQ(dump, m.at("file.path"));

    // Version, then the debug log's date-time text and one blank.
    const std::string subject = m.at("subject");
    const std::string prefix = "Korvan32 crash details message v8.40.0.487 -";
    ASSERT_EQ(0u, subject.rfind(prefix, 0)) << subject;
    ASSERT_EQ(' ', subject.back()) << subject;
    const std::string stamp = subject.substr(prefix.size(), subject.size() - prefix.size() - 1);
    if (r.output.find("datetime_available=1") != std::string::npos)
        EXPECT_TRUE(std::regex_match(stamp, std::regex(R"(\d{4}-\d\d-\d\d \d\d:\d\d:\d\d\.\d{3}\t[+-]\d\d:\d\d)")))
            << stamp;
    else
        EXPECT_EQ("", stamp);

    // An address that already carries a prefix gets another one; no attachment.
    EXPECT_EQ("SMTP:desk@plant.example", messages[1].at("recipient.name"));
    EXPECT_EQ("SMTP:SMTP:desk@plant.example", messages[1].at("recipient.address"));
    EXPECT_EQ("0", messages[1].at("files"));
    EXPECT_EQ(0u, messages[1].count("file.path"));

    // An empty recipient goes to the support mailbox; an empty path attaches nothing.
    const std::string support = messages[2].at("recipient.name");
    EXPECT_NE(std::string::npos, support.find('@')) << support;
    EXPECT_EQ("SMTP:" + support, messages[2].at("recipient.address"));
    EXPECT_EQ("0", messages[2].at("files"));

    // A path without a file-name part attaches with an empty name.
    EXPECT_EQ("1", messages[3].at("files"));
    EXPECT_EQ("", messages[3].at("file.name"));
    EXPECT_EQ("C:\\dumps\\", messages[3].at("file.path"));
}

TEST(CrashMail, NullRecipientSendsNothing) {
    MailHost mail("util_mail_null");
    const auto r = mail.host.Run({"util_crash_mail", "<null>", "note", "<null>"});
    EXPECT_EQ(std::vector<std::string>({"-1"}), utiltest::Results(r.output)) << r.output;
    EXPECT_FALSE(kvtest::FileExists(mail.record));  // MAPI32.DLL never loaded
}

TEST(CrashMail, ProfileSwitchOffAnswersTwoWithoutLoadingMapi) {
    MailHost mail("util_mail_off");
    MapiSwitchOff off;
    const auto r = mail.host.Run({"util_crash_mail", "ops@plant.example", "note", "<null>"});
    EXPECT_EQ(std::vector<std::string>({"2"}), utiltest::Results(r.output)) << r.output;
    EXPECT_FALSE(kvtest::FileExists(mail.record));
}

TEST(CrashMail, SendMailPassesFieldsAndMapiErrorsThrough) {
    MailHost mail("util_mail_raw");
    mail.host.SetEnv("KV_MAPI_RESULT", "1");  // MAPI_USER_ABORT
    const auto r = mail.host.Run({"util_send_mail", "Support", "SMTP:support@plant.example", "Subject line",
                                  "<null>", "trace.log", "D:\\Logs\\trace.log"});
    EXPECT_EQ(std::vector<std::string>({"1"}), utiltest::Results(r.output)) << r.output;
    const auto messages = ReadMessages(mail.record);
    ASSERT_EQ(1u, messages.size());
    const Message& m = messages[0];
    EXPECT_EQ("Support", m.at("recipient.name"));
    EXPECT_EQ("SMTP:support@plant.example", m.at("recipient.address"));
    EXPECT_EQ("Subject line", m.at("subject"));
    EXPECT_EQ("(null)", m.at("note"));
    EXPECT_EQ("trace.log", m.at("file.name"));
    EXPECT_EQ("D:\\Logs\\trace.log", m.at("file.path"));
}
