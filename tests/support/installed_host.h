// A child host with a sample product installation of its own: the scenario
// gets the product INI file's path as its first argument, and what the host
// logged is read back from the installation's log folder.
#pragma once

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "child_host.h"
#include "product_install.h"
#include "text_checks.h"

namespace kvtest {

struct InstalledHost {
    ProductInstall install;
    ChildHost host;
    HostResult last;

    explicit InstalledHost(const std::string& name) : host(name) {}

    // host SCENARIO INI ARGS..., killed after timeoutMs.
    const HostResult& Run(const std::string& scenario, std::vector<std::string> args = {}, DWORD timeoutMs = 120000) {
        args.insert(args.begin(), {scenario, install.iniPath()});
        return last = host.Run(args, timeoutMs);
    }
    // Run, failing with the host's output unless it exits with 0.
    ::testing::AssertionResult Ok(const std::string& scenario, std::vector<std::string> args = {}) {
        Run(scenario, std::move(args));
        if (!last.timedOut && last.exitCode == 0) return ::testing::AssertionSuccess();
        return ::testing::AssertionFailure() << "exit " << last.exitCode << "\n" << last.output;
    }
    std::string File(const std::string& name) const { return install.logDir() + "\\" + name; }
    // A log file's text, its CR LF line ends read as LF.
    std::string Log(const std::string& name = "debug.log") const {
        std::string text;
        for (const auto& line : ReadLines(File(name))) text += line + "\n";
        return text;
    }
};

}  // namespace kvtest
