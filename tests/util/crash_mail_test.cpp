// The crash report mail, received by the stand-in MAPI32.DLL beside the child
// host, which records the MapiMessage it is handed.
#include <gtest/gtest.h>

#include <regex>
#include <string>

#include "child_host.h"
#include "started_programs.h"

using namespace utiltest;

namespace {

struct MailHost {
    explicit MailHost(const std::string& name) : host(name), native(name + ".exe") {
        host.SetEnv("KV_MAPI_RECORD", record);
    }
    std::vector<Record> Messages() const { return Records(kvtest::ReadFileText(record), "call"); }
    kvtest::TempDir tmp{"util_mail"};
    std::string record = tmp / "record.txt";
    kvtest::ChildHost host;
    NativeMapiFor native;
};

}  // namespace

TEST(CrashMail, ComposesRecipientSubjectAndAttachment) {
    MailHost mail("util_mail_compose");
    const std::string dump = mail.tmp / "AlarmServer.dmp";
    const auto r = mail.host.Run({"util_crash_mail", "ops@plant.example", "Pump 3 stopped", dump,  //
                                  "SMTP:desk@plant.example", "again", "<null>",                   //
                                  "", "no recipient", "",                                        //
                                  "ops@plant.example", "folder only", "C:\\dumps\\",  //
                                  "<null>", "no mail at all", "<null>"});
    ASSERT_EQ(std::vector<std::string>({"0", "0", "0", "0", "-1"}), Results(r.output)) << r.output;
    const auto m = mail.Messages();
    ASSERT_EQ(4u, m.size()) << kvtest::ReadFileText(mail.record);

    EXPECT_EQ("0/0/0", m[0].at("call"));  // no session, no window, no logon dialog
    EXPECT_EQ("Pump 3 stopped", m[0].at("note"));
    EXPECT_EQ("1", m[0].at("recipients"));
    EXPECT_EQ("1 ops@plant.example <SMTP:ops@plant.example>", m[0].at("to"));  // MAPI_TO
    EXPECT_EQ("1", m[0].at("files"));
    EXPECT_EQ("-1 AlarmServer.dmp <" + dump + ">", m[0].at("file"));
    // Version, then the debug log's date-time text and one blank.
    const std::string subject = m[0].at("subject"), prefix = "Korvan32 crash details message v8.40.0.487 -";
    ASSERT_EQ(0u, subject.rfind(prefix, 0)) << subject;
    const std::regex stamp(R"(\d{4}-\d\d-\d\d \d\d:\d\d:\d\d\.\d{3}\t[+-]\d\d:\d\d )");
    EXPECT_TRUE(std::regex_match(subject.substr(prefix.size()), stamp)) << subject;

    // Intended: an address that carries a prefix gets another one.
    EXPECT_EQ("1 SMTP:desk@plant.example <SMTP:SMTP:desk@plant.example>", m[1].at("to"));
    EXPECT_EQ("0", m[1].at("files"));
    // An empty recipient goes to the support mailbox; an empty path attaches nothing.
    EXPECT_TRUE(std::regex_match(m[2].at("to"), std::regex(R"(1 (\S+@\S+) <SMTP:\1>)"))) << m[2].at("to");
    EXPECT_EQ("0", m[2].at("files"));
    // A path without a file-name part attaches with an empty name.
    EXPECT_EQ("-1  <C:\\dumps\\>", m[3].at("file"));
}

TEST(CrashMail, MapiSwitchedOffLoadsNoMailClient) {
    MailHost mail("util_mail_none");
    WriteProfileStringA("MAIL", "MAPI", "0");  // the Windows profile's switch
    const auto r = mail.host.Run({"util_crash_mail", "ops@plant.example", "note", "<null>"});
    WriteProfileStringA("MAIL", "MAPI", nullptr);
    EXPECT_EQ(std::vector<std::string>({"2"}), Results(r.output)) << r.output;
    EXPECT_FALSE(kvtest::FileExists(mail.record));  // MAPI32.DLL never loaded
}

TEST(CrashMail, SendMailPassesFieldsAndMapiErrorsThrough) {
    MailHost mail("util_mail_raw");
    mail.host.SetEnv("KV_MAPI_RESULT", "1");  // MAPI_USER_ABORT
    const auto r = mail.host.Run({"util_send_mail", "Support", "SMTP:support@plant.example", "Subject line",
                                  "<null>", "trace.log", "D:\\Logs\\trace.log"});
    EXPECT_EQ(std::vector<std::string>({"1"}), Results(r.output)) << r.output;
    const auto m = mail.Messages();
    ASSERT_EQ(1u, m.size());
    EXPECT_EQ("1 Support <SMTP:support@plant.example>", m[0].at("to"));
    EXPECT_EQ("Subject line", m[0].at("subject"));
    EXPECT_EQ("(null)", m[0].at("note"));
    EXPECT_EQ("-1 trace.log <D:\\Logs\\trace.log>", m[0].at("file"));
}
