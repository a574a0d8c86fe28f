#include "simdrive.h"

#include "registermap.h"
#include "rtuframe.h"
#include "tcpline.h"
#include "textfile.h"
#include "textutil.h"

#include <modbus.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <termios.h>
#include <unistd.h>

namespace {

bool makeRaw(int fd)
{
    struct termios t;
    if (tcgetattr(fd, &t) < 0)
        return false;
    cfmakeraw(&t);
    t.c_cflag |= CLOCAL | CREAD;
    t.c_cc[VMIN] = 1;
    t.c_cc[VTIME] = 0;
    return tcsetattr(fd, TCSANOW, &t) == 0;
}

int pendingBytes(int fd)
{
    int n = 0;
    return ioctl(fd, FIONREAD, &n) < 0 ? 0 : n;
}

} // namespace

struct SimDrive::RequestRange
{
    Area area;
    int first;
    int quantity;
    const char *what;
};

SimDrive::RequestRange SimDrive::rangeOf(const uint8_t *r)
{
    const int first = (r[2] << 8) | r[3];
    const int quantity = (r[4] << 8) | r[5];
    switch (r[1]) {
    case 1:
        return { Area::Coils, first, quantity, "read coils" };
    case 2:
        return { Area::DiscreteInputs, first, quantity, "read discrete inputs" };
    case 3:
        return { Area::HoldingRegisters, first, quantity, "read holding registers" };
    case 4:
        return { Area::InputRegisters, first, quantity, "read input registers" };
    case 5:
        return { Area::Coils, first, 1, "write coil" };
    case 6:
        return { Area::HoldingRegisters, first, 1, "write register" };
    case 15:
        return { Area::Coils, first, quantity, "write coils" };
    case 16:
        return { Area::HoldingRegisters, first, quantity, "write registers" };
    default:
        return { Area::HoldingRegisters, -1, 0, "function" };
    }
}

namespace {

uint16_t cellOf(const modbus_mapping_t *m, Area area, int address)
{
    switch (area) {
    case Area::Coils:
        return m->tab_bits[address];
    case Area::DiscreteInputs:
        return m->tab_input_bits[address];
    case Area::HoldingRegisters:
        return m->tab_registers[address];
    case Area::InputRegisters:
        return m->tab_input_registers[address];
    }
    return 0;
}

void setCell(modbus_mapping_t *m, Area area, int address, uint16_t v)
{
    switch (area) {
    case Area::Coils:
        m->tab_bits[address] = v ? 1 : 0;
        break;
    case Area::DiscreteInputs:
        m->tab_input_bits[address] = v ? 1 : 0;
        break;
    case Area::HoldingRegisters:
        m->tab_registers[address] = v;
        break;
    case Area::InputRegisters:
        m->tab_input_registers[address] = v;
        break;
    }
}

} // namespace

SimDrive::SimDrive() = default;

SimDrive::~SimDrive() { stop(); }

bool SimDrive::optionsFrom(const std::optional<std::string> &stations, const std::vector<std::string> &faults,
    const std::optional<std::string> &mapPath, Options &options, std::string &error)
{
    if (stations && !parseStations(*stations, options.stations, error))
        return false;
    for (const std::string &text : faults) {
        FaultRule rule;
        if (!FaultRule::parse(text, rule, error))
            return false;
        options.faults.push_back(rule);
    }
    if (mapPath && !readTextFile(*mapPath, userTextFileLimit, options.map.emplace(), error)) {
        error = "cannot read the map " + *mapPath + ": " + error;
        return false;
    }
    return true;
}

bool SimDrive::parseStations(const std::string &text, std::vector<int> &stations, std::string &error)
{
    std::vector<int> out;
    for (const std::string &item : splitFields(text, ',')) {
        const size_t dash = item.find('-');
        const std::string a = item.substr(0, dash), b = dash == std::string::npos ? a : item.substr(dash + 1);
        int low = 0, high = 0;
        if (!parseWholeNumber(a, 1, 247, low) || !parseWholeNumber(b, 1, 247, high) || low > high) {
            error = "bad station list \"" + text + "\" (numbers 1 to 247, such as 1,2,5-7)";
            return false;
        }
        for (int s = low; s <= high; ++s)
            if (std::find(out.begin(), out.end(), s) == out.end())
                out.push_back(s);
    }
    stations.swap(out);
    return true;
}

