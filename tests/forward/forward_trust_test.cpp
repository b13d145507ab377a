// What kvdiag forward trusts: only a collector whose certificate chain holds,
// and its own cursors only as far as they fit the logs.
#include <gtest/gtest.h>

#include <windows.h>
#include <wincrypt.h>
#include <aclapi.h>
#include <sddl.h>

#include <regex>

#include "forward_station.h"
#include "kvdiag_process.h"
#include "kvdiag_runner.h"
#include "syslog_collector.h"

namespace {

using kvtest::Lines;

// The site CA as one of this machine's trusted roots while the object lives.
// The store is closed at once (its changes reach other processes then); the
// certificate goes by its registry key (Wine's store keeps a deleted one).
class MachineRoot {
public:
    explicit MachineRoot(const std::string& pemFile) {
        const std::string pem = kvtest::ReadFileText(pemFile);
        BYTE der[8192], hash[20];
        DWORD size = sizeof der, hashSize = sizeof hash;
        const HCERTSTORE store = CertOpenStore(CERT_STORE_PROV_SYSTEM_A, 0, 0, CERT_SYSTEM_STORE_LOCAL_MACHINE, "Root");
        PCCERT_CONTEXT added = nullptr;
        if (store && CryptStringToBinaryA(pem.c_str(), DWORD(pem.size()), CRYPT_STRING_BASE64HEADER, der, &size, nullptr, nullptr) &&
            CertAddEncodedCertificateToStore(store, X509_ASN_ENCODING, der, size, CERT_STORE_ADD_NEW, &added) &&
            CertGetCertificateContextProperty(added, CERT_SHA1_HASH_PROP_ID, hash, &hashSize)) {
            key_ = "Software\\Microsoft\\SystemCertificates\\Root\\Certificates\\";
            for (BYTE b : hash) key_ += "0123456789ABCDEF"[b >> 4], key_ += "0123456789ABCDEF"[b & 15];
        }
        if (added) CertFreeCertificateContext(added);
        if (store) CertCloseStore(store, 0);
    }
    ~MachineRoot() {
        if (!key_.empty()) RegDeleteKeyA(HKEY_LOCAL_MACHINE, key_.c_str());
    }
    bool added() const { return !key_.empty(); }

private:
    std::string key_;
};

}  // namespace

// Each certificate a collector may present, with and without --ca: a refused
// one ends the handshake before anything is sent (the line written after
// the refusal never arrives, though the forwarder keeps trying), a good
// chain works with --ca and, once the site CA is a machine root, without it.
TEST(ForwardTrust, TlsChecksTheCollectorsChainItself) {
    struct Case {
        const char* cert;
        bool withCa, caIsMachineRoot;
        const char* refusal;  // null: accepted
    } const cases[] = {
        {"good", true, false, nullptr},
        {"good", false, false, "'CN=kvtest inter', whose issuer the collector did not send and is not in this machine's trusted roots"},
        {"nonca", true, false, "'CN=kvtest other' in the collector's chain signs another certificate but is not a certificate authority"},
        {"self", true, false, "'CN=127.0.0.1' is self-signed, not issued by the CA file"},
        {"self", false, false, "is self-signed, not issued by this machine's trusted roots"},
        {"wronghost", true, false, "'CN=wrong.example' does not name 127.0.0.1"},
        {"expired", true, false, "'CN=127.0.0.1' in the collector's chain expired on 2020-01-02"},
        {"oldsigner", true, false, "'CN=kvtest old' in the collector's chain expired on 2020-01-02"},
        {"good", false, true, nullptr},
    };
    kvtest::SyslogCollector collector("tls");
    std::string delivered;
    for (size_t i = 0; i < std::size(cases); ++i) {
        const Case& c = cases[i];
        const std::string row = std::string(c.cert) + (c.withCa ? " --ca" : "") + (c.caIsMachineRoot ? " machine root" : "");
        ASSERT_TRUE(collector.Restart(std::string("cert=") + c.cert)) << row;
        std::unique_ptr<MachineRoot> root(c.caIsMachineRoot ? new MachineRoot(collector.caFile()) : nullptr);
        ASSERT_TRUE(!root || root->added()) << row;
        kvtest::Station station;
        const std::string ca = c.withCa ? "--ca \"" + collector.caFile() + "\"" : "";
        kvtest::KvdiagProcess forwarder(station.Forward(collector.url(), "--all --for 5 " + ca));
        const bool decided = forwarder.ReadUntil(c.refusal ? c.refusal : ": connected");
        station.Write({"comp=Tls", "line=secret " + std::to_string(i)}, 1);
        station.WaitWriters();
        if (!c.refusal) delivered += "secret " + std::to_string(i) + "\n";
        collector.WaitForMessages(size_t(kvtest::Count(delivered, "\n")), 20000);
        const kvtest::HostResult result = forwarder.Finish(60000);
        EXPECT_TRUE(decided) << row << "\n" << result.output;
        EXPECT_EQ(!c.refusal, kvtest::OutputHas(result, ": connected")) << row << "\n" << result.output;
    }
    std::string received;
    for (const std::string& raw : collector.Messages()) received += raw.substr(raw.find("secret ")) + "\n";
    EXPECT_EQ(delivered, received);
}

