#include "session.h"

#include "errorkind.h"
#include "formattedio.h"
#include "framedecoder.h"
#include "installation.h"
#include "output.h"

#include <cerrno>
#include <unistd.h>

Session::Session(const CliOptions &sessionOptions)
    : session(sessionOptions)
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

int Session::failure(const Command &c, const std::string &text)
{
    Output::forCommand(c).failed(c, text, lineReport()); // a read or write that failed on the line
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

int Session::loadDriver()
{
    const std::string path = session.plugin ? *session.plugin : defaultPluginPath();
    std::string error;
    if (!drive.load(path, error))
        return usage(error);
    // The driver's own defaults, as a new panel project would take them.
    if (!drive.defaults(session.link, settings, defaults, error))
        return usage(error);
    overrideLinkOptions(session, defaults);
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
        // A poll that ended while the device was gone left the line closed.
        std::string ignored;
        if (!drive.isOpen())
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

void Session::overrideLinkOptions(const CliOptions &o, LinkOptions &l)
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

void Session::applyLinkOptions(const CliOptions &o)
{
    link().options() = defaults;
    overrideLinkOptions(o, link().options());
}

int Session::run(const Command &c)
{
    switch (c.kind) {
    case CommandKind::Info:
        return info(c);
    case CommandKind::Decode:
        Output::forCommand(c).decoded(c.argument, decodeAnyFrame(c.argument));
        return ExitOk;
    case CommandKind::Batch:
        return batch(c);
    case CommandKind::Shell:
        return shell(c);
    default:
        return runOnLine(c);
    }
}

int Session::runOnLine(const Command &c)
{
    const bool poll = c.kind == CommandKind::Poll;
    // The log is created before the line opens: a refused path sends nothing.
    std::string error;
    if (poll && c.options.log && !pollLog.open(*c.options.log, c.options.json, error))
        return usage("cannot write the log to " + *c.options.log + ": " + error);
    const int opened = openLine();
    if (opened != ExitOk)
        return opened;
    applyLinkOptions(c.options);
    if (link().options().station == 0
        && (poll || c.kind == CommandKind::Read || c.kind == CommandKind::Write))
        note("note: station 0 is the broadcast address, which no drive answers: drives that take "
             "broadcasts carry out a write, but the driver waits for an answer and reports \"PLC no "
             "response\" after its retries, and a read always fails so");
    switch (c.kind) {
    case CommandKind::Read:
        return read(c);
    case CommandKind::Write:
        return write(c);
    case CommandKind::Poll:
        return this->poll(c);
    case CommandKind::Scan:
        return scan(c);
    default:
        return usage("unknown command \"" + c.name + "\"");
    }
}

int Session::info(const Command &c)
{
    Output::forCommand(c).info(*drive.driver());
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

int Session::read(const Command &c)
{
    const Tag &t = c.target;
    noteWindow(t);
    healthBefore = link().totalHealth();
    if (t.format) {
        const FormattedResult r = readFormatted(host(), link(), t.address, *t.format, t.count);
        if (!r.ok)
            return failure(c, r.errorText);
        Output::forCommand(c).formattedReadDone(
            t, link().options().station, r, lineReport(r.answeredMs, r.requestsSent));
        return ExitOk;
    }
    const DriverHost::Result r = host().read(link(), t.address, t.type, t.count);
    if (!r.ok)
        return failure(c, r.errorText);
    Output::forCommand(c).readDone(
        t, link().options().station, r.elements, lineReport(r.answeredMs, r.requestsSent));
    return ExitOk;
}

int Session::write(const Command &c)
{
    const Tag &t = c.target;
    healthBefore = link().totalHealth();
    if (t.format) {
        const DriverHost::Result r = writeRegisters(host(), link(), t.address, c.write.registers);
        if (!r.ok)
            return failure(c, r.errorText);
        Output::forCommand(c).formattedWriteDone(t, link().options().station, c.write.texts,
            c.write.registers.size(), lineReport(r.answeredMs, r.requestsSent));
        return ExitOk;
    }
    const DriverHost::Result r = host().write(link(), t.address, t.type, c.write.values);
    if (!r.ok)
        return failure(c, r.errorText);
    Output::forCommand(c).writeDone(
        t, link().options().station, c.write.values, lineReport(r.answeredMs, r.requestsSent));
    return ExitOk;
}
