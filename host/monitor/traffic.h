#ifndef HOST_MONITOR_TRAFFIC_H
#define HOST_MONITOR_TRAFFIC_H

// The serial link's trace events and per-station health, as queued signals
// carry them from the worker to the window.

#include "framedecoder.h"
#include "seriallink.h"
#include "traceevent.h"

#include <QMetaType>
#include <QVector>

#include <map>

using StationHealth = SerialLink::StationHealth;
using HealthMap = std::map<int, StationHealth>;

Q_DECLARE_METATYPE(TraceEvent)
Q_DECLARE_METATYPE(HealthMap)

#endif // HOST_MONITOR_TRAFFIC_H
