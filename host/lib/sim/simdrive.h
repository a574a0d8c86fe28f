#ifndef HOST_SIM_SIMDRIVE_H
#define HOST_SIM_SIMDRIVE_H

// A simulated servo drive: a Modbus RTU slave built on libmodbus, serving
// several stations on one line, with injectable faults.
//
// The line is a pseudo-terminal that the drive opens itself (devicePath()
// names the side a master opens) or an existing serial device. Requests
// are cut from the line and handed to libmodbus, which checks and parses them with its own code and builds
// the answer from the station's data; the drive only routes the answer through the fault rules. It runs on
// its own thread between start() and stop().
//
// Requests are cut from the line by their length (requestcutter.h), not by
// the silence: a byte that a busy host delivers late would split a request
// cut by the silence, and a drive on a wire would never have lost it. Bytes
// that do not form a request with a good CRC are dropped as garbage up to the
// next gap on the line.
//
// The drive answers as a drive on a wire does: not before the request's
// characters have come, one character time each from the first byte read
// (on a pseudo-terminal no bits travel), and the silence after it has
// passed. A request that came while the drive was busy counts from when it
// came.
//
// When the map binds registers to the motor model (registermap.h, motion.h),
// every request first advances each station's motor to the time of the
// request, with the commands its registers hold, and writes what the motor
// shows into its registers; the answer then carries the new values.
//
// On its own pseudo-terminal it answers only a master whose speed and stop
// bits are its own, as a drive on a wire would; the rest it drops as
// garbage. The parity a master sets cannot be seen there (Linux keeps none
// on a pseudo-terminal): any parity is answered.

#include "addresstext.h"
#include "faultrule.h"
#include "registermap.h"
#include "linksettings.h"
#include "requestcutter.h"
#include "serialport.h"

#include <atomic>
#include <cstdint>
#include <cstdio>
#include <map>
#include <mutex>
#include <optional>
#include <random>
#include <string>
#include <thread>
#include <vector>

struct pollfd;
typedef struct _modbus modbus_t;
typedef struct _modbus_mapping_t modbus_mapping_t;

class SimDrive
{
public:
    struct Options
    {
        std::string device; // serve on this serial device; empty: a new pseudo-terminal
        // Serve over TCP on "HOST:PORT" instead (port 0: one the system
        // picks), one connection at a time: RTU frames as a serial device
        // server passes them, no Modbus TCP header.
        std::string listen;
        LinkSettings link; // line settings (and the silence that ends a frame)
        std::vector<int> stations { 1, 2, 3 };
        // Initial values (registermap.h); without a value the built-in servo
        // map. An empty map is a map too: every register starts at 0.
        std::optional<std::string> map;
        std::vector<FaultRule> faults;
        unsigned seed = 1; // for faults by rate
        FILE *log = nullptr; // one line per request, when set
        // Each answer begins this long after the request's end (on a serial
        // device: after the silence that ended it); -1: once the silence has passed.
        int turnaroundMs = -1;
        // The line gives back each request before the answer, as a 2-wire
        // RS485 adapter without echo suppression does.
        bool echo = false;
    };

    struct Stats
    {
        uint64_t requests = 0; // well-formed requests to a served station
        uint64_t replies = 0; // answers put on the line
        uint64_t ignored = 0; // requests to stations that are not served here
        uint64_t badFrames = 0; // refused by libmodbus (CRC, length, garbage) or sent at other line settings
        uint64_t faults[FaultRule::KindCount] = {};
        uint64_t lateRepliesSent = 0;
        uint64_t noiseBytesSent = 0;
    };

    SimDrive();
    ~SimDrive();
    SimDrive(const SimDrive &) = delete;
    SimDrive &operator=(const SimDrive &) = delete;

    bool start(const Options &options, std::string &error);
    void stop();
    bool running() const { return worker.joinable(); }
    // The device that a master opens ("tcp:HOST:PORT" with listen).
    const std::string &devicePath() const { return path; }

    Stats stats() const;
    // Requests seen for a station, of one function code or (0) of any.
    uint64_t requests(int station, int functionCode = 0) const;
    // Register (or bit, as 0/1) of a served station; false for other stations.
    bool value(int station, Area area, int address, uint16_t &value) const;
    bool setValue(int station, Area area, int address, uint16_t value);
    void addFault(const FaultRule &rule);
    void clearFaults();

