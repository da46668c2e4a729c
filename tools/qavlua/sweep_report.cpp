// Sweep reports: the summary on the terminal, the JSON report (which `sweep merge` reads back),
// the JUnit XML file that CI systems show as one test case per run, and the merge of the JSON
// reports of a sweep's shards.
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <sstream>

#include <nlohmann/json.hpp>

#include "host.h"
#include "sweep.h"

namespace qavlua {

std::string base_name(const std::string &path) {
    size_t slash = path.rfind('/');
    return slash == std::string::npos ? path : path.substr(slash + 1);
}

bool SweepRun::failed() const {
    return status != "completed" && status != "recovered" && status != "unreached";
}

bool SweepRun::skipped() const {
    return status == "unreached";
}

namespace {

using zakhost::Json;

const std::vector<std::string> &statuses(const std::string &kind) {
    static const std::vector<std::string> faults{"completed", "error",   "lock-held",
                                                 "hung",      "crashed", "unreached"};
    static const std::vector<std::string> cuts{"recovered", "recovery-failed", "check-failed", "unreached"};
    return kind == "faults" ? faults : cuts;
}

// "call 12 (P_ZAK_Write)", "cut 7: before luafs_mv(...) at flow.lua:30", "end: after ..."
std::string run_name(const SweepReport &report, const SweepRun &run) {
    if (report.kind == "faults") return "call " + std::to_string(run.index) + " (" + run.point + ")";
    if (run.index > report.total) return "end: " + run.point;
    return "cut " + std::to_string(run.index) + ": " + run.point;
}

std::string indented(const std::string &text, const char *prefix, size_t max_lines) {
    std::istringstream in(text);
    std::string line, out;
    size_t n = 0;
    while (std::getline(in, line)) {
        if (n++ == max_lines) {
            out += prefix + std::string("...\n");
            break;
        }
        out += prefix + line + "\n";
    }
    return out;
}

// ---- JSON ------------------------------------------------------------------------------------

Json to_json(const SweepReport &report) {
    Json j = Json::object();
    j["tool"] = "qavlua sweep";
    j["kind"] = report.kind;
    j["script"] = report.script;
    j["args"] = report.args;
    if (!report.recover.empty()) j["recover"] = report.recover;
    if (!report.check.empty()) j["check"] = report.check;
    j["total"] = report.total;
    j["sampled"] = report.sampled;
    if (report.merged_shards.empty()) {
        j["shard"] = report.shard;
    } else {
        j["merged_shards"] = report.merged_shards;
    }
    j["shards"] = report.shards;
    j["jobs"] = report.jobs;
    j["ms"] = report.ms;
    Json summary = Json::object();
    for (const std::string &status : statuses(report.kind)) {
        int64_t n = 0;
        for (const SweepRun &run : report.runs)
            n += run.status == status ? 1 : 0;
        summary[status] = n;
    }
    j["summary"] = summary;
    Json runs = Json::array();
    for (const SweepRun &run : report.runs) {
        Json r = Json::object();
        r["index"] = run.index;
        r["point"] = run.point;
        r["status"] = run.status;
        r["message"] = run.message;
        r["detail"] = run.detail;
        r["locks"] = run.locks;
        r["diff"] = run.diff;
        r["ms"] = run.ms;
        r["copy_us"] = run.copy_us;
        runs.push_back(r);
    }
    j["runs"] = runs;
    return j;
}

// Reports are read back with nlohmann-json; a field of the wrong type reads as empty or 0.
using Parsed = nlohmann::json;

std::string text_of(const Parsed &object, const char *key) {
    auto v = object.find(key);
    return v != object.end() && v->is_string() ? v->get<std::string>() : "";
}

uint64_t number_of(const Parsed &object, const char *key) {
    auto v = object.find(key);
    return v != object.end() && v->is_number() && v->get<double>() >= 0 ? v->get<uint64_t>() : 0;
}

std::vector<std::string> strings_of(const Parsed &object, const char *key) {
    std::vector<std::string> out;
    if (auto v = object.find(key); v != object.end() && v->is_array())
        for (const Parsed &item : *v)
            if (item.is_string()) out.push_back(item.get<std::string>());
    return out;
}

// ---- JUnit --------------------------------------------------------------------------------------

// Text fit for XML 1.0: markup escaped; control characters and bytes that are not UTF-8
// replaced, since a single one makes the whole file unreadable to a CI system.
std::string xml(const std::string &text) {
    std::string out;
    for (size_t i = 0; i < text.size();) {
        auto c = static_cast<unsigned char>(text[i]);
        size_t n = c < 0x80 ? 1 : (c >> 5) == 6 ? 2 : (c >> 4) == 14 ? 3 : (c >> 3) == 30 ? 4 : 0;
        bool valid = n > 0 && i + n <= text.size();
        for (size_t k = 1; valid && k < n; ++k)
            valid = (static_cast<unsigned char>(text[i + k]) & 0xC0) == 0x80;
        if (!valid) {
            out += '?';
            ++i;
            continue;
        }
        if (n > 1) {
            out.append(text, i, n);
        } else if (c == '&') {
            out += "&amp;";
        } else if (c == '<') {
            out += "&lt;";
        } else if (c == '>') {
            out += "&gt;";
        } else if (c == '"') {
            out += "&quot;";
        } else if (c < 0x20 && c != '\n' && c != '\t' && c != '\r') {
            out += '?';
        } else {
            out += static_cast<char>(c);
        }
        i += n;
    }
    return out;
}

std::string seconds(uint64_t ms) {
    char buffer[32];
    std::snprintf(buffer, sizeof buffer, "%.3f", static_cast<double>(ms) / 1000);
    return buffer;
}

std::string body(const SweepRun &run) {
    std::string text = run.message;
    if (!run.detail.empty()) text += "\n" + run.detail;
    if (!run.locks.empty()) {
        text += "\nlocks held at the end:";
        for (const auto &l : run.locks)
            text += "\n  " + l;
    }
    if (!run.diff.empty()) {
        text += "\nfile state against the uncut run:";
        for (const auto &d : run.diff)
            text += "\n  " + d;
    }
    return text;
}

// The indices of the runs that `pick` selects, as "3, 7-12".
std::string ranges(const std::vector<SweepRun> &runs, bool (SweepRun::*pick)() const) {
    std::string out;
    for (size_t i = 0; i < runs.size(); ++i) {
        if (!(runs[i].*pick)()) continue;
        size_t j = i;
        while (j + 1 < runs.size() && (runs[j + 1].*pick)() && runs[j + 1].index == runs[j].index + 1)
            ++j;
        out += (out.empty() ? "" : ", ") + std::to_string(runs[i].index);
        if (j > i) out += "-" + std::to_string(runs[j].index);
        i = j;
    }
    return out;
}

bool write_text(const std::string &file, const std::string &text) {
    std::string tmp = file + ".tmp";
    {
        std::ofstream out(tmp, std::ios::trunc | std::ios::binary);
        if (!out || !(out << text) || !out.flush()) return false;
    }
    return std::rename(tmp.c_str(), file.c_str()) == 0;
}

} // namespace

void print_summary(const SweepReport &report) {
    bool faults = report.kind == "faults";
    size_t failed = 0, skipped = 0;
    for (const SweepRun &run : report.runs) {
        failed += run.failed() ? 1 : 0;
        skipped += run.skipped() ? 1 : 0;
    }
    std::printf("\n%s sweep of %s%s%s: %zu runs in %s s\n", faults ? "fault" : "power-cut",
                base_name(report.script).c_str(), faults ? "" : ", recovery ",
                faults ? "" : base_name(report.recover).c_str(), report.runs.size(),
                seconds(report.ms).c_str());
    for (const std::string &status : statuses(report.kind)) {
        size_t n = 0;
        for (const SweepRun &run : report.runs)
            n += run.status == status ? 1 : 0;
        std::printf("  %-16s %6zu\n", status.c_str(), n);
    }
    if (failed > 0)
        std::printf("\n%zu failed (%s):\n", failed, ranges(report.runs, &SweepRun::failed).c_str());
    std::string previous;
    for (const SweepRun &run : report.runs) {
        if (!run.failed()) continue;
        std::printf("  %s\n    %s: %s\n", run_name(report, run).c_str(), run.status.c_str(),
                    run.message.c_str());
        // Runs that went wrong the same way show their details once.
        std::string rest = body(run).substr(run.message.size());
        if (rest == previous)
            std::printf("      (details as above)\n");
        else
            std::printf("%s", indented(rest.empty() ? rest : rest.substr(1), "      ", 14).c_str());
        previous = rest;
    }
    if (skipped > 0) {
        std::printf("\n%zu not reached (the script took another path than in the first run): %s\n", skipped,
                    ranges(report.runs, &SweepRun::skipped).c_str());
    }
    std::printf("%s\n", failed == 0 ? "no failures" : "FAILED");
    std::fflush(stdout);
}

bool write_json(const std::string &file, const SweepReport &report) {
    return write_text(file, zakhost::json_line(to_json(report)) + "\n");
}

bool write_junit(const std::string &file, const SweepReport &report) {
    size_t failed = 0, skipped = 0;
    for (const SweepRun &run : report.runs) {
        failed += run.failed() ? 1 : 0;
        skipped += run.skipped() ? 1 : 0;
    }
    std::string script = base_name(report.script);
    std::string suite = (report.kind == "faults" ? "fault sweep of " : "power-cut sweep of ") + script;
    std::string counts = "tests=\"" + std::to_string(report.runs.size()) + "\" failures=\"" +
                         std::to_string(failed) + "\" errors=\"0\" skipped=\"" + std::to_string(skipped) +
                         "\" time=\"" + seconds(report.ms) + "\"";
    std::string classname = "sweep." + report.kind + "." + script.substr(0, script.rfind('.'));
    std::string out = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<testsuites name=\"qavlua sweep\" " +
                      counts + ">\n  <testsuite name=\"" + xml(suite) + "\" " + counts + ">\n";
    for (const SweepRun &run : report.runs) {
        out += "    <testcase classname=\"" + xml(classname) + "\" name=\"" + xml(run_name(report, run)) +
               "\" time=\"" + seconds(run.ms) + "\"";
        if (run.failed()) {
            out += ">\n      <failure type=\"" + xml(run.status) + "\" message=\"" + xml(run.message) +
                   "\">" + xml(body(run)) + "</failure>\n    </testcase>\n";
        } else if (run.skipped()) {
            out += ">\n      <skipped message=\"" + xml(run.message) + "\"/>\n    </testcase>\n";
        } else {
            out += "/>\n";
        }
    }
    out += "  </testsuite>\n</testsuites>\n";
    return write_text(file, out);
}

std::string read_json(const std::string &file, SweepReport &report) {
    if (access(file.c_str(), R_OK) != 0) return "cannot read " + file;
    std::string text = read_text(file);
    Parsed j = Parsed::parse(text, nullptr, false);
    if (j.is_discarded() || !j.is_object()) return file + " is not JSON";
    if (text_of(j, "tool") != "qavlua sweep") return file + " is not a qavlua sweep report";
    report.kind = text_of(j, "kind");
    if (report.kind != "faults" && report.kind != "power-cut") return file + ": unknown sweep kind";
    report.script = text_of(j, "script");
    report.args = strings_of(j, "args");
    report.recover = text_of(j, "recover");
    report.check = text_of(j, "check");
    report.total = number_of(j, "total");
    report.sampled = number_of(j, "sampled");
    report.shards = static_cast<int>(number_of(j, "shards"));
    report.shard = static_cast<int>(number_of(j, "shard"));
    report.jobs = static_cast<int>(number_of(j, "jobs"));
    report.ms = number_of(j, "ms");
    if (auto merged = j.find("merged_shards"); merged != j.end() && merged->is_array())
        for (const Parsed &s : *merged)
            report.merged_shards.push_back(s.is_number() ? s.get<int>() : 0);
    else
        report.merged_shards.push_back(report.shard);
    if (report.shards < 1) return file + ": no shard count";
    auto runs = j.find("runs");
    if (runs == j.end() || !runs->is_array()) return file + ": no runs";
    for (const Parsed &r : *runs) {
        SweepRun run;
        run.index = number_of(r, "index");
        run.point = text_of(r, "point");
        run.status = text_of(r, "status");
        run.message = text_of(r, "message");
        run.detail = text_of(r, "detail");
        run.locks = strings_of(r, "locks");
        run.diff = strings_of(r, "diff");
        run.ms = number_of(r, "ms");
        run.copy_us = number_of(r, "copy_us");
        if (run.index == 0 || run.status.empty()) return file + ": a run without index or status";
        report.runs.push_back(run);
    }
    return "";
}

int sweep_merge(const std::vector<std::string> &args) {
    std::string json, junit;
    std::vector<std::string> files;
    for (size_t i = 1; i < args.size(); ++i) {
        if (args[i] == "--json" && i + 1 < args.size())
            json = args[++i];
        else if (args[i] == "--junit" && i + 1 < args.size())
            junit = args[++i];
        else
            files.push_back(args[i]);
    }
    if (files.empty()) {
        std::fprintf(stderr, "usage: qavlua sweep merge [--json FILE] [--junit FILE] REPORT.json...\n");
        return 2;
    }
    SweepReport merged;
    std::vector<bool> seen;
    int status = 0;
    for (const std::string &file : files) {
        SweepReport part;
        std::string error = read_json(file, part);
        if (error.empty() && !merged.kind.empty() &&
            (part.kind != merged.kind || base_name(part.script) != base_name(merged.script) ||
             part.args != merged.args || part.total != merged.total || part.sampled != merged.sampled ||
             part.shards != merged.shards))
            error =
                file + " belongs to another sweep (kind, script, arguments, points or shard count differ)";
        if (!error.empty()) {
            std::fprintf(stderr, "qavlua sweep merge: %s\n", error.c_str());
            return 2;
        }
        if (merged.kind.empty()) {
            merged = part;
            merged.runs.clear();
            merged.merged_shards.clear();
            merged.ms = 0;
            seen.assign(static_cast<size_t>(part.shards) + 1, false);
        }
        for (int s : part.merged_shards) {
            if (s < 1 || s > merged.shards || seen[static_cast<size_t>(s)]) {
                std::fprintf(stderr, "qavlua sweep merge: shard %d of %s is out of range or given twice\n", s,
                             file.c_str());
                return 2;
            }
            seen[static_cast<size_t>(s)] = true;
            merged.merged_shards.push_back(s);
        }
        merged.ms = std::max(merged.ms, part.ms); // the shards ran side by side
        merged.runs.insert(merged.runs.end(), part.runs.begin(), part.runs.end());
    }
    std::sort(merged.merged_shards.begin(), merged.merged_shards.end());
    std::sort(merged.runs.begin(), merged.runs.end(),
              [](const SweepRun &a, const SweepRun &b) { return a.index < b.index; });
    print_summary(merged);
    std::string missing;
    for (int s = 1; s <= merged.shards; ++s)
        if (!seen[static_cast<size_t>(s)]) missing += " " + std::to_string(s);
    if (!missing.empty()) {
        std::fprintf(stderr, "qavlua sweep merge: shards missing:%s (of %d)\n", missing.c_str(),
                     merged.shards);
        status = 2;
    }
    for (const SweepRun &run : merged.runs)
        if (run.failed() && status == 0) status = 1;
    if (!json.empty() && !write_json(json, merged)) status = 2;
    if (!junit.empty() && !write_junit(junit, merged)) status = 2;
    return status;
}

} // namespace qavlua
