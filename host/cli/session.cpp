#include "session.h"

#include "errorkind.h"
#include "formattedio.h"
#include "framedecoder.h"
#include "installation.h"
#include "output.h"
#include "registermap.h"

#include <cerrno>
#include <unistd.h>

Session::Session(const SessionOptions &sessionOptions, const CommandOptions &lines)
    : session(sessionOptions)
    , lineDefaults(lines)
{
}

Session::~Session() = default;

int Session::usage(const std::string &text)
{
    std::fprintf(stderr, "teco-cli: %s\n", text.c_str());
    return ExitUsage;
}

void Session::note(const std::string &text)
{
    if (!session.quiet)
        std::fprintf(stderr, "teco-cli: %s\n", text.c_str());
}

int Session::failure(const Command &c, const Tag &target, const std::string &text)
{
    Output::choose(c.options.json).failed(c.name(), target, text, lineReport());
    // An exception code is shown with its Modbus name as well.
    const DriverError e = classifyDriverError(text);
    const char *name = e.kind == ErrorKind::Exception ? exceptionName(e.exceptionCode) : nullptr;
    std::fprintf(
        stderr, "teco-cli: %s%s%s%s\n", text.c_str(), name ? " [" : "", name ? name : "", name ? "]" : "");
    // Everything fails at once on a device that went away: say so, not only
    // that the drive is silent.
    const bool gone = link().deviceGone() || !link().isOpen();
    if (gone)
        std::fprintf(stderr, "teco-cli: %s\n", drive.deviceGoneText().c_str());
    // Retries are worth a line of their own: the text names only the last attempt's fault.
    const SerialLink::StationHealth during = link().totalHealth() - healthBefore;
    if (during.requests > 1)
        note("on the line: " + healthText(during, true));
    // Silence to every attempt: most often the line is set up unlike the drive.
    if (e.kind == ErrorKind::TimeOut && during.requests > 0 && during.timeOuts == during.requests && !gone)
        note("no answer to " + std::to_string(during.requests) + " request"
            + (during.requests == 1 ? "" : "s") + ": check that the drive is station "
            + std::to_string(link().options().station) + " and set to " + link().settings().text()
            + " (baud rate, parity, stop bits), and its wiring");
    return ExitFailed;
}

std::string Session::permissionHint(const std::string &port)
{
    if (::access(port.c_str(), R_OK | W_OK) == 0 || errno != EACCES)
        return std::string();
    return " (serial devices usually belong to the group dialout: sudo usermod -aG dialout $USER, then log "
           "in again)";
}

int Session::loadMap()
{
    std::string error;
    if (session.map) {
        if (!loadParameterMap(*session.map, paramMap, error))
            return usage(error);
    } else if (!session.port && !session.simMap) {
        // The simulated drive's own parameters, as teco-sim serves them.
        if (!parseParameterMap(builtinServoMap(), paramMap, error))
            return usage("the built-in map: " + error);
        paramMap.builtIn = true;
    } else {
        return ExitOk;
    }
    mapLoaded = true;
    return ExitOk;
}

int Session::loadDriver()
{
    const std::string path = session.plugin ? *session.plugin : defaultPluginPath();
    std::string error;
    if (!drive.load(path, error))
        return usage(error);
    // The driver's own defaults, as a new panel project would take them.
    if (!drive.defaults(session.link, settings, defaults, error))
        return usage(error);
    overrideLinkOptions(lineDefaults, defaults);
    defaults.silence = !session.noSilence;
    defaults.rs485 = session.rs485;
    defaults.localEcho = session.localEcho;
    return ExitOk;
}

int Session::simOptions(SimDrive::Options &so)
{
    if (session.port) {
        if (!session.simFaults.empty() || session.simMap || session.simStations)
            return usage("the --sim-... options are for the simulated drive, which runs only without --port");
        return ExitOk;
    }
    std::string error;
    if (!DriverSession::simOptions(session.simStations, session.simFaults, session.simMap, so, error))
        return usage(error);
    return ExitOk;
}

int Session::startTrace()
{
    TraceFormat traceFormat = TraceFormat::Decoded;
    if (session.traceFormat)
        parseTraceFormat(*session.traceFormat, traceFormat);
    std::string error;
    if (session.trace && !link().setTrace(*session.trace, error, traceFormat))
        return usage(error);
    return ExitOk;
}

int Session::openLine()
{
    if (lineOpen) {
        // A poll that ended while the device was gone left the line closed;
        // a connection lost during the last command is made anew.
        std::string ignored;
        if (!drive.isOpen() || drive.deviceGone())
            drive.reopen(ignored);
        return ExitOk;
    }
    // Every file named on the command line is checked before anything
    // starts: a bad map leaves no trace file behind, a bad trace path starts
    // no simulated drive.
    SimDrive::Options so;
    int status = simOptions(so);
    if (status == ExitOk)
        status = startTrace();
    if (status != ExitOk)
        return status;
    const std::string port = session.port ? *session.port : std::string();
    std::string error;
    if (!drive.connect(port, so, settings, defaults, error))
        return usage(error + (port.empty() ? std::string() : permissionHint(port)));
    if (port.empty()) {
        std::string stations;
        for (int s : so.stations)
            stations += (stations.empty() ? "" : ",") + std::to_string(s);
        note("no --port given: talking to the simulated drive on " + drive.sim().devicePath() + " (stations "
            + stations + ")");
    }
    lineOpen = true;
    return ExitOk;
}

