// Settings records: endpoint rules, the stream form and the dump line.

#include "hex.h"
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

TEST(DeviceSettingEndpoints, CursorAndIndexesStayInsideTheList)
{
    DeviceSetting empty = serialDefault();
    for (int index : { -1, 0, 1 }) {
        empty.setSocketIP("1.2.3.4", index);
        empty.setPort(80, index);
        EXPECT_TRUE(empty.socketIP(index).isEmpty()) << index;
        EXPECT_EQ(empty.port(index), 0) << index;
    }

    DeviceSetting d = withEndpoints(2);
    d.setCurrentIPIndex(2);
    d.setCurrentIPIndex(-1);
    EXPECT_EQ(d.currentIPIndex, 0);
    d.setCurrentIPIndex(1);
    d.setPort(8080, -1);
    EXPECT_EQ(d.port(1), 8080);
    EXPECT_EQ(d.socketIP(-1), QString("10.0.0.2"));
    d.setSocketIP("10.9.9.9", 0);
    EXPECT_EQ(d.socketIP(0), QString("10.9.9.9"));
    EXPECT_EQ(d.port(0), 502);

    // A shorter list leaves the cursor pointing past its end.
    d.setSocketData({ { "10.1.1.1", "1" } });
    EXPECT_EQ(d.currentIPIndex, 1);
    EXPECT_TRUE(d.socketIP(-1).isEmpty());
}

TEST(DeviceSettingEndpoints, PortTextsAreDecimal16Bit)
{
    struct Row
    {
        const char *text;
        unsigned short port;
    } rows[] = { { "65535", 65535 }, { "50x", 0 }, { "70000", 0 }, { "0x1F", 0 }, { "-1", 0 } };
    for (const Row &row : rows) {
        DeviceSetting d = serialDefault();
        d.setSocketData({ { "h", row.text } });
        EXPECT_EQ(d.port(0), row.port) << row.text;
    }
}

TEST(DriverSettingRecord, CopyKeepsTheFlag)
{
    DriverSetting eight(1, 2, 3, 4, "x", 9, "extra", true);
    DriverSetting target(9, 9, 9, 9);
    target.copy(eight);
    EXPECT_EQ(std::vector<int>({ target.timeout, target.retry, target.stationId, target.delay }),
        std::vector<int>({ 1, 2, 3, 4 }));
    EXPECT_EQ(target.extraString, QString("extra"));
    EXPECT_FALSE(target.extraFlag);
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

TEST(SettingsStream, DriverSettingIsFourNumbersAndKeepsTargetExtras)
{
    QByteArray bytes = streamed(DriverSetting(1500, -1, 247, 20));
    EXPECT_EQ(bytes.toHex(), QByteArray("000005dcffffffff000000f700000014"));
    DriverSetting target(0, 0, 0, 0, "t", 0, "keep", true);
    QDataStream in(bytes);
    in >> target;
    EXPECT_EQ(std::vector<int>({ target.timeout, target.retry, target.stationId, target.delay }),
        std::vector<int>({ 1500, -1, 247, 20 }));
    EXPECT_EQ(target.extraString, QString("keep"));
    EXPECT_TRUE(target.extraFlag);
}

TEST(SettingsStream, DeviceSettingFormAndRoundTripInBothByteOrders)
{
    // Type, port string, baud rate, data bits, stop bits, parity, extra,
    // link id, cursor, then the endpoint count and the endpoints.
    DeviceSetting one(SerialDeviceType, "C", 9600, 8, 0, 2, 42, "not streamed");
    one.setSocketData({ { "a", "502" } });
    EXPECT_EQ(streamed(one),
        hex("00000010 00000002 0043 00002580 00000008 00000000 00000002 0000002a ffffffff 00000000 00000001 "
            "00000002 0061 01f6"));

    DeviceSetting source(static_cast<device_type>(4), "COM3", 115200, 7, 1, 1, 42, "not streamed");
    source.linkID = 9;
    source.setSocketData({ { "a", "1" }, { "b", "2" }, { "c", "3" } });
    source.setCurrentIPIndex(2);
    for (QDataStream::ByteOrder order : { QDataStream::BigEndian, QDataStream::LittleEndian }) {
        DeviceSetting target = serialDefault();
        QDataStream in(streamed(source, order));
        in.setByteOrder(order);
        in >> target;
        EXPECT_EQ(in.status(), QDataStream::Ok);
        EXPECT_TRUE(in.atEnd());
        EXPECT_EQ(int(target.type), 4);
        EXPECT_EQ(target.string, QString("COM3"));
        EXPECT_EQ(std::vector<int>({ target.baudrate, target.databits, target.stopbits, target.parity,
                      target.extra, target.linkID, target.currentIPIndex }),
            std::vector<int>({ 115200, 7, 1, 1, 42, 9, 2 }));
        EXPECT_EQ(target.socketList, source.socketList);
        EXPECT_TRUE(target.extraString.isEmpty());
    }
}

TEST(SettingsStream, ShortOrCorruptStreamsYieldWhatTheyHold)
{
    DeviceSetting five = withEndpoints(5);
    five.setCurrentIPIndex(3);
    QByteArray full = streamed(five);
    const int entrySize = streamed(withEndpoints(1)).size() - streamed(serialDefault()).size();
    DeviceSetting target = withEndpoints(2);
    target.setCurrentIPIndex(1);
    QDataStream in(full.left(full.size() - 3 * entrySize));
    in >> target;
    EXPECT_EQ(target.socketList.size(), 2);
    EXPECT_EQ(target.socketIP(1), QString("10.0.0.2"));
    EXPECT_EQ(target.currentIPIndex, 1) << "saved index 3 names no entry: the record's value stays";

    QByteArray corrupt = streamed(serialDefault());
    corrupt.chop(4);
    corrupt += QByteArray::fromHex("ffffffff");
    QDataStream count(corrupt);
    count >> target;
    EXPECT_TRUE(target.socketList.isEmpty()) << "a count the stream does not hold allocates nothing";
}

std::vector<std::string> captured;
void capture(QtMsgType type, const char *message)
{
    if (type == QtDebugMsg)
        captured.push_back(message);
}

TEST(SettingsDump, LinesAreByteExact)
{
    struct Row
    {
        void (*dumper)();
        const char *line;
    } rows[] = {
        { [] { DriverSetting(-1, -2, 300, 7).dump(); }, "timeout: -1 retry: -2 stationid: 300 delay: 7 " },
        { [] {
             DeviceSetting d(static_cast<device_type>(-1), "a\"b\\c", 1, 2, 3, 4);
             d.setSocketData({ { "h0", "1" }, { "192.168.1.6", "502" } });
             d.setCurrentIPIndex(1);
             d.dump();
         },
            "type: 4294967295 string: \"a\"b\\c\" baudrate: 1 databits: 2 stopbits: 3 parity: 4 linkID: -1 "
            "current ip: \"192.168.1.6\" current port: 502 " },
    };
    for (const Row &row : rows) {
        captured.clear();
        QtCompat::MessageHandler previous = QtCompat::installMessageHandler(capture);
        row.dumper();
        QtCompat::installMessageHandler(previous);
        EXPECT_THAT(captured, testing::ElementsAre(row.line));
    }
}

} // namespace