bool SimDrive::checkMap(
    std::vector<MapEntry> &entries, std::vector<MotionEntry> &motion, std::string &error) const
{
    if (!parseRegisterMap(opts.map ? *opts.map : builtinServoMap(), entries, error, &motion)) {
        error = "register map, " + error;
        return false;
    }
    std::vector<std::pair<int, int>> stationLines;
    for (const MapEntry &e : entries)
        stationLines.emplace_back(e.station, e.line);
    for (const MotionEntry &e : motion)
        stationLines.emplace_back(e.station, e.line);
    for (const auto &sl : stationLines)
        if (sl.first != 0
            && std::find(opts.stations.begin(), opts.stations.end(), sl.first) == opts.stations.end()) {
            error = "register map, line " + std::to_string(sl.second) + ": station "
                + std::to_string(sl.first) + " is not served (serve it with --stations)";
            return false;
        }
    return true;
}

bool SimDrive::openListener(std::string &error)
{
    listenFd = listenTcp(opts.listen, error);
    if (listenFd < 0)
        return false;
    path = "tcp:" + listeningAddress(listenFd);
    return true;
}

bool SimDrive::openLine(std::string &error)
{
    if (!opts.listen.empty())
        return openListener(error);
    if (!opts.device.empty()) {
        if (!device.open(opts.device, opts.link, false, error))
            return false;
        lineFd = device.descriptor();
        path = opts.device;
        return true;
    }
    lineFd = posix_openpt(O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC);
    char name[128] = { 0 };
    if (lineFd < 0 || grantpt(lineFd) < 0 || unlockpt(lineFd) < 0
        || ptsname_r(lineFd, name, sizeof name) != 0) {
        error = std::string("cannot create a pseudo-terminal: ") + std::strerror(errno);
        return false;
    }
    path = name;
    // Our own descriptor on the master's side keeps the line up while no
    // master has it open; we never read from it.
    holdFd = ::open(name, O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC);
    if (holdFd < 0 || !makeRaw(holdFd) || !makeRaw(lineFd)) {
        error = std::string("cannot set up the pseudo-terminal: ") + std::strerror(errno);
        return false;
    }
    return true;
}

bool SimDrive::openModbus(std::string &error)
{
    int pair[2];
    if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, pair) < 0
        || pipe2(wake, O_CLOEXEC | O_NONBLOCK) < 0) {
        error = std::string("cannot create the simulated drive's channels: ") + std::strerror(errno);
        return false;
    }
    ourSide = pair[0];
    modbusSide = pair[1];
    fcntl(ourSide, F_SETFL, O_NONBLOCK);
    ctx = modbus_new_rtu(
        path.c_str(), opts.link.baudRate, opts.link.parity, opts.link.dataBits, opts.link.stopBits);
    if (!ctx) {
        error = std::string("libmodbus: ") + modbus_strerror(errno);
        return false;
    }
    modbus_set_socket(ctx, modbusSide);
    // A request is complete in the socket before libmodbus reads it: a
    // missing byte is a short frame, not a slow line.
    modbus_set_byte_timeout(ctx, 0, 2000);
    // libmodbus pauses its response time-out after refusing a quantity; keep
    // that pause negligible.
    modbus_set_response_timeout(ctx, 0, 1);
    return true;
}

bool SimDrive::fillRegisters(const std::vector<MapEntry> &entries, std::string &error)
{
    for (int s : opts.stations) {
        modbus_mapping_t *m = modbus_mapping_new(65536, 65536, 65536, 65536);
        if (!m) {
            error = "out of memory for the simulated drive's registers";
            return false;
        }
        mappings[s] = m;
    }
    for (const MapEntry &e : entries)
        for (auto &sm : mappings) {
            if (e.station != 0 && e.station != sm.first)
                continue;
            uint16_t v = e.value;
            if (e.bit >= 0) {
                const uint16_t mask = uint16_t(1u << e.bit), old = cellOf(sm.second, e.area, e.address);
                v = e.value ? uint16_t(old | mask) : uint16_t(old & ~mask);
            }
            setCell(sm.second, e.area, e.address, v);
        }
    return true;
}

