#ifndef HOST_MONITOR_WORKER_H
#define HOST_MONITOR_WORKER_H

// The one object that talks to the line. It lives on its own thread and
// owns the driver host, the serial link and, without a port, the simulated
// drive; it runs every command, one at a time, and the window reaches it
// only through queued signals and slots. A poll cycle reads one tag per
// turn of the thread's event loop, so a write, a stop or a disconnect waits
// for one command at most.

#include "driverhost.h"
#include "monitortypes.h"
#include "seriallink.h"
#include "simdrive.h"
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
    // Writes to a tag what the window parsed and checked: its values, or for
    // a tag with a format the registers that hold them.
    void write(const PollTag &tag, const QVector<uint> &values);
    // Probes stations from..to with one read of address each.
    void startScan(int from, int to, const QString &address);
    void stopScan();
    // Adds a fault rule to the simulated drive.
    void addFault(const QString &rule);

signals:
    void driverLoaded(bool ok, const QString &error, const DriverDefaults &defaults);
    void opened(bool ok, const QString &message);
    void closed();
    void reading(const Reading &reading);
    void cycleDone();
    void written(int id, bool ok, const QString &error);
    void traffic(const QVector<TraceEvent> &events);
    void health(const HealthMap &health);
    void scanProgress(int done, int total, int answering);
    void scanFound(int station, bool answers, const QString &result);
    void scanFinished(int answering, bool stopped);
    void faultAdded(bool ok, const QString &message);

private:
    void pollNext();
    void scanNext();
    void flushTraffic();
    void emitHealth();
    void useStation(int station);

    DriverHost host;
    DriverInterface *driver = nullptr;
    SerialLink link;
    SimDrive sim;
    LinkOptions base; // the connection's options; commands change the station
    bool lineOpen = false;

    QVector<PollTag> tags;
    QTimer cycleTimer; // starts the next poll cycle
    bool polling = false;
    int intervalMs = 500;
    int nextTag = -1; // within a cycle: the tag to read next; -1 between cycles

    struct Scan
    {
        bool running = false;
        int from = 1, to = 247, station = 1, answering = 0;
        AddressText probe;
    } scan;

    QVector<TraceEvent> pending; // trace events not yet sent to the window
};

#endif // HOST_MONITOR_WORKER_H
