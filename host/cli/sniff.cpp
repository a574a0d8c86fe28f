#include "session.h"

#include "optiontable.h"
#include "output.h"
#include "snifflistener.h"
#include "terminal.h"
#include "textfile.h"

#include <csignal>
#include <cstdio>

namespace {

volatile std::sig_atomic_t terminated = 0;

void onTerminate(int) { terminated = 1; }

// While it lives, SIGTERM ends listening as Ctrl-C does, with the figures.
class TerminateScope
{
public:
    TerminateScope()
    {
        terminated = 0;
        struct sigaction action = {};
        action.sa_handler = onTerminate;
        sigemptyset(&action.sa_mask);
        sigaction(SIGTERM, &action, &previous);
    }
    ~TerminateScope() { sigaction(SIGTERM, &previous, nullptr); }
    TerminateScope(const TerminateScope &) = delete;
    TerminateScope &operator=(const TerminateScope &) = delete;

private:
    struct sigaction previous;
};

// One sniff under way: events shown, and written to the log.
struct SniffRun
{
    const SniffCommand &c;
    Output &out;
    SniffListener &listener;
    FILE *log = nullptr;
    int64_t requests = 0;
    bool logFailed = false;

    void show(const std::vector<SniffEvent> &events)
    {
        for (const SniffEvent &e : events) {
            write(out.sniffEvent(e, listener.originNs()));
            requests += e.kind == SniffEvent::Answered || e.kind == SniffEvent::Exception
                || e.kind == SniffEvent::NoAnswer || e.kind == SniffEvent::Broadcast;
        }
    }
    void write(const std::string &text)
    {
        if (log && std::fputs(text.c_str(), log) < 0)
            logFailed = true;
    }
    bool done(int64_t startNs) const
    {
        return InterruptScope::interrupted() || terminated || logFailed || (c.count && requests >= c.count)
            || (c.durationS > 0 && double(monotonicNs() - startNs) / 1e9 >= c.durationS);
    }
};

} // namespace

int Session::run(const Command &c, const SniffCommand &s)
{
    LinkSettings line;
    std::string error;
    if (session.link && !parseRtuLink(*session.link, line, error))
        return usage(error);
    SniffListener::Options options;
    options.replyWindowMs = s.replyWindowMs;
    std::string logError;
    FILE *log = s.log ? createTextFile(*s.log, logError) : nullptr;
    if (s.log && !log)
        return usage("cannot write the log to " + *s.log + ": " + logError);
    SniffListener listener(options);
    if (!listener.open(*session.port, line, error)) {
        if (log)
            std::fclose(log);
        return usage(error + permissionHint(*session.port));
    }
    note("listening on " + *session.port + " at " + line.text() + ", sending nothing; Ctrl-C ends it");
    InterruptScope interrupt;
    TerminateScope terminate;
    SniffRun run { s, Output::choose(c.options.json), listener, log };
    std::vector<SniffEvent> events;
    bool lineUp = true;
    while (lineUp && !run.done(listener.originNs())) {
        lineUp = listener.listen(20, events);
        run.show(events);
        events.clear();
    }
    listener.finish(events);
    run.show(events);
    run.write(run.out.sniffDone(listener.sniffer(), double(monotonicNs() - listener.originNs()) / 1e9));
    if (log && std::fclose(log) != 0)
        run.logFailed = true;
    if (run.logFailed)
        std::fprintf(stderr, "teco-cli: could not write the log %s\n", s.log->c_str());
    if (!lineUp)
        std::fprintf(stderr, "teco-cli: %s went away\n", session.port->c_str());
    return run.logFailed || !lineUp ? ExitFailed : ExitOk;
}
