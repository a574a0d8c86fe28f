// Project database look-ups against a real SQLite file in compile/database
// beside the test program, and the device and address string helpers.

#include "tools.h"

#include <gtest/gtest.h>

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QSqlDatabase>
#include <QSqlQuery>
#include <QStringList>
#include <QVariant>

#include <algorithm>
#include <cstdio>
#include <utility>
#include <vector>

#include <unistd.h>

namespace {

const char connectionName[] = "project";

const char *const schema[] = {
    "CREATE TABLE LINK (LINKID INTEGER, HMIPORT INTEGER)",
    "CREATE TABLE NODE (LINKID INTEGER, STATIONID INTEGER, IP TEXT, PORT INTEGER, ISDEFAULT INTEGER)",
    // COM2: one default node and one other.
    "INSERT INTO LINK VALUES (1, 1001)",
    "INSERT INTO NODE VALUES (1, 5, '', 0, 1)",
    "INSERT INTO NODE VALUES (1, 6, '', 0, 0)",
    // COM1: two default nodes.
    "INSERT INTO LINK VALUES (3, 1000)",
    "INSERT INTO NODE VALUES (3, 7, '', 0, 1)",
    "INSERT INTO NODE VALUES (3, 8, '', 0, 1)",
    // Two Ethernet links.
    "INSERT INTO LINK VALUES (2, 2000)",
    "INSERT INTO LINK VALUES (4, 2000)",
    "INSERT INTO NODE VALUES (2, 511, '192.168.0.10', 502, 1)",
    "INSERT INTO NODE VALUES (2, 3, '192.168.0.10', 502, 1)",
    "INSERT INTO NODE VALUES (2, 20, '192.168.0.10', 502, 0)",
    "INSERT INTO NODE VALUES (2, 4, '192.168.0.11', 502, 1)",
    "INSERT INTO NODE VALUES (2, 9, '192.168.0.10', 503, 1)",
    "INSERT INTO NODE VALUES (4, 12, '192.168.0.10', 502, 1)",
};

typedef std::vector<std::pair<int, int>> Rows;

Rows sorted(const QList<LinkIdStationId> &list)
{
    Rows rows;
    for (int i = 0; i < list.size(); ++i)
        rows.push_back(std::make_pair(list.at(i).linkId, int(list.at(i).stationId)));
    std::sort(rows.begin(), rows.end());
    return rows;
}

// CTest runs every test in its own process, several at a time. Each process
// builds the same database under a name of its own and renames it into place
// in one step, so that no process ever opens a half-written file.
class ProjectDatabase : public testing::Test
{
protected:
    static void SetUpTestSuite()
    {
        const QString directory
            = QCoreApplication::applicationDirPath() + QString::fromLatin1("/compile/database");
        ASSERT_TRUE(QDir().mkpath(directory));
        const QString temporary = directory + QString::fromLatin1("/database.%1.tmp").arg(getpid());
        const QString builder = QString::fromLatin1("build-%1").arg(getpid());
        {
            QSqlDatabase db = QSqlDatabase::addDatabase(QString::fromLatin1("QSQLITE"), builder);
            db.setDatabaseName(temporary);
            ASSERT_TRUE(db.open());
            QSqlQuery query(db);
            for (const char *statement : schema)
                ASSERT_TRUE(query.exec(QString::fromLatin1(statement))) << statement;
            db.close();
        }
        QSqlDatabase::removeDatabase(builder);
        ASSERT_EQ(std::rename(QFile::encodeName(temporary).constData(),
                      QFile::encodeName(directory + QString::fromLatin1("/database")).constData()),
            0);

        QSqlDatabase db
            = QSqlDatabase::addDatabase(QString::fromLatin1("QSQLITE"), QString::fromLatin1(connectionName));
        db.setDatabaseName(GetDatabaseName());
    }

    static void TearDownTestSuite()
    {
        QSqlDatabase::database(QString::fromLatin1(connectionName), false).close();
        QSqlDatabase::removeDatabase(QString::fromLatin1(connectionName));
    }