void SimDrive::setUpMotors(const std::vector<MotionEntry> &motion)
{
    // Each motor starts from what its monitor registers hold in the map.
    motors.clear();
    for (const MotionEntry &e : motion)
        for (auto &sm : mappings)
            if (e.station == 0 || e.station == sm.first) {
                Motor &motor = motors[sm.first];
                motor.bound[int(e.quantity)] = e;
                motor.isBound[int(e.quantity)] = true;
            }
    for (auto &sm : motors) {
        const modbus_mapping_t *m = mappings.at(sm.first);
        Motor &motor = sm.second;
        auto initial = [&](MotionQuantity q, int offset = 0) -> uint16_t {
            const MotionEntry &e = motor.bound[int(q)];
            return motor.isBound[int(q)] ? cellOf(m, e.area, e.address + offset) : 0;
        };
        motor.state.speed = int16_t(initial(MotionQuantity::Speed));
        motor.state.position
            = uint32_t(initial(MotionQuantity::Position)) << 16 | initial(MotionQuantity::Position, 1);
        motor.state.alarm = initial(MotionQuantity::Alarm);
    }
    motorsAt = monotonicNs();
    advanceMotors(motorsAt);
}

bool SimDrive::start(const Options &options, std::string &error)
{
    stop();
    opts = options;
    if (opts.stations.empty()) {
        error = "the simulated drive needs at least one station";
        return false;
    }
    std::vector<MapEntry> entries;
    std::vector<MotionEntry> motion;
    if (!checkMap(entries, motion, error))
        return false;
    if (!openLine(error) || !openModbus(error) || !fillRegisters(entries, error)) {
        stop();
        return false;
    }
    setUpMotors(motion);
    faults = opts.faults;
    counts = Stats();
    requestCounts.clear();
    random.seed(opts.seed);
    cutter = RequestCutter(opts.link.characterNs());
    lastHeardNs = 0;
    worker = std::thread(&SimDrive::run, this);
    return true;
}

void SimDrive::stop()
{
    if (worker.joinable()) {
        const char c = 'x';
        if (::write(wake[1], &c, 1) < 0) { }
        worker.join();
    }
    if (ctx) {
        modbus_free(ctx); // the socket is ours to close
        ctx = nullptr;
    }
    for (auto &sm : mappings)
        modbus_mapping_free(sm.second);
    mappings.clear();
    for (int *fd : { &ourSide, &modbusSide, &wake[0], &wake[1], &holdFd, &listenFd }) {
        if (*fd >= 0)
            ::close(*fd);
        *fd = -1;
    }
    if (device.isOpen())
        device.close();
    else if (lineFd >= 0)
        ::close(lineFd);
    lineFd = -1;
}

bool SimDrive::pause(int64_t ns)
{
    // Notes when a request begins to wait on the line while the drive is
    // busy: that is when it came.
    const int64_t until = monotonicNs() + ns;
    for (;;) {
        const int64_t left = until - monotonicNs();
        if (left <= 0)
            return true;
        const bool watch = queuedSinceNs == 0;
        struct pollfd p[2] = { { wake[0], POLLIN, 0 }, { lineFd, POLLIN, 0 } };
        struct timespec ts = { time_t(left / 1000000000), long(left % 1000000000) };
        if (ppoll(p, watch ? 2 : 1, &ts, nullptr) > 0) {
            if (p[0].revents)
                return false;
            // Bytes waiting, or no master on the line (nothing to note).
            queuedSinceNs = pendingBytes(lineFd) > 0 ? monotonicNs() : -1;
        }
    }
}

void SimDrive::run()
{
    // The answer's moment is a timed wait: let it end on time.
    prctl(PR_SET_TIMERSLACK, 1UL, 0UL, 0UL, 0UL);
    for (;;) {
        // Over TCP, the next connection waits until the one served closes.
        struct pollfd p[3]
            = { { lineFd, POLLIN, 0 }, { wake[0], POLLIN, 0 }, { lineFd < 0 ? listenFd : -1, POLLIN, 0 } };
        if (poll(p, 3, -1) < 0) {
            if (errno == EINTR)
                continue;
            return;
        }
        if (p[1].revents)
            return;
        if (p[2].revents)
            acceptConnection();
        else if (listenFd >= 0 && p[0].revents && ((p[0].revents & POLLIN) == 0 || !readLine()))
            dropConnection();
        else if (p[0].revents & POLLIN)
            readLine();
        else if (p[0].revents && !pause(10000000))
            return; // no master on the line (a device that hung up): it waits quietly, until stopped
    }
}