    // Parses "1,2,5-7" into station numbers 1..247.
    static bool parseStations(const std::string &text, std::vector<int> &stations, std::string &error);
    // The drive's stations, faults and map as people give them (a station
    // list, fault rules, the path of a map file) into options; each is
    // optional. False with one sentence in error: a bad list or rule, or a
    // map that is not a regular file of at most 1 MiB.
    static bool optionsFrom(const std::optional<std::string> &stations,
        const std::vector<std::string> &faults, const std::optional<std::string> &mapPath, Options &options,
        std::string &error);

private:
    // Parts of start(): each false with one sentence in error.
    bool checkMap(std::vector<MapEntry> &entries, std::vector<MotionEntry> &motion, std::string &error) const;
    bool openLine(std::string &error);
    bool openModbus(std::string &error);
    bool fillRegisters(const std::vector<MapEntry> &entries, std::string &error);
    void setUpMotors(const std::vector<MotionEntry> &motion);

    bool openListener(std::string &error);
    void run();
    // Takes the next connection as the line, or drops the one that closed.
    void acceptConnection();
    void dropConnection();
    // Reads what came and handles each request it completes; false when
    // the line has nothing more to give (closed, or no master on it).
    bool readLine();
    // Whether a master at other line settings sent the frame (it is counted
    // and dropped).
    bool masterAtOtherSettings(size_t length);
    // A request cut from the line whose first byte was heard at startNs.
    void handleFrame(const std::vector<uint8_t> &frame, int64_t startNs);
    void handleRequest(const uint8_t *request, int length);
    // What the request asks for: its area, range and name.
    struct RequestRange;
    static RequestRange rangeOf(const uint8_t *request);
    // The answer libmodbus gives the request (empty: none is due), and the
    // fault picked for it; counts the request.
    std::vector<uint8_t> answerOf(
        const uint8_t *request, int length, const RequestRange &range, std::optional<FaultRule> &fault);
    // The first fault rule that hits the request; with the mutex held.
    std::optional<FaultRule> pickFault(int station, const RequestRange &range);
    // Spoils the answer as the fault says; false when asked to stop.
    bool spoil(std::vector<uint8_t> &answer, const FaultRule &fault, int station);
    void sendNoise(const FaultRule &fault);
    void putOnLine(const uint8_t *bytes, int length);
    // When the answer to the request being handled is due (monotonic ns; 0: at once).
    int64_t answerDueNs() const;
    bool pause(int64_t ns); // false when asked to stop
    modbus_mapping_t *mappingOf(int station) const;
    void advanceMotors(int64_t now); // with the mutex held

    Options opts;
    std::string path;
    int lineFd = -1; // the line: our pseudo-terminal side or the device
    int holdFd = -1; // our own descriptor on the master's side of the pseudo-terminal
    int listenFd = -1; // with listen: the socket that takes connections; lineFd is the one taken, or -1
    int wake[2] = { -1, -1 };
    int modbusSide = -1; // libmodbus reads requests from and writes answers to this socket
    int ourSide = -1; // ... and we feed and collect them here
    SerialPort device; // an existing serial device
    modbus_t *ctx = nullptr;
    std::map<int, modbus_mapping_t *> mappings;
    std::thread worker;

    mutable std::mutex mutex; // guards everything below and the mappings' contents
    std::vector<FaultRule> faults;
    Stats counts;
    std::map<std::pair<int, int>, uint64_t> requestCounts;
    std::mt19937 random;

    // The motor of a station whose map binds motion registers.
    struct Motor
    {
        MotionEntry bound[motionQuantityCount];
        bool isBound[motionQuantityCount] = {};
        MotionState state;
    };
    std::map<int, Motor> motors;
    int64_t motorsAt = 0; // when the motors were last advanced
    RequestCutter cutter { 0 };
    int64_t lastHeardNs = 0; // when bytes last came; 0: none yet
    // When the request being handled has come and the silence after it
    // has passed: the drive answers then.
    int64_t heardNs = 0;
    int64_t queuedSinceNs = 0; // when a request began to wait while the drive was busy; -1: no master
};

#endif // HOST_SIM_SIMDRIVE_H
