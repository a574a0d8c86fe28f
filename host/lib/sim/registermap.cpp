#include "registermap.h"

#include "textutil.h"

#include <sstream>

const char *builtinServoMap()
{
    return "# The built-in map of the simulated servo drive: ADDRESS VALUE NAME.\n"
           "station all\n"
           "# Parameters and monitor values that keep the values written to them.\n"
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
           "DI4      1        zero speed\n"
           "# The motor: the model reads the commands HR401..HR406 and writes IR401..IR406\n"
           "# on every request (motion QUANTITY ADDRESS [NAME]).\n"
           "HR401    1        servo on (0 off, 1 on)\n"
           "HR402    1500     speed command (rpm, signed)\n"
           "HR403    2000     acceleration time (ms from 0 to 3000 rpm)\n"
           "HR404    2000     deceleration time (ms from 3000 rpm to 0)\n"
           "HR405    3000     maximum speed (rpm; a command beyond it raises alarm 1)\n"
           "motion servo-on       HR401\n"
           "motion speed-command  HR402\n"
           "motion accel-time     HR403\n"
           "motion decel-time     HR404\n"
           "motion max-speed      HR405\n"
           "motion alarm-reset    HR406    alarm reset (write 1 to clear the alarm)\n"
           "motion speed          IR401    motor speed (rpm, signed)\n"
           "motion position       IR402SW  position (10000 counts a revolution, high word first, wraps)\n"
           "motion current        IR404    motor current (0.01 A)\n"
           "motion load           IR405    load (% of the rated torque)\n"
           "motion alarm          IR406    alarm code (0 none, 1 over-speed, 2 overload)\n";
}

namespace {

// Whether two motion entries can both apply to one station.
bool sameStations(const MotionEntry &a, const MotionEntry &b)
{
    return a.station == 0 || b.station == 0 || a.station == b.station;
}

int registersOf(const MotionEntry &e) { return e.quantity == MotionQuantity::Position ? 2 : 1; }

// "motion QUANTITY ADDRESS [NAME]", checked against the motion lines before it.
bool parseMotionLine(
    std::istringstream &words, MotionEntry &e, const std::vector<MotionEntry> &earlier, std::string &error)
{
    std::string quantity, addressText;
    if (!(words >> quantity >> addressText)) {
        error = "expected \"motion QUANTITY ADDRESS [NAME]\"";
        return false;
    }
    if (!motionQuantityFromName(quantity, e.quantity)) {
        error = "unknown motion quantity \"" + quantity + "\" (" + motionQuantityNames() + ")";
        return false;
    }
    AddressText address;
    if (!AddressText::parse(addressText, address, error))
        return false;
    if (address.bit >= 0 || address.prefix.compare(0, 2, "FN") == 0) {
        error = "use plain HR, IR, DO or DI addresses in a map, not \"" + addressText + "\"";
        return false;
    }
    const bool position = e.quantity == MotionQuantity::Position;
    if (position && !address.swap) {
        error = "the position takes two registers: write its address as " + address.prefix
            + std::to_string(address.number) + "SW";
        return false;
    }
    if (!position && address.swap) {
        error = "only the position takes two registers, not " + quantity;
        return false;
    }
    if (position && (!address.isRegister() || address.wireNumber() > 65534)) {
        error = "the position needs two registers at " + addressText;
        return false;
    }
    e.area = address.area;
    e.address = address.wireNumber();
    std::getline(words, e.name);
    e.name = trimmed(e.name);
    for (const MotionEntry &o : earlier) {
        if (!sameStations(e, o))
            continue;
        const std::string there = " (line " + std::to_string(o.line) + ")";
        if (o.quantity == e.quantity) {
            error = "motion " + quantity + " is bound twice for the same station" + there;
            return false;
        }
        if (o.area == e.area && e.address < o.address + registersOf(o)
            && o.address < e.address + registersOf(e)) {
            error = addressText + " is already bound to motion " + motionQuantityName(o.quantity) + there;
            return false;
        }
    }
    return true;
}

// Every station with motion lines needs a speed command to follow.
bool checkMotion(const std::vector<MotionEntry> &motion, std::string &error)
{
    for (const MotionEntry &e : motion) {
        bool commanded = false;
        for (const MotionEntry &o : motion)
            commanded = commanded
                || (o.quantity == MotionQuantity::SpeedCommand && (o.station == 0 || o.station == e.station));
        if (!commanded) {
            error = "line " + std::to_string(e.line) + ": the motion lines of "
                + (e.station ? "station " + std::to_string(e.station) : std::string("every station"))
                + " bind no speed-command register";
            return false;
        }
    }
    return true;
}

// A map's lines read one after another: the entries and motion lines so
// far, and the station that the lines name.
struct MapReader
{
    std::vector<MapEntry> entries;
    std::vector<MotionEntry> motion;
    int station = 0;
    int lineNumber = 0;