// A cursor deleted, damaged or pointing past the end of its file while the
// forwarder was stopped: the forwarder says so, and no line written after
// the cursor is lost. A deleted cursor is a first start (from the log's end:
// the lines written while stopped are not sent); the others read the log
// again from its start, so the lines before arrive twice.
TEST(ForwardTrust, CursorsThatDoNotFitLoseNoLaterLine) {
    struct Case {
        const char* name;
        std::string (*edit)(const std::string& cursor);  // "": deleted
        const char* said;
        bool whileStoppedArrive;
    } const cases[] = {
        {"deleted", [](const std::string&) { return std::string(); }, "no cursor for", false},
        {"damaged", [](const std::string& c) { return c.substr(0, c.size() / 2) + "?\n"; }, "is damaged (line 2", true},
        {"past end", [](const std::string& c) { return std::regex_replace(c, std::regex("\n(\\w+) \\d+ "), "\n$1 99999 "); },
         "points past the end of a file", true},
    };
    kvtest::SyslogCollector collector;
    for (const Case& c : cases) {
        kvtest::Station station;
        const size_t before = collector.Messages().size();
        const auto forward = [&](const std::string& tag, const char* until) {
            kvtest::KvdiagProcess forwarder(station.Forward(collector.url(), "Cur --for 5"));
            const bool said = forwarder.ReadUntil(until);
            station.Write({"comp=Cur", "numbered=" + tag + ":5:0"}, 64);
            station.WaitWriters();
            const kvtest::HostResult result = forwarder.Finish(60000);
            EXPECT_TRUE(said) << c.name << "\n" << result.output;
        };
        forward(std::string(1, c.name[0]), ": connected");
        const std::string cursor = station.state / "debug.Cur.log.cursor";
        ASSERT_TRUE(kvtest::FileExists(cursor)) << c.name << ": the first forwarder saved no cursor";
        const std::string edited = c.edit(kvtest::ReadFileText(cursor));
        ASSERT_TRUE(edited.empty() ? DeleteFileA(cursor.c_str()) : kvtest::WriteFileText(cursor, edited)) << c.name;
        station.Write({"comp=Cur", "numbered=S:5:0"}, 64);  // while stopped
        station.WaitWriters();
        forward("N", c.said);
        const Lines all = collector.Messages();
        auto seen = kvtest::Tally(Lines(all.begin() + long(before), all.end()), "SN");
        EXPECT_EQ(5u, seen['N'].size()) << c.name;
        EXPECT_EQ(c.whileStoppedArrive ? 5u : 0u, seen['S'].size()) << c.name;
    }
}

// Entries longer than a collector that takes records of 8 KB: a line of
// 100 KB (cut between words), and a report of many lines (cut at line ends,
// with tabs that the message spells "#011") go as whole records, each with
// its header and part marker, that together hold the entry's text.
TEST(ForwardTrust, LongEntriesSplitIntoWholeRecords) {
    struct Case {
        std::string text;
        const char* joiner;  // the line end a cut left out
    } cases[] = {{"", ""}, {"report", "\n"}};
    for (int i = 0; cases[0].text.size() < 100000; ++i) cases[0].text += "word" + std::to_string(i) + " ";
    for (int i = 0; i < 400; ++i) cases[1].text += "\nline " + std::to_string(i) + "\t" + std::string(80, 'x');
    kvtest::SyslogCollector collector("tcp", "max=8k");
    kvtest::Station station;
    kvtest::KvdiagProcess forwarder(station.Forward(collector.url(), "--all --for 8"));
    ASSERT_TRUE(forwarder.ReadUntil(": connected"));
    CreateDirectoryA(station.install.logDir().c_str(), nullptr);
    ASSERT_TRUE(kvtest::WriteFileText(station.install.logDir() + "\\debug.Big.log", "2024-03-05 14:07:09.042\t+10:00 " + cases[0].text +
                                      "\n2024-03-05 14:07:09.043\t+10:00 " + cases[1].text + "\n"));
    Lines raw = collector.WaitForMessages(18, 30000);
    forwarder.Finish(60000);
    size_t at = 0;
    for (const Case& c : cases) {
        std::string joined;
        for (size_t part = 0, parts = 1; part < parts && at < raw.size(); ++at) {
            EXPECT_LE(raw[at].size(), 8192u);
            // The collector writes a line feed in a message as "#012".
            for (size_t lf; (lf = raw[at].find("#012")) != std::string::npos;) raw[at].replace(lf, 4, "\n");
            kvtest::Message m;
            const bool parsed = kvtest::Parse(raw[at], m) && sscanf(m.text.c_str(), "[part %zu/%zu] ", &part, &parts) == 2;
            EXPECT_TRUE(parsed) << raw[at].substr(0, 200);
            joined += (part > 1 ? c.joiner : "") + m.text.substr(std::min(m.text.size(), m.text.find("] ") + 2));
        }
        std::string expected = c.text;
        for (size_t tab; (tab = expected.find('\t')) != std::string::npos;) expected.replace(tab, 1, "#011");
        EXPECT_TRUE(joined == expected) << joined.size() << " of " << expected.size() << " bytes";
    }
    EXPECT_EQ(at, raw.size());
}

