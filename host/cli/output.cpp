#include "output.h"

#include "driverinterface.h"
#include "errorkind.h"
#include "settings.h"

#include <QJsonDocument>
#include <QJsonObject>

#include <cstdio>
#include <memory>

namespace {

std::string local(const QString &text) { return text.toLocal8Bit().toStdString(); }

double latencyMs(const PollStats &stats, double q) { return stats.percentileNs(q) / 1e6; }

// "1 cycle", "2 cycles".
std::string counted(unsigned long long n, const char *thing)
{
    return std::to_string(n) + " " + thing + (n == 1 ? "" : "s");
}

std::string joinedStations(const std::vector<int> &stations)
{
    std::string text;
    for (size_t i = 0; i < stations.size(); ++i)
        text += (i ? ", " : "") + std::to_string(stations[i]);
    return text;
}

std::string formatValue(const Element &e, ValueType type)
{
    char text[96];
    switch (type) {
    case ValueType::Bit:
        std::snprintf(text, sizeof text, "%-16s %11u", e.address.c_str(), e.value);
        break;
    case ValueType::Byte:
        std::snprintf(text, sizeof text, "%-16s %11u %11lld  0x%02X", e.address.c_str(), e.value,
            signedValue(e.value, type), e.value);
        break;
    case ValueType::Word:
        std::snprintf(text, sizeof text, "%-16s %11u %11lld  0x%04X", e.address.c_str(), e.value,
            signedValue(e.value, type), e.value);
        break;
    case ValueType::DWord:
        std::snprintf(text, sizeof text, "%-16s %11u %11lld  0x%08X", e.address.c_str(), e.value,
            signedValue(e.value, type), e.value);
        break;
    }
    return text;
}

class TableOutput : public Output
{
    // What the line did when something went wrong on it ("2 retries"), or
    // that nothing went on it; "" otherwise.
    static std::string lineText(const LineReport &line)
    {
        return line.heldByDriver() ? heldByDriverText : healthText(line.health);
    }
    // " (2 retries)", or "".
    static std::string healthNote(const LineReport &line)
    {
        const std::string text = lineText(line);
        return text.empty() ? text : " (" + text + ")";
    }
    static void linkLine(const LineReport &line)
    {
        const std::string text = lineText(line);
        if (!text.empty())
            std::printf("(%s)\n", text.c_str());
        std::fflush(stdout);
    }
    // The parameter's line after its read or write ("speed-command = 1500 rpm").
    void namedLine(const char *what)
    {
        if (named)
            std::printf("%s %s %s%s\n", named->name.c_str(), what, withUnit(*named, namedValue).c_str(),
                namedRaw.empty() ? "" : (" (raw " + namedRaw + ")").c_str());
        named = nullptr;
        std::fflush(stdout);
    }

public:
    void info(DriverInterface &driver) override
    {
        std::unique_ptr<DeviceSetting> device(driver.getDefaultSerialDeviceSetting());
        std::unique_ptr<DriverSetting> protocol(driver.getDefaultDriverSetting());
        std::printf("name:             %s\n", local(driver.name()).c_str());
        std::printf("protocol:         %s\n", local(driver.vender()).c_str());
        std::printf("version:          %s\n", local(driver.getVersionNumber()).c_str());
        std::printf("default link:     %s\n", local(driver.getStringBasedDefaultDriverSetting()).c_str());
        if (device)
            std::printf(
                "default port:     %s (%s, %d baud, %d data bits; the runtime's codes for stop bits %d "
                "and parity %d)\n",
                local(device->string).c_str(),
                device->type == SerialDeviceType ? "serial"
                                                 : ("type " + std::to_string(device->type)).c_str(),
                device->baudrate, device->databits, device->stopbits, device->parity);
        if (protocol)
            std::printf("default protocol: time-out %d ms, retry %d, station %d, delay %d ms\n",
                protocol->timeout, protocol->retry, protocol->stationId, protocol->delay);
        std::printf("block sizes:      %d registers, %d bits\n", driver.getBlockAccessSize(),
            driver.getBitBlockAccessSize());
    }

