#include "trafficlistener.h"

#include "optiontable.h"

TrafficListener::TrafficListener(QObject *parent)
    : QObject(parent)
{
    timer.setInterval(20);
    connect(&timer, &QTimer::timeout, this, &TrafficListener::step);
}

TrafficListener::~TrafficListener() { stop(); }

bool TrafficListener::start(const QString &device, const QString &link, int replyWindowMs, QString &error)
{
    stop();
    LinkSettings settings;
    std::string why;
    if (device.isEmpty())
        why = "listening needs a serial port";
    else if (!link.trimmed().isEmpty())
        parseRtuLink(link.trimmed().toStdString(), settings, why);
    SniffListener::Options options;
    options.replyWindowMs = replyWindowMs;
    auto opened = std::make_unique<SniffListener>(options);
    if (why.empty())
        opened->open(device.toStdString(), settings, why);
    if (!why.empty()) {
        error = QString::fromStdString(why);
        return false;
    }
    listener = std::move(opened);
    timer.start();
    return true;
}

void TrafficListener::stop()
{
    if (!listener)
        return;
    timer.stop();
    std::vector<SniffEvent> events;
    listener->finish(events);
    pass(events);
    listener.reset();
}

void TrafficListener::step()
{
    std::vector<SniffEvent> events;
    const bool up = listener->listen(0, events);
    pass(events);
    if (!up) {
        stop();
        emit lost("the port went away");
    }
}

void TrafficListener::pass(const std::vector<SniffEvent> &events)
{
    if (events.empty())
        return;
    QVector<TraceEvent> trace;
    for (const SniffEvent &e : events)
        trace += traceEvents(e, listener->originNs());
    emit traffic(trace);
    HealthMap map;
    for (const auto &entry : listener->sniffer().stations()) {
        StationHealth &h = map[entry.first];
        h.requests = uint64_t(entry.second.requests);
        h.timeOuts = uint64_t(entry.second.noAnswer);
        h.crcErrors = uint64_t(entry.second.badFrames);
        h.exceptions = uint64_t(entry.second.exceptions);
    }
    emit health(map);
}

QVector<TraceEvent> TrafficListener::traceEvents(const SniffEvent &e, int64_t originNs)
{
    auto frame = [&](TraceEvent::Kind kind, const BusFrame &f, const std::string &note) {
        TraceEvent t;
        t.kind = kind;
        t.timeNs = f.endNs;
        t.sinceOpenNs = f.endNs - originNs;
        t.station = e.station;
        t.bytes = f.bytes;
        t.note = note;
        if (kind != TraceEvent::Kind::Sent && !e.request.bytes.empty())
            t.sinceRequestNs = f.startNs - e.request.endNs;
        return t;
    };
    QVector<TraceEvent> out;
    if (!e.request.bytes.empty())
        out << frame(TraceEvent::Kind::Sent, e.request, std::string());
    switch (e.kind) {
    case SniffEvent::NoAnswer:
        out << frame(TraceEvent::Kind::TimeOut, e.request, "no answer");
        out.back().bytes.clear();
        out.back().sinceRequestNs = -1;
        break;
    case SniffEvent::StrayReply:
        out << frame(TraceEvent::Kind::Late, e.reply, "no request of its station and function before it");
        break;
    case SniffEvent::Garbage:
        out << frame(TraceEvent::Kind::Stale, e.reply, "garbage");
        break;
    case SniffEvent::BadFrame:
        out << frame(TraceEvent::Kind::Received, e.reply,
            e.reply.kind == BusFrame::Truncated ? "cut short" : std::string());
        break;
    case SniffEvent::Answered:
    case SniffEvent::Exception:
        out << frame(TraceEvent::Kind::Received, e.reply, std::string());
        break;
    case SniffEvent::Broadcast:
        break;
    }
    return out;
}
