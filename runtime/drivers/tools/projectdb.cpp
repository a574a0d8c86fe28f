// Look-ups in the compiled project's database and the parsing of device and
// address strings.

#include "tools.h"

#include "qtcompat.h"

#include <QCoreApplication>
#include <QSqlDatabase>
#include <QSqlQuery>
#include <QVariant>

namespace {

// The compiled project beside the executable, and its database directory.
const QString COMPILE_PATH("compile");
const QString DATABASE_PATH("database");
const char databaseFileName[] = "database";

const int ethernetPort = 2000;
const int serialPortBase = 999;

bool isAsciiDigit(ushort c) { return c >= '0' && c <= '9'; }

bool isAsciiLetterOrUnderscore(unsigned char c)
{
    return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || c == '_';
}

// Whether c can begin a number in base (10, 16 or 8).
bool beginsNumber(unsigned char c, int base)
{
    switch (base) {
    case 8:
        return c >= '0' && c <= '7';
    case 16:
        return isAsciiDigit(c) || (c >= 'A' && c <= 'F') || (c >= 'a' && c <= 'f');
    default:
        return isAsciiDigit(c);
    }
}

unsigned char lowByte(const QVariant &value) { return static_cast<unsigned char>(value.toUInt() & 0xFF); }

// Every value reaches the database as a bound parameter, never as SQL text.
QSqlQuery runQuery(const QString &connection, const char *sql, const QVariantList &values)
{
    QSqlQuery query(QSqlDatabase::database(connection, true));
    if (query.prepare(QString::fromLatin1(sql))) {
        for (int i = 0; i < values.size(); ++i)
            query.addBindValue(values.at(i));
        query.exec();
    }
    return query;
}

} // namespace

QDir GetCompilePath()
{
    QDir dir(QCoreApplication::applicationDirPath());
    dir.cd(COMPILE_PATH); // stays where it is when there is no such directory
    return dir;
}

QString GetDatabaseName()
{
    QDir dir = GetCompilePath();
    dir.cd(DATABASE_PATH);
    return dir.absoluteFilePath(QString::fromLatin1(databaseFileName));
}

int DevStrToHmiPort(const QString &dev_str)
{
    if (dev_str.startsWith(QString::fromLatin1("ETHERNET")))
        return ethernetPort;
    int i = dev_str.size() - 1;
    while (i >= 0 && isAsciiDigit(dev_str.at(i).unicode()))
        --i;
    // i is the last character that is not a digit: there must be one, and
    // digits after it.
    if (!(i >= 0 && (i + 1) < dev_str.size()))
        return -1;
    bool ok = false;
    const int number = dev_str.mid(i + 1).toInt(&ok, 10);
    return (ok ? number : 0) + serialPortBase;
}

bool GetLinkIdAndDefaultStationId(
    const QString &connection, int hmiPort, int &linkId, unsigned char &stationId)
{
    QSqlQuery query = runQuery(connection,
        "SELECT LINK.LINKID, NODE.STATIONID FROM LINK, NODE WHERE LINK.HMIPORT = ? AND "
        "NODE.LINKID = LINK.LINKID AND NODE.ISDEFAULT = 1;",
        QVariantList() << hmiPort);
    if (!query.next())
        return false;
    linkId = query.value(0).toInt();
    stationId = lowByte(query.value(1));
    return true;
}

bool GetLinkIdAndDefaultStationId(const QString &connection, int hmiPort, const QString &ip,
    unsigned short port, QList<LinkIdStationId> &result)
{
    QSqlQuery query = runQuery(connection,
        "SELECT LINK.LINKID, NODE.STATIONID FROM LINK, NODE WHERE LINK.HMIPORT = ? AND "
        "NODE.LINKID = LINK.LINKID AND NODE.IP = ? AND NODE.PORT = ? AND NODE.ISDEFAULT = 1;",
        QVariantList() << hmiPort << ip << static_cast<int>(port));
    while (query.next()) {
        LinkIdStationId entry;
        entry.linkId = query.value(0).toInt();
        entry.stationId = lowByte(query.value(1));
        result.append(entry);
    }
    return !result.isEmpty();
}

bool GetLinkIdAndDefaultStationId(const QString &connection, int linkId, QList<LinkIdStationId> &result)
{
    QSqlQuery query
        = runQuery(connection, "SELECT NODE.STATIONID FROM NODE WHERE NODE.LINKID = ? AND NODE.ISDEFAULT = 1",
            QVariantList() << linkId);
    while (query.next()) {
        LinkIdStationId entry;
        entry.linkId = linkId;
        entry.stationId = lowByte(query.value(0));
        result.append(entry);
    }
    return !result.isEmpty();
}

QByteArray ExtractPrefixSymbol(const QByteArray &text)
{
    int end = 0;
    while (end < text.size() && isAsciiLetterOrUnderscore(static_cast<unsigned char>(text.at(end))))
        ++end;
    return text.left(end);
}

QByteArray ExtractPrefixSymbol(const QString &text) { return ExtractPrefixSymbol(QtCompat::toAscii(text)); }

int ExtractPLCDeviceAddress(const QByteArray &text, int base)
{
    if (base != 10 && base != 16 && base != 8)
        return -1;
    int start = 0;
    while (start < text.size() && !beginsNumber(static_cast<unsigned char>(text.at(start)), base))
        ++start;
    bool ok = false;
    const int number = text.mid(start).toInt(&ok, base);
    return ok ? number : 0;
}

int ExtractPLCDeviceAddress(const QString &text, int base)
{
    return ExtractPLCDeviceAddress(QtCompat::toAscii(text), base);
}