    void readDone(const Tag &t, int, const std::vector<Element> &elements, const LineReport &line) override
    {
        if (t.type == ValueType::Bit)
            std::printf("%-16s %11s\n", "address", "value");
        else
            std::printf("%-16s %11s %11s  %s\n", "address", "value", "signed", "hex");
        for (const Element &e : elements)
            std::printf("%s\n", formatValue(e, t.type).c_str());
        namedLine("=");
        linkLine(line);
    }

    void writeDone(
        const Tag &t, int station, const std::vector<uint32_t> &values, const LineReport &line) override
    {
        std::printf("wrote %zu %s%s at %s, station %d%s\n", values.size(), valueTypeName(t.type),
            values.size() == 1 ? "" : "s", t.address.text().c_str(), station, healthNote(line).c_str());
        namedLine("set to");
    }

    void formattedReadDone(const Tag &t, int, const FormattedResult &r, const LineReport &line) override
    {
        std::printf("%-16s %s\n", "address", t.format->text().c_str());
        for (size_t i = 0; i < r.values.size(); ++i)
            std::printf("%-16s %s\n", r.addresses[i].c_str(), r.values[i].c_str());
        namedLine("=");
        linkLine(line);
    }

    void formattedWriteDone(const Tag &t, int station, const std::vector<std::string> &texts,
        size_t registers, const LineReport &line) override
    {
        std::printf("wrote %zu %s value%s (%zu register%s) at %s, station %d%s\n", texts.size(),
            t.format->text().c_str(), texts.size() == 1 ? "" : "s", registers, registers == 1 ? "" : "s",
            t.address.text().c_str(), station, healthNote(line).c_str());
        namedLine("set to");
    }

    void failed(const char *, const Tag &, const std::string &, const LineReport &) override
    {
        named = nullptr;
    }

    void pollChange(double seconds, const Tag &tag, const std::string &shown) override
    {
        std::printf("%10.3f s  %-14s %s\n", seconds, tag.text.c_str(), shown.c_str());
        std::fflush(stdout);
    }

    void pollSample(const Sample &) override { }

    void pollDone(const PollSummary &p) override
    {
        const PollStats &stats = *p.stats;
        std::printf("poll: %s, %s in %.2f s (%.1f commands/s), %s\n", counted(p.cycles, "cycle").c_str(),
            counted(stats.commands(), "command").c_str(), p.seconds,
            p.seconds > 0 ? double(stats.commands()) / p.seconds : 0.0,
            counted(stats.failed(), "error").c_str());
        if (stats.samples())
            std::printf("latency: p50 %.2f ms  p90 %.2f ms  p99 %.2f ms  max %.2f ms\n",
                latencyMs(stats, 0.5), latencyMs(stats, 0.9), latencyMs(stats, 0.99),
                double(stats.maxNs()) / 1e6);
        for (const auto &e : stats.failuresByText())
            std::printf("errors: %llu x %s\n", (unsigned long long)e.second, e.first.c_str());
        pollTrouble(p);
        for (const auto &s : p.health)
            std::printf("station %d: %s\n", s.first, healthText(s.second, true).c_str());
        std::fflush(stdout);
    }

    // What kept the poll from its interval: backed-off stations, missed
    // intervals, a device that went away.
    static void pollTrouble(const PollSummary &p)
    {
        if (!p.backedOff.empty())
            std::printf(
                "backed off: station%s %s (silent, read once every %d cycles; values shown are old)\n",
                p.backedOff.size() == 1 ? "" : "s", joinedStations(p.backedOff).c_str(), p.backoffEvery);
        if (p.missedIntervals)
            std::printf("interval: %d ms missed in %s of %s (longest cycle %.1f ms)\n", p.intervalMs,
                std::to_string(p.missedIntervals).c_str(), counted(p.cycles, "cycle").c_str(),
                p.longestCycleMs);
        if (!p.deviceGone.empty())
            std::printf("device: %s gone at the end\n", p.deviceGone.c_str());
    }