    // The next line; false with one sentence (without its line number).
    bool readLine(const std::string &lineText, std::string &error);
    bool readMotion(std::istringstream &words, std::string &error);
    bool readStation(const std::string &second, const std::string &name, std::string &error);
    bool readValue(
        const std::string &first, const std::string &second, const std::string &name, std::string &error);
    // The entries for value at address (first and second as written).
    bool addValue(const AddressText &address, MapEntry e, long long value, const std::string &first,
        const std::string &second, std::string &error);
};

bool MapReader::readLine(const std::string &lineText, std::string &error)
{
    std::istringstream words(lineText);
    std::string first, second;
    if (!(words >> first) || first[0] == '#')
        return true;
    if (first == "motion")
        return readMotion(words, error);
    if (!(words >> second)) {
        error = "expected ADDRESS VALUE [NAME] or \"station N|all\"";
        return false;
    }
    std::string name;
    std::getline(words, name);
    name = trimmed(name);
    if (first == "station")
        return readStation(second, name, error);
    return readValue(first, second, name, error);
}

bool MapReader::readMotion(std::istringstream &words, std::string &error)
{
    MotionEntry e;
    e.station = station;
    e.line = lineNumber;
    if (!parseMotionLine(words, e, motion, error))
        return false;
    motion.push_back(e);
    return true;
}

bool MapReader::readStation(const std::string &second, const std::string &name, std::string &error)
{
    long long n = 0;
    if (second == "all")
        station = 0;
    else if (parseInteger(second, n) && n >= 1 && n <= 247 && name.empty())
        station = int(n);
    else {
        error = "a station is a number from 1 to 247, or \"all\"";
        return false;
    }
    return true;
}

bool MapReader::readValue(
    const std::string &first, const std::string &second, const std::string &name, std::string &error)
{
    AddressText address;
    if (!AddressText::parse(first, address, error))
        return false;
    if (address.bit >= 0 || address.prefix.compare(0, 2, "FN") == 0) {
        error = "use plain HR, IR, DO or DI addresses in a map, not \"" + first + "\"";
        return false;
    }
    long long value = 0;
    if (!parseInteger(second, value)) {
        error = "\"" + second + "\" is not a number";
        return false;
    }
    MapEntry e;
    e.station = station;
    e.area = address.area;
    e.address = address.wireNumber();
    e.name = name;
    e.line = lineNumber;
    return addValue(address, e, value, first, second, error);
}

bool MapReader::addValue(const AddressText &address, MapEntry e, long long value, const std::string &first,
    const std::string &second, std::string &error)
{
    if (!address.isRegister()) {
        if (value != 0 && value != 1) {
            error = "a coil or discrete input holds 0 or 1, not " + second;
            return false;
        }
        e.value = uint16_t(value);
        entries.push_back(e);
    } else if (address.swap) {
        if (value < -2147483648LL || value > 4294967295LL || e.address > 65534) {
            error = second + " does not fit in two registers at " + first;
            return false;
        }
        const uint32_t v = uint32_t(value);
        e.value = uint16_t(v >> 16);
        entries.push_back(e);
        e.address += 1;
        e.value = uint16_t(v & 0xFFFF);
        entries.push_back(e);
    } else {
        if (value < -32768 || value > 65535) {
            error = second + " does not fit in a register (-32768 to 65535)";
            return false;
        }
        e.value = uint16_t(value);
        entries.push_back(e);
    }
    return true;
}

} // namespace

bool parseRegisterMap(const std::string &text, std::vector<MapEntry> &entries, std::string &error,
    std::vector<MotionEntry> *motion)
{
    MapReader reader;
    std::istringstream in(text);
    std::string lineText;
    while (std::getline(in, lineText)) {
        ++reader.lineNumber;
        if (!reader.readLine(lineText, error)) {
            error = "line " + std::to_string(reader.lineNumber) + ": " + error;
            return false;
        }
    }
    if (!checkMotion(reader.motion, error))
        return false;
    entries.swap(reader.entries);
    if (motion)
        motion->swap(reader.motion);
    return true;
}
