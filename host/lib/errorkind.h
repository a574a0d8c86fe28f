#ifndef HOST_ERRORKIND_H
#define HOST_ERRORKIND_H

// The driver's error texts sorted into what went wrong, once, for every
// front end: poll statistics, scan results, exit codes, JSON. The texts
// themselves are the driver's (drivertexts.h); this only reads them.

#include <string>

enum class ErrorKind {
    None, // no error text
    TimeOut, // nothing came: "PLC no response"
    ShortReply, // the first piece was short: "received bytes < 5"
    PacketLoss, // the rest of the reply was short: "packet loss"
    Crc, // "CRC error"
    Exception, // the drive refused the request with an exception code
    WrongStation, // a reply from another station: "invalid slave id:N", N 0..255
    InvalidResponse, // a reply with another function code
    Refused, // the driver refused the command before sending anything
    Other // a text this classification does not know (another driver)
};

struct DriverError
{
    ErrorKind kind = ErrorKind::None;
    int exceptionCode = 0; // for Exception
    std::string text; // the text without the command description appended after the last attempt
};

// Classifies an error text of the driver, such as
// "exception code:0x02 (write 1 word to 1-FN6HR5)".
DriverError classifyDriverError(const std::string &text);

// "time-out", "CRC", "exception", ...: short names for tables and JSON.
const char *errorKindName(ErrorKind kind);

// The Modbus name of an exception code ("illegal data address"), or
// nullptr for a code without one.
const char *exceptionName(int code);

#endif // HOST_ERRORKIND_H