    void scanFound(const ScanSummary &s, const ScanSummary::Station &f) override
    {
        if (s.settingsListed)
            std::printf("station %3d  %s at %s\n", f.station, f.status.c_str(), f.link.c_str());
        else
            std::printf("station %3d  %s\n", f.station, f.status.c_str());
        std::fflush(stdout);
    }

    void scanDone(const ScanSummary &s) override
    {
        const int stations = s.to - s.from + 1;
        if (s.interrupted)
            std::printf("scan: interrupted after %d of %d probes; %d answered (%s at %s)\n", s.probed,
                s.probes, s.answering, valueTypeName(s.type), s.probe.c_str());
        else if (s.settingsListed)
            std::printf("scan: %d answer%s from %d stations at %d line setting%s (%s at %s)\n", s.answering,
                s.answering == 1 ? "" : "s", stations, s.settings, s.settings == 1 ? "" : "s",
                valueTypeName(s.type), s.probe.c_str());
        else
            std::printf("scan: %d of %d stations answer (%s at %s)\n", s.answering, stations,
                valueTypeName(s.type), s.probe.c_str());
        std::fflush(stdout);
    }

    void batchLine(const std::string &text) override
    {
        std::printf("%s\n", text.c_str());
        std::fflush(stdout);
    }

    void decoded(const std::string &bytes, const std::vector<DecodedFrame> &readings) override
    {
        std::printf("%s\n", hexBytes(bytes).c_str());
        for (const DecodedFrame &d : readings)
            std::printf("%-8s %s, %s\n",
                d.role == FrameRole::Request ? "request:" : "reply:", d.meaning.c_str(),
                bytes.size() < 4 ? "too short for a CRC"
                    : d.crcOk    ? "CRC ok"
                                 : "CRC BAD");
        std::fflush(stdout);
    }

    std::string sniffEvent(const SniffEvent &event, int64_t originNs) override
    {
        return show(sniffEventLine(event, originNs) + "\n");
    }

    std::string sniffDone(const Sniffer &sniffer, double seconds) override
    {
        return show(sniffSummaryText(sniffer, seconds));
    }

private:
    static std::string show(const std::string &text)
    {
        std::fputs(text.c_str(), stdout);
        std::fflush(stdout);
        return text;
    }
};

class JsonOutput : public Output
{
public:
    void info(DriverInterface &driver) override
    {
        std::unique_ptr<DeviceSetting> device(driver.getDefaultSerialDeviceSetting());
        std::unique_ptr<DriverSetting> protocol(driver.getDefaultDriverSetting());
        QJsonObject o;
        o["name"] = driver.name();
        o["protocol"] = driver.vender();
        o["version"] = driver.getVersionNumber();
        o["defaultLink"] = driver.getStringBasedDefaultDriverSetting();
        if (device)
            o["defaultPort"] = device->string;
        if (protocol) {
            o["defaultTimeoutMs"] = protocol->timeout;
            o["defaultRetry"] = protocol->retry;
            o["defaultStation"] = protocol->stationId;
            o["defaultDelayMs"] = protocol->delay;
        }
        o["blockRegisters"] = driver.getBlockAccessSize();
        o["blockBits"] = driver.getBitBlockAccessSize();
        print(o);
    }

    void readDone(
        const Tag &t, int station, const std::vector<Element> &elements, const LineReport &line) override
    {
        QJsonObject o = commandObject("read", t, station, line);
        o["count"] = t.count;
        QJsonArray values, addresses;
        for (const Element &e : elements) {
            values.append(double(e.value));
            addresses.append(QString::fromStdString(e.address));
        }
        o["values"] = values;
        o["addresses"] = addresses;
        print(o);
    }

    void writeDone(
        const Tag &t, int station, const std::vector<uint32_t> &values, const LineReport &line) override
    {
        QJsonObject o = commandObject("write", t, station, line);
        QJsonArray array;
        for (uint32_t v : values)
            array.append(double(v));
        o["values"] = array;
        print(o);
    }

