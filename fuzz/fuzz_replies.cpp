// Fuzzes what the line hands the driver: reply bytes, in pieces, through the
// runtime's read and write, for every data type and prefix, the special
// register window HR60000..HR60010 included.
//
// Input:
//   byte 0        commands (low 2 bits + 1), link retries (next 2 bits, -1..2)
//                 and the link's station (high 4 bits: 1 mostly, also 2, 255,
//                 300 and -1)
//   per command   6 bytes: read or write, data type (0..8), prefix, number,
//                 suffix and count, each chosen from the tables below; a
//                 write then has a length byte and its data
//   the rest      what the line serves, one item after another: a control
//                 byte, a length byte and that many bytes. The control byte
//                 chooses how the link double serves them (as a reply on the
//                 line, as one receive returning what it copied, 0, -1 or a
//                 count of the input's choosing, or a receive that gets
//                 nothing) and whether their Modbus CRC is appended, so that
//                 replies get past the CRC check and into the conversions.
//
// The commands of one input run on one driver object, so that the window's
// table written by one command steers the relay or read-back of the next.
//
// Beyond the sanitizers, every command is checked against what the runtime
// relies on:
//   - a read that succeeds returns exactly the bytes its type and count give:
//     (count + 7) / 8 for bits, count for bytes, 2 x count for words,
//     4 x count for double words;
//   - a read that fails returns nothing, except a word read of the window
//     whose read-back failed, which returns the table's 2 x count bytes;
//   - a write returns true exactly when hasError() is false;
//   - hasError() means an error text ending in the command's description
//     (for bits, bytes, words and double words), and "unsupported data type: "
//     with the address for the others; a command that succeeds at its first
//     attempt leaves the text as it found it;
//   - every frame sent is a whole RTU frame (8..256 bytes, its CRC right).
// Retries are at most 2 and nothing waits (delay 0), so one input runs in
// well under a millisecond.

