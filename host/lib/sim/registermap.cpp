#include "registermap.h"

#include "textutil.h"

#include <sstream>

const char *builtinServoMap()
{
    return "# The built-in map of the simulated servo drive: ADDRESS VALUE NAME.\n"
           "station all\n"
           "HR1      2        control mode (0 position, 1 speed, 2 torque)\n"
           "HR2      1        rotation direction (0 counter-clockwise, 1 clockwise)\n"
           "HR10     0        servo on at power-up\n"
           "HR100    1500     speed command (rpm)\n"
           "HR101    300      torque limit (%)\n"
           "HR102    200      acceleration time (ms)\n"
           "HR103    200      deceleration time (ms)\n"
           "HR104SW  100000   position command (pulses, high word first)\n"
           "HR106    3000     maximum speed (rpm)\n"
           "HR110    0x1234   output configuration word\n"
           "HR1300   0        relay target (written through the panel's relay window)\n"
           "IR1      1498     motor speed (rpm)\n"
           "IR2      125      motor current (0.01 A)\n"
           "IR3      311      DC bus voltage (V)\n"
           "IR4      0        alarm code\n"
           "IR5      41       heat sink temperature (deg C)\n"
           "IR6SW    99998    position feedback (pulses, high word first)\n"
           "DO1      0        servo on\n"
           "DO2      0        alarm reset\n"
           "DO3      0        jog forward\n"
           "DO4      0        jog reverse\n"
           "DI1      1        servo ready\n"
           "DI2      1        in position\n"
           "DI3      0        alarm\n"
           "DI4      1        zero speed\n";
}

bool parseRegisterMap(const std::string &text, std::vector<MapEntry> &entries, std::string &error)
{
    std::vector<MapEntry> out;
    std::istringstream in(text);
    std::string lineText;
    int lineNumber = 0;
    int station = 0;
    while (std::getline(in, lineText)) {
        ++lineNumber;
        const std::string where = "line " + std::to_string(lineNumber) + ": ";
        std::istringstream words(lineText);
        std::string first, second;
        if (!(words >> first) || first[0] == '#')
            continue;
        if (!(words >> second)) {
            error = where + "expected ADDRESS VALUE [NAME] or \"station N|all\"";
            return false;
        }
        std::string name;
        std::getline(words, name);
        name = trimmed(name);
        if (first == "station") {
            long long n = 0;
            if (second == "all")
                station = 0;
            else if (parseInteger(second, n) && n >= 1 && n <= 247 && name.empty())
                station = int(n);
            else {
                error = where + "a station is a number from 1 to 247, or \"all\"";
                return false;
            }
            continue;
        }
        AddressText address;
        std::string problem;
        if (!AddressText::parse(first, address, problem)) {
            error = where + problem;
            return false;
        }
        if (address.bit >= 0 || address.prefix.compare(0, 2, "FN") == 0) {
            error = where + "use plain HR, IR, DO or DI addresses in a map, not \"" + first + "\"";
            return false;
        }
        long long value = 0;
        if (!parseInteger(second, value)) {
            error = where + "\"" + second + "\" is not a number";
            return false;
        }
        MapEntry e;
        e.station = station;
        e.area = address.area;
        e.address = address.wireNumber();
        e.name = name;
        e.line = lineNumber;
        if (!address.isRegister()) {
            if (value != 0 && value != 1) {
                error = where + "a coil or discrete input holds 0 or 1, not " + second;
                return false;
            }
            e.value = uint16_t(value);
            out.push_back(e);
        } else if (address.swap) {
            if (value < -2147483648LL || value > 4294967295LL || e.address > 65534) {
                error = where + second + " does not fit in two registers at " + first;
                return false;
            }
            const uint32_t v = uint32_t(value);
            e.value = uint16_t(v >> 16);
            out.push_back(e);
            e.address += 1;
            e.value = uint16_t(v & 0xFFFF);
            out.push_back(e);
        } else {
            if (value < -32768 || value > 65535) {
                error = where + second + " does not fit in a register (-32768 to 65535)";
                return false;
            }
            e.value = uint16_t(value);
            out.push_back(e);
        }
    }
    entries.swap(out);
    return true;
}
