#ifndef HOST_MONITOR_MONITORTYPES_H
#define HOST_MONITOR_MONITORTYPES_H

// What the window and the worker that owns the line hand each other, always
// by value through queued signals.

#include "paramset.h"
#include "seriallink.h"
#include "tag.h"

#include <QMetaType>
#include <QString>
#include <QStringList>
#include <QVector>

#include <cstdint>
#include <memory>
#include <vector>

// A tag as the worker polls it: the tag and the station asked.
struct PollTag
{
    int id = 0;
    Tag tag;
    int station = 0; // 0: the connection's station
    int revision = 0; // changes with the station: readings of an older one are dropped
};

// One read of one tag.
struct Reading
{
    int id = 0;
    int revision = 0; // the tag's when it was read
    bool ok = false;
    std::vector<std::string> values; // one text per value of the tag (in its format), when ok
    QString error; // the driver's text, when not ok
    // Why the tag's station is read only now and then ("station 9 does not
    // answer; read every 10th cycle"); empty while it answers.
    QString backoff;
    qint64 timeMs = 0; // wall clock, ms since the epoch: when the answer was in (when it failed, without one)
    qint64 latencyNs = 0;
};

// How a poll cycle went: the stations read only now and then, and whether
// the cycle took longer than the interval asked for.
struct CycleStatus
{
    QVector<int> backedOff; // ascending
    qint64 cycleMs = 0; // from the cycle's start to its last read
    bool missed = false; // cycleMs exceeded the interval
};

// What the connection panel asks for.
struct ConnectSettings
{
    QString port; // empty: the simulated drive on a pseudo-terminal
    QString link; // "RS485,9600,NONE,8,2"
    LinkOptions options;
    QString simStations = "1,2,3";
    QStringList simFaults;
    QString simMap; // a map file; empty: the built-in map
};

// The driver's defaults, as a new panel project takes them.
struct DriverDefaults
{
    QString link;
    LinkOptions options;
};

// A parameter job of the Parameters view: the worker reads the map's
// readable parameters (a backup, or the drive's side of a compare or a
// restore), or writes a restore's planned parameters and reads them back.
// The map travels with the job, so that the readings' and writes'
// parameters stay valid on both threads.
struct ParamJob
{
    enum Kind { Backup, Compare, Restore };
    Kind kind = Backup;
    std::shared_ptr<const ParameterMap> map;
    QString path; // the file backed up to, compared or restored
    int station = 0; // asked: 0 for the connection's; answered: the one read
    std::vector<ParamReading> readings;
    std::vector<ParamWrite> writes; // a restore's, once the user agreed
    std::vector<RestoreOutcome> outcomes;
    QString driverVersion; // of the driver that read
    QString error; // why nothing was read or written ("not connected")
};

Q_DECLARE_METATYPE(PollTag)
Q_DECLARE_METATYPE(Reading)
Q_DECLARE_METATYPE(CycleStatus)
Q_DECLARE_METATYPE(ConnectSettings)
Q_DECLARE_METATYPE(DriverDefaults)
Q_DECLARE_METATYPE(ParamJob)

// Registers the types above (and the trace's) for queued connections; once.
void registerMonitorTypes();

#endif // HOST_MONITOR_MONITORTYPES_H
