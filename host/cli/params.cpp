#include "params.h"

#include "driversession.h"
#include "session.h"
#include "mapimport.h"
#include "paramset.h"
#include "textfile.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

#include <algorithm>
#include <chrono>
#include <cstdio>

namespace {

int usage(const std::string &text)
{
    std::fprintf(stderr, "teco-cli: %s\n", text.c_str());
    return ExitUsage;
}

void sayError(const std::string &text) { std::fprintf(stderr, "teco-cli: %s\n", text.c_str()); }

QString q(const std::string &text) { return QString::fromStdString(text); }

void printJson(const QJsonObject &o)
{
    std::printf("%s\n", QJsonDocument(o).toJson(QJsonDocument::Compact).constData());
    std::fflush(stdout);
}

// A table with a header row, columns as wide as their widest cell.
void printTable(const std::vector<std::vector<std::string>> &rows)
{
    std::vector<size_t> widths(rows.empty() ? 0 : rows.front().size());
    for (const auto &row : rows)
        for (size_t i = 0; i < row.size() && i < widths.size(); ++i)
            widths[i] = std::max(widths[i], row[i].size());
    for (const auto &row : rows) {
        std::string line;
        for (size_t i = 0; i < row.size(); ++i)
            line += i + 1 < row.size() ? row[i] + std::string(widths[i] - row[i].size() + 2, ' ') : row[i];
        std::printf("%s\n", line.c_str());
    }
    std::fflush(stdout);
}

// "speed-command (HR402)".
std::string named(const Parameter &p) { return p.name + " (" + p.tag.text + ")"; }

std::string counted(size_t n, const char *thing)
{
    return std::to_string(n) + " " + thing + (n == 1 ? "" : "s");
}

// A backup read and, with a map in use, checked against it (bindToMap).
bool loadFile(const ParamsContext &c, const std::string &path, ParameterMap &map)
{
    std::string error;
    if (loadParameterMap(path, map, error) && (!c.map || bindToMap(map, *c.map, error)))
        return true;
    sayError(error);
    return false;
}

// The parameters of a file that a restore or compare reads from the drive.
std::vector<const Parameter *> readableOf(const ParameterMap &map)
{
    std::vector<const Parameter *> out;
    for (const Parameter &p : map.parameters)
        if (p.readable())
            out.push_back(&p);
    return out;
}

// Reads params, saying on standard error which could not be read.
std::vector<ParamReading> readAll(ParamsContext &c, const std::vector<const Parameter *> &params)
{
    const std::vector<ParamReading> readings = readParameters(c.drive, c.station, params);
    for (const ParamReading &r : readings)
        if (!r.ok)
            sayError("cannot read " + named(*r.param) + ": " + r.error);
    return readings;
}

bool writeBackup(const std::string &path, const ParameterMap &backup, std::string &error)
{
    FILE *f = createTextFile(path, error);
    if (!f)
        return false;
    const std::string text = parameterMapCsv(backup);
    const bool written = std::fwrite(text.data(), 1, text.size(), f) == text.size();
    if (std::fclose(f) != 0 || !written) {
        error = "the file could not be written whole";
        return false;
    }
    return true;
}

void reportBackup(const ParamsContext &c, const std::string &path, size_t all, size_t good, uint64_t requests,
    double seconds)
{
    if (c.json) {
        QJsonObject o;
        o["command"] = "params backup";
        o["file"] = q(path);
        o["parameters"] = int(all);
        o["read"] = int(good);
        o["requests"] = qint64(requests);
        o["seconds"] = seconds;
        printJson(o);
        return;
    }
    std::printf("backed up %zu of %s to %s (%s, %.2f s)\n", good, counted(all, "parameter").c_str(),
        path.c_str(), counted(size_t(requests), "request").c_str(), seconds);
    std::fflush(stdout);
}

int backup(ParamsContext &c, const ParamsRequest &r)
{
    if (!c.map)
        return usage("params backup needs a map of the drive's parameters: give --map FILE");
    // A write-only parameter (a command such as a reset) has nothing to back up.
    std::vector<const Parameter *> params = c.map->group(r.group ? *r.group : std::string());
    params.erase(
        std::remove_if(params.begin(), params.end(), [](const Parameter *p) { return !p->readable(); }),
        params.end());
    if (params.empty())
        return usage(c.map->described() + " has no parameters in the group \"" + *r.group + "\"");
    const uint64_t before = c.drive.totalHealth().requests;
    const auto start = std::chrono::steady_clock::now();
    const std::vector<ParamReading> readings = readAll(c, params);
    const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    ParameterMap chosen;
    chosen.path = c.map->path;
    chosen.builtIn = c.map->builtIn;
    for (const Parameter *p : params)
        chosen.parameters.push_back(*p);
    const std::string version = c.drive.driver() ? c.drive.driver()->getVersionNumber().toStdString() : "";
    std::string error;
    if (!writeBackup(r.files[0], backupMap(chosen, readings, c.station, version), error)) {
        sayError("cannot write " + r.files[0] + ": " + error);
        return ExitFailed;
    }
    size_t good = 0;
    for (const ParamReading &reading : readings)
        good += reading.ok ? 1 : 0;
    reportBackup(c, r.files[0], readings.size(), good, c.drive.totalHealth().requests - before, seconds);
    return good == readings.size() ? ExitOk : ExitFailed;
}

void reportDifferences(const ParamsContext &c, const std::vector<ParamDifference> &diffs,
    const std::string &left, size_t compared)
{
    if (c.json) {
        QJsonArray list;
        for (const ParamDifference &d : diffs)
            list.append(QJsonObject { { "name", q(d.param->name) }, { "address", q(d.param->tag.text) },
                { q(left), q(d.left) }, { "file", q(d.right) }, { "unit", q(d.param->unit) } });
        printJson(QJsonObject {
            { "command", "params compare" }, { "compared", int(compared) }, { "differences", list } });
        return;
    }
    if (diffs.empty()) {
        std::printf("no differences (%s compared)\n", counted(compared, "parameter").c_str());
        std::fflush(stdout);
        return;
    }
    std::vector<std::vector<std::string>> rows = { { "name", left, "file", "unit" } };
    for (const ParamDifference &d : diffs)
        rows.push_back({ d.param->name, d.left, d.right, d.param->unit });
    printTable(rows);
    std::printf("%s of %zu differ\n", counted(diffs.size(), "parameter").c_str(), compared);
    std::fflush(stdout);
}

int compare(ParamsContext &c, const ParamsRequest &r)
{
    ParameterMap file;
    if (!loadFile(c, r.files.back(), file))
        return ExitUsage;
    std::vector<ParamDifference> diffs;
    if (r.files.size() == 2) {
        ParameterMap first;
        if (!loadFile(c, r.files[0], first))
            return ExitUsage;
        diffs = compareFiles(first, file);
    } else {
        diffs = compareWithFile(readAll(c, readableOf(file)), file);
    }
    reportDifferences(c, diffs, r.files.size() == 2 ? "first" : "drive", file.parameters.size());
    return diffs.empty() ? ExitOk : ExitFailed;
}

void showPlan(const ParamsContext &c, const std::vector<ParamWrite> &writes)
{
    if (c.json || writes.empty())
        return;
    std::vector<std::vector<std::string>> rows = { { "name", "address", "drive", "file", "raw", "unit" } };
    for (const ParamWrite &w : writes)
        rows.push_back({ w.param->name, w.param->tag.text, w.from, w.to, w.raw, w.param->unit });
    printTable(rows);
}

// One line for a restored parameter that failed; "" for one that holds.
std::string outcomeProblem(const RestoreOutcome &o, const ParamWrite &w)
{
    if (!o.written)
        return "cannot write " + named(*o.param) + ": " + o.error;
    if (!o.error.empty())
        return "cannot read " + named(*o.param) + " back: " + o.error;
    if (!o.holds)
        return named(*o.param) + " reads back " + withUnit(*o.param, o.readBack) + ", not "
            + withUnit(*o.param, w.to);
    return std::string();
}

// What a restore leaves alone and why, and the station a backup was made
// from when it is another.
struct LeftAlone
{
    std::vector<std::pair<std::string, std::string>> rows; // name, why
    std::string otherStation;
};

// Shown one line each, with a line for a backup made from another station.
LeftAlone showLeftAlone(const ParamsContext &c, const ParameterMap &file)
{
    LeftAlone left;
    for (const Parameter &p : file.parameters) {
        const auto value = p.backup.find("value"), station = p.backup.find("station");
        const bool hasValue = value != p.backup.end() && !value->second.empty();
        const char *why = !p.writable() ? nullptr
            : !hasValue                 ? "no value in the file"
            : !p.readable()             ? "write-only: it cannot be read back"
                                        : nullptr;
        if (station != p.backup.end() && station->second != std::to_string(c.station))
            left.otherStation = station->second;
        if (!why)
            continue;
        left.rows.emplace_back(p.name, why);
        if (!c.json)
            std::printf("not written: %s (%s)\n", p.name.c_str(), why);
    }
    if (!left.otherStation.empty() && !c.json)
        std::printf("this backup was made from station %s; writing to station %d\n",
            left.otherStation.c_str(), c.station);
    return left;
}

QJsonObject restoreJson(const std::vector<ParamWrite> &writes, const std::vector<RestoreOutcome> &outcomes,
    bool yes, const LeftAlone &left)
{
    QJsonArray list;
    for (size_t i = 0; i < writes.size(); ++i) {
        const ParamWrite &w = writes[i];
        QJsonObject o { { "name", q(w.param->name) }, { "address", q(w.param->tag.text) },
            { "drive", q(w.from) }, { "file", q(w.to) }, { "raw", q(w.raw) }, { "unit", q(w.param->unit) } };
        if (i < outcomes.size()) {
            o["written"] = outcomes[i].written;
            o["holds"] = outcomes[i].holds;
            o["readBack"] = q(outcomes[i].readBack);
            if (!outcomes[i].error.empty())
                o["error"] = q(outcomes[i].error);
        }
        list.append(o);
    }
    QJsonArray notWritten;
    for (const auto &row : left.rows)
        notWritten.append(QJsonObject { { "name", q(row.first) }, { "reason", q(row.second) } });
    QJsonObject o { { "command", "params restore" }, { "written", yes }, { "parameters", list },
        { "notWritten", notWritten } };
    if (!left.otherStation.empty())
        o["backupStation"] = q(left.otherStation);
    return o;
}

int reportRestore(const ParamsContext &c, const std::vector<ParamWrite> &writes,
    const std::vector<RestoreOutcome> &outcomes, const LeftAlone &left)
{
    int problems = 0;
    for (size_t i = 0; i < outcomes.size(); ++i) {
        const std::string problem = outcomeProblem(outcomes[i], writes[i]);
        if (!problem.empty())
            sayError(problem), ++problems;
    }
    if (outcomes.size() < writes.size())
        sayError("stopped at the failed write: " + counted(writes.size() - outcomes.size(), "parameter")
            + " not written (--keep-going writes the rest)");
    if (c.json)
        printJson(restoreJson(writes, outcomes, true, left));
    else if (problems == 0 && outcomes.size() == writes.size())
        std::printf("restored %s; each reads back as written%s\n",
            counted(writes.size(), "parameter").c_str(),
            !left.rows.empty()
                ? ("; " + counted(left.rows.size(), "parameter") + " not written (listed above)").c_str()
                : "");
    std::fflush(stdout);
    return problems == 0 && outcomes.size() == writes.size() ? ExitOk : ExitFailed;
}

int restore(ParamsContext &c, const ParamsRequest &r)
{
    ParameterMap file;
    if (!loadFile(c, r.files[0], file))
        return ExitUsage;
    std::vector<ParamWrite> writes;
    std::string error;
    if (!planRestore(readAll(c, readableOf(file)), file, writes, error))
        return usage(error);
    showPlan(c, writes);
    const LeftAlone left = showLeftAlone(c, file);
    if (writes.empty() || !r.yes) {
        if (c.json)
            printJson(restoreJson(writes, {}, false, left));
        else if (writes.empty() && !left.rows.empty())
            std::printf("nothing to restore: the drive holds every other value of %s\n", r.files[0].c_str());
        else if (writes.empty())
            std::printf("nothing to restore: the drive holds every value of %s\n", r.files[0].c_str());
        else
            std::printf(
                "nothing written: give --yes to write %s\n", counted(writes.size(), "parameter").c_str());
        std::fflush(stdout);
        return ExitOk;
    }
    const auto progress = [&c](const RestoreOutcome &o) {
        if (o.written && !c.quiet && !c.json)
            std::fprintf(stderr, "teco-cli: wrote %s\n", named(*o.param).c_str());
    };
    return reportRestore(
        c, writes, restoreParameters(c.drive, c.station, writes, r.keepGoing, progress), left);
}

} // namespace

