#include "rtuframe.h"

#include "tools.h"

namespace {

const ModbusFunction functions[] = {
    { 1, "read coils", FrameLayout::ReadBits, Area::Coils },
    { 2, "read discrete inputs", FrameLayout::ReadBits, Area::DiscreteInputs },
    { 3, "read holding registers", FrameLayout::ReadRegisters, Area::HoldingRegisters },
    { 4, "read input registers", FrameLayout::ReadRegisters, Area::InputRegisters },
    { 5, "write single coil", FrameLayout::WriteSingle, Area::Coils },
    { 6, "write single register", FrameLayout::WriteSingle, Area::HoldingRegisters },
    { 15, "write multiple coils", FrameLayout::WriteMultiple, Area::Coils },
    { 16, "write multiple registers", FrameLayout::WriteMultiple, Area::HoldingRegisters },
};

unsigned short crcOf(const uint8_t *bytes, int length)
{
    unsigned short crc = 0xFFFF;
    for (int i = 0; i < length; ++i)
        crc = update_crc_16(crc, bytes[i]);
    return crc;
}

} // namespace

const ModbusFunction *modbusFunction(int code)
{
    for (const ModbusFunction &f : functions)
        if (f.code == code)
            return &f;
    return nullptr;
}

int frameLength(const uint8_t *bytes, int have, FrameRole role)
{
    if (have < 2)
        return 0;
    if (role == FrameRole::Reply && (bytes[1] & 0x80))
        return 5; // station, function | 0x80, exception code, CRC
    const ModbusFunction *f = modbusFunction(bytes[1]);
    if (!f)
        return -1;
    if (role == FrameRole::Request)
        return f->layout != FrameLayout::WriteMultiple ? 8 : have < 7 ? 0 : 9 + bytes[6];
    if (f->writes())
        return 8;
    return have < 3 ? 0 : 5 + bytes[2];
}

int replyFrameLength(const uint8_t *bytes, int have) { return frameLength(bytes, have, FrameRole::Reply); }

int answerLength(const uint8_t *request, int length)
{
    if (length < 8)
        return 0;
    const int quantity = (request[4] << 8) | request[5];
    const ModbusFunction *f = modbusFunction(request[1]);
    if (!f)
        return 0;
    switch (f->layout) {
    case FrameLayout::ReadBits:
        // Bits come packed, 8 to a byte; the byte count is one byte.
        if (length != 8 || quantity < 1 || (quantity + 7) / 8 > 255)
            return 0;
        return 5 + (quantity + 7) / 8;
    case FrameLayout::ReadRegisters:
        if (length != 8 || quantity < 1 || quantity * 2 > 255)
            return 0;
        return 5 + quantity * 2;
    case FrameLayout::WriteSingle:
    case FrameLayout::WriteMultiple:
        // Station, function, address, value or quantity (, byte count, data), CRC.
        return length == frameLength(request, length, FrameRole::Request) ? 8 : 0;
    }
    return 0;
}

bool modbusCrcOk(const uint8_t *frame, int length)
{
    if (length < 4)
        return false;
    const unsigned short crc = crcOf(frame, length - 2);
    return frame[length - 2] == (crc & 0xFF) && frame[length - 1] == (crc >> 8);
}

void setModbusCrc(uint8_t *frame, int length)
{
    if (length < 4)
        return;
    const unsigned short crc = crcOf(frame, length - 2);
    frame[length - 2] = uint8_t(crc & 0xFF);
    frame[length - 1] = uint8_t(crc >> 8);
}
