// A private collector (rsyslog, or syslog-ng from its unpacked package) on a
// free port of 127.0.0.1 for the forwarding tests, started and stopped through
// tests/forward/collector.sh. Both are Linux programs: under Wine the test
// starts the script as a Unix process (so these tests need Wine with the
// collectors installed beside it, as scripts/setup.sh does).
#pragma once

#include <windows.h>

#include <string>
#include <vector>

#include "temp_dir.h"

namespace kvtest {

class SyslogCollector {
public:
    // kind: rsyslog over "tcp", "tls" or "udp"; syslog-ng over TCP with a
    // message a line ("ng-lf") or octet counting ("ng-octet"). options (rsyslog):
    // "cert=NAME" (the certificate it presents, of those tests/forward/collector.sh
    // makes), "max=SIZE" (its message size limit), blank-separated.
    explicit SyslogCollector(std::string kind = "tcp", std::string options = "");
    ~SyslogCollector();
    SyslogCollector(const SyslogCollector&) = delete;
    SyslogCollector& operator=(const SyslogCollector&) = delete;

    bool Start();  // on the same port each time
    bool Stop();
    // Stops it and starts it again with other options.
    bool Restart(const std::string& options);
    std::string url() const;
    // The site CA that issued the collector's certificates (TLS).
    std::string caFile() const { return dir_ / "ca.pem"; }
    // The messages received so far, one a line as they arrived (without framing).
    std::vector<std::string> Messages() const;
    // Waits until at least count messages have arrived, or timeoutMs passed.
    std::vector<std::string> WaitForMessages(size_t count, DWORD timeoutMs = 60000) const;

private:
    bool RunScript(const std::string& arguments);

    TempDir dir_{"kvcollector"};
    std::string unixDir_;
    unsigned short port_ = 0;
    std::string kind_;
    std::string options_;
    bool running_ = false;
};

// A TCP port of 127.0.0.1 nobody listens on now.
unsigned short FreePort();

}  // namespace kvtest
