#include "command.h"

namespace {

const char *typeName(int dataType)
{
    static const char *const names[] = { "bit", "byte", "word", "dword", "quadword", "block", "bitblock" };
    return dataType >= 0 && dataType <= 6 ? names[dataType] : "type?";
}

int elementSize(int dataType)
{
    switch (dataType) {
    case 2:
        return 2;
    case 3:
        return 4;
    case 4:
        return 8;
    default:
        return 1; // bytes, and bits as one byte each
    }
}

} // namespace

const char *opName(Op op)
{
    switch (op) {
    case Op::ReadWords:
        return "read words";
    case Op::ReadDWords:
        return "read double words";
    case Op::ReadBytes:
        return "read bytes";
    case Op::ReadBits:
        return "read coils/inputs";
    case Op::ReadRegisterBits:
        return "read register bits";
    case Op::ReadWindow:
        return "read window";
    case Op::WriteWords:
        return "write words";
    case Op::WriteDWords:
        return "write double words";
    case Op::WriteBytes:
        return "write bytes";
    case Op::WriteCoils:
        return "write coils";
    case Op::WriteRegisterBits:
        return "write register bits";
    case Op::WriteWindowWords:
        return "write window words";
    case Op::WriteWindowBit:
        return "write window bit";
    case Op::Relay:
        return "relay word";
    case Op::RelayBit:
        return "relay bit";
    case Op::Refused:
        return "refused";
    }
    return "?";
}

std::string SoakCommand::describe() const
{
    const int n = write ? data.size() / elementSize(dataType) : count;
    return std::string(write ? "write " : "read ") + std::to_string(n) + " " + typeName(dataType) + "(s) "
        + address + " at station " + std::to_string(station);
}
