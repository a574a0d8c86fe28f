#ifndef HOST_CLI_OUTPUT_H
#define HOST_CLI_OUTPUT_H

// How teco-cli shows what happened: a table for people, or one JSON object
// per command for scripts. The session decides what happened; an Output
// only renders it, each on standard output.

#include "parammap.h"
#include "tag.h"
#include "seriallink.h"
#include "formattedio.h"
#include "framedecoder.h"
#include "pollstats.h"
#include "samplelog.h"
#include "sniffer.h"
#include "values.h"

#include <QJsonArray>

#include <map>
#include <string>
#include <vector>

class DriverInterface;

struct PollSummary
{
    // What the line did for each station during the poll.
    std::map<int, SerialLink::StationHealth> health;
    int cycles = 0;
    double seconds = 0;
    const PollStats *stats = nullptr;
    const std::vector<Tag> *tags = nullptr;
    const std::vector<QJsonArray> *lastValues = nullptr; // per tag, the values of its last read, if good
    const std::vector<std::string> *lastErrors = nullptr; // per tag, the error of its last read, if it failed
    const std::vector<bool> *stale = nullptr; // per tag: its station is backed off, its values are old
    bool logFailed = false; // the sample log could not be written
    std::vector<int> backedOff; // stations backed off at the end
    int backoffEvery = 0; // a backed-off station is read once every so many cycles
    int intervalMs = 0;
    int missedIntervals = 0; // cycles that took longer than the interval
    double longestCycleMs = 0;
    std::string deviceGone; // the device, when it was gone at the end
};

struct ScanSummary
{
    struct Station
    {
        int station;
        std::string status;
        std::string link; // the line settings it answered at
    };
    int from = 1, to = 247, answering = 0;
    std::vector<Station> stations; // those that answered in any way
    ValueType type = ValueType::Word;
    std::string probe;
    int settings = 1; // line settings tried
    bool settingsListed = false; // by --bauds, --parities or --stop-bits: each station shows its own
    int probes = 0, probed = 0; // stations times settings; those probed
    bool interrupted = false; // by Ctrl-C
};

// What the line did for one read or write (retries, time-outs, ...), when
// its answer was complete (wall clock ms, 0 for none) and the requests it
// sent (0: the driver served it itself).
struct LineReport
{
    SerialLink::StationHealth health;
    int64_t answeredMs = 0;
    int64_t requestsSent = -1;
    bool heldByDriver() const { return requestsSent == 0; }
};

class Output
{
public:
    virtual ~Output() = default;
    virtual void info(DriverInterface &driver) = 0;
    // Each read or write comes with what the line did for it.
    virtual void readDone(
        const Tag &target, int station, const std::vector<Element> &elements, const LineReport &line)
        = 0;
    virtual void writeDone(
        const Tag &target, int station, const std::vector<uint32_t> &values, const LineReport &line)
        = 0;
    // A read or write with a number format (target.format): the values as texts.
    virtual void formattedReadDone(
        const Tag &target, int station, const FormattedResult &result, const LineReport &line)
        = 0;
    virtual void formattedWriteDone(const Tag &target, int station, const std::vector<std::string> &texts,
        size_t registers, const LineReport &line)
        = 0;
    // A read or write of target that failed with the driver's (or the
    // host's) text; the text also goes to standard error, whatever the output.
    virtual void failed(
        const char *command, const Tag &target, const std::string &text, const LineReport &line)
        = 0;
    // A poll tag whose shown value changed.
    virtual void pollChange(double seconds, const Tag &tag, const std::string &shown) = 0;
    // Every sample of a poll with --every: JSON shows each as a line of its own.
    virtual void pollSample(const Sample &sample) = 0;
    virtual void pollDone(const PollSummary &summary) = 0;
    // A station that answered, as soon as it did; then the whole scan.
    virtual void scanFound(const ScanSummary &summary, const ScanSummary::Station &station) = 0;
    virtual void scanDone(const ScanSummary &summary) = 0;
    // A batch line as it is run, and a comment line of a batch.
    virtual void batchLine(const std::string &text) = 0;
    // The readings of a frame given to decode.
    virtual void decoded(const std::string &bytes, const std::vector<DecodedFrame> &readings) = 0;
    // An event of sniff, its time since originNs, and the figures at the
    // end; each returns the text it showed, for the log.
    virtual std::string sniffEvent(const SniffEvent &event, int64_t originNs) = 0;
    virtual std::string sniffDone(const Sniffer &sniffer, double seconds) = 0;

    // The output for a command: JSON when it asks for it (--json).
    static Output &choose(bool json);

    // The next read or write shown is of this parameter (by name), with its
    // engineering value: a table adds a line "NAME = VALUE UNIT", JSON the
    // fields name, engineering and unit (the
    // others as for any read or write). Cleared once shown.
    // raw: for a write, the raw value going out.
    void setNamed(
        const Parameter *param, const std::string &engineering, const std::string &raw = std::string())
    {
        named = param;
        namedValue = engineering;
        namedRaw = raw;
    }

protected:
    const Parameter *named = nullptr;
    std::string namedValue, namedRaw;

    // Said of a command that the driver served from its own register window.
    static constexpr const char *heldByDriverText
        = "held by the driver itself; nothing was sent to a station";
};

#endif // HOST_CLI_OUTPUT_H