    void formattedReadDone(
        const Tag &t, int station, const FormattedResult &r, const LineReport &line) override
    {
        QJsonObject o = formattedObject("read", t, station, line);
        o["count"] = t.count;
        QJsonArray values, addresses;
        for (size_t i = 0; i < r.values.size(); ++i) {
            values.append(jsonValue(r.values[i], t.format->isNumeric()));
            addresses.append(QString::fromStdString(r.addresses[i]));
        }
        o["values"] = values;
        o["addresses"] = addresses;
        print(o);
    }

    void formattedWriteDone(const Tag &t, int station, const std::vector<std::string> &texts,
        size_t registers, const LineReport &line) override
    {
        QJsonObject o = formattedObject("write", t, station, line);
        QJsonArray values;
        for (const std::string &text : texts)
            values.append(jsonValue(text, t.format->isNumeric()));
        o["values"] = values;
        o["registers"] = int(registers);
        print(o);
    }

    void failed(
        const char *command, const Tag &target, const std::string &text, const LineReport &line) override
    {
        QJsonObject o;
        o["command"] = command;
        if (!target.text.empty())
            o["address"] = QString::fromStdString(target.address.text());
        o["ok"] = false;
        o["error"] = QString::fromLocal8Bit(text.c_str());
        o["link"] = healthObject(line.health);
        const DriverError e = classifyDriverError(text);
        o["errorKind"] = errorKindName(e.kind);
        if (e.kind == ErrorKind::Exception) {
            o["exception"] = e.exceptionCode;
            if (const char *name = exceptionName(e.exceptionCode))
                o["exceptionName"] = name;
        }
        print(o);
    }

    void pollChange(double, const Tag &, const std::string &) override { }

    void pollSample(const Sample &sample) override
    {
        std::printf("%s\n", sampleJson(sample).c_str());
        std::fflush(stdout);
    }

    void pollDone(const PollSummary &p) override
    {
        const PollStats &stats = *p.stats;
        QJsonObject o, latency, errorCounts;
        o["command"] = "poll";
        o["ok"] = stats.failed() == 0 && !p.logFailed && p.deviceGone.empty();
        o["cycles"] = p.cycles;
        o["commands"] = double(stats.commands());
        o["errors"] = double(stats.failed());
        o["seconds"] = p.seconds;
        o["commandsPerSecond"] = p.seconds > 0 ? double(stats.commands()) / p.seconds : 0.0;
        latency["p50"] = latencyMs(stats, 0.5);
        latency["p90"] = latencyMs(stats, 0.9);
        latency["p99"] = latencyMs(stats, 0.99);
        latency["max"] = double(stats.maxNs()) / 1e6;
        o["latencyMs"] = latency;
        for (const auto &e : stats.failuresByText())
            errorCounts[QString::fromLocal8Bit(e.first.c_str())] = double(e.second);
        o["errorsByText"] = errorCounts;
        QJsonArray tags;
        for (size_t i = 0; i < p.tags->size(); ++i) {
            QJsonObject t;
            t["tag"] = QString::fromStdString((*p.tags)[i].text);
            if ((*p.tags)[i].format)
                t["format"] = QString::fromStdString((*p.tags)[i].format->text());
            t["values"] = (*p.lastValues)[i];
            if (p.stale && (*p.stale)[i])
                t["stale"] = true;
            if (!(*p.lastErrors)[i].empty())
                t["error"] = QString::fromLocal8Bit((*p.lastErrors)[i].c_str());
            tags.append(t);
        }
        o["tags"] = tags;
        QJsonArray backedOff;
        for (int s : p.backedOff)
            backedOff.append(s);
        o["backedOff"] = backedOff;
        o["intervalMs"] = p.intervalMs;
        o["missedIntervals"] = p.missedIntervals;
        if (!p.deviceGone.empty())
            o["deviceGone"] = QString::fromStdString(p.deviceGone);
        QJsonObject stations;
        for (const auto &s : p.health)
            stations[QString::number(s.first)] = healthObject(s.second);
        o["link"] = stations;
        print(o);
    }

