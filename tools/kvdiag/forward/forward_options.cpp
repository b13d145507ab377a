#include "forward/forward_options.h"

#include <windows.h>
#include <stdlib.h>

#include "forward/record_limit.h"

namespace kvdiag {

Failure ParseForwardOptions(const std::vector<std::string>& args, ForwardOptions& options) {
    options = ForwardOptions{};
    std::string url, framing;
    for (size_t i = 0; i < args.size(); ++i) {
        const std::string& a = args[i];
        const bool hasValue = i + 1 < args.size();
        if ((a == "--to" || a == "--ca" || a == "--state" || a == "--ini" || a == "--for" || a == "--max-record" || a == "--framing") && !hasValue) {
            return Failure(a + " needs a value");
        }
        if (a == "--to") {
            url = args[++i];
        } else if (a == "--framing") {
            framing = args[++i];
        } else if (a == "--ca") {
            options.caFile = args[++i];
        } else if (a == "--state") {
            options.stateFolder = args[++i];
        } else if (a == "--ini") {
            options.ini = args[++i];
        } else if (a == "--for") {
            char* end = nullptr;
            options.seconds = strtod(args[++i].c_str(), &end);
            if (*end || !(options.seconds > 0)) {
                return Failure("--for needs a number of seconds");
            }
        } else if (a == "--max-record") {
            // Bytes, or with k kilobytes as collectors write it ("8k").
            char* end = nullptr;
            const std::string& value = args[++i];
            const unsigned long long n = strtoull(value.c_str(), &end, 10);
            const bool kilo = *end == 'k' || *end == 'K';
            options.maxRecord = size_t(n) * (kilo ? 1024 : 1);
            if (end == value.c_str() || *(end + kilo) || n > (1u << 20) || options.maxRecord < kSmallestMaxRecord ||
                options.maxRecord > (64u << 20)) {
                return Failure("--max-record needs a size of " + std::to_string(kSmallestMaxRecord) + " bytes or more (8192, 8k)");
            }
        } else if (a == "--all") {
            options.selection.allComponents = true;
        } else if (a == "--system") {
            options.selection.system = true;
        } else if (a == "--apps") {
            options.selection.apps = true;
        } else if (a == "--status") {
            options.status = true;
        } else if (a.empty() || a[0] == '-') {
            return Failure("unknown option '" + a + "'");
        } else {
            options.selection.components.push_back(a);
        }
    }
    if (options.stateFolder.empty()) options.stateFolder = DefaultStateFolder();
    if (options.status) return {};
    if (url.empty()) {
        return Failure("--to URL names the collector");
    }
    if (Failure failure = ParseCollectorUrl(url, options.url)) return failure;
    // A datagram is cut at 8 KB on its way out (see CollectorLink).
    if (options.url.transport == CollectorUrl::Transport::Udp && options.maxRecord > kDefaultMaxRecord) {
        return Failure("--max-record over udp:// is at most " + std::to_string(kDefaultMaxRecord) + " bytes");
    }
    if (!framing.empty() && _stricmp(framing.c_str(), "octet") != 0 && _stricmp(framing.c_str(), "lf") != 0) {
        return Failure("--framing is octet (octet counting, the default) or lf (a line feed after each message)");
    }
    if (!framing.empty() && !options.url.stream()) {
        return Failure("--framing is for tcp:// and tls:// collectors");
    }
    if (_stricmp(framing.c_str(), "lf") == 0) options.framing = Framing::LineFeed;
    if (!options.caFile.empty() && options.url.transport != CollectorUrl::Transport::Tls) {
        return Failure("--ca is for tls:// collectors");
    }
    LogSelection& s = options.selection;
    if (s.allComponents && !s.components.empty()) {
        return Failure("give components or --all, not both");
    }
    // Nothing named: the debug log without a component.
    if (s.components.empty() && !s.allComponents && !s.system && !s.apps) s.components.push_back("");
    return {};
}

std::string DefaultStateFolder() {
    char data[MAX_PATH];
    const DWORD n = GetEnvironmentVariableA("ProgramData", data, sizeof data);
    return std::string(n && n < sizeof data ? data : "C:\\ProgramData") + "\\KvDiag\\forward";
}

}  // namespace kvdiag
