// kvdiag symbolize: a debug log or memory report as it stands, with the
// function, file and line of every address its stack lines hold. The guarded
// heap's "Allocation stack trace" keeps 64-bit return addresses as pairs of
// 32-bit words (its fixed format), raw stack dumps as plain addresses; the
// "Stack modules" line after each says where the images were, and the images
// and PDBs are found on disk.
#include <windows.h>
#include <io.h>
#include <limits.h>
#include <stdio.h>
#include <string.h>

#include <iostream>
#include <string>
#include <vector>

#include "command.h"
#include "common/console_text.h"
#include "common/path_parts.h"
#include "logs/address_names.h"
#include "logs/log_files.h"
#include "logs/stack_lines.h"
#include "platform/module_path.h"

namespace {

class Symbolizer {
public:
    explicit Symbolizer(std::vector<std::string> folders) : names_(std::move(folders)) {}

    void Line(const std::string& line) {
        const std::string message = kvdiag::MessageOf(line);
        std::vector<uint32_t> words;
        std::vector<uint64_t> addresses;
        std::vector<kvdiag::LoggedModule> modules;
        if (message == "Allocation stack trace:") {
            Flush();
            inTrace_ = true;
        } else if (inTrace_ && kvdiag::ParseStackWords(message, words)) {
            words_.insert(words_.end(), words.begin(), words.end());
        } else if (kvdiag::ParseStackAddresses(message, addresses)) {
            Flush();
            pending_.insert(pending_.end(), addresses.begin(), addresses.end());
        } else if (kvdiag::ParseStackModules(message, modules)) {
            kvdiag::PrintLine(line);
            names_.Add(modules);
            Flush();
            return;
        } else {
            Flush();
        }
        kvdiag::PrintLine(line);
    }

    void Flush() {
        if (inTrace_) {
            const std::vector<uint64_t> joined = kvdiag::JoinWordPairs(words_);
            pending_.insert(pending_.end(), joined.begin(), joined.end());
            words_.clear();
            inTrace_ = false;
        }
        for (uint64_t address : pending_) {
            if (!address) continue;
            const std::string name = names_.Describe(address);
            printf("    => 0x%016llx  %s\n", static_cast<unsigned long long>(address), name.c_str());
            ++named_;
        }
        pending_.clear();
    }

    int named() const { return named_; }

private:
    kvdiag::AddressNames names_;
    bool inTrace_ = false;
    std::vector<uint32_t> words_;
    std::vector<uint64_t> pending_;
    int named_ = 0;
};

}  // namespace

KVDIAG_COMMAND(symbolize, "[FILE]",
               "a log or memory report (FILE, or standard input) with every stack address named through the PDBs",
               {"--symbols", "DIR", "look for images and PDBs in DIR too (repeatable)"}) {
    const char* file = nullptr;
    std::vector<std::string> folders;
    for (int i = 0; i < argc; ++i) {
        if (!strcmp(argv[i], "--symbols") && i + 1 < argc) folders.push_back(argv[++i]);
        else if (!file && argv[i][0] != '-') file = argv[i];
        else return kvdiag::UsageError();
    }
    std::vector<std::string> lines;
    if (file) {
        if (const kvdiag::Failure failure = kvdiag::LastLines(file, INT_MAX, lines))
            return kvdiag::ReportFailure(failure);
        if (!kvdiag::FolderOf(file).empty()) folders.push_back(kvdiag::FolderOf(file));
    } else {
        for (std::string line; std::getline(std::cin, line);) {
            if (!line.empty() && line.back() == '\r') line.pop_back();
            lines.push_back(line);
        }
    }
    // The library and the field tool lie beside each other on a plant machine.
    const std::string self = kv::platform::ModulePath(nullptr);
    if (!self.empty()) folders.push_back(kvdiag::FolderOf(self));
    Symbolizer symbolizer(folders);
    for (const auto& line : lines) symbolizer.Line(line);
    symbolizer.Flush();
    fprintf(stderr, "kvdiag: %d stack address%s named\n", symbolizer.named(), symbolizer.named() == 1 ? "" : "es");
    return 0;
}
