// teco-soak: N commands of every type, prefix and station through the driver
// plug-in, our serial link and the simulated drive, with faults injected by
// rate; every result checked against a model of the drive kept apart from the
// driver, and every command's duration against its time bound.
//
// teco-soak --help lists its options.
//
// A command that ends past its bound by no more than the tolerance plus the
// time the machine stalled while it ran (stallmeter.h) is reported with that
// stall and does not fail the soak: a loaded machine is not a late driver.
//
// Exit status: 0 when every command gave a right value or a failure and kept
// its time bound; 1 for any WRONG VALUE, a command over its bound, or a
// command that the driver handled otherwise than the soak expects; 2 for bad
// usage or a set-up that failed.

#include "benchoptions.h"
#include "driversession.h"
#include "faultrule.h"
#include "generator.h"
#include "model.h"
#include "stallmeter.h"
#include "textutil.h"

#include <QCoreApplication>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

#include <algorithm>
#include <chrono>
#include <cinttypes>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <memory>
#include <random>
#include <string>
#include <thread>
#include <vector>

namespace {

// How many findings of each sort are printed one by one.
const int PrintedFindings = 20;

struct Settings
{
    long commands = 10000;
    double faultRate = 0.10;
    int timeoutMs = 100;
    int retry = 2;
    int lateGuardMs = -1;
    int delayMs = 0;
    int toleranceMs = 3; // scheduling on a shared machine: a command may end this much past its bound
    unsigned seed = 1;
    std::string link = "RS485,9600,NONE,8,2";
    std::string stations = "1,2,3";
    std::string plugin = TECO_DEFAULT_PLUGIN;
    std::string trace;
    std::vector<bool> kinds = std::vector<bool>(FaultRule::KindCount, true); // the fault kinds in the mix
    bool json = false;
    bool quiet = false;
};

bool parseRate(const std::string &given, double &rate)
{
    std::string text = given;
    const bool percent = !text.empty() && text.back() == '%';
    if (percent)
        text.pop_back();
    char *end = nullptr;
    double v = std::strtod(text.c_str(), &end);
    if (text.empty() || !end || *end)
        return false;
    if (percent)
        v /= 100.0;
    if (!(v >= 0.0 && v <= 1.0))
        return false;
    rate = v;
    return true;
}

bool parseKinds(const std::string &text, std::vector<bool> &kinds)
{
    std::vector<bool> chosen(FaultRule::KindCount, false);
    size_t from = 0;
    for (;;) {
        const size_t comma = text.find(',', from);
        const std::string name
            = text.substr(from, comma == std::string::npos ? std::string::npos : comma - from);
        int k = 0;
        while (k < FaultRule::KindCount && name != faultKindName(FaultRule::Kind(k)))
            ++k;
        if (k == FaultRule::KindCount)
            return false;
        chosen[size_t(k)] = true;
        if (comma == std::string::npos)
            break;
        from = comma + 1;
    }
    kinds = chosen;
    return true;
}

// A whole number from low to high for option name: the seed goes beyond an int.
bool wholeOption(const char *name, const std::string &text, long long low, long long high, long long &out,
    std::string &error)
{
    if (parseWholeNumber(text, low, high, out))
        return true;
    error = std::string("option --") + name + " takes a number from " + std::to_string(low) + " to "
        + std::to_string(high) + ", not \"" + text + "\"";
    return false;
}

// Sets target from an option's text with parse, or refuses it with "option
// --NAME takes WHAT, not "TEXT"".
template <typename Target>
OptionTable::Row parsedRow(
    const char *name, const char *what, bool (*parse)(const std::string &, Target &), Target &target)
{
    return OptionTable::checked(name, [=, &target](const std::string &text, std::string &error) {
        if (parse(text, target))
            return true;
        error = std::string("option --") + name + " takes " + what + ", not \"" + text + "\"";
        return false;
    });
}

BenchCommandLine soakCommandLine(Settings &s)
{
    using T = OptionTable;
    auto ms = [](int &target) { return [&target](int v) { target = v; }; };
    return BenchCommandLine("teco-soak",
        {
            { T::integer("commands", 1, 100000000, [&s](int v) { s.commands = v; }), "N",
                "commands to run (default 10000)" },
            { parsedRow("fault-rate", "a share such as 0.1 or 10%", parseRate, s.faultRate), "P",
                "share of requests the drive answers wrongly, all kinds in equal parts (default 10%)" },
            { parsedRow("fault-kinds",
                  "fault kinds such as noreply,late (noreply, corrupt, truncate, late, exception, "
                  "wrongstation, noise)",
                  parseKinds, s.kinds),
                "LIST", "only these kinds, in equal parts of the rate (such as noreply,late)" },
            { T::integer("timeout", 1, 60000, ms(s.timeoutMs)), "MS",
                "the link's reply time-out (default 100)" },
            { T::integer("retry", 0, 100, ms(s.retry)), "N", "the link's retry count (default 2)" },
            { T::checked("late-guard",
                  [&s](const std::string &text, std::string &error) {
                      const bool good = text == "-1" || parseWholeNumber(text, 0, 60000, s.lateGuardMs);
                      if (text == "-1")
                          s.lateGuardMs = -1;
                      else if (!good)
                          error = "option --late-guard takes milliseconds from 0 to 60000, or -1 for the "
                                  "time-out, not \""
                              + text + "\"";
                      return good;
                  }),
                "MS", "the link's late-answer guard; -1: the time-out, 0: off (default -1)" },
            { T::integer("delay", 0, 60000, ms(s.delayMs)), "MS",
                "the link's delay before every attempt (default 0)" },
            { T::integer("tolerance", 0, 60000, ms(s.toleranceMs)), "MS",
                "how far past its bound, beyond the machine's stall, a command may end (default 3)" },
            { T::checked("seed",
                  [&s](const std::string &text, std::string &error) {
                      long long v = 0;
                      const bool good = wholeOption("seed", text, 0, 4294967295LL, v, error);
                      s.seed = unsigned(v);
                      return good;
                  }),
                "N", "seed of the commands, the drive's values and the faults (default 1)" },
            { T::text("link", [&s](const std::string &v) { s.link = v; }), "TEXT",
                "line settings (default RS485,9600,NONE,8,2)" },
            { T::text("stations", [&s](const std::string &v) { s.stations = v; }), "LIST",
                "stations the simulated drive serves (default 1,2,3)" },
            { T::text("plugin", [&s](const std::string &v) { s.plugin = v; }), "PATH",
                "the driver plug-in (default the one built here)" },
            { T::text("trace", [&s](const std::string &v) { s.trace = v; }), "FILE",
                "the frame trace of the link (- for standard error)" },
            { T::flag("json", s.json), "", "the summary as one JSON object" },
            { T::flag("quiet", s.quiet), "", "no progress lines" },
        });
}

// ---------------------------------------------------------------- faults

// The fault mix: every kind chosen an equal share of the rate. Late answers come
// within the time-out (a quarter of them) or in the window that the link's
// late-answer guard protects, between the time-out and the time-out + guard
// (three quarters), each arrival time in whole milliseconds equally often.
// The drive's rules are tried in order and the first one that draws its rate
// applies, so each rule gets its share of what the earlier ones left.
struct FaultMix
{
    std::vector<FaultRule> rules;
    int withinLow = 0, withinHigh = 0; // arrival after the request, ms
    int beyondLow = 0, beyondHigh = 0;
};

FaultMix faultMix(double rate, const std::vector<bool> &kinds, int timeoutMs, int windowMs, int64_t silenceNs)
{
    FaultMix mix;
    std::vector<std::pair<FaultRule, double>> planned;
    auto plan = [&](FaultRule::Kind kind, int value, double share) {
        if (!kinds[size_t(kind)])
            return;
        FaultRule r;
        r.kind = kind;
        r.value = value;
        planned.push_back({ r, share });
    };
    const double share = rate / double(std::max<long>(1, std::count(kinds.begin(), kinds.end(), true)));
    plan(FaultRule::NoReply, -1, share);
    plan(FaultRule::Corrupt, -1, share);
    plan(FaultRule::Truncate, -1, share / 2); // all but the CRC
    plan(FaultRule::Truncate, 3, share / 2); // less than the first piece
    plan(FaultRule::Exception, -1, share / 2);
    plan(FaultRule::Exception, 2, share / 2);
    plan(FaultRule::WrongStation, -1, share);
    plan(FaultRule::Noise, -1, share);
    // The drive starts its pause once the request has ended, which it tells
    // by the line's silence: arrival = silence + pause.
    const int gapMs = int(silenceNs / 1000000);
    mix.withinLow = gapMs + 1;
    mix.withinHigh = std::max(mix.withinLow, timeoutMs - 1);
    const int withinSteps = std::min(10, mix.withinHigh - mix.withinLow + 1);
    for (int i = 0; i < withinSteps; ++i) {
        const int arrival = mix.withinLow
            + (withinSteps > 1 ? i * (mix.withinHigh - mix.withinLow) / (withinSteps - 1) : 0);
        plan(FaultRule::Late, arrival - gapMs, share / 4 / withinSteps);
    }
    mix.beyondLow = timeoutMs + 1;
    mix.beyondHigh = std::max(mix.beyondLow, timeoutMs + windowMs - 1);
    const int beyondSteps = mix.beyondHigh - mix.beyondLow + 1;
    for (int arrival = mix.beyondLow; arrival <= mix.beyondHigh; ++arrival)
        plan(FaultRule::Late, arrival - gapMs, share * 3 / 4 / beyondSteps);

    double left = 1.0;
    for (auto &p : planned) {
        if (p.second <= 0)
            continue;
        p.first.rate = std::min(1.0, p.second / left);
        left -= p.second;
        mix.rules.push_back(p.first);
    }
    return mix;
}

// ---------------------------------------------------------------- time bound

struct LineFigures
{
    int64_t timeoutNs, guardNs, delayNs, silenceNs, characterNs;
    int attempts;
};

// Every attempt: the wait before it, a guard left by the failed exchange
// before it, and for each request its pause, the silence, the request and
// the reply on the wire and the reply time-out.
int64_t timeBound(const std::vector<Exchange> &attempt, const LineFigures &f)
{
    int64_t one = f.delayNs;
    if (!attempt.empty())
        one += f.guardNs;
    for (const Exchange &e : attempt)
        one += (e.pauseBefore ? f.delayNs : 0) + f.silenceNs + int64_t(e.request + e.reply) * f.characterNs
            + f.timeoutNs;
    return f.attempts * one;
}

// ---------------------------------------------------------------- reporting

std::string hex(const QByteArray &bytes, int most = 48)
{
    std::string out;
    char b[4];
    for (int i = 0; i < bytes.size() && i < most; ++i) {
        std::snprintf(b, sizeof b, "%02X", static_cast<unsigned char>(bytes.at(i)));
        out += (i ? " " : "") + std::string(b);
    }
    if (bytes.size() > most)
        out += " ... (" + std::to_string(bytes.size()) + " bytes)";
    if (bytes.isEmpty())
        out = "(nothing)";
    return out;
}

// The driver's text without the command description that the dispatcher
// appends after the last attempt; refusal texts also without their numbers.
std::string failureKey(const QString &text, bool refusal)
{
    std::string s = text.toStdString();
    for (const char *suffix : { " (read ", " (write " }) {
        const size_t at = s.rfind(suffix);
        if (at != std::string::npos && !s.empty() && s.back() == ')')
            s.erase(at);
    }
    if (refusal) {
        std::string out;
        for (size_t i = 0; i < s.size(); ++i) {
            if (s[i] >= '0' && s[i] <= '9') {
                if (out.empty() || out.back() != 'N')
                    out += 'N';
            } else {
                out += s[i];
            }
        }
        s = out;
    }
    return s;
}

struct Finding
{
    long index;
    std::string kind; // "wrong value", "over bound", "over bound in a stall", "disagreement"
    std::string text;
};

struct OpTally
{
    long commands = 0, failed = 0, wrong = 0;
};

class Soak
{
public:
    explicit Soak(const Settings &s)
        : settings(s)
    {
    }
    int run();

private:
    // What one command did.
    struct Outcome
    {
        QByteArray got; // a read's result
        bool written = false; // a write's result
        bool failed = false;
        QString error;
        uint64_t sent = 0; // requests
        uint64_t lateBefore = 0; // the link's late wake-ups before it
        StallMeter::Mark start;
        int64_t took = 0;
    };