// kvdiag service install refuses a program folder or a state folder that
// Everyone can write (Wine shows that as a folder's mode), and makes a
// missing state folder that only administrators and SYSTEM can write. That
// no one else then can, only Windows proves: Wine does not enforce access lists.
TEST(ForwardTrust, ServiceOnlyWhereAdministratorsAloneWrite) {
    struct Removal {
        ~Removal() { kvtest::RunKvdiag("service remove"); }
    } removal;
    kvtest::Station station;
    kvtest::TempDir program("kvsvcbin"), open("kvsvcstate");
    ASSERT_TRUE(CopyFileA((kvtest::ProgramFolder() + "\\KvDebugHelp.dll").c_str(), (program / "KvDebugHelp.dll").c_str(), FALSE));
    for (const kvtest::TempDir* folder : {&program, &open}) {
        PSECURITY_DESCRIPTOR everyone = nullptr;
        ASSERT_TRUE(ConvertStringSecurityDescriptorToSecurityDescriptorA("D:(A;OICI;FA;;;BA)(A;OICI;FA;;;SY)(A;OICI;0x1301bf;;;WD)",
                                                                         SDDL_REVISION_1, &everyone, nullptr));
        BOOL present = FALSE, defaulted = FALSE;
        PACL dacl = nullptr;
        GetSecurityDescriptorDacl(everyone, &present, &dacl, &defaulted);
        EXPECT_EQ(0u, SetNamedSecurityInfoA(const_cast<char*>(folder->path().c_str()), SE_FILE_OBJECT, DACL_SECURITY_INFORMATION,
                                            nullptr, nullptr, dacl, nullptr));
        LocalFree(everyone);
    }
    const std::string fresh = station.state / "made\\by\\install";
    const std::string install = "service install " + station.Forward("tcp://127.0.0.1:514", "Svc");
    const auto withState = [&](const std::string& state) { return install + " --state \"" + state + "\""; };
    kvtest::ChildHost copied("kvdiag", program.path(), "kvdiag.exe");
    copied.StartCommandLine(withState(fresh + "2"));
    const kvtest::HostResult fromOpenFolder = copied.Wait(60000);
    EXPECT_EQ(1u, fromOpenFolder.exitCode) << fromOpenFolder.output;
    EXPECT_HAS(fromOpenFolder.output, "not installed: folder " + program.path() + " can be written by Everyone");
    const kvtest::HostResult toOpenFolder = kvtest::RunKvdiag(withState(open.path()));
    EXPECT_EQ(1u, toOpenFolder.exitCode) << toOpenFolder.output;
    EXPECT_HAS(toOpenFolder.output, "not installed: folder " + open.path() + " can be written by Everyone");

    const kvtest::HostResult installed = kvtest::RunKvdiag(withState(fresh));
    ASSERT_EQ(0u, installed.exitCode) << installed.output;
    PACL dacl = nullptr;
    PSECURITY_DESCRIPTOR descriptor = nullptr;
    ASSERT_EQ(0u, GetNamedSecurityInfoA(fresh.c_str(), SE_FILE_OBJECT, DACL_SECURITY_INFORMATION, nullptr, nullptr, &dacl,
                                        nullptr, &descriptor));
    for (DWORD i = 0; dacl && i < dacl->AceCount; ++i) {
        ACCESS_ALLOWED_ACE* ace = nullptr;
        ASSERT_TRUE(GetAce(dacl, i, reinterpret_cast<void**>(&ace)));
        PSID sid = &ace->SidStart;
        EXPECT_FALSE(IsWellKnownSid(sid, WinWorldSid) || IsWellKnownSid(sid, WinBuiltinUsersSid) ||
                     IsWellKnownSid(sid, WinAuthenticatedUserSid)) << "entry " << i;
    }
    EXPECT_TRUE(dacl && dacl->AceCount > 0);
    LocalFree(descriptor);
}
