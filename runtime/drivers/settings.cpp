#include "settings.h"

#include <QDebug>

DeviceSetting::DeviceSetting(
    device_type type, QString string, int baudrate, int databits, int stopbits, int parity)
    : type(type)
    , string(string)
    , baudrate(baudrate)
    , databits(databits)
    , stopbits(stopbits)
    , parity(parity)
    , extra(0)
    , linkID(-1)
    , currentIPIndex(0)
{
}

DeviceSetting::DeviceSetting(device_type type, QString string, int baudrate, int databits, int stopbits,
    int parity, int extra, QString extraString)
    : type(type)
    , string(string)
    , baudrate(baudrate)
    , databits(databits)
    , stopbits(stopbits)
    , parity(parity)
    , extra(extra)
    , extraString(extraString)
    , linkID(-1)
    , currentIPIndex(0)
{
}

const SocketEntry *DeviceSetting::entry(int index) const
{
    if (index == -1)
        index = currentIPIndex;
    if (index < 0 || index >= socketList.size())
        return nullptr;
    return &socketList.at(index);
}

SocketEntry *DeviceSetting::entry(int index)
{
    if (index == -1)
        index = currentIPIndex;
    if (index < 0 || index >= socketList.size())
        return nullptr;
    return &socketList[index];
}

void DeviceSetting::setCurrentIPIndex(int index)
{
    if (index >= 0 && index < socketList.size())
        currentIPIndex = index;
}

QString DeviceSetting::socketIP(int index) const
{
    const SocketEntry *e = entry(index);
    return e ? e->first : QString();
}

unsigned short DeviceSetting::port(int index) const
{
    const SocketEntry *e = entry(index);
    return e ? e->second : 0;
}

void DeviceSetting::setSocketIP(const QString &ip, int index)
{
    if (SocketEntry *e = entry(index))
        e->first = ip;
}

void DeviceSetting::setPort(unsigned short port, int index)
{
    if (SocketEntry *e = entry(index))
        e->second = port;
}

void DeviceSetting::setSocketData(const QList<QPair<QString, QString>> &data)
{
    SocketList list;
    for (int i = 0; i < data.size(); ++i) {
        bool ok = false;
        unsigned short port = data.at(i).second.toUShort(&ok, 10);
        list.append(SocketEntry(data.at(i).first, ok ? port : 0));
    }
    socketList = list;
}

namespace {

// The line is built here rather than item by item on QDebug: Qt 5's QDebug
// quotes and escapes strings and drops the trailing blank, Qt 4's does
// neither, and the line must be the same under both.
QString quoted(const QString &text) { return QLatin1Char('"') + text + QLatin1Char('"'); }

void writeDebugLine(const QString &line) { QDebug(QtDebugMsg).nospace() << line.toLocal8Bit().constData(); }

} // namespace

void DeviceSetting::dump()
{
    QString line;
    line += QLatin1String("type: ") + QString::number(static_cast<uint>(type)) + QLatin1Char(' ');
    line += QLatin1String("string: ") + quoted(string) + QLatin1Char(' ');
    line += QLatin1String("baudrate: ") + QString::number(baudrate) + QLatin1Char(' ');
    line += QLatin1String("databits: ") + QString::number(databits) + QLatin1Char(' ');
    line += QLatin1String("stopbits: ") + QString::number(stopbits) + QLatin1Char(' ');
    line += QLatin1String("parity: ") + QString::number(parity) + QLatin1Char(' ');
    line += QLatin1String("linkID: ") + QString::number(linkID) + QLatin1Char(' ');
    line += QLatin1String("current ip: ") + quoted(socketIP(-1)) + QLatin1Char(' ');
    line += QLatin1String("current port: ") + QString::number(port(-1)) + QLatin1Char(' ');
    writeDebugLine(line);
}

DriverSetting::DriverSetting(int timeout, int retry, int stationId, int delay)
    : timeout(timeout)
    , retry(retry)
    , stationId(stationId)
    , delay(delay)
    , extraFlag(false)
{
}

