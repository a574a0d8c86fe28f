#ifndef DRIVERSGLOBAL_H
#define DRIVERSGLOBAL_H

#include <QtGlobal>

// The library is built with hidden symbol visibility; this marks what it
// hands to the runtime and to other drivers: the plug-in entry points, the
// toolkit and the settings records.
#define DRIVERS_EXPORT Q_DECL_EXPORT

#endif // DRIVERSGLOBAL_H