bool paramsNeedLine(const ParamsRequest &r) { return !(r.action == "compare" && r.files.size() == 2); }

int runParams(ParamsContext &c, const ParamsRequest &r)
{
    if (r.action == "backup")
        return backup(c, r);
    if (r.action == "compare")
        return compare(c, r);
    return restore(c, r);
}

namespace {

int mapCheck(const std::string &path, bool json)
{
    ParameterMap map;
    std::string error;
    if (!loadParameterMap(path, map, error)) {
        sayError(error);
        return ExitFailed;
    }
    std::vector<std::string> groups;
    for (const Parameter &p : map.parameters)
        if (!p.group.empty() && std::find(groups.begin(), groups.end(), p.group) == groups.end())
            groups.push_back(p.group);
    if (json) {
        printJson(QJsonObject { { "command", "map check" }, { "file", q(path) },
            { "parameters", int(map.parameters.size()) }, { "groups", int(groups.size()) } });
        return ExitOk;
    }
    std::string names;
    for (const std::string &g : groups)
        names += (names.empty() ? "" : ", ") + g;
    std::printf("%s: %s in %s%s\n", path.c_str(), counted(map.parameters.size(), "parameter").c_str(),
        counted(groups.size(), "group").c_str(), names.empty() ? "" : (" (" + names + ")").c_str());
    std::fflush(stdout);
    return ExitOk;
}

} // namespace

