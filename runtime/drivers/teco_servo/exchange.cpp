// The request exchange that every operation runs, its two reply checks, the
// station check, and the command descriptions of the dispatchers.

#include "drivertecoservo.h"
#include "drivertexts.h"
#include "modbuscodes.h"
#include "modbusrtu.h"

#include <cstdarg>
#include <cstdio>
#include <cstring>

using namespace DriverTexts;

QString formatText(const char *format, ...)
{
    // Most texts fit the stack buffer; a longer one (an address with a long
    // run of letters) is formatted again into a buffer of its own size, so
    // that no text is ever cut.
    char buffer[256];
    va_list args;
    va_start(args, format);
    va_list again;
    va_copy(again, args);
    const int length = std::vsnprintf(buffer, sizeof buffer, format, args);
    va_end(args);
    if (length < 0) {
        va_end(again);
        return QString();
    }
    if (length < int(sizeof buffer)) {
        va_end(again);
        return QString::fromLatin1(buffer, length);
    }
    QByteArray text(length + 1, '\0');
    std::vsnprintf(text.data(), size_t(length) + 1, format, again);
    va_end(again);
    return QString::fromLatin1(text.constData(), length);
}

bool DriverTecoServo::stationFromLink(AbstractDeviceInterface *link, unsigned char &station)
{
    const int id = link->stationId();
    if (static_cast<unsigned int>(id) > 255u) {
        setCommError(formatText(InvalidSlaveId, id));
        return false;
    }
    station = static_cast<unsigned char>(id);
    return true;
}

bool DriverTecoServo::checkMinADU(unsigned char station, const char *reply, int received)
{
    if (received <= 0) {
        setCommError(QString(NoResponse));
        return false;
    }
    if (received != Modbus::MinReplyLength) {
        setCommError(QString(ReceivedTooFew).arg(Modbus::MinReplyLength));
        return false;
    }
    const unsigned char from = static_cast<unsigned char>(reply[0]);
    if (from != station) {
        setCommError(formatText(InvalidSlaveId, int(from)));
        return false;
    }
    return true;
}

bool DriverTecoServo::checkException(const char *reply, unsigned char functionCode)
{
    const unsigned char code = static_cast<unsigned char>(reply[1]);
    if (code == functionCode)
        return true;
    if (code == (functionCode | Modbus::ExceptionBit)) {
        // An exception reply is complete in its first five bytes.
        unsigned char frame[Modbus::MinReplyLength];
        std::memcpy(frame, reply, Modbus::MinReplyLength);
        if (!ModbusRTUSlaveCheckCRC(frame, Modbus::MinReplyLength))
            setCommError(QString(CrcError));
        else
            setCommError(formatText(ExceptionCode, unsigned(static_cast<unsigned char>(reply[2]))));
        return false;
    }
    setCommError(QString(InvalidResponse));
    return false;
}

bool DriverTecoServo::exchange(AbstractDeviceInterface *link, unsigned char station,
    const QByteArray &request, int replyLength, char *reply)
{
    static_assert(ReplyBufferSize > Modbus::MaxFrameLength, "the reply buffer holds the longest reply");
    // Reply lengths come from the operations' own checked quantities; the
    // clamp keeps a slip there from ever reaching past the buffer.
    replyLength = qBound(Modbus::MinReplyLength, replyLength, Modbus::MaxFrameLength);

    link->setParameter(LinkParameterBeforeRequest, QVariant(0));
    link->send(request.constData(), request.size());
    std::memset(reply, 0, ReplyBufferSize);

    const int received = link->receive(reply, Modbus::MinReplyLength);
    if (!checkMinADU(station, reply, received))
        return false;
    if (!checkException(reply, static_cast<unsigned char>(request.at(1))))
        return false;

    const int rest = replyLength - Modbus::MinReplyLength;
    if (link->receive(reply + Modbus::MinReplyLength, rest) != rest) {
        setCommError(QString(PacketLoss));
        return false;
    }
    if (!ModbusRTUSlaveCheckCRC(reinterpret_cast<unsigned char *>(reply), unsigned(replyLength))) {
        setCommError(QString(CrcError));
        return false;
    }
    return true;
}

namespace {
QString describe(const char *format, unsigned char station, const CommunicatorCommand &cmd)
{
    return formatText(format, cmd.count, int(station)) + cmd.address + QLatin1Char(')');
}
} // namespace

void DriverTecoServo::appendCmdToReadCommError(unsigned char station, const CommunicatorCommand &cmd)
{
    if (cmd.dataType >= Bit && cmd.dataType <= DoubleWord)
        commErrorText += describe(ReadSuffix[cmd.dataType], station, cmd);
}

void DriverTecoServo::appendCmdToWriteCommError(unsigned char station, const CommunicatorCommand &cmd)
{
    if (cmd.dataType >= Bit && cmd.dataType <= DoubleWord)
        commErrorText += describe(WriteSuffix[cmd.dataType], station, cmd);
}