void SimDrive::acceptConnection()
{
    lineFd = accept4(listenFd, nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC);
    if (lineFd < 0)
        return;
    const int on = 1;
    setsockopt(lineFd, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
    cutter.clear();
    lastHeardNs = 0;
    if (opts.log)
        std::fprintf(opts.log, "sim: a master connected\n");
}

void SimDrive::dropConnection()
{
    ::close(lineFd);
    lineFd = -1;
    cutter.clear();
    if (opts.log)
        std::fprintf(opts.log, "sim: the master's connection closed\n");
}

bool SimDrive::readLine()
{
    uint8_t chunk[512];
    const ssize_t n = ::read(lineFd, chunk, sizeof chunk);
    if (n <= 0)
        return n < 0 && (errno == EAGAIN || errno == EINTR);
    // Bytes that came while the drive was busy came when it noted them.
    const int64_t now = monotonicNs(), at = queuedSinceNs > 0 ? queuedSinceNs : now;
    queuedSinceNs = 0;
    const bool afterGap = lastHeardNs == 0 || at - lastHeardNs >= opts.link.silenceNs();
    lastHeardNs = now;
    const uint64_t droppedBefore = cutter.dropped();
    cutter.add(chunk, size_t(n), at, afterGap);
    std::vector<uint8_t> frame;
    int64_t startNs = 0;
    while (cutter.next(frame, startNs))
        handleFrame(frame, startNs);
    if (cutter.dropped() > droppedBefore) {
        std::lock_guard<std::mutex> lock(mutex);
        counts.badFrames += cutter.dropped() - droppedBefore;
        if (opts.log)
            std::fprintf(opts.log, "sim: dropped bytes that do not form a request with a good CRC\n");
    }
    return true;
}

bool SimDrive::masterAtOtherSettings(size_t length)
{
    // No bits travel on a pseudo-terminal, so any speed would carry the
    // bytes; but its two ends share one set of line settings. A master set
    // to another speed or number of stop bits would reach a real drive as
    // garbage: its frames are dropped as garbage here. (The parity cannot be
    // told: Linux keeps none on a pseudo-terminal.)
    struct termios master;
    if (!opts.device.empty() || tcgetattr(lineFd, &master) != 0 || opts.link.speedAndStopBitsSetIn(master))
        return false;
    std::lock_guard<std::mutex> lock(mutex);
    ++counts.badFrames;
    if (opts.log)
        std::fprintf(opts.log, "sim: dropped %zu bytes sent at another speed or stop bits than %s\n", length,
            opts.link.text().c_str());
    return true;
}

void SimDrive::handleFrame(const std::vector<uint8_t> &frame, int64_t startNs)
{
    if (masterAtOtherSettings(frame.size()))
        return;
    // libmodbus checks and parses the request with its own code.
    uint8_t request[MODBUS_RTU_MAX_ADU_LENGTH];
    int rc = -1;
    if (frame[0] <= 247
        && ::send(ourSide, frame.data(), frame.size(), MSG_NOSIGNAL) == ssize_t(frame.size())) {
        modbus_set_slave(ctx, frame[0]);
        rc = modbus_receive(ctx, request);
    }
    if (rc <= 0) {
        // Not a request libmodbus accepts: drop what is left of it.
        uint8_t junk[512];
        while (recv(modbusSide, junk, sizeof junk, MSG_DONTWAIT) > 0) { }
        std::lock_guard<std::mutex> lock(mutex);
        ++counts.badFrames;
        if (opts.log)
            std::fprintf(
                opts.log, "sim: dropped a frame that is not a valid request (%zu bytes)\n", frame.size());
        return;
    }
    heardNs = startNs + rc * opts.link.characterNs() + opts.link.silenceNs();
    handleRequest(request, rc);
}

std::optional<FaultRule> SimDrive::pickFault(int station, const RequestRange &range)
{
    for (FaultRule &rule : faults) {
        if (rule.times == 0 || !rule.matches(station, range.area, range.first, range.quantity))
            continue;
        if (rule.rate < 1.0 && std::uniform_real_distribution<double>(0.0, 1.0)(random) >= rule.rate)
            continue;
        if (rule.times > 0)
            --rule.times;
        ++counts.faults[rule.kind];
        return rule;
    }
    return std::nullopt;
}

std::vector<uint8_t> SimDrive::answerOf(
    const uint8_t *request, int length, const RequestRange &range, std::optional<FaultRule> &fault)
{
    std::lock_guard<std::mutex> lock(mutex);
    advanceMotors(monotonicNs());
    const int station = request[0];
    if (station != 0 && !mappings.count(station)) {
        ++counts.ignored;
        return {};
    }
    ++counts.requests;
    ++requestCounts[std::make_pair(station, int(request[1]))];
    fault = pickFault(station, range);
    if (fault && fault->kind == FaultRule::NoReply) {
        if (opts.log)
            std::fprintf(opts.log, "sim: station %d %s %s%d: no reply (injected)\n", station, range.what,
                areaPrefix(range.area), range.first + 1);
        return {};
    }
    // Let libmodbus answer into the socket, then collect the answer.
    if (fault && fault->kind == FaultRule::Exception)
        modbus_reply_exception(ctx, request, unsigned(fault->value >= 0 ? fault->value : 4));
    else if (station == 0)
        for (auto &sm : mappings)
            modbus_reply(ctx, request, length, sm.second);
    else
        modbus_reply(ctx, request, length, mappings.at(station));
    std::vector<uint8_t> answer;
    uint8_t buffer[512];
    ssize_t n;
    while ((n = recv(ourSide, buffer, sizeof buffer, MSG_DONTWAIT)) > 0)
        answer.insert(answer.end(), buffer, buffer + n);
    return answer;
}

bool SimDrive::spoil(std::vector<uint8_t> &answer, const FaultRule &fault, int station)
{
    switch (fault.kind) {
    case FaultRule::Corrupt:
        answer[std::max<size_t>(2, answer.size() - 3)] ^= 0xFF;
        break;
    case FaultRule::Truncate:
        answer.resize(
            fault.value >= 0 ? std::min<size_t>(size_t(fault.value), answer.size() - 1) : answer.size() - 2);
        break;
    case FaultRule::WrongStation:
        answer[0] = uint8_t(fault.value >= 0 ? fault.value : station % 247 + 1);
        setModbusCrc(answer.data(), int(answer.size()));
        break;
    case FaultRule::Late:
        return pause(int64_t(fault.value >= 0 ? fault.value : 1000) * 1000000);
    default:
        break;
    }
    return true;
}

void SimDrive::sendNoise(const FaultRule &fault)
{
    if (!pause(opts.link.silenceNs()))
        return;
    std::vector<uint8_t> noise(size_t(fault.value >= 0 ? fault.value : 4));
    for (uint8_t &b : noise)
        b = uint8_t(random());
    putOnLine(noise.data(), int(noise.size()));
    std::lock_guard<std::mutex> lock(mutex);
    counts.noiseBytesSent += noise.size();
}

void SimDrive::handleRequest(const uint8_t *request, int length)
{
    const int station = request[0];
    const RequestRange range = rangeOf(request);
    std::optional<FaultRule> fault;
    if (opts.echo)
        putOnLine(request, length);
    std::vector<uint8_t> answer = answerOf(request, length, range, fault);
    if (answer.empty())
        return; // not served, no reply injected, or a broadcast: no answer
    if (!pause(answerDueNs() - monotonicNs()))
        return;
    if (fault && !spoil(answer, *fault, station))
        return;
    if (opts.log) {
        std::string note
            = fault ? std::string(" [") + faultKindName(fault->kind) + " injected]" : std::string();
        std::fprintf(opts.log, "sim: station %d %s %s%d x%d: answered %zu bytes%s\n", station, range.what,
            areaPrefix(range.area), range.first + 1, range.quantity, answer.size(), note.c_str());
    }
    putOnLine(answer.data(), int(answer.size()));
    {
        std::lock_guard<std::mutex> lock(mutex);
        ++counts.replies;
        if (fault && fault->kind == FaultRule::Late)
            ++counts.lateRepliesSent;
    }
    if (fault && fault->kind == FaultRule::Noise)
        sendNoise(*fault);
}

int64_t SimDrive::answerDueNs() const
{
    if (opts.turnaroundMs < 0)
        return heardNs;
    const int64_t requestEnd = heardNs ? heardNs - opts.link.silenceNs() : monotonicNs();
    return requestEnd + int64_t(opts.turnaroundMs) * 1000000;
}

void SimDrive::putOnLine(const uint8_t *bytes, int length)
{
    int done = 0;
    const int64_t giveUp = monotonicNs() + 1000000000;
    while (done < length && monotonicNs() < giveUp) {
        // A connection the master closed fails the write, not the program.
        const ssize_t w = listenFd >= 0 ? ::send(lineFd, bytes + done, size_t(length - done), MSG_NOSIGNAL)
                                        : ::write(lineFd, bytes + done, size_t(length - done));
        if (w > 0) {
            done += int(w);
        } else if (w < 0 && errno == EAGAIN) {
            struct pollfd p = { lineFd, POLLOUT, 0 };
            poll(&p, 1, 10);
        } else if (!(w < 0 && errno == EINTR)) {
            break;
        }
    }
    if (device.isOpen())
        tcdrain(lineFd);
}

void SimDrive::advanceMotors(int64_t now)
{
    const int64_t dt = now - motorsAt;
    motorsAt = now;
    for (auto &sm : motors) {
        modbus_mapping_t *m = mappings.at(sm.first);
        Motor &motor = sm.second;
        auto bound = [&](MotionQuantity q) -> const MotionEntry * {
            return motor.isBound[int(q)] ? &motor.bound[int(q)] : nullptr;
        };
        auto read = [&](MotionQuantity q, int otherwise) {
            const MotionEntry *e = bound(q);
            return e ? int(cellOf(m, e->area, e->address)) : otherwise;
        };
        MotionCommand c;
        c.servoOn = read(MotionQuantity::ServoOn, 1) != 0;
        c.speedCommand = int16_t(read(MotionQuantity::SpeedCommand, 0));
        c.accelMs = read(MotionQuantity::AccelTime, 0);
        c.decelMs = read(MotionQuantity::DecelTime, 0);
        c.maxSpeed = read(MotionQuantity::MaxSpeed, 0);
        c.alarmReset = read(MotionQuantity::AlarmReset, 0) != 0;
        const int alarmBefore = motor.state.alarm;
        motor.state = advanceMotion(motor.state, c, dt);
        if (opts.log && motor.state.alarm != alarmBefore)
            std::fprintf(opts.log, "sim: station %d motor alarm %d (%s)\n", sm.first, motor.state.alarm,
                motionAlarmText(motor.state.alarm));
        if (const MotionEntry *e = bound(MotionQuantity::AlarmReset))
            setCell(m, e->area, e->address, 0); // taken
        const MotionReadings r = motionReadings(motor.state);
        auto write = [&](MotionQuantity q, uint16_t v, int offset = 0) {
            if (const MotionEntry *e = bound(q))
                setCell(m, e->area, e->address + offset, v);
        };
        write(MotionQuantity::Speed, uint16_t(r.speed));
        write(MotionQuantity::Position, uint16_t(r.position >> 16));
        write(MotionQuantity::Position, uint16_t(r.position & 0xFFFF), 1);
        write(MotionQuantity::Current, r.current);
        write(MotionQuantity::Load, r.load);
        write(MotionQuantity::Alarm, r.alarm);
    }
}

modbus_mapping_t *SimDrive::mappingOf(int station) const
{
    auto it = mappings.find(station);
    return it == mappings.end() ? nullptr : it->second;
}

SimDrive::Stats SimDrive::stats() const
{
    std::lock_guard<std::mutex> lock(mutex);
    return counts;
}

uint64_t SimDrive::requests(int station, int functionCode) const
{
    std::lock_guard<std::mutex> lock(mutex);
    uint64_t n = 0;
    for (const auto &rc : requestCounts)
        if (rc.first.first == station && (functionCode == 0 || rc.first.second == functionCode))
            n += rc.second;
    return n;
}

bool SimDrive::value(int station, Area area, int address, uint16_t &v) const
{
    std::lock_guard<std::mutex> lock(mutex);
    modbus_mapping_t *m = mappingOf(station);
    if (!m || address < 0 || address > 65535)
        return false;
    v = cellOf(m, area, address);
    return true;
}

bool SimDrive::setValue(int station, Area area, int address, uint16_t v)
{
    std::lock_guard<std::mutex> lock(mutex);
    modbus_mapping_t *m = mappingOf(station);
    if (!m || address < 0 || address > 65535)
        return false;
    setCell(m, area, address, v);
    return true;
}

void SimDrive::addFault(const FaultRule &rule)
{
    std::lock_guard<std::mutex> lock(mutex);
    faults.push_back(rule);
}

void SimDrive::clearFaults()
{
    std::lock_guard<std::mutex> lock(mutex);
    faults.clear();
}