#include "drivertecoservo.h"
#include "fuzzinput.h"
#include "hex.h"
#include "linkdouble.h"

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace {

const char *const prefixes[]
    = { "HR", "FN6HR", "DO", "FN5DO", "DI", "IR", "hr", "fn6hr", "Fn5Do", "di", "SW", "H", "", "X", "FN" };
const char *const numbers[] = { "60000", "60001", "60002", "60003", "60004", "60005", "60006", "60007",
    "60008", "60009", "60010", "59999", "60011", "1", "100", "1300", "65535", "65536", "0", "65537", "" };
const char *const suffixes[] = { "", ".3", ".15", ".16", ".20", ".255", "SW", "sw", ".", ".300" };
template <typename T, size_t N> const T &pick(const T (&table)[N], uint8_t byte) { return table[byte % N]; }

struct Command
{
    bool read;
    int type;
    int prefix;
    int number;
    QString address;
    int count;
    QByteArray data;
};

Command takeCommand(Input &in)
{
    Command c;
    c.read = in.byte() % 2 == 0;
    c.type = in.byte() % 9; // 7 and 8: codes the runtime does not define
    c.prefix = in.byte() % int(sizeof prefixes / sizeof *prefixes);
    c.number = in.byte() % int(sizeof numbers / sizeof *numbers);
    const char *suffix = pick(suffixes, in.byte());
    c.address
        = QString::fromLatin1(prefixes[c.prefix]) + QLatin1String(numbers[c.number]) + QLatin1String(suffix);
    c.count = in.count();
    if (!c.read)
        c.data = in.writeData();
    return c;
}

// Queues the rest of the input as what the line serves.
void script(LinkDouble &link, Input &in)
{
    while (!in.empty()) {
        const uint8_t control = in.byte();
        QByteArray bytes = in.bytes(in.byte());
        if (control & 0x08)
            bytes = withCrc(bytes);
        const QByteArray text = bytes.toHex();
        switch (control & 0x07) {
        case 0:
        case 1:
        case 2:
            link.line(bytes); // taken by as many receives as it lasts
            break;
        case 3:
            link.piece(text.constData()); // one receive: what it copied
            break;
        case 4:
            link.piece(text.constData(), 0);
            break;
        case 5:
            link.piece(text.constData(), -1);
            break;
        case 6:
            // A count of the input's choosing: short, long or negative.
            link.piece(text.constData(), int(control >> 4) * 17 - 8);
            break;
        case 7:
            link.silence();
            break;
        }
    }
}

bool holdingPrefix(int prefix)
{
    const char *p = prefixes[prefix];
    return std::strcmp(p, "HR") == 0 || std::strcmp(p, "hr") == 0 || std::strcmp(p, "FN6HR") == 0
        || std::strcmp(p, "fn6hr") == 0;
}

// HR60000..HR60010 are the first eleven numbers.
bool windowNumber(int number) { return number <= 10; }

// The byte count a successful read returns, from its type and count.
qint64 expectedSize(int type, qint64 count)
{
    switch (type) {
    case Bit:
    case BitBlock:
        return count < 0 ? -1 : (count + 7) / 8;
    case Byte:
    case Block:
        return count;
    case Word:
        return 2 * count;
    case DoubleWord:
        return 4 * count;
    default:
        return -1;
    }
}

QString description(const Command &c, int station)
{
    static const char *const readFormats[] = { " (read %d bit(s) from %d-", " (read %d byte(s) from %d-",
        " (read %d word(s) from %d-", " (read %d dword(s) from %d-" };
    static const char *const writeFormats[] = { " (write %d bit to %d-", " (write %d byte to %d-",
        " (write %d word to %d-", " (write %d dword to %d-" };
    char text[64];
    std::snprintf(text, sizeof text, (c.read ? readFormats : writeFormats)[c.type], c.count, station & 0xFF);
    return QString::fromLatin1(text) + c.address + QLatin1Char(')');
}

void fail(const char *what, const Command &c, const QString &error)
{
    std::fprintf(stderr, "%s: %s %s type %d count %d data %d byte(s); error text \"%s\"\n", what,
        c.read ? "read" : "write", c.address.toLatin1().constData(), c.type, c.count, int(c.data.size()),
        error.toLatin1().constData());
    std::abort();
}

void checkFrames(const LinkDouble &link)
{
    for (const std::string &text : link.sent()) {
        const QByteArray frame = hex(text.c_str());
        if (frame.size() < 8 || frame.size() > 256 || bitwiseCrc16(frame) != 0) {
            std::fprintf(stderr, "malformed frame sent: %s\n", text.c_str());
            std::abort();
        }
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    Input in { data, size };
    const uint8_t setup = in.byte();
    const int commands = (setup & 3) + 1;
    LinkDouble link;
    link.retries = ((setup >> 2) & 3) - 1;
    const int stations[] = { 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 2, 255, 300, -1, 0 };
    link.station = stations[setup >> 4];

    Command list[4];
    for (int i = 0; i < commands; ++i)
        list[i] = takeCommand(in);
    script(link, in);

    // TECO_FUZZ_TRACE=1: one line per command, to see what an input does.
    static const bool trace = std::getenv("TECO_FUZZ_TRACE") != nullptr;
    DriverTecoServo driver;
    for (int i = 0; i < commands; ++i) {
        const Command &c = list[i];
        const QString before = driver.getLastError();
        link.calls.clear();
        CommunicatorCommand cmd(c.type, c.count, c.address);
        QByteArray result;
        bool written = false;
        if (c.read)
            result = driver.read(&link, cmd);
        else
            written = driver.write(&link, cmd, c.data);
        const bool failed = driver.hasError();
        const QString error = driver.getLastError();
        if (trace)
            std::fprintf(stderr, "%s %s type %d count %d data %d byte(s) -> %s%s (%d requests)\n",
                c.read ? "read" : "write", c.address.toLatin1().constData(), c.type, c.count,
                int(c.data.size()), failed ? "failed: " : "ok", failed ? error.toLatin1().constData() : "",
                int(link.sent().size()));
        checkFrames(link);

        // Negative counts are counted in 32 bits by the bit reads of
        // registers: no size follows from them.
        if (c.read && !failed && c.count >= 0 && result.size() != expectedSize(c.type, c.count))
            fail("read returned another size than its type and count give", c, error);
        if (c.read && failed && !result.isEmpty()) {
            const bool readBack = c.type == Word && holdingPrefix(c.prefix) && windowNumber(c.number);
            if (!readBack || result.size() != 2 * c.count)
                fail("failed read returned data", c, error);
        }
        // A bit write without data that covers no register ends with false
        // and no text (the empty read of no registers).
        const bool coversNoRegister = !c.read && c.data.isEmpty() && (c.type == Bit || c.type == BitBlock);
        if (!c.read && written == failed && !(coversNoRegister && !written))
            fail("write result disagrees with hasError()", c, error);
        if (failed) {
            if (c.type <= DoubleWord) {
                if (!error.endsWith(description(c, link.station)))
                    fail("error text without the command's description", c, error);
                if (error.size() == description(c, link.station).size())
                    fail("error text is only the description", c, error);
            } else if (c.type != Block && c.type != BitBlock) {
                if (error != QLatin1String("unsupported data type: ") + c.address || !link.sent().empty())
                    fail("unsupported data type not refused", c, error);
            } else if (error.isEmpty()) {
                fail("error without a text", c, error);
            }
        } else if (link.countOf("retryCount") == 0 && error != before) {
            fail("error text changed by a command that succeeded at once", c, error);
        }
    }
    return 0;
}
