#ifndef HOST_MONITOR_WORKER_H
#define HOST_MONITOR_WORKER_H

// The one object that talks to the line. It lives on its own thread and
// owns one driver session (the plug-in, the serial link and, without a port,
// the simulated drive); it runs every command, one at a time, and the window
// reaches it only through queued signals and slots. A poll cycle (Poller)
// reads one tag per turn of the thread's event loop, so a write, a stop or a
// disconnect waits for one command at most; a station that stops answering
// is backed off as the poller says. A write is read back, and a value other
// than the one written is reported as a failed write.

#include "driversession.h"
#include "monitortypes.h"
#include "poller.h"
#include "traffic.h"

#include <QObject>
#include <QTimer>

class MonitorWorker : public QObject
{
    Q_OBJECT
public:
    explicit MonitorWorker(QObject *parent = nullptr);
    ~MonitorWorker() override;

public slots:
    // Loads the plug-in; answers with driverLoaded.
    void loadDriver(const QString &plugin);
    // Opens the line (starting the simulated drive without a port); answers
    // with opened.
    void open(const ConnectSettings &settings);
    void close();
    void setTags(const QVector<PollTag> &tags);
    void setPolling(bool on, int intervalMs);
    // Tags at most gap registers apart are read with one command; -1: each alone.
    void setMergeGap(int gap) { poller.setMergeGap(gap); }
    // Writes to a tag what the window parsed and checked: its values, or for
    // a tag with a format the registers that hold them.
    void write(const PollTag &tag, const QVector<uint> &values);
    // Probes stations from..to with one read of address each.
    void startScan(int from, int to, const QString &address);
    void stopScan();
    // Adds a fault rule to the simulated drive.
    void addFault(const QString &rule);
    // Reads the readable parameters of the job's map; answers with
    // paramsRead. Writes a restore's planned parameters and reads them back;
    // answers with paramsRestored.
    void readParams(const ParamJob &job);
    void restoreParams(const ParamJob &job);

signals:
    void driverLoaded(bool ok, const QString &error, const DriverDefaults &defaults);
    void opened(bool ok, const QString &message);
    void closed();
    void reading(const Reading &reading);
    void cycleDone(const CycleStatus &status);
    // ok: written and read back as written; else why not.
    void written(int id, bool ok, const QString &error);
    void traffic(const QVector<TraceEvent> &events);
    void health(const HealthMap &health);
    void scanProgress(int done, int total, int answering);
    void scanFound(int station, bool answers, const QString &result);
    // why: what ended the scan early, if anything did but the user.
    void scanFinished(int answering, bool stopped, const QString &why);
    void faultAdded(bool ok, const QString &message);
    void paramsRead(const ParamJob &job);
    void paramsRestored(const ParamJob &job);

private:
    void startCycle();
    void pollNext();
    void finishCycle();
    void abandonCycle();
    // A poller's sample of a tag as the window takes it.
    Reading readingOf(const PollTag &tag, const PollSample &sample) const;
    // Why a write read back is not what was written; empty when it is.
    QString readBackMismatch(const PollTag &tag, const QVector<uint> &values);
    void endScan(bool stopped, const QString &why);
    void scanNext();
    void flushTraffic();
    void emitHealth();
    void useStation(int station);
    // Whether a parameter job can use the line; else it is answered with why not.
    bool lineFree(ParamJob &job);

    SerialLink &link() { return drive.link(); }

    DriverSession drive;
    LinkOptions base; // the connection's options; commands change the station
    bool lineOpen = false;

    QVector<PollTag> tags;
    QTimer cycleTimer; // starts the next poll cycle
    // Reads a cycle's next tag: one timer, so that a cycle ended early and a
    // new one begun before its step ran never read side by side.
    QTimer stepTimer;
    // Probes a scan's next station; one timer, for the same reason: a scan
    // stopped and started again at once never probes two chains at a time.
    QTimer scanTimer;
    bool polling = false;
    int intervalMs = 500;
    Poller poller { drive }; // cycles since the line opened, each station's backoff

    struct Scan
    {
        bool running = false;
        int from = 1, to = 247, station = 1, answering = 0;
        AddressText probe;
    } scan;

    QVector<TraceEvent> pending; // trace events not yet sent to the window
};

#endif // HOST_MONITOR_WORKER_H