    bool setUp(std::string &error);
    void printSettings();
    void runOne(long index);
    Outcome execute(const SoakCommand &c);
    void count(const SoakCommand &c, const Outcome &o);
    void noteTime(const SoakCommand &c, const Outcome &o, bool sends, int64_t bound);
    static std::string oddity(const SoakCommand &c, const Outcome &o, bool sends);
    void checkRead(long index, const SoakCommand &c, const QByteArray &got);
    void checkWrite(long index, const SoakCommand &c);
    void afterFailedWrite(const SoakCommand &c);
    // Waits until the drive has taken in every request that the link sent,
    // so that what it holds is final.
    bool settle();
    void resync(const std::vector<Cell> &cells);
    void report(long index, const std::string &kind, const std::string &text);
    void checkTime(long index, const SoakCommand &c, const StallMeter::Mark &start, uint64_t lateBefore,
        int64_t took, int64_t bound, const QString &error);
    void printSummary(double seconds);
    void printJson(double seconds);

    Settings settings;
    LinkSettings line;
    std::vector<int> stations;
    LineFigures figures {};
    int64_t toleranceNs = 0;
    FaultMix mix;
    DriverSession drive;
    SimDrive &sim = drive.sim();
    SerialLink &link = drive.link();
    DriverInterface *driver = nullptr;
    StallMeter stalls;
    std::unique_ptr<SoakModel> model;
    std::unique_ptr<CommandGenerator> generator;