namespace {

// map import FILE [--out F]: the map taken over, to F or standard output;
// what could not be taken over said on standard error.
int mapImport(const ParamsRequest &r)
{
    ParameterMap map;
    std::vector<std::string> warnings;
    std::string error;
    if (!importMapFile(r.files[0], map, warnings, error)) {
        sayError(error);
        return ExitFailed;
    }
    for (const std::string &w : warnings)
        sayError(w);
    if (!r.out) {
        std::fputs(parameterMapCsv(map).c_str(), stdout);
        std::fflush(stdout);
        return ExitOk;
    }
    if (!writeBackup(*r.out, map, error)) {
        sayError("cannot write " + *r.out + ": " + error);
        return ExitFailed;
    }
    std::printf("%s: %s taken over into %s\n", r.files[0].c_str(),
        counted(map.parameters.size(), "parameter").c_str(), r.out->c_str());
    std::fflush(stdout);
    return ExitOk;
}

} // namespace

int runMapCommand(const ParamsRequest &r, bool json)
{
    if (r.action == "check")
        return mapCheck(r.files[0], json);
    return mapImport(r);
}

int Session::run(const Command &c, const ParamsCommand &p)
{
    if (paramsNeedLine(p.request)) {
        const int opened = openLineFor(c, true);
        if (opened != ExitOk)
            return opened;
    }
    ParamsContext context { drive, map(), link().options().station, c.options.json, session.quiet };
    return runParams(context, p.request);
}

int Session::run(const Command &c, const MapCommand &m) { return runMapCommand(m.request, c.options.json); }
