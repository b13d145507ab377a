#include "dump/triage_table.h"

#include <time.h>

#include <algorithm>
#include <map>

namespace kvdiag {
namespace {

std::string TimeText(uint32_t time) {
    if (!time) return "?";
    const time_t t = time;
    struct tm utc;
    if (gmtime_s(&utc, &t) != 0) return "?";
    char text[32];
    strftime(text, sizeof text, "%Y-%m-%d %H:%M:%S", &utc);
    return text;
}

// A CSV field, quoted when it holds a separator, a quote or a line end.
std::string CsvField(const std::string& text) {
    if (text.find_first_of(",\"\r\n") == std::string::npos) return text;
    std::string out = "\"";
    for (char c : text) out += c == '"' ? std::string("\"\"") : std::string(1, c);
    return out + "\"";
}

}  // namespace

std::string TriageTable::Group::Distinct(std::string TriagedDump::*field) const {
    std::vector<std::string> seen;
    for (const TriagedDump* d : dumps) {
        const std::string value = (d->*field).empty() ? "?" : d->*field;
        if (std::find(seen.begin(), seen.end(), value) == seen.end()) seen.push_back(value);
    }
    std::sort(seen.begin(), seen.end());
    std::string text;
    for (const auto& v : seen) text += (text.empty() ? "" : ", ") + v;
    return text;
}

uint32_t TriageTable::Group::First() const {
    uint32_t first = 0;
    for (const TriagedDump* d : dumps)
        if (d->time && (!first || d->time < first)) first = d->time;
    return first;
}

uint32_t TriageTable::Group::Last() const {
    uint32_t last = 0;
    for (const TriagedDump* d : dumps) last = std::max(last, d->time);
    return last;
}

std::vector<TriageTable::Group> TriageTable::Groups() const {
    std::map<std::string, Group> bySignature;
    Group damaged;
    for (const TriagedDump& d : dumps_) (d.damaged ? damaged : bySignature[d.signature]).dumps.push_back(&d);
    std::vector<Group> groups;
    for (auto& entry : bySignature) groups.push_back(std::move(entry.second));
    // Largest first; equal sizes by signature, so the order is the same on every run.
    std::stable_sort(groups.begin(), groups.end(),
                     [](const Group& a, const Group& b) { return a.dumps.size() > b.dumps.size(); });
    if (!damaged.dumps.empty()) groups.push_back(std::move(damaged));
    return groups;
}

void TriageTable::Print(FILE* out) const {
    const std::vector<Group> groups = Groups();
    size_t damaged = 0;
    for (const TriagedDump& d : dumps_) damaged += d.damaged;
    fprintf(out, "%zu dump%s, %zu signature%s%s\n\n", dumps_.size(), dumps_.size() == 1 ? "" : "s",
            groups.size() - (damaged ? 1 : 0), groups.size() - (damaged ? 1 : 0) == 1 ? "" : "s",
            damaged ? (", " + std::to_string(damaged) + " damaged").c_str() : "");
    fprintf(out, "%5s  %-10s  %-19s  %-19s  %-16s  %-16s  %-14s  %s\n", "Count", "Exception", "First (UTC)",
            "Last (UTC)", "Component", "Machine", "Version", "Signature");
    for (const Group& g : groups) {
        const TriagedDump& example = *g.dumps.front();
        if (example.damaged) {
            fprintf(out, "%5zu  %-10s  %-19s  %-19s  %-16s  %-16s  %-14s  %s\n", g.dumps.size(), "-", "-", "-",
                    g.Distinct(&TriagedDump::component).c_str(), g.Distinct(&TriagedDump::machine).c_str(), "-",
                    "damaged dumps");
            for (const TriagedDump* d : g.dumps) fprintf(out, "       %s: %s\n", d->path.c_str(), d->reason.c_str());
            continue;
        }
        fprintf(out, "%5zu  %-10s  %-19s  %-19s  %-16s  %-16s  %-14s  %s\n", g.dumps.size(), example.exception.c_str(),
                TimeText(g.First()).c_str(), TimeText(g.Last()).c_str(), g.Distinct(&TriagedDump::component).c_str(),
                g.Distinct(&TriagedDump::machine).c_str(), g.Distinct(&TriagedDump::version).c_str(),
                example.signature.c_str());
        fprintf(out, "       e.g. %s\n", example.path.c_str());
    }
}

void TriageTable::PrintCsv(FILE* out) const {
    fprintf(out, "count,exception,first_utc,last_utc,components,machines,versions,signature,dump\n");
    for (const Group& g : Groups()) {
        const TriagedDump& d = *g.dumps.front();
        const std::string fields[] = {std::to_string(g.dumps.size()),
                                      d.damaged ? "-" : d.exception,
                                      TimeText(g.First()),
                                      TimeText(g.Last()),
                                      g.Distinct(&TriagedDump::component),
                                      g.Distinct(&TriagedDump::machine),
                                      g.Distinct(&TriagedDump::version),
                                      d.damaged ? "damaged" : d.signature,
                                      d.path};
        std::string line;
        for (const auto& f : fields) line += (line.empty() ? "" : ",") + CsvField(f);
        fprintf(out, "%s\n", line.c_str());
    }
}

}  // namespace kvdiag
