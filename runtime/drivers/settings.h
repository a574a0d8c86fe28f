#ifndef SETTINGS_H
#define SETTINGS_H

#include "driversglobal.h"

#include <QDataStream>
#include <QList>
#include <QPair>
#include <QString>

// Kind of link. The runtime defines the values; the only one a driver uses
// is 16, the kind of its default serial link. The underlying type is fixed so
// that any value read from a stream is a valid value of the enumeration.
// A fixed underlying type needs C++11: it is the one piece of C++11 syntax
// in the shared headers, which are otherwise kept readable at C++98.
enum device_type : int { SerialDeviceType = 16 };

typedef QPair<QString, unsigned short> SocketEntry;
typedef QList<SocketEntry> SocketList;

// The physical link: kind, port string, line parameters, the link's id in
// the project database and a list of network endpoints with a cursor on the
// one in use.
class DRIVERS_EXPORT DeviceSetting
{
public:
    DeviceSetting(device_type type, QString string, int baudrate, int databits, int stopbits, int parity);
    DeviceSetting(device_type type, QString string, int baudrate, int databits, int stopbits, int parity,
        int extra, QString extraString);

    // Changes the cursor only to an index inside socketList.
    void setCurrentIPIndex(int index);
    // index -1 means the current entry; an index that names no entry gives
    // an empty text, or port 0.
    QString socketIP(int index) const;
    unsigned short port(int index) const;
    void setSocketIP(const QString &ip, int index);
    void setPort(unsigned short port, int index);
    // Replaces the endpoint list; port texts that are not decimal numbers
    // from 0 to 65535 give port 0. The cursor is left as it is.
    void setSocketData(const QList<QPair<QString, QString> > &data);

    void dump();

    device_type type;
    QString string;
    int baudrate;
    int databits;
    int stopbits;
    int parity;
    int extra;
    QString extraString;
    int linkID;
    int currentIPIndex;
    SocketList socketList;

private:
    const SocketEntry *entry(int index) const;
    SocketEntry *entry(int index);
};

// A driver's protocol settings.
class DRIVERS_EXPORT DriverSetting
{
public:
    DriverSetting(int timeout, int retry, int stationId, int delay);
    DriverSetting(
        int timeout, int retry, int stationId, int delay, const QString &text, unsigned short number);
    DriverSetting(int timeout, int retry, int stationId, int delay, const QString &text,
        unsigned short number, const QString &extraString, bool extraFlag);

    // Takes the four numbers and extraString; extraFlag keeps its value.
    void copy(const DriverSetting &other);
    void dump();

    int timeout;
    int retry;
    int stationId;
    int delay;
    QString extraString;
    bool extraFlag;
};

DRIVERS_EXPORT QDataStream &operator<<(QDataStream &s, const DriverSetting &d);
DRIVERS_EXPORT QDataStream &operator>>(QDataStream &s, DriverSetting &d);
DRIVERS_EXPORT QDataStream &operator<<(QDataStream &s, const DeviceSetting &d);
DRIVERS_EXPORT QDataStream &operator>>(QDataStream &s, DeviceSetting &d);
// Clears the list, reads the entry count, then entries until the count is
// reached or the stream is at its end after an entry.
DRIVERS_EXPORT QDataStream &operator>>(QDataStream &s, SocketList &list);

#endif // SETTINGS_H