DriverSetting::DriverSetting(
    int timeout, int retry, int stationId, int delay, const QString &, unsigned short)
    : timeout(timeout)
    , retry(retry)
    , stationId(stationId)
    , delay(delay)
    , extraFlag(false)
{
}

DriverSetting::DriverSetting(int timeout, int retry, int stationId, int delay, const QString &,
    unsigned short, const QString &extraString, bool extraFlag)
    : timeout(timeout)
    , retry(retry)
    , stationId(stationId)
    , delay(delay)
    , extraString(extraString)
    , extraFlag(extraFlag)
{
}

void DriverSetting::copy(const DriverSetting &other)
{
    timeout = other.timeout;
    retry = other.retry;
    stationId = other.stationId;
    delay = other.delay;
    extraString = other.extraString;
}

void DriverSetting::dump()
{
    QString line;
    line += QLatin1String("timeout: ") + QString::number(timeout) + QLatin1Char(' ');
    line += QLatin1String("retry: ") + QString::number(retry) + QLatin1Char(' ');
    line += QLatin1String("stationid: ") + QString::number(stationId) + QLatin1Char(' ');
    line += QLatin1String("delay: ") + QString::number(delay) + QLatin1Char(' ');
    writeDebugLine(line);
}

QDataStream &operator<<(QDataStream &s, const DriverSetting &d)
{
    s << qint32(d.timeout) << qint32(d.retry) << qint32(d.stationId) << qint32(d.delay);
    return s;
}

QDataStream &operator>>(QDataStream &s, DriverSetting &d)
{
    qint32 timeout = 0, retry = 0, stationId = 0, delay = 0;
    s >> timeout >> retry >> stationId >> delay;
    d.timeout = timeout;
    d.retry = retry;
    d.stationId = stationId;
    d.delay = delay;
    return s;
}

QDataStream &operator<<(QDataStream &s, const DeviceSetting &d)
{
    s << qint32(d.type) << d.string << qint32(d.baudrate) << qint32(d.databits) << qint32(d.stopbits)
      << qint32(d.parity) << qint32(d.extra) << qint32(d.linkID) << qint32(d.currentIPIndex);
    s << quint32(d.socketList.size());
    for (int i = 0; i < d.socketList.size(); ++i)
        s << d.socketList.at(i).first << quint16(d.socketList.at(i).second);
    return s;
}

QDataStream &operator>>(QDataStream &s, SocketList &list)
{
    // Written out rather than taken from Qt: Qt 5's list reader empties the
    // list when the stream runs short, while a short stream must yield the
    // entries it holds. Nothing is reserved up front, so a corrupt count
    // cannot make us allocate.
    list.clear();
    quint32 count = 0;
    s >> count;
    // An entry cut off by the end of the stream is not appended.
    for (quint32 i = 0; i < count && s.status() == QDataStream::Ok; ++i) {
        QString ip;
        quint16 port = 0;
        s >> ip >> port;
        if (s.status() != QDataStream::Ok)
            break;
        list.append(SocketEntry(ip, port));
        if (s.atEnd())
            break;
    }
    return s;
}

QDataStream &operator>>(QDataStream &s, DeviceSetting &d)
{
    qint32 type = 0, baudrate = 0, databits = 0, stopbits = 0, parity = 0, extra = 0, linkID = 0;
    QString string;
    s >> type >> string >> baudrate >> databits >> stopbits >> parity >> extra >> linkID;
    d.type = static_cast<device_type>(type);
    d.string = string;
    d.baudrate = baudrate;
    d.databits = databits;
    d.stopbits = stopbits;
    d.parity = parity;
    d.extra = extra;
    d.linkID = linkID;

    qint32 savedIndex = 0;
    s >> savedIndex;
    SocketList list;
    s >> list;
    d.socketList = list;
    d.setCurrentIPIndex(savedIndex);
    return s;
}
