// The driver's error texts, as the driver itself records them, sorted into
// kinds: a text the driver changes must not silently turn into "other".

#include "driverrig.h"
#include "errorkind.h"
#include "scanprobe.h"

#include <gtest/gtest.h>

namespace {

TEST(ErrorKinds, EveryTextTheDriverRecordsHasItsKind)
{
    struct Row
    {
        const char *what, *reply; // reply nullptr: nothing comes
        int type, count;
        const char *address;
        int station;
        ErrorKind kind;
        int exceptionCode;
        const char *text;
    } rows[] = {
        { "silence", nullptr, Word, 1, "HR100", 1, ErrorKind::TimeOut, 0, "PLC no response" },
        { "short first piece", "01 03 02", Word, 1, "HR100", 1, ErrorKind::ShortReply, 0,
            "received bytes < 5" },
        { "short rest", "01 03 04 00 01", Word, 2, "HR100", 1, ErrorKind::PacketLoss, 0, "packet loss" },
        { "CRC", "01 03 02 00 01 00 00", Word, 1, "HR100", 1, ErrorKind::Crc, 0, "CRC error" },
        { "exception", "01 83 02 C0 F1", Word, 1, "HR100", 1, ErrorKind::Exception, 2,
            "exception code:0x02" },
        { "another station", "02 03 02 00 01 3D 84", Word, 1, "HR100", 1, ErrorKind::WrongStation, 0,
            "invalid slave id:2" },
        { "another function", "01 04 02 00 01 78 F0", Word, 1, "HR100", 1, ErrorKind::InvalidResponse, 0,
            "invalid response" },
        { "station above 255", nullptr, Word, 1, "HR100", 300, ErrorKind::Refused, 0,
            "invalid slave id:300" },
        { "negative station", nullptr, Word, 1, "HR100", -1, ErrorKind::Refused, 0, "invalid slave id:-1" },
        { "count too large", nullptr, Word, 200, "HR100", 1, ErrorKind::Refused, 0, nullptr },
        { "unsupported type", nullptr, QuadWord, 1, "HR100", 1, ErrorKind::Refused, 0, nullptr },
    };
    for (const Row &row : rows) {
        SCOPED_TRACE(row.what);
        DriverRig rig;
        rig.link.station = row.station;
        if (row.reply)
            rig.link.line(row.reply);
        rig.read(row.type, row.count, row.address);
        ASSERT_TRUE(rig.failed());
        const DriverError e = classifyDriverError(rig.error());
        EXPECT_EQ(errorKindName(e.kind), std::string(errorKindName(row.kind))) << rig.error();
        EXPECT_EQ(e.exceptionCode, row.exceptionCode);
        if (row.text) {
            EXPECT_EQ(e.text, row.text);
        }
    }
}

TEST(ErrorKinds, TextsOfOtherDriversAreOther)
{
    for (const char *text : { "port closed", "exception code:0x", "invalid slave id:x", "PLC no response!" })
        EXPECT_EQ(classifyDriverError(text).kind, ErrorKind::Other) << text;
    EXPECT_EQ(classifyDriverError("").kind, ErrorKind::None);
}

TEST(ErrorKinds, ExceptionsHaveTheirModbusNames)
{
    EXPECT_STREQ(exceptionName(1), "illegal function");
    EXPECT_STREQ(exceptionName(2), "illegal data address");
    EXPECT_STREQ(exceptionName(11), "gateway target failed to respond");
    for (int code : { -1, 0, 7, 9, 12, 255 })
        EXPECT_EQ(exceptionName(code), nullptr) << code;
}

// A station shown as answering answered: a value or an exception came back
// to a request that went out.
TEST(ScanProbes, OnlyARequestAnsweredFindsAStation)
{
    struct Row
    {
        const char *name;
        bool ok;
        const char *error;
        int64_t requestsSent;
        bool answers, heard;
    } rows[] = {
        { "a value", true, "", 1, true, true },
        { "a value the driver held itself", true, "", 0, false, false },
        { "an exception", false, "exception code:0x02 (read 1 word(s) from 1-HR1)", 1, true, true },
        { "silence", false, "PLC no response (read 1 word(s) from 1-HR1)", 2, false, false },
        { "garbage", false, "CRC error (read 1 word(s) from 1-HR1)", 1, false, true },
    };
    for (const Row &row : rows) {
        SCOPED_TRACE(row.name);
        DriverHost::Result r;
        r.ok = row.ok;
        r.errorText = row.error;
        r.error = classifyDriverError(row.error);
        r.requestsSent = row.requestsSent;
        const ScanVerdict v = judgeScanProbe(r);
        EXPECT_EQ(v.answers, row.answers);
        EXPECT_EQ(v.heard, row.heard);
    }
}

} // namespace
