#ifndef HOST_MONITOR_TRAFFICLISTENER_H
#define HOST_MONITOR_TRAFFICLISTENER_H

// The traffic view's listen-only mode: a port opened and never written,
// its bus made out by the host library's listener (snifflistener.h), each
// request and reply handed on as the trace events the traffic view shows
// (a request as sent, a reply as received with its turnaround, a request
// without an answer as a time-out, garbage as stale bytes), and the
// figures per station as link health.

#include "snifflistener.h"
#include "traffic.h"

#include <QObject>
#include <QTimer>

#include <memory>

class TrafficListener : public QObject
{
    Q_OBJECT
public:
    explicit TrafficListener(QObject *parent = nullptr);
    ~TrafficListener() override;

    // Opens device at link; false with one sentence in error. replyWindowMs:
    // the master's time-out.
    bool start(const QString &device, const QString &link, int replyWindowMs, QString &error);
    void stop();
    bool listening() const { return bool(listener); }

    // The trace events that show one sniff event.
    static QVector<TraceEvent> traceEvents(const SniffEvent &event, int64_t originNs);

signals:
    void traffic(const QVector<TraceEvent> &events);
    void health(const HealthMap &health);
    // The device went away.
    void lost(const QString &why);

private:
    void step();
    void pass(const std::vector<SniffEvent> &events);

    std::unique_ptr<SniffListener> listener;
    QTimer timer;
};

#endif // HOST_MONITOR_TRAFFICLISTENER_H
