#include "worker.h"

#include "faultrule.h"
#include "formattedio.h"
#include "scanprobe.h"
#include "tagvalues.h"

#include <QDateTime>

void registerMonitorTypes()
{
    static const bool done = [] {
        qRegisterMetaType<PollTag>();
        qRegisterMetaType<Reading>();
        qRegisterMetaType<CycleStatus>();
        qRegisterMetaType<ConnectSettings>();
        qRegisterMetaType<DriverDefaults>();
        qRegisterMetaType<TraceEvent>();
        qRegisterMetaType<QVector<TraceEvent>>();
        qRegisterMetaType<QVector<PollTag>>();
        qRegisterMetaType<QVector<uint>>();
        qRegisterMetaType<HealthMap>();
        qRegisterMetaType<ParamJob>();
        return true;
    }();
    (void)done;
}

namespace {

std::vector<std::string> simFaults(const ConnectSettings &s)
{
    std::vector<std::string> faults;
    for (const QString &text : s.simFaults)
        faults.push_back(text.toStdString());
    return faults;
}

std::optional<std::string> simMap(const ConnectSettings &s)
{
    if (s.simMap.isEmpty())
        return std::nullopt;
    return s.simMap.toStdString();
}

// A tag as the poller reads it: at its own station, or the connection's.
Tag polledTag(const PollTag &t)
{
    Tag tag = t.tag;
    tag.station = t.station > 0 ? t.station : -1;
    return tag;
}

} // namespace

MonitorWorker::MonitorWorker(QObject *parent)
    : QObject(parent)
    , cycleTimer(this)
    , stepTimer(this)
    , scanTimer(this)
{
    stepTimer.setSingleShot(true);
    connect(&stepTimer, &QTimer::timeout, this, &MonitorWorker::pollNext);
    scanTimer.setSingleShot(true);
    connect(&scanTimer, &QTimer::timeout, this, &MonitorWorker::scanNext);
    cycleTimer.setSingleShot(true);
    cycleTimer.setTimerType(Qt::PreciseTimer);
    connect(&cycleTimer, &QTimer::timeout, this, [this] {
        if (!polling || !lineOpen)
            return;
        cycleTimer.start(intervalMs); // the next cycle is due one interval after this one began
        if (scan.running || poller.inCycle() || tags.isEmpty())
            return; // a cycle or a scan still runs: this one is skipped
        startCycle();
    });
}

MonitorWorker::~MonitorWorker() = default;

void MonitorWorker::loadDriver(const QString &plugin)
{
    std::string error;
    DriverDefaults d;
    LinkSettings settings;
    if (!drive.load(plugin.toStdString(), error)
        || !drive.defaults(std::nullopt, settings, d.options, error)) {
        drive.unload();
        emit driverLoaded(false, QString::fromStdString(error), d);
        return;
    }
    d.link = QString::fromStdString(settings.text());
    emit driverLoaded(true, QString(), d);
}

void MonitorWorker::open(const ConnectSettings &s)
{
    close();
    std::string error;
    auto fail = [this](const std::string &text) { emit opened(false, QString::fromStdString(text)); };
    if (!drive.driver())
        return fail("no driver loaded");
    LinkSettings settings;
    LinkOptions unused;
    if (!drive.defaults(s.link.toStdString(), settings, unused, error))
        return fail(error);
    base = s.options;
    const std::string port = s.port.toStdString();
    SimDrive::Options so;
    if (port.empty()
        && !DriverSession::simOptions(s.simStations.toStdString(), simFaults(s), simMap(s), so, error))
        return fail(error);
    if (!drive.connect(port, so, settings, base, error))
        return fail(error);
    link().setTraceSink([this](const TraceEvent &e) { pending.push_back(e); });
    lineOpen = true;
    poller.setOptions(base);
    poller.restart();
    const QString where = drive.sim().running()
        ? "simulated drive on " + QString::fromStdString(link().device())
        : QString::fromStdString(port);
    emit opened(true, where + ", " + QString::fromStdString(settings.text()));
    if (polling)
        cycleTimer.start(0);
}

void MonitorWorker::close()
{
    cycleTimer.stop();
    abandonCycle();
    if (scan.running) {
        scan.running = false;
        emit scanFinished(scan.answering, true, "the line closed");
    }
    if (!drive.close() && !lineOpen)
        return;
    lineOpen = false;
    pending.clear();
    emit closed();
}

void MonitorWorker::setTags(const QVector<PollTag> &list)
{
    tags = list;
    std::vector<Tag> polled;
    for (const PollTag &t : list)
        polled.push_back(polledTag(t));
    poller.setTags(std::move(polled));
}

void MonitorWorker::setPolling(bool on, int interval)
{
    polling = on;
    intervalMs = interval > 0 ? interval : 1;
    if (!on) {
        cycleTimer.stop();
        abandonCycle(); // no read after the one under way
    } else if (lineOpen) {
        cycleTimer.start(0); // while a cycle runs, the timer waits one interval
    }
}

void MonitorWorker::useStation(int station)
{
    link().options() = base;
    if (station > 0)
        link().options().station = station;
}

void MonitorWorker::startCycle()
{
    poller.beginCycle();
    pollNext();
}

Reading MonitorWorker::readingOf(const PollTag &t, const PollSample &s) const
{
    Reading r;
    r.id = t.id;
    r.revision = t.revision;
    r.latencyNs = s.latencyNs;
    r.ok = s.result.ok;
    if (r.ok)
        r.values = s.result.values;
    else
        r.error = QString::fromStdString(s.result.errorText);
    r.timeMs = s.wallMs;
    if (s.backedOff)
        r.backoff = QString("station %1 does not answer; read every %2th cycle")
                        .arg(s.station)
                        .arg(poller.backoff().everyCycles());
    return r;
}