    long reads = 0, writes = 0, refusals = 0;
    std::map<std::string, long> failures, refusalTexts;
    std::map<Op, OpTally> byOp;
    std::vector<Finding> findings;
    long wrongValues = 0, overBound = 0, disagreements = 0, settleTimeouts = 0;
    long overBoundInStall = 0;
    int64_t longestStallNs = 0;
    int64_t longestNs = -1, longestBoundNs = 0;
    std::string longestCommand;
    int64_t tightestMarginNs = INT64_MAX, tightestNs = 0, tightestBoundNs = 0;
    std::string tightestCommand;
};

bool Soak::setUp(std::string &error)
{
    if (!LinkSettings::parse(settings.link, line, error))
        return false;
    if (line.dataBits != 8) {
        error = "Modbus RTU needs 8 data bits; the link \"" + settings.link + "\" has 7";
        return false;
    }
    if (!SimDrive::parseStations(settings.stations, stations, error))
        return false;
    if (!drive.load(settings.plugin, error))
        return false;
    driver = drive.driver();

    const int guardMs = settings.lateGuardMs < 0 ? settings.timeoutMs : settings.lateGuardMs;
    // With the guard off, late answers still come up to one time-out late.
    mix = faultMix(settings.faultRate, settings.kinds, settings.timeoutMs,
        guardMs > 0 ? guardMs : settings.timeoutMs, line.silenceNs());
    figures.timeoutNs = int64_t(settings.timeoutMs) * 1000000;
    figures.guardNs = int64_t(guardMs) * 1000000;
    figures.delayNs = int64_t(settings.delayMs) * 1000000;
    figures.silenceNs = line.silenceNs();
    figures.characterNs = line.characterNs();
    figures.attempts = settings.retry > 0 ? 1 + settings.retry : 1;
    toleranceNs = int64_t(settings.toleranceMs) * 1000000;

    SimDrive::Options so;
    so.link = line;
    so.stations = stations;
    so.map = "# every value is drawn below\n";
    so.faults = mix.rules;
    so.seed = settings.seed;
    if (!drive.startSim(so, error)) {
        error = "simulated drive: " + error;
        return false;
    }
    // Different values everywhere, so that an answer meant for another
    // request or station does not pass for the right one by chance.
    std::mt19937 values(settings.seed * 2654435761u + 1);
    for (int s : stations)
        for (Area area : { Area::Coils, Area::DiscreteInputs, Area::HoldingRegisters, Area::InputRegisters })
            for (int a = 0; a < 65536; ++a)
                sim.setValue(s, area, a, uint16_t(values()));
    model.reset(new SoakModel(stations));
    model->loadFrom(sim);
    generator.reset(new CommandGenerator(settings.seed * 747796405u + 2891336453u, stations));

    LinkOptions lo;
    lo.timeoutMs = settings.timeoutMs;
    lo.lateGuardMs = settings.lateGuardMs;
    lo.retry = settings.retry;
    lo.station = stations.front();
    lo.delayMs = (unsigned long)settings.delayMs;
    if (!drive.open(std::string(), line, lo, error)) // to the simulated drive; initializes the driver
        return false;
    return settings.trace.empty() || link.setTrace(settings.trace, error);
}

void Soak::report(long index, const std::string &kind, const std::string &text)
{
    const long same
        = std::count_if(findings.begin(), findings.end(), [&](const Finding &f) { return f.kind == kind; });
    if (same < PrintedFindings && !settings.json) {
        std::string upper = kind;
        for (char &ch : upper)
            ch = char(std::toupper(static_cast<unsigned char>(ch)));
        std::printf("%s in command %ld: %s\n", upper.c_str(), index + 1, text.c_str());
        std::fflush(stdout);
    }
    if (same < 100)
        findings.push_back(Finding { index, kind, text });
}

bool Soak::settle()
{
    const uint64_t sent = link.counters().requests;
    const auto giveUp = std::chrono::steady_clock::now()
        + std::chrono::milliseconds(2 * int64_t(settings.timeoutMs) + figures.guardNs / 1000000 + 2000);
    for (;;) {
        const SimDrive::Stats s = sim.stats();
        if (s.requests + s.ignored + s.badFrames >= sent)
            return true;
        if (std::chrono::steady_clock::now() > giveUp) {
            ++settleTimeouts;
            return false;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
}

void Soak::resync(const std::vector<Cell> &cells)
{
    for (const Cell &cell : cells)
        model->reload(sim, cell.station, cell.area, cell.address);
}

void Soak::checkRead(long index, const SoakCommand &c, const QByteArray &got)
{
    QByteArray expected;
    const bool possible = model->expectedRead(c, expected);
    if (!possible) {
        ++wrongValues;
        ++byOp[c.op].wrong;
        report(index, "wrong value",
            c.describe() + ": reported success, but station " + std::to_string(model->readBackStation())
                + " never answers; got " + hex(got));
    } else if (got != expected) {
        ++wrongValues;
        ++byOp[c.op].wrong;
        report(index, "wrong value",
            c.describe() + "\n  expected " + hex(expected) + "\n  got      " + hex(got));
    }
    model->readDone(c, got);
}

void Soak::checkWrite(long index, const SoakCommand &c)
{
    std::vector<Cell> cells;
    const bool possible = model->intended(c, cells);
    std::string wrong;
    for (const Cell &cell : cells) {
        uint16_t held = 0;
        const bool exists = sim.value(cell.station, cell.area, cell.address, held);
        const bool bit = cell.area == Area::Coils;
        if (exists && held == cell.value)
            continue;
        char row[160];
        if (!exists)
            std::snprintf(row, sizeof row, "\n  station %d does not exist, so %s%d cannot hold 0x%04X",
                cell.station, areaPrefix(cell.area), cell.address + 1, cell.value);
        else if (bit)
            std::snprintf(row, sizeof row, "\n  station %d %s%d is %u, intended %u", cell.station,
                areaPrefix(cell.area), cell.address + 1, unsigned(held), unsigned(cell.value));
        else
            std::snprintf(row, sizeof row, "\n  station %d %s%d holds 0x%04X, intended 0x%04X", cell.station,
                areaPrefix(cell.area), cell.address + 1, unsigned(held), unsigned(cell.value));
        if (std::count(wrong.begin(), wrong.end(), '\n') < 8)
            wrong += row;
    }
    if (!possible && wrong.empty())
        wrong = "\n  a station that never answers was written";
    if (!wrong.empty()) {
        ++wrongValues;
        ++byOp[c.op].wrong;
        report(index, "wrong value", c.describe() + ": reported success, but" + wrong);
        // Start again from what the drive holds once it has taken in every
        // request, so that one fault is reported once.
        settle();
        resync(model->touched(c));
    } else {
        for (const Cell &cell : cells)
            model->setValue(cell);
    }
    model->writeDone(c, true);
}

void Soak::afterFailedWrite(const SoakCommand &c)
{
    // A failed write may have reached the drive, in part or whole, or not at
    // all: take what the drive holds once it has every request.
    settle();
    resync(model->touched(c));
    model->writeDone(c, false);
}

// A command past its bound and tolerance fails the soak unless the machine
// stalled at least as long as the overrun while it ran.
void Soak::checkTime(long index, const SoakCommand &c, const StallMeter::Mark &start, uint64_t lateBefore,
    int64_t took, int64_t bound, const QString &error)
{
    if (took <= bound + toleranceNs)
        return;
    StallMeter::Stall stall = stalls.since(start);
    stall.lateNs = int64_t(link.counters().lateWakeNs - lateBefore);
    const bool stalled = took - bound - toleranceNs <= stall.ns();
    if (stalled) {
        ++overBoundInStall;
        longestStallNs = std::max(longestStallNs, stall.ns());
    } else {
        ++overBound;
    }
    char text[400];
    std::snprintf(text, sizeof text,
        ": %.3f ms, bound %.3f ms; the machine stalled %.3f ms meanwhile (run-queue wait %.3f ms, "
        "process stood %.3f ms, the link's waits ended late by %.3f ms)%s%s",
        double(took) / 1e6, double(bound) / 1e6, double(stall.ns()) / 1e6, double(stall.waitedNs) / 1e6,
        double(stall.stoodNs) / 1e6, double(stall.lateNs) / 1e6,
        error.isEmpty() ? "" : ", failed: ", error.toLocal8Bit().constData());
    report(index, stalled ? "over bound in a stall" : "over bound", c.describe() + text);
}

Soak::Outcome Soak::execute(const SoakCommand &c)
{
    link.options().station = c.station;
    const uint64_t before = link.counters().requests;
    const CommunicatorCommand cmd(c.dataType, c.count, QString::fromStdString(c.address));
    Outcome o;
    o.lateBefore = link.counters().lateWakeNs;
    o.start = stalls.mark();
    if (c.write)
        o.written = driver->write(&link, cmd, c.data);
    else
        o.got = driver->read(&link, cmd);
    o.took = monotonicNs() - o.start.atNs;
    o.failed = driver->hasError();
    o.error = o.failed ? driver->getLastError() : QString();
    o.sent = link.counters().requests - before;
    return o;
}

void Soak::count(const SoakCommand &c, const Outcome &o)
{
    OpTally &tally = byOp[c.op];
    ++tally.commands;
    if (o.failed)
        ++tally.failed;
    if (c.op == Op::Refused) {
        ++refusals;
        if (o.failed)
            ++refusalTexts[failureKey(o.error, true)];
    } else if (c.write) {
        ++writes;
    } else {
        ++reads;
    }
}

void Soak::noteTime(const SoakCommand &c, const Outcome &o, bool sends, int64_t bound)
{
    if (o.took > longestNs) {
        longestNs = o.took;
        longestBoundNs = bound;
        longestCommand = c.describe();
    }
    // Closest to its bound among the commands that send (the others only
    // wait the link's delay).
    if (sends && bound - o.took < tightestMarginNs) {
        tightestMarginNs = bound - o.took;
        tightestNs = o.took;
        tightestBoundNs = bound;
        tightestCommand = c.describe();
    }
}

// What the driver did against what the soak expects of the command: "" when
// they agree.
std::string Soak::oddity(const SoakCommand &c, const Outcome &o, bool sends)
{
    const bool refused = c.op == Op::Refused;
    if (c.write && o.written == o.failed)
        return "write returned " + std::string(o.written ? "true" : "false") + " with hasError() "
            + (o.failed ? "true" : "false");
    if (refused && !o.failed)
        return "accepted, but the driver must refuse it";
    if (refused && o.sent > 0)
        return "refused, but sent " + std::to_string(o.sent) + " request(s)";
    if (!refused && o.failed && o.sent == 0)
        return "failed without sending anything: " + o.error.toStdString();
    if (!refused && !sends && o.sent > 0)
        return "sent " + std::to_string(o.sent) + " request(s) where none is needed";
    return std::string();
}

void Soak::runOne(long index)
{
    const SoakCommand c = generator->next(*model);
    const std::vector<Exchange> attempt = model->attempt(c);
    const int64_t bound = timeBound(attempt, figures);
    const Outcome o = execute(c);
    count(c, o);
    noteTime(c, o, !attempt.empty(), bound);
    checkTime(index, c, o.start, o.lateBefore, o.took, bound, o.error);
    const std::string odd = oddity(c, o, !attempt.empty());
    if (!odd.empty()) {
        ++disagreements;
        report(index, "disagreement", c.describe() + ": " + odd);
    }
    if (c.op == Op::Refused)
        return;
    if (o.failed)
        ++failures[failureKey(o.error, false)];
    if (!c.write) {
        if (!o.failed)
            checkRead(index, c, o.got);
    } else if (!o.failed) {
        checkWrite(index, c);
    } else {
        afterFailedWrite(c);
    }
}

void Soak::printSettings()
{
    const int guardMs = int(figures.guardNs / 1000000);
    std::printf("teco-soak: %ld commands, seed %u, link %s, stations %s\n", settings.commands, settings.seed,
        line.text().c_str(), settings.stations.c_str());
    std::printf("  time-out %d ms, retry %d, late guard %d ms%s, delay %d ms\n", settings.timeoutMs,
        settings.retry, guardMs, guardMs == 0 ? " (off)" : "", settings.delayMs);
    std::string kinds;
    long chosen = 0;
    for (int k = 0; k < FaultRule::KindCount; ++k)
        if (settings.kinds[size_t(k)]) {
            kinds += std::string(kinds.empty() ? "" : ", ") + faultKindName(FaultRule::Kind(k));
            ++chosen;
        }
    std::printf("  faults: %.1f%% of requests; %s %.2f%% each\n", settings.faultRate * 100, kinds.c_str(),
        settings.faultRate * 100 / double(std::max(1L, chosen)));
    if (settings.kinds[FaultRule::Late])
        std::printf(
            "  late answers: 1/4 arrive within the time-out (%d..%d ms after the request), 3/4 between "
            "the time-out and the time-out + %s (%d..%d ms)\n",
            mix.withinLow, mix.withinHigh, guardMs > 0 ? "guard" : "one more time-out, as the guard is off",
            mix.beyondLow, mix.beyondHigh);
    std::printf(
        "  time bound of a command: (1 + retry) x (delay + guard + for each request of an attempt: "
        "pause + silence + request and reply on the wire + time-out); tolerance %.0f ms, plus the time "
        "the machine stalled meanwhile\n\n",
        double(toleranceNs) / 1e6);
    std::fflush(stdout);
}

int Soak::run()
{
    std::string error;
    if (!setUp(error)) {
        std::fprintf(stderr, "teco-soak: %s\n", error.c_str());
        return 2;
    }
    if (!settings.json)
        printSettings();
    stalls.start();
    const long step = std::max(100L, settings.commands / 10);
    const auto started = std::chrono::steady_clock::now();
    auto elapsed
        = [&]() { return std::chrono::duration<double>(std::chrono::steady_clock::now() - started).count(); };
    for (long i = 0; i < settings.commands; ++i) {
        runOne(i);
        if (!settings.quiet && (i + 1) % step == 0 && i + 1 < settings.commands)
            std::fprintf(stderr, "teco-soak: %ld/%ld commands, %ld wrong value(s), %ld over bound, %.1f s\n",
                i + 1, settings.commands, wrongValues, overBound, elapsed());
    }
    // Let the drive finish what is still on its way before reading its counts.
    settle();
    stalls.stop();
    const double seconds = elapsed();
    if (settings.json)
        printJson(seconds);
    else
        printSummary(seconds);
    link.close();
    drive.unload();
    return wrongValues == 0 && overBound == 0 && disagreements == 0 ? 0 : 1;
}

void Soak::printSummary(double seconds)
{
    const SerialLink::Counters &lc = link.counters();
    const SimDrive::Stats ss = sim.stats();
    std::printf("\nResults after %.1f s\n", seconds);
    std::printf("  commands          %ld: %ld reads, %ld writes, %ld refusals\n", settings.commands, reads,
        writes, refusals);
    std::printf("  requests sent     %" PRIu64 " (%" PRIu64 " bytes); received %" PRIu64
                " bytes; stale bytes dropped %" PRIu64 "; receives ended by the time-out %" PRIu64 "\n",
        lc.requests, lc.bytesSent, lc.bytesReceived, lc.staleBytesDropped, lc.shortReceives);
    uint64_t injected = 0;
    for (uint64_t n : ss.faults)
        injected += n;
    std::printf("  faults injected   %" PRIu64 " of %" PRIu64 " requests:", injected, ss.requests);
    for (int k = 0; k < FaultRule::KindCount; ++k)
        std::printf(" %s %" PRIu64, faultKindName(FaultRule::Kind(k)), ss.faults[k]);
    std::printf("\n");
    long failed = 0;
    for (const auto &f : failures)
        failed += f.second;
    std::printf("  failures          %ld commands\n", failed);
    std::vector<std::pair<long, std::string>> sorted;
    for (const auto &f : failures)
        sorted.push_back({ f.second, f.first });
    std::sort(sorted.rbegin(), sorted.rend());
    for (const auto &f : sorted)
        std::printf("    %6ld  %s\n", f.first, f.second.c_str());
    std::printf("  refusals          %ld, none sent anything unless reported below\n", refusals);
    for (const auto &r : refusalTexts)
        std::printf("    %6ld  %s\n", r.second, r.first.c_str());
    std::printf("  by kind           commands / failed / wrong\n");
    for (const auto &o : byOp)
        std::printf("    %-22s %6ld %6ld %6ld\n", opName(o.first), o.second.commands, o.second.failed,
            o.second.wrong);
    std::printf("  WRONG VALUES      %ld\n", wrongValues);
    std::printf("  longest command   %.3f ms, its bound %.3f ms: %s\n", double(longestNs) / 1e6,
        double(longestBoundNs) / 1e6, longestCommand.c_str());
    std::printf("  closest to bound  %.3f ms of %.3f ms: %s\n", double(tightestNs) / 1e6,
        double(tightestBoundNs) / 1e6, tightestCommand.c_str());
    std::printf("  over bound        %ld (more than %.0f ms past the bound, beyond the machine's stall)\n",
        overBound, double(toleranceNs) / 1e6);
    if (overBoundInStall)
        std::printf("  in a stall        %ld past the bound while the machine stalled as long (longest stall "
                    "%.3f ms): not failures\n",
            overBoundInStall, double(longestStallNs) / 1e6);
    if (disagreements)
        std::printf("  DISAGREEMENTS     %ld (the driver did not do what the soak expects of a command)\n",
            disagreements);
    if (settleTimeouts)
        std::printf(
            "  note: %ld time(s) the drive did not take in every request within the wait; values re-read "
            "anyway\n",
            settleTimeouts);
    std::printf("%s\n",
        wrongValues || overBound || disagreements ? "FAILED"
                                                  : "passed: no wrong value, every command within its bound");
}

void Soak::printJson(double seconds)
{
    const SerialLink::Counters &lc = link.counters();
    const SimDrive::Stats ss = sim.stats();
    QJsonObject o;
    o["commands"] = double(settings.commands);
    o["reads"] = double(reads);
    o["writes"] = double(writes);
    o["refusals"] = double(refusals);
    o["seconds"] = seconds;
    o["seed"] = double(settings.seed);
    o["timeoutMs"] = settings.timeoutMs;
    o["retry"] = settings.retry;
    o["lateGuardMs"] = double(figures.guardNs) / 1e6;
    o["faultRate"] = settings.faultRate;
    o["requests"] = double(lc.requests);
    o["staleBytesDropped"] = double(lc.staleBytesDropped);
    QJsonObject faults;
    for (int k = 0; k < FaultRule::KindCount; ++k)
        faults[faultKindName(FaultRule::Kind(k))] = double(ss.faults[k]);
    o["faults"] = faults;
    QJsonObject fails;
    for (const auto &f : failures)
        fails[QString::fromStdString(f.first)] = double(f.second);
    o["failures"] = fails;
    o["wrongValues"] = double(wrongValues);
    o["overBound"] = double(overBound);
    o["overBoundInStall"] = double(overBoundInStall);
    o["longestStallMs"] = double(longestStallNs) / 1e6;
    o["disagreements"] = double(disagreements);
    o["longestMs"] = double(longestNs) / 1e6;
    o["longestBoundMs"] = double(longestBoundNs) / 1e6;
    o["longestCommand"] = QString::fromStdString(longestCommand);
    QJsonArray list;
    for (const Finding &f : findings) {
        QJsonObject item;
        item["command"] = double(f.index + 1);
        item["kind"] = QString::fromStdString(f.kind);
        item["text"] = QString::fromStdString(f.text);
        list.append(item);
    }
    o["findings"] = list;
    o["passed"] = wrongValues == 0 && overBound == 0 && disagreements == 0;
    std::printf("%s\n", QJsonDocument(o).toJson(QJsonDocument::Compact).constData());
}

} // namespace

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    Settings s;
    if (const int status = soakCommandLine(s).parse(argc, argv); status >= 0)
        return status;
    return Soak(s).run();
}
