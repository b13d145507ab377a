// kvdiag's commands as a plant engineer meets them: one table of command
// lines, run in order on a private installation, with the exit code each
// must give and what its output must and must not hold.
#include <gtest/gtest.h>

#include "kvdiag_runner.h"
#include "product_install.h"
#include "registry_keys.h"
#include "temp_dir.h"

TEST(KvdiagCommands, ExitCodesAndOutputsAsAnEngineerReadsThem) {
    kvtest::ProductInstall install;
    kvtest::TempDir fresh("kvcmdfresh");
    kvtest::DefaultIniPathGuard defaultIni;
    defaultIni.Remove();
    const kvtest::TestKey settings(HKEY_CURRENT_USER, "Software\\Korvan\\KvDebugHelp\\KvCmdTable");
    CreateDirectoryA(install.logDir().c_str(), nullptr);
    const std::string ini = " --ini \"" + install.iniPath() + "\"";
    // A fresh installation: nothing logged yet, no DefaultINIPath.
    kvtest::ExpectKvdiagRuns({
        {"syslog" + ini, 1, "no system log in", "(no events)"},
        {"tail" + ini, 1, "no debug log in"},
        {"tail", 1, "DefaultINIPath in HKEY_LOCAL_MACHINE\\Software\\Korvan"},
    });
    // A component's system log, as a product process leaves it.
    ASSERT_TRUE(kvtest::WriteFileText(install.logDir() + "\\syslog.TrialHost.dat",
                                      "2026-01-01 00:00:00.000\t+00:00 pump 6 stopped\r\n"
                                      "2026-01-01 00:00:01.000\t+00:00 pump 7 stopped\r\n"));
    kvtest::ExpectKvdiagRuns({
        {"log TrialHost \"50%% done\"" + ini, 0, "1 line written", "did not"},
        {"log TrialHost \"step\" -r 3 --numbered" + ini, 0, "3 lines written"},
        {"tail" + ini, 0, "50% done"},
        {"tail TrialHost -n 3" + ini, 0, "step (3/3)", "50% done"},
        {"syslog" + ini, 0, "syslog.TrialHost.dat", "\\syslog.dat"},
        {"syslog TrialHost -n 1" + ini, 0, "pump 7 stopped", "pump 6"},
        {"syslog Nobody" + ini, 1, "syslog.Nobody.dat does not exist"},
        {"syslog TrialHost --all", 2, "usage"},
        {"settings KvCmdTable DebugLogSize 999999", 2, "DebugLogSize must lie in 1..10240 (KB)", "Set "},
        {"settings KvCmdTable HeapCheckInterval 4", 2, "5..300"},
        {"settings KvCmdTable DebugLogSize 64", 0, "registry (64)"},
        {"mail ops@plant.example \"" + fresh / "absent.log\"", 1, "does not exist; no mail sent", "accepted"},
        {"symbolize \"" + fresh / "absent.log\"", 1, "cannot read"},
        {"init --register", 2, "usage"},
        {"init --ini \"" + fresh / "product.ini\" --register", 0, "DefaultINIPath (HKEY_LOCAL_MACHINE"},
        {"paths", 0, fresh / "product.ini", "--register --ini PATH sets it"},
        {"init" + ini + " --register", 1, "--force replaces it"},
    });
}
