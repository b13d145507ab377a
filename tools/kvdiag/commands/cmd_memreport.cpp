// kvdiag memreport: the last memory report of a debug log, summarised by
// allocation site, with the overwritten blocks first.
#include <windows.h>
#include <stdio.h>
#include <stdlib.h>

#include <algorithm>
#include <fstream>
#include <map>
#include <string>
#include <vector>

#include "KvLogging.h"
#include "command.h"
#include "common/console_text.h"
#include "logs/log_files.h"
#include "commands/ini_status.h"
#include "logs/product_paths.h"

namespace {

const char kTableHeader[] = "Type, Timestamp, Bytes, PID, Pointer, Source, Content";
const char kReportStart[] = "Memory Report: ";
const char kTotals[] = "Total memory buffers reported ";
const char kCapLine[] = "... (maximum buffer report count was reached)";
const char kNoTime[] = "000000000";

struct TableLine {
    bool overwrite = false;
    std::string time;
    unsigned long bytes = 0;
    std::string pointer;
    std::string source;
};

struct Site {
    unsigned count = 0;
    unsigned long long bytes = 0;
    std::string oldest;
};

std::vector<std::string> Split(const std::string& line) {
    std::vector<std::string> fields;
    size_t start = 0;
    for (size_t comma; (comma = line.find(", ", start)) != std::string::npos; start = comma + 2)
        fields.push_back(line.substr(start, comma - start));
    fields.push_back(line.substr(start));
    return fields;
}

// "Buffer, time, bytes, pid, 0xpointer, file:line, content" and the plain and
// "Overwrite" forms with empty source fields. The source is everything between
// the pointer and the last field (the content), so a file name holding ", "
// stays whole.
bool ParseTableLine(const std::string& line, TableLine& out) {
    const std::vector<std::string> f = Split(line);
    if (f.size() < 7 || (f[0] != "Buffer" && f[0] != "Overwrite") || f[4].compare(0, 2, "0x") != 0) return false;
    char* end = nullptr;
    out.bytes = strtoul(f[2].c_str(), &end, 10);
    if (f[2].empty() || *end) return false;
    out.overwrite = f[0] == "Overwrite";
    out.time = f[1] == kNoTime ? "" : f[1];
    out.pointer = f[4];
    out.source.clear();
    for (size_t i = 5; i + 1 < f.size(); ++i) out.source += (out.source.empty() ? "" : ", ") + f[i];
    if (out.source.find_first_not_of(", ") == std::string::npos) out.source.clear();
    return true;
}

bool Contains(const std::string& line, const char* text) { return line.find(text) != std::string::npos; }

std::string DefaultLog(int& argc, char** argv) {
    const kvdiag::IniStatus ini = kvdiag::ValidateProductIni(kvdiag::TakeIniOption(argc, argv));
    if (!ini.valid) {
        kvdiag::ReportFailure(kvdiag::Failure::Printf("the product INI file is not usable: %s", ini.reason.c_str()));
        return "";
    }
    char name[260];
    const std::string live = GetDebugLogFilePath(-1, 0, name, sizeof name) <= 0 ? "" : kvdiag::InLogFolder(name);
    if (live.empty()) kvdiag::ReportFailure(kvdiag::Failure("the product INI file names no log folder"));
    return live;
}

}  // namespace

KVDIAG_COMMAND(memreport, "[LOGFILE]", "summarise the last memory report of a debug log by allocation site",
               kvdiag::kIniOption) {
    const std::string path = argc >= 1 && argv[0][0] != '-' ? argv[0] : DefaultLog(argc, argv);
    if (path.empty()) return 1;
    std::ifstream in(path, std::ios::binary);
    if (!in) {
        kvdiag::ReportFailure(kvdiag::Failure::Printf("cannot read %s", path.c_str()));
        return 1;
    }
    in.seekg(0, std::ios::end);
    const long long size = static_cast<long long>(in.tellg());
    std::vector<std::string> lines;
    if (size > kvdiag::kMaxTailBytes) {
        in.seekg(size - kvdiag::kMaxTailBytes);
        std::string partial;
        std::getline(in, partial);  // the line the cut fell in
        printf("(%s is %lld MB: its last %lld MB are read)\n", path.c_str(), size >> 20, kvdiag::kMaxTailBytes >> 20);
    } else {
        in.seekg(0);
    }
    for (std::string line; std::getline(in, line);) {
        if (!line.empty() && line.back() == '\r') line.pop_back();
        lines.push_back(line);
    }
    // The last table, and the report header and totals line around it. Lines of
    // other processes sharing the log may come in between: they are skipped.
    size_t table = lines.size();
    for (size_t i = lines.size(); i-- > 0;)
        if (lines[i] == kTableHeader) {
            table = i;
            break;
        }
    if (table == lines.size()) {
        printf("No memory report in %s\n", path.c_str());
        return 1;
    }
    printf("Last memory report in %s\n", path.c_str());
    for (size_t i = table; i-- > 0;)
        if (Contains(lines[i], kReportStart)) {
            kvdiag::PrintLine(lines[i].substr(lines[i].find(kReportStart)), "  ");
            break;
        }

    std::vector<TableLine> overwritten;
    std::map<std::string, Site> sites;
    std::string totals;
    bool capped = false;
    for (size_t i = table + 1; i < lines.size() && totals.empty(); ++i) {
        TableLine entry;
        if (Contains(lines[i], kTotals)) {
            totals = lines[i].substr(lines[i].find(kTotals));
        } else if (lines[i] == kCapLine) {
            capped = true;
        } else if (ParseTableLine(lines[i], entry)) {
            if (entry.overwrite) {
                overwritten.push_back(entry);
                continue;
            }
            Site& site = sites[entry.source];
            site.count += 1;
            site.bytes += entry.bytes;
            if (!entry.time.empty() && (site.oldest.empty() || entry.time < site.oldest)) site.oldest = entry.time;
        }
    }

    printf("\nOverwritten blocks: %zu\n", overwritten.size());
    for (const TableLine& o : overwritten)
        printf("  %s  %lu bytes  (the word after the data is not the end marker)\n", kvdiag::ShownLine(o.pointer).c_str(),
               o.bytes);

    std::vector<std::pair<std::string, Site>> bySize(sites.begin(), sites.end());
    std::stable_sort(bySize.begin(), bySize.end(),
                     [](const auto& a, const auto& b) { return a.second.bytes > b.second.bytes; });
    printf("\nAllocations by source site: %zu\n", bySize.size());
    printf("  %7s %12s  %-19s  %s\n", "count", "bytes", "oldest", "source");
    for (const auto& s : bySize)
        printf("  %7u %12llu  %-19s  %s\n", s.second.count, s.second.bytes,
               s.second.oldest.empty() ? "-" : s.second.oldest.c_str(),
               s.first.empty() ? "(not instrumented)" : kvdiag::ShownLine(s.first).c_str());
    if (capped) printf("  (the report stopped at its maximum record count: more allocations are live)\n");
    printf("\n");
    kvdiag::PrintLine(totals.empty() ? "(no totals line: the report is incomplete)" : totals);
    return 0;
}