void Session::overrideLinkOptions(const CommandOptions &o, LinkOptions &l)
{
    if (o.station)
        l.station = *o.station;
    if (o.timeout)
        l.timeoutMs = *o.timeout;
    if (o.retry)
        l.retry = *o.retry;
    if (o.delay)
        l.delayMs = (unsigned long)*o.delay;
    if (o.lateGuard)
        l.lateGuardMs = *o.lateGuard;
}

void Session::applyLinkOptions(const CommandOptions &o)
{
    link().options() = defaults;
    overrideLinkOptions(o, link().options());
}

int Session::run(const Command &c)
{
    return std::visit([&](const auto &kind) { return run(c, kind); }, c.kind);
}

int Session::openLineFor(const Command &c, bool toStation)
{
    const int opened = openLine();
    if (opened != ExitOk)
        return opened;
    applyLinkOptions(c.options);
    if (toStation && link().options().station == 0)
        note("note: station 0 is the broadcast address, which no drive answers: drives that take "
             "broadcasts carry out a write, but the driver waits for an answer and reports \"PLC no "
             "response\" after its retries, and a read always fails so");
    return ExitOk;
}

int Session::run(const Command &c, const InfoCommand &)
{
    Output::choose(c.options.json).info(*drive.driver());
    return ExitOk;
}

int Session::run(const Command &c, const DecodeCommand &d)
{
    Output::choose(c.options.json).decoded(d.bytes, decodeAnyFrame(d.bytes));
    return ExitOk;
}

LineReport Session::lineReport(int64_t answeredMs, int64_t requestsSent)
{
    LineReport line;
    line.health = drive.totalHealth() - healthBefore;
    line.answeredMs = answeredMs;
    line.requestsSent = requestsSent;
    return line;
}

void Session::noteWindow(const Tag &t)
{
    int registers = t.count;
    std::string ignored;
    if (t.format && !formattedRegisterCount(t.address, *t.format, t.count, registers, ignored))
        return;
    const ValueType type = t.format ? ValueType::Word : t.type;
    if (readPassesDriverWindow(t.address, type, registers)) // a warning: shown even with --quiet
        std::fprintf(stderr,
            "teco-cli: note: this read of %s goes to the drive: the driver serves HR60000 to HR60010 "
            "itself only to word reads that begin there\n",
            t.text.empty() ? t.address.text().c_str() : t.text.c_str());
}

int Session::readNamed(const Command &c, const ReadCommand &r)
{
    const Tag &t = r.target;
    healthBefore = link().totalHealth();
    const FormattedResult f = drive.readTag(t);
    if (!f.ok)
        return failure(c, t, f.errorText);
    std::string value, error;
    if (f.values.size() != 1 || !engineeringValue(*r.param, f.values[0], value, error))
        return failure(c, t, f.values.size() != 1 ? "the read gave no single value" : error);
    Output &out = Output::choose(c.options.json);
    out.setNamed(r.param, value);
    const LineReport line = lineReport(f.answeredMs, f.requestsSent);
    if (t.format) {
        out.formattedReadDone(t, link().options().station, f, line);
        return ExitOk;
    }
    Element e;
    e.address = f.addresses.empty() ? t.address.text() : f.addresses[0];
    e.value = uint32_t(std::stoul(f.values[0]));
    out.readDone(t, link().options().station, { e }, line);
    return ExitOk;
}

int Session::run(const Command &c, const ReadCommand &r)
{
    const int opened = openLineFor(c, true);
    if (opened != ExitOk)
        return opened;
    if (r.param)
        return readNamed(c, r);
    const Tag &t = r.target;
    noteWindow(t);
    healthBefore = link().totalHealth();
    Output &out = Output::choose(c.options.json);
    if (t.format) {
        const FormattedResult f = readFormatted(host(), link(), t.address, *t.format, t.count);
        if (!f.ok)
            return failure(c, t, f.errorText);
        out.formattedReadDone(t, link().options().station, f, lineReport(f.answeredMs, f.requestsSent));
        return ExitOk;
    }
    const DriverHost::Result d = host().read(link(), t.address, t.type, t.count);
    if (!d.ok)
        return failure(c, t, d.errorText);
    out.readDone(t, link().options().station, d.elements, lineReport(d.answeredMs, d.requestsSent));
    return ExitOk;
}

int Session::run(const Command &c, const WriteCommand &w)
{
    const int opened = openLineFor(c, true);
    if (opened != ExitOk)
        return opened;
    const Tag &t = w.target;
    healthBefore = link().totalHealth();
    Output &out = Output::choose(c.options.json);
    if (w.param)
        out.setNamed(w.param, w.engineering, w.raw);
    if (t.format) {
        const DriverHost::Result r = writeRegisters(host(), link(), t.address, w.write.registers);
        if (!r.ok)
            return failure(c, t, r.errorText);
        out.formattedWriteDone(t, link().options().station, w.write.texts, w.write.registers.size(),
            lineReport(r.answeredMs, r.requestsSent));
        return ExitOk;
    }
    const DriverHost::Result r = host().write(link(), t.address, t.type, w.write.values);
    if (!r.ok)
        return failure(c, t, r.errorText);
    out.writeDone(t, link().options().station, w.write.values, lineReport(r.answeredMs, r.requestsSent));
    return ExitOk;
}
