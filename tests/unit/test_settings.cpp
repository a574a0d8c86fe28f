// Settings records: endpoint rules, the stream form and the dump line.

#include "qtcompat.h"
#include "settings.h"

#include <QBuffer>
#include <QDataStream>
#include <gmock/gmock.h>

#include <string>
#include <vector>

namespace {

DeviceSetting serialDefault() { return DeviceSetting(SerialDeviceType, "COM2", 9600, 8, 0, 2); }

DeviceSetting withEndpoints(int n)
{
    DeviceSetting d = serialDefault();
    QList<QPair<QString, QString>> data;
    for (int i = 0; i < n; ++i)
        data << qMakePair(QString("10.0.0.%1").arg(i + 1), QString::number(502 + i));
    d.setSocketData(data);
    return d;
}

TEST(DeviceSettingEndpoints, EmptyListNamesNoEntry)
{
    DeviceSetting d = serialDefault();
    for (int index : { -1, 0, 1, -2 }) {
        d.setSocketIP("1.2.3.4", index);
        d.setPort(80, index);
        EXPECT_TRUE(d.socketIP(index).isEmpty()) << index;
        EXPECT_EQ(d.port(index), 0) << index;
    }
    EXPECT_TRUE(d.socketList.isEmpty());
    EXPECT_EQ(d.currentIPIndex, 0);
}

TEST(DeviceSettingEndpoints, CursorMovesOnlyInsideTheList)
{
    DeviceSetting d = withEndpoints(2);
    d.setCurrentIPIndex(2);
    d.setCurrentIPIndex(-1);
    EXPECT_EQ(d.currentIPIndex, 0);
    d.setCurrentIPIndex(1);
    EXPECT_EQ(d.socketIP(-1), QString("10.0.0.2"));

    d.setPort(8080, -1);
    EXPECT_EQ(d.port(1), 8080);
    EXPECT_EQ(d.socketIP(1), QString("10.0.0.2"));
    EXPECT_EQ(d.port(0), 502);
    d.setSocketIP("10.9.9.9", 0);
    EXPECT_EQ(d.socketIP(0), QString("10.9.9.9"));
    EXPECT_EQ(d.port(0), 502);

    // A shorter list leaves the cursor pointing past its end.
    d.setSocketData(QList<QPair<QString, QString>>() << qMakePair(QString("10.1.1.1"), QString("1")));
    EXPECT_EQ(d.currentIPIndex, 1);
    EXPECT_TRUE(d.socketIP(-1).isEmpty());
    EXPECT_EQ(d.port(-1), 0);
}

TEST(DeviceSettingEndpoints, PortTextsAreDecimal16Bit)
{
    struct Row
    {
        const char *text;
        unsigned short port;
    } rows[] = { { "502", 502 }, { "50x", 0 }, { "70000", 0 }, { "65535", 65535 }, { "0x1F", 0 }, { "", 0 },
        { "-1", 0 } };
    for (const Row &row : rows) {
        DeviceSetting d = serialDefault();
        d.setSocketData(QList<QPair<QString, QString>>() << qMakePair(QString("h"), QString(row.text)));
        EXPECT_EQ(d.port(0), row.port) << row.text;
    }
}

TEST(DriverSettingRecord, ConstructorsAndCopy)
{
    DriverSetting four(500, 3, 1, 0), six(500, 3, 1, 0, "ignored", 7);
    EXPECT_EQ(six.timeout, four.timeout);
    EXPECT_EQ(six.retry, four.retry);
    EXPECT_EQ(six.stationId, four.stationId);
    EXPECT_EQ(six.delay, four.delay);
    EXPECT_TRUE(six.extraString.isEmpty());

    DriverSetting eight(1, 2, 3, 4, "x", 9, "extra", true);
    DriverSetting target(9, 9, 9, 9);
    target.copy(eight);
    EXPECT_EQ(target.timeout, 1);
    EXPECT_EQ(target.delay, 4);
    EXPECT_EQ(target.extraString, QString("extra"));
    EXPECT_FALSE(target.extraFlag) << "copy keeps the flag";
}

template <typename T>
QByteArray streamed(const T &value, QDataStream::ByteOrder order = QDataStream::BigEndian)
{
    QByteArray bytes;
    QDataStream out(&bytes, QIODevice::WriteOnly);
    out.setByteOrder(order);
    out << value;
    return bytes;
}

TEST(SettingsStream, DriverSettingRoundTripKeepsTargetExtras)
{
    DriverSetting source(1500, -1, 247, 20);
    QByteArray bytes = streamed(source);
    EXPECT_EQ(bytes.toHex(), QByteArray("000005dcffffffff000000f700000014"));

    DriverSetting target(0, 0, 0, 0, "t", 0, "keep", true);
    QDataStream in(bytes);
    in >> target;
    EXPECT_EQ(target.timeout, 1500);
    EXPECT_EQ(target.retry, -1);
    EXPECT_EQ(target.stationId, 247);
    EXPECT_EQ(target.delay, 20);
    EXPECT_EQ(target.extraString, QString("keep"));
    EXPECT_TRUE(target.extraFlag);
}

TEST(SettingsStream, DeviceSettingRoundTripInBothByteOrders)
{
    DeviceSetting source(static_cast<device_type>(4), "COM3", 115200, 7, 1, 1, 42, "not streamed");
    source.linkID = 9;
    source.setSocketData(QList<QPair<QString, QString>>()
        << qMakePair(QString("a"), QString("1")) << qMakePair(QString("b"), QString("2"))
        << qMakePair(QString("c"), QString("3")));
    source.setCurrentIPIndex(2);

    for (QDataStream::ByteOrder order : { QDataStream::BigEndian, QDataStream::LittleEndian }) {
        QByteArray bytes = streamed(source, order);
        DeviceSetting target = serialDefault();
        QDataStream in(bytes);
        in.setByteOrder(order);
        in >> target;
        EXPECT_EQ(in.status(), QDataStream::Ok);
        EXPECT_TRUE(in.atEnd());
        EXPECT_EQ(int(target.type), 4);
        EXPECT_EQ(target.string, QString("COM3"));
        EXPECT_EQ(target.baudrate, 115200);
        EXPECT_EQ(target.databits, 7);
        EXPECT_EQ(target.stopbits, 1);
        EXPECT_EQ(target.parity, 1);
        EXPECT_EQ(target.extra, 42);
        EXPECT_EQ(target.linkID, 9);
        EXPECT_EQ(target.currentIPIndex, 2);
        EXPECT_EQ(target.socketList, source.socketList);
        EXPECT_TRUE(target.extraString.isEmpty());
    }
}

TEST(SettingsStream, EmptyEndpointListIsCountZero)
{
    QByteArray bytes = streamed(serialDefault());
    EXPECT_EQ(bytes.right(8).toHex(), QByteArray("0000000000000000")) << "current index 0, count 0";
    DeviceSetting target = withEndpoints(2);
    target.setCurrentIPIndex(1);
    QDataStream in(bytes);
    in >> target;
    EXPECT_TRUE(target.socketList.isEmpty());
    EXPECT_EQ(target.currentIPIndex, 1) << "an index naming no entry keeps the record's value";
}

TEST(SettingsStream, ShortStreamsYieldWhatTheyHold)
{
    DeviceSetting five = withEndpoints(5);
    five.setCurrentIPIndex(3);
    QByteArray full = streamed(five);
    const int entrySize = streamed(withEndpoints(1)).size() - streamed(serialDefault()).size();
    DeviceSetting target = serialDefault();
    QDataStream in(full.left(full.size() - 3 * entrySize));
    in >> target;
    EXPECT_EQ(target.socketList.size(), 2);
    EXPECT_EQ(target.socketIP(1), QString("10.0.0.2"));
    EXPECT_EQ(target.currentIPIndex, 0) << "saved index 3 names no entry of a two-entry list";

    // Every truncation of a full record reads without a crash and leaves a
    // usable record.
    for (int cut = 0; cut < full.size(); ++cut) {
        DeviceSetting t = serialDefault();
        QDataStream s(full.left(cut));
        s >> t;
        EXPECT_LE(t.socketList.size(), 5);
        EXPECT_TRUE(t.currentIPIndex == 0 || t.currentIPIndex < t.socketList.size()) << cut;
        t.dump();
    }

    DriverSetting d(1, 2, 3, 4);
    QDataStream empty(QByteArray {});
    empty >> d;
    EXPECT_EQ(empty.status(), QDataStream::ReadPastEnd);
}

TEST(SettingsStream, CorruptCountDoesNotAllocate)
{
    QByteArray bytes = streamed(serialDefault());
    bytes.chop(4);
    bytes += QByteArray::fromHex("ffffffff");
    DeviceSetting target = serialDefault();
    QDataStream in(bytes);
    in >> target;
    EXPECT_TRUE(target.socketList.isEmpty());
}

std::vector<std::string> captured;
void capture(QtMsgType type, const char *message)
{
    if (type == QtDebugMsg)
        captured.push_back(message);
}

std::vector<std::string> dumpOf(void (*dumper)())
{
    captured.clear();
    QtCompat::MessageHandler previous = QtCompat::installMessageHandler(capture);
    dumper();
    QtCompat::installMessageHandler(previous);
    return captured;
}

TEST(SettingsDump, LinesAreByteExact)
{
    struct Row
    {
        const char *what;
        void (*dumper)();
        const char *line;
    } rows[] = {
        { "driver default", [] { DriverSetting(500, 3, 1, 0).dump(); },
            "timeout: 500 retry: 3 stationid: 1 delay: 0 " },
        { "negative numbers", [] { DriverSetting(-1, -2, 300, 7).dump(); },
            "timeout: -1 retry: -2 stationid: 300 delay: 7 " },
        { "serial default", [] { serialDefault().dump(); },
            "type: 16 string: \"COM2\" baudrate: 9600 databits: 8 stopbits: 0 parity: 2 linkID: -1 current "
            "ip: \"\" "
            "current port: 0 " },
        { "current endpoint, quote and backslash kept as they are",
            [] {
                DeviceSetting d(static_cast<device_type>(-1), "a\"b\\c", 1, 2, 3, 4);
                d.setSocketData(QList<QPair<QString, QString>>() << qMakePair(QString("h0"),
                                    QString("1")) << qMakePair(QString("192.168.1.6"), QString("502")));
                d.setCurrentIPIndex(1);
                d.dump();
            },
            "type: 4294967295 string: \"a\"b\\c\" baudrate: 1 databits: 2 stopbits: 3 parity: 4 linkID: -1 "
            "current ip: \"192.168.1.6\" current port: 502 " },
    };
    for (const Row &row : rows)
        EXPECT_THAT(dumpOf(row.dumper), testing::ElementsAre(row.line)) << row.what;
}

} // namespace