    const QString connection = QString::fromLatin1(connectionName);
};

TEST_F(ProjectDatabase, PathsLeadIntoCompileAndDatabase)
{
    const QString appDir = QCoreApplication::applicationDirPath();
    EXPECT_EQ(GetCompilePath().absolutePath(), QDir::cleanPath(appDir + QString::fromLatin1("/compile")));
    EXPECT_EQ(GetDatabaseName(), QDir::cleanPath(appDir + QString::fromLatin1("/compile/database/database")));
}

TEST_F(ProjectDatabase, DefaultNodeOfAPort)
{
    int linkId = -1;
    unsigned char stationId = 0;
    EXPECT_TRUE(GetLinkIdAndDefaultStationId(connection, 1001, linkId, stationId));
    EXPECT_EQ(linkId, 1);
    EXPECT_EQ(stationId, 5);

    EXPECT_TRUE(GetLinkIdAndDefaultStationId(connection, 1000, linkId, stationId));
    EXPECT_EQ(linkId, 3);
    EXPECT_TRUE(stationId == 7 || stationId == 8) << "one of the two default nodes";

    EXPECT_TRUE(QSqlDatabase::database(connection, false).isOpen()) << "the connection stays open";
}

TEST_F(ProjectDatabase, NoRowLeavesOutArgumentsAlone)
{
    int linkId = 42;
    unsigned char stationId = 43;
    EXPECT_FALSE(GetLinkIdAndDefaultStationId(connection, 1005, linkId, stationId));
    EXPECT_EQ(linkId, 42);
    EXPECT_EQ(stationId, 43);
    EXPECT_FALSE(
        GetLinkIdAndDefaultStationId(QString::fromLatin1("no such connection"), 1001, linkId, stationId));
    EXPECT_EQ(linkId, 42);
}

TEST_F(ProjectDatabase, DefaultNodesAtAnEndpoint)
{
    struct Row
    {
        const char *what;
        int hmiPort;
        const char *ip;
        unsigned short port;
        Rows expected;
    } rows[] = {
        { "two links, station cut to 8 bits", 2000, "192.168.0.10", 502,
            { { 2, 3 }, { 2, 0xFF }, { 4, 12 } } },
        { "other address", 2000, "192.168.0.11", 502, { { 2, 4 } } },
        { "other TCP port", 2000, "192.168.0.10", 503, { { 2, 9 } } },
        { "serial port has no such endpoint", 1001, "192.168.0.10", 502, {} },
        { "quote trick finds nothing", 2000, "x' OR '1'='1", 502, {} },
        { "comment trick finds nothing", 2000, "192.168.0.10' --", 502, {} },
    };
    for (const Row &row : rows) {
        QList<LinkIdStationId> result;
        EXPECT_EQ(GetLinkIdAndDefaultStationId(
                      connection, row.hmiPort, QString::fromLatin1(row.ip), row.port, result),
            !row.expected.empty())
            << row.what;
        EXPECT_EQ(sorted(result), row.expected) << row.what;
    }
}

TEST_F(ProjectDatabase, ResultIsAppendedTo)
{
    LinkIdStationId earlier = { 77, 1 };
    QList<LinkIdStationId> result;
    result << earlier;
    EXPECT_TRUE(GetLinkIdAndDefaultStationId(connection, 2000, QString::fromLatin1("10.0.0.1"), 502, result))
        << "an entry held before counts";
    EXPECT_EQ(result.size(), 1);

    EXPECT_TRUE(GetLinkIdAndDefaultStationId(connection, 1, result));
    EXPECT_EQ(sorted(result), (Rows { { 1, 5 }, { 77, 1 } }));
}

TEST_F(ProjectDatabase, DefaultNodesOfALink)
{
    QList<LinkIdStationId> result;
    EXPECT_TRUE(GetLinkIdAndDefaultStationId(connection, 2, result));
    EXPECT_EQ(sorted(result), (Rows { { 2, 3 }, { 2, 4 }, { 2, 9 }, { 2, 0xFF } }));

    QList<LinkIdStationId> none;
    EXPECT_FALSE(GetLinkIdAndDefaultStationId(connection, 99, none));
    EXPECT_TRUE(none.isEmpty());
}

TEST(DevStrToHmiPort, PortNumbers)
{
    struct Row
    {
        const char *text;
        int port;
    } rows[] = {
        { "ETHERNET", 2000 },
        { "ETHERNET2", 2000 },
        { "ETHERNETX", 2000 },
        { "ethernet1", 1000 },
        { "COM1", 1000 },
        { "COM2", 1001 },
        { "COM10", 1009 },
        { "COM02", 1001 },
        { "COM0", 999 },
        { "X99999999999", 999 },
        // Strings that name no port.
        { "", -1 },
        { "12", -1 },
        { "COM", -1 },
        { "COM1A", -1 },
    };
    for (const Row &row : rows)
        EXPECT_EQ(DevStrToHmiPort(QString::fromLatin1(row.text)), row.port) << row.text;
}

TEST(ExtractPrefixSymbol, LeadingLettersAndUnderscores)
{
    struct Row
    {
        const char *text;
        const char *prefix;
    } rows[] = {
        { "HR100", "HR" },
        { "FN5DO", "FN" },
        { "_x1", "_x" },
        { "100", "" },
        { "", "" },
        { "DO", "DO" },
        { "A-1", "A" },
    };
    for (const Row &row : rows) {
        EXPECT_EQ(ExtractPrefixSymbol(QByteArray(row.text)), QByteArray(row.prefix)) << row.text;
        EXPECT_EQ(ExtractPrefixSymbol(QString::fromLatin1(row.text)), QByteArray(row.prefix)) << row.text;
    }
    EXPECT_EQ(ExtractPrefixSymbol(QByteArray("\xC4X1")), QByteArray()) << "no letters beyond ASCII";
}

TEST(ExtractPLCDeviceAddress, NumbersInEachBase)
{
    struct Row
    {
        const char *text;
        int base;
        int number;
    } rows[] = {
        { "HR100", 10, 100 },
        { "D0", 10, 0 },
        { "HR100.3", 10, 0 },
        { "HR", 10, 0 },
        { "", 10, 0 },
        { "X17", 8, 15 },
        { "X19", 8, 0 },
        { "Y8", 8, 0 },
        { "HR1F", 16, 0x1F },
        { "DB10", 16, 0xDB10 },
        { "x1f", 16, 0x1F },
        { "HR100", 7, -1 },
        { "HR100", 2, -1 },
        { "HR100", 0, -1 },
    };
    for (const Row &row : rows) {
        EXPECT_EQ(ExtractPLCDeviceAddress(QByteArray(row.text), row.base), row.number)
            << row.text << " " << row.base;
        EXPECT_EQ(ExtractPLCDeviceAddress(QString::fromLatin1(row.text), row.base), row.number)
            << row.text << " " << row.base;
    }
}

} // namespace