void MonitorWorker::pollNext()
{
    PollSample sample;
    if (!lineOpen || !poller.inCycle()) {
        poller.abandonCycle();
        return;
    }
    if (!poller.next(sample))
        return finishCycle();
    const Reading r = readingOf(tags[int(sample.index)], sample);
    flushTraffic();
    emit reading(r);
    stepTimer.start(0);
}

void MonitorWorker::abandonCycle()
{
    stepTimer.stop();
    poller.abandonCycle();
}

void MonitorWorker::finishCycle()
{
    CycleStatus status;
    for (int station : poller.backoff().backedOffStations())
        status.backedOff.push_back(station);
    status.cycleMs = poller.endCycle() / 1000000;
    status.missed = status.cycleMs > intervalMs;
    emitHealth();
    emit cycleDone(status);
}

void MonitorWorker::write(const PollTag &t, const QVector<uint> &values)
{
    if (!lineOpen) {
        emit written(t.id, false, "not connected");
        return;
    }
    useStation(t.station);
    const DriverHost::Result result
        = drive.writeTag(t.tag, std::vector<uint32_t>(values.begin(), values.end()));
    const QString mismatch = result.ok ? readBackMismatch(t, values) : QString();
    flushTraffic();
    emitHealth();
    if (!result.ok)
        emit written(t.id, false, QString::fromStdString(result.errorText));
    else
        emit written(t.id, mismatch.isEmpty(), mismatch);
}

QString MonitorWorker::readBackMismatch(const PollTag &t, const QVector<uint> &values)
{
    const Reading back = readingOf(t, poller.read(polledTag(t)));
    emit reading(back);
    if (!back.ok)
        return "written, but the read-back failed: " + back.error;
    QStringList shown;
    for (const std::string &v : back.values)
        shown << QString::fromStdString(v);
    std::vector<uint32_t> words;
    std::string error;
    if (parseWriteValues(shown.join(' ').toStdString(), t.tag, words, error)
        && QVector<uint>(words.begin(), words.end()) == values)
        return QString();
    return "written, but the drive reads back " + shown.join(' ');
}

void MonitorWorker::startScan(int from, int to, const QString &address)
{
    std::string error;
    if (!lineOpen || scan.running
        || !checkScanRange(from, to, address.toStdString(), false, scan.probe, error)) {
        emit scanFinished(0, true, lineOpen ? QString::fromStdString(error) : "not connected");
        return;
    }
    scan.running = true;
    scan.from = from;
    scan.to = to;
    scan.station = from;
    scan.answering = 0;
    abandonCycle(); // the scan holds the line from its first probe on
    scanTimer.start(0);
}

void MonitorWorker::stopScan()
{
    if (scan.running)
        endScan(true, QString());
}

void MonitorWorker::endScan(bool stopped, const QString &why)
{
    scan.running = false;
    scanTimer.stop();
    emitHealth();
    emit scanFinished(scan.answering, stopped, why);
    if (polling && lineOpen)
        cycleTimer.start(0);
}

void MonitorWorker::scanNext()
{
    if (!scan.running || !lineOpen)
        return;
    link().options() = base;
    link().options().station = scan.station;
    link().options().timeoutMs = scanTimeoutMs;
    link().options().retry = scanRetry;
    const DriverHost::Result result = drive.host().read(link(), scan.probe, defaultType(scan.probe), 1);
    flushTraffic();
    const ScanVerdict v = judgeScanProbe(result);
    if (v.heard)
        emit scanFound(scan.station, v.answers, QString::fromStdString(v.text));
    scan.answering += v.answers ? 1 : 0;
    emit scanProgress(scan.station - scan.from + 1, scan.to - scan.from + 1, scan.answering);
    if (++scan.station <= scan.to) {
        scanTimer.start(0);
        return;
    }
    endScan(false, QString());
}

void MonitorWorker::addFault(const QString &text)
{
    FaultRule rule;
    std::string error;
    if (!drive.sim().running()) {
        emit faultAdded(false, "faults go to the simulated drive, which runs only without a port");
        return;
    }
    if (!FaultRule::parse(text.toStdString(), rule, error)) {
        emit faultAdded(false, QString::fromStdString(error));
        return;
    }
    drive.sim().addFault(rule);
    emit faultAdded(true, "fault " + QString::fromStdString(rule.text()) + " added to the simulated drive");
}

void MonitorWorker::emitHealth() { emit health(link().health()); }

void MonitorWorker::flushTraffic()
{
    if (pending.isEmpty())
        return;
    emit traffic(pending);
    pending.clear();
}

bool MonitorWorker::lineFree(ParamJob &job)
{
    if (!lineOpen)
        job.error = "not connected";
    else if (scan.running)
        job.error = "a scan holds the line";
    else if (!job.map)
        job.error = "no parameters to read";
    return job.error.isEmpty();
}

void MonitorWorker::readParams(const ParamJob &request)
{
    ParamJob job = request;
    if (lineFree(job)) {
        std::vector<const Parameter *> readable;
        for (const Parameter &p : job.map->parameters)
            if (p.readable())
                readable.push_back(&p);
        useStation(job.station);
        job.station = link().options().station;
        job.readings = readParameters(drive, job.station, readable);
        job.driverVersion = drive.driver()->getVersionNumber();
        flushTraffic();
        emitHealth();
    }
    emit paramsRead(job);
}

void MonitorWorker::restoreParams(const ParamJob &request)
{
    ParamJob job = request;
    if (lineFree(job)) {
        useStation(job.station);
        job.station = link().options().station;
        job.outcomes = restoreParameters(drive, job.station, job.writes, false);
        flushTraffic();
        emitHealth();
    }
    emit paramsRestored(job);
}
