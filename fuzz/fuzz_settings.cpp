// Fuzzes the settings stream readers: DeviceSetting and DriverSetting read
// from any bytes, written back, read again and compared.
//
// Input: one byte choosing the stream's version (Qt 4.8, Qt 5.0, Qt 5.15 or
// the 8-bit texts of version 1), its byte order and which records it holds
// in which order (DeviceSetting, DriverSetting, or both either way); the
// rest is the stream.
//
// Beyond the sanitizers:
//   - whatever was read, its cursor names an entry of the endpoint list or
//     is still the record's own (0);
//   - the records written back read again into other records as the same
//     values, to the end of the stream and with its status Ok, leaving the
//     members that are not streamed (extraString, extraFlag) as they were;
//   - written again, those give the same bytes (the stream form is stable);
//   - a DriverSetting is 16 bytes on the stream;
//   - each record's dump is one line in its own form.

#include "qtcompat.h"
#include "settings.h"

#include <QByteArray>
#include <QDataStream>
#include <QString>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>

namespace {

[[noreturn]] void fail(const char *what)
{
    std::fprintf(stderr, "%s\n", what);
    std::abort();
}

std::string dumped;

void capture(QtMsgType, const char *message) { dumped = message; }

bool sameStreamed(const DeviceSetting &a, const DeviceSetting &b)
{
    return a.type == b.type && a.string == b.string && a.baudrate == b.baudrate && a.databits == b.databits
        && a.stopbits == b.stopbits && a.parity == b.parity && a.extra == b.extra && a.linkID == b.linkID
        && a.currentIPIndex == b.currentIPIndex && a.socketList == b.socketList;
}

bool sameStreamed(const DriverSetting &a, const DriverSetting &b)
{
    return a.timeout == b.timeout && a.retry == b.retry && a.stationId == b.stationId && a.delay == b.delay;
}

void prepare(QDataStream &stream, uint8_t setup)
{
    const int versions[] = { QDataStream::Qt_4_8, QDataStream::Qt_5_0, QDataStream::Qt_5_15, 1 };
    stream.setVersion(versions[setup & 3]);
    stream.setByteOrder(setup & 4 ? QDataStream::LittleEndian : QDataStream::BigEndian);
}

struct Records
{
    // Different starting values in the two rounds, so that a member the
    // reader forgets shows.
    explicit Records(int seed)
        : device(SerialDeviceType, QString("COM2"), 9600 + seed, 8, 0, 2, seed, QString("kept"))
        , driver(500 + seed, 3, 1, 0, QString(), 0, QString("kept"), seed != 0)
    {
    }
    DeviceSetting device;
    DriverSetting driver;
};

// setup bits 3-4: 0 device, 1 driver, 2 device then driver, 3 driver then device.
void readRecords(QDataStream &in, Records &r, uint8_t setup)
{
    const int order = (setup >> 3) & 3;
    if (order == 1 || order == 3)
        in >> r.driver;
    if (order != 1)
        in >> r.device;
    if (order == 2)
        in >> r.driver;
}

QByteArray writeRecords(const Records &r, uint8_t setup)
{
    QByteArray bytes;
    QDataStream out(&bytes, QIODevice::WriteOnly);
    prepare(out, setup);
    const int order = (setup >> 3) & 3;
    if (order == 1 || order == 3)
        out << r.driver;
    if (order != 1)
        out << r.device;
    if (order == 2)
        out << r.driver;
    return bytes;
}

void checkDumps(Records &r)
{
    QtCompat::MessageHandler previous = QtCompat::installMessageHandler(capture);
    dumped.clear();
    r.driver.dump();
    char expected[128];
    std::snprintf(expected, sizeof expected, "timeout: %d retry: %d stationid: %d delay: %d ",
        r.driver.timeout, r.driver.retry, r.driver.stationId, r.driver.delay);
    if (dumped != expected)
        fail("DriverSetting dump is not its one line");
    dumped.clear();
    r.device.dump();
    // The line reaches the message handler as a C string: a text holding a
    // zero character ends it there, which is not what is checked here.
    if (r.device.string.contains(QChar(0)) || r.device.socketIP(-1).contains(QChar(0))) {
        QtCompat::installMessageHandler(previous);
        return;
    }
    const std::string head = "type: " + std::to_string(unsigned(r.device.type)) + " string: \"";
    const std::string tail = "\" current port: " + std::to_string(r.device.port(-1)) + " ";
    if (dumped.compare(0, head.size(), head) != 0 || dumped.size() < head.size() + tail.size()
        || dumped.compare(dumped.size() - tail.size(), tail.size(), tail) != 0)
        fail("DeviceSetting dump is not its one line");
    QtCompat::installMessageHandler(previous);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    if (size < 1)
        return 0;
    const uint8_t setup = data[0];
    const QByteArray stream(reinterpret_cast<const char *>(data + 1), int(size - 1));

    Records first(0);
    {
        QDataStream in(stream);
        prepare(in, setup);
        readRecords(in, first, setup);
    }
    const DeviceSetting &d = first.device;
    if (d.currentIPIndex != 0 && (d.currentIPIndex < 0 || d.currentIPIndex >= d.socketList.size()))
        fail("cursor names no endpoint");

    const QByteArray written = writeRecords(first, setup);
    if (((setup >> 3) & 3) == 1 && written.size() != 16)
        fail("DriverSetting is not 16 bytes on the stream");

    Records second(1);
    QDataStream in(written);
    prepare(in, setup);
    readRecords(in, second, setup);
    if (in.status() != QDataStream::Ok || !in.atEnd())
        fail("records written back do not read back to the end");
    if (((setup >> 3) & 3) != 1 && !sameStreamed(first.device, second.device))
        fail("DeviceSetting differs after writing and reading back");
    if (((setup >> 3) & 3) != 0 && !sameStreamed(first.driver, second.driver))
        fail("DriverSetting differs after writing and reading back");
    if (second.device.extraString != QLatin1String("kept")
        || second.driver.extraString != QLatin1String("kept") || !second.driver.extraFlag)
        fail("reading changed a member that is not streamed");
    if (writeRecords(second, setup) != written)
        fail("records written twice give other bytes");

    checkDumps(second);
    return 0;
}
