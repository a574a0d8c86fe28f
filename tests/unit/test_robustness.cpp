// Replies and address texts from a noisy line or a broken configuration:
// whatever arrives, every command ends with a result and, on failure, a text,
// and never reads or writes outside its buffers (run under the sanitizers).

#include "driverrig.h"
#include "tools.h"

#include <gmock/gmock.h>

#include <random>

namespace {

QByteArray randomBytes(std::mt19937 &random, int maxSize)
{
    QByteArray bytes(int(random() % (maxSize + 1)), '\0');
    for (int i = 0; i < bytes.size(); ++i)
        bytes[i] = char(random());
    return bytes;
}

TEST(Robustness, RandomRepliesNeverBreakACommand)
{
    const char *addresses[] = { "HR100", "FN6HR5", "DO1", "FN5DO3", "DI9", "IR7", "HR1.15", "HR60010",
        "HR0.255", "HR100SW", "x", "" };
    const int types[] = { Bit, Byte, Word, DoubleWord, Block, BitBlock };
    std::mt19937 random(7);
    for (int round = 0; round < 3000; ++round) {
        DriverRig rig;
        rig.link.retries = int(random() % 3) - 1;
        rig.link.station = int(random() % 4) == 0 ? int(random()) : 1;
        // A plausible start (our station, a function code) half of the time,
        // so that the checks beyond the first are reached too.
        for (int r = 0; r < 4; ++r) {
            QByteArray reply = randomBytes(random, 300);
            if (random() % 2 && reply.size() >= 2) {
                reply[0] = 1;
                reply[1] = char(random() % 2 ? 3 : 16);
            }
            if (random() % 3 == 0)
                rig.link.piece(toHex(reply).c_str(), int(random() % 600) - 100);
            else
                rig.link.line(reply);
        }
        const char *address = addresses[random() % (sizeof addresses / sizeof *addresses)];
        const int type = types[random() % 6];
        const int count = int(random() % 300) - 20;
        if (random() % 2) {
            const QByteArray result = rig.read(type, count, address);
            // A negative count of a register-bit read may succeed with no
            // bits; the runtime's size rule takes the count as unsigned.
            if (!rig.failed() && count >= 0) {
                EXPECT_EQ(result.size(), GetSafeDataLen(CommunicatorCommand(type, count, address)))
                    << address;
            }
        } else {
            rig.write(type, address, randomBytes(random, 300), count);
        }
        if (rig.failed()) {
            EXPECT_FALSE(rig.error().empty());
        }
        for (const std::string &frame : rig.link.sent())
            EXPECT_LE(hex(frame.c_str()).size(), 256) << address;
    }
}

TEST(Robustness, AddressTextsOfAnyShape)
{
    std::mt19937 random(11);
    const char alphabet[] = "HRFNDOIWS0123456789.hrfn \xff\x80-";
    for (int round = 0; round < 3000; ++round) {
        QByteArray text;
        const int length = int(random() % 30);
        for (int i = 0; i < length; ++i)
            text.append(alphabet[random() % (sizeof alphabet - 1)]);
        DriverRig rig;
        rig.link.line(randomBytes(random, 40));
        const QString address = QString::fromLatin1(text);
        rig.driver.read(&rig.link, CommunicatorCommand(int(random() % 8), int(random() % 10), address));
        rig.driver.write(
            &rig.link, CommunicatorCommand(int(random() % 8), 1, address), randomBytes(random, 8));
    }
}

} // namespace
