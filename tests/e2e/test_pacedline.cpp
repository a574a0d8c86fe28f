// The simulated drive on a line that takes its time as a wire does, with the
// late bytes a busy host makes: every read is answered, with the value the
// drive holds. TECO_PACED_READS sets how many reads each row makes.

#include "hex.h"
#include "pacedline.h"
#include "rtuframe.h"
#include "seriallink.h"
#include "simdrive.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <string>

namespace {

int readsPerRow()
{
    const char *text = std::getenv("TECO_PACED_READS");
    return text && std::atoi(text) > 0 ? std::atoi(text) : 1000;
}

TEST(PacedLine, TheSimulatedDriveAnswersEveryReadOnAPacedLine)
{
    struct Row
    {
        const char *what;
        int hiccupEvery; // a byte towards the drive comes late: every n-th
        int64_t hiccupNs;
    } rows[] = {
        { "bytes as the host delivers them", 0, 0 },
        // Longer than the silence: a drive that cuts requests by the
        // silence loses the request it falls into.
        { "a byte 3 ms late now and then", 97, 3000000 },
    };
    LinkSettings settings;
    std::string error;
    ASSERT_TRUE(LinkSettings::parse("RS485,115200,NONE,8,2", settings, error)) << error;
    for (const Row &row : rows) {
        SCOPED_TRACE(row.what);
        PacedLine line;
        ASSERT_TRUE(line.start(PacedLine::Options { 115200, 11, row.hiccupEvery, row.hiccupNs }, error))
            << error;
        SimDrive sim;
        SimDrive::Options so;
        so.device = line.pathA();
        so.link = settings;
        so.stations = { 1 };
        so.map = std::string();
        ASSERT_TRUE(sim.start(so, error)) << error;
        sim.setValue(1, Area::HoldingRegisters, 4, 0xBEEF);
        SerialLink link;
        LinkOptions lo;
        lo.timeoutMs = 200;
        lo.retry = 0;
        ASSERT_TRUE(link.open(line.pathB(), settings, lo, error)) << error;
        const QByteArray request = hex("01 03 00 04 00 01 C5 CB");
        const std::string answer = "01 03 02 BE EF 88 68";
        int failed = 0;
        const int reads = readsPerRow();
        for (int i = 0; i < reads; ++i) {
            link.send(request.constData(), request.size());
            char buffer[7];
            const int got = link.receive(buffer, 7);
            failed += got != 7 || toHex(QByteArray(buffer, 7)) != answer;
        }
        EXPECT_EQ(failed, 0) << "of " << reads;
        EXPECT_EQ(sim.stats().badFrames, 0u);
        EXPECT_EQ(sim.stats().replies, uint64_t(reads));
    }
}

} // namespace