    void scanFound(const ScanSummary &, const ScanSummary::Station &) override { }

    void scanDone(const ScanSummary &s) override
    {
        QJsonObject o;
        QJsonArray stations;
        o["command"] = "scan";
        o["from"] = s.from;
        o["to"] = s.to;
        o["ok"] = s.answering > 0;
        o["interrupted"] = s.interrupted;
        for (const ScanSummary::Station &f : s.stations) {
            QJsonObject station;
            station["station"] = f.station;
            station["status"] = QString::fromStdString(f.status);
            station["link"] = QString::fromStdString(f.link);
            stations.append(station);
        }
        o["stations"] = stations;
        print(o);
    }

    void batchLine(const std::string &) override { }

    void decoded(const std::string &bytes, const std::vector<DecodedFrame> &readings) override
    {
        QJsonObject o;
        QJsonArray array;
        o["command"] = "decode";
        o["bytes"] = QString::fromStdString(hexBytes(bytes));
        for (const DecodedFrame &d : readings) {
            QJsonObject r;
            r["role"] = d.role == FrameRole::Request ? "request" : "reply";
            r["fits"] = d.fits;
            r["crcOk"] = d.crcOk;
            r["station"] = d.station;
            r["function"] = d.function;
            r["meaning"] = QString::fromStdString(d.meaning);
            array.append(r);
        }
        o["readings"] = array;
        o["ok"] = true;
        print(o);
    }

    std::string sniffEvent(const SniffEvent &event, int64_t originNs) override
    {
        return print(sniffEventJson(event, originNs));
    }

    std::string sniffDone(const Sniffer &sniffer, double seconds) override
    {
        QJsonObject o = sniffSummaryJson(sniffer, seconds);
        o["command"] = "sniff";
        return print(o);
    }

private:
    static QJsonObject commandObject(const char *command, const Tag &t, int station, const LineReport &line)
    {
        QJsonObject o;
        o["command"] = command;
        o["address"] = QString::fromStdString(t.address.text());
        o["type"] = valueTypeName(t.type);
        o["station"] = station;
        o["ok"] = true;
        o["link"] = healthObject(line.health);
        if (line.heldByDriver())
            o["heldByDriver"] = true;
        if (line.answeredMs > 0)
            o["time"] = QString::fromStdString(isoTime(line.answeredMs));
        return o;
    }
    static QJsonObject healthObject(const SerialLink::StationHealth &h)
    {
        QJsonObject o;
        o["requests"] = double(h.requests);
        o["retries"] = double(h.retries);
        o["timeOuts"] = double(h.timeOuts);
        o["crcErrors"] = double(h.crcErrors);
        o["exceptions"] = double(h.exceptions);
        o["lateBytesDropped"] = double(h.lateBytesDropped);
        o["staleBytesDropped"] = double(h.staleBytesDropped);
        return o;
    }
    static QJsonObject formattedObject(const char *command, const Tag &t, int station, const LineReport &line)
    {
        QJsonObject o = commandObject(command, t, station, line);
        o.remove("type");
        o["format"] = QString::fromStdString(t.format->text());
        return o;
    }
    // Prints the object as a line; returns the line.
    std::string print(QJsonObject object)
    {
        if (named) {
            object["name"] = QString::fromStdString(named->name);
            object["engineering"] = QString::fromStdString(namedValue);
            object["unit"] = QString::fromStdString(named->unit);
        }
        named = nullptr;
        const std::string line = QJsonDocument(object).toJson(QJsonDocument::Compact).toStdString() + "\n";
        std::fputs(line.c_str(), stdout);
        std::fflush(stdout);
        return line;
    }
};

} // namespace

Output &Output::choose(bool json)
{
    static TableOutput table;
    static JsonOutput jsonOutput;
    if (json)
        return jsonOutput;
    return table;
}
