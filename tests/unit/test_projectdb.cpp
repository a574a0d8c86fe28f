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

// COM2 (1001): one default node and one other. COM1 (1000): two default
// nodes. Ethernet (2000): two links with nodes at several endpoints.
const char *const schema[] = {
    "CREATE TABLE LINK (LINKID INTEGER, HMIPORT INTEGER)",
    "CREATE TABLE NODE (LINKID INTEGER, STATIONID INTEGER, IP TEXT, PORT INTEGER, ISDEFAULT INTEGER)",
    "INSERT INTO LINK VALUES (1, 1001), (3, 1000), (2, 2000), (4, 2000)",
    "INSERT INTO NODE VALUES (1, 5, '', 0, 1), (1, 6, '', 0, 0), (3, 7, '', 0, 1), (3, 8, '', 0, 1),"
    " (2, 511, '192.168.0.10', 502, 1), (2, 3, '192.168.0.10', 502, 1), (2, 20, '192.168.0.10', 502, 0),"
    " (2, 4, '192.168.0.11', 502, 1), (2, 9, '192.168.0.10', 503, 1), (4, 12, '192.168.0.10', 502, 1)",
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

TEST_F(ProjectDatabase, DefaultNodeOfAPort)
{
    // GetDatabaseName() led to the database built in compile/database.
    int linkId = -1;
    unsigned char stationId = 0;
    EXPECT_TRUE(GetLinkIdAndDefaultStationId(connection, 1001, linkId, stationId));
    EXPECT_EQ(std::make_pair(linkId, int(stationId)), std::make_pair(1, 5));
    EXPECT_TRUE(GetLinkIdAndDefaultStationId(connection, 1000, linkId, stationId));
    EXPECT_TRUE(linkId == 3 && (stationId == 7 || stationId == 8)) << "one of the two default nodes";
    EXPECT_TRUE(QSqlDatabase::database(connection, false).isOpen()) << "the connection stays open";

    linkId = 42;
    EXPECT_FALSE(GetLinkIdAndDefaultStationId(connection, 1005, linkId, stationId));
    EXPECT_FALSE(
        GetLinkIdAndDefaultStationId(QString::fromLatin1("no such connection"), 1001, linkId, stationId));
    EXPECT_EQ(linkId, 42) << "left alone without a row";
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
    };
    for (const Row &row : rows) {
        QList<LinkIdStationId> result;
        const bool found = GetLinkIdAndDefaultStationId(
            connection, row.hmiPort, QString::fromLatin1(row.ip), row.port, result);
        EXPECT_EQ(found, !row.expected.empty()) << row.what;
        EXPECT_EQ(sorted(result), row.expected) << row.what;
    }
}

TEST_F(ProjectDatabase, DefaultNodesOfALinkAppendToResult)
{
    QList<LinkIdStationId> result;
    EXPECT_TRUE(GetLinkIdAndDefaultStationId(connection, 2, result));
    EXPECT_EQ(sorted(result), (Rows { { 2, 3 }, { 2, 4 }, { 2, 9 }, { 2, 0xFF } }));
    EXPECT_TRUE(GetLinkIdAndDefaultStationId(connection, 99, result)) << "entries held before count";
    EXPECT_TRUE(GetLinkIdAndDefaultStationId(connection, 2000, QString::fromLatin1("10.0.0.1"), 502, result));
    EXPECT_EQ(result.size(), 4);
    QList<LinkIdStationId> none;
    EXPECT_FALSE(GetLinkIdAndDefaultStationId(connection, 99, none));
}

TEST(DevStrToHmiPort, PortNumbers)
{
    // clang-format off
    const std::vector<std::pair<const char *, int> > rows = {
        {"ETHERNET2", 2000}, {"ethernet1", 1000}, {"COM10", 1009}, {"X99999999999", 999},
        // Strings that name no port.
        {"", -1}, {"12", -1}, {"COM1A", -1},
    };
    // clang-format on
    for (const auto &row : rows)
        EXPECT_EQ(DevStrToHmiPort(QString::fromLatin1(row.first)), row.second) << row.first;
}

TEST(ExtractPrefixSymbol, LeadingAsciiLettersAndUnderscores)
{
    // clang-format off
    const std::vector<std::pair<const char *, const char *> > rows = {
        {"FN5DO", "FN"}, {"_x1", "_x"}, {"DO", "DO"}, {"\xC4X1", ""},
    };
    // clang-format on
    for (const auto &row : rows) {
        EXPECT_EQ(ExtractPrefixSymbol(QByteArray(row.first)), QByteArray(row.second)) << row.first;
        EXPECT_EQ(ExtractPrefixSymbol(QString::fromLatin1(row.first)), QByteArray(row.second)) << row.first;
    }
}

TEST(ExtractPLCDeviceAddress, NumbersInEachBase)
{
    struct Row
    {
        const char *text;
        int base;
        int number;
    };
    // clang-format off
    const Row rows[] = {
        {"HR100", 10, 100}, {"HR100.3", 10, 0}, {"HR", 10, 0}, {"X17", 8, 15}, {"X19", 8, 0},
        {"HR1F", 16, 0x1F}, {"DB10", 16, 0xDB10}, {"HR100", 7, -1},
    };
    // clang-format on
    for (const Row &row : rows) {
        EXPECT_EQ(ExtractPLCDeviceAddress(QByteArray(row.text), row.base), row.number)
            << row.text << row.base;
        EXPECT_EQ(ExtractPLCDeviceAddress(QString::fromLatin1(row.text), row.base), row.number) << row.text;
    }
}

} // namespace
