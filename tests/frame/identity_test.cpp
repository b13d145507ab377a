// The identity texts as the library's own reports print them.
#include <gtest/gtest.h>

#include <algorithm>
#include <string>

#include "child_host.h"
#include "product_install.h"

using kvtest::ChildHost;

namespace {

std::string RunIdentity(const char* hostName, int idLength) {
    kvtest::ProductInstall install;
    ChildHost host(hostName);
    const auto result = host.Run({"identity_in_reports", install.iniPath(), std::to_string(idLength)});
    EXPECT_EQ(0u, result.exitCode) << result.output;
    EXPECT_NE(std::string::npos, result.output.find("cmdline 0 0"));
    std::string log = kvtest::ReadFileText(install.logDir() + "\\debug.log");
    log.erase(std::remove(log.begin(), log.end(), '\r'), log.end());  // lines end in CR LF on disk
    return log;
}

const char kTruncation[] = "StrLengthCopy: invalid parameters or copy truncated pDest=";

}  // namespace

TEST(Identity, ShortIdIsKeptWholeAndCommandLinePiecesJoin) {
    const std::string log = RunIdentity("frame_id_short", 99);
    const std::string id = std::string(98, 'i') + "Z";
    EXPECT_NE(std::string::npos, log.find("try to free bad or unknown memory - frame_id_short " + id)) << log;
    EXPECT_EQ(std::string::npos, log.find(kTruncation));
    EXPECT_NE(std::string::npos, log.find("Memory Report: frame_id_short PID ")) << log;
    EXPECT_NE(std::string::npos, log.find(" - CmdLine abcd\n")) << log;
}

TEST(Identity, LongIdIsCutTo99AndReported) {
    const std::string log = RunIdentity("frame_id_long", 150);
    const size_t report = log.find("try to free bad or unknown memory - frame_id_long " + std::string(99, 'i'));
    ASSERT_NE(std::string::npos, report) << log;
    EXPECT_EQ(std::string::npos, log.find("Z", report)) << "the 150th character survived";
    EXPECT_NE(std::string::npos, log.find(kTruncation)) << log;
    EXPECT_NE(std::string::npos, log.find(" length=100\n"));
}

TEST(Identity, IdOf32768CharactersOrMoreBecomesEmpty) {
    // The length is taken as a signed 16-bit count: 40000 reads as negative.
    const std::string log = RunIdentity("frame_id_huge", 40000);
    EXPECT_NE(std::string::npos, log.find("try to free bad or unknown memory - frame_id_huge \n")) << log;
    EXPECT_NE(std::string::npos, log.find(kTruncation));
}
