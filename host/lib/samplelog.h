#ifndef HOST_SAMPLELOG_H
#define HOST_SAMPLELOG_H

// Samples of a poll written as they come: CSV (RFC 4180: a header row,
// fields quoted where they hold a comma, quote or line break, CRLF line ends)
// with one row per value, or JSON Lines with one object per sample. Times
// are wall-clock UTC in ISO 8601 with milliseconds: when the sample's answer
// was complete (for a failed read, when the driver gave up).
//
//     time,tag,address,value,error
//     2026-11-23T12:30:01.250Z,HR100:float32:2,HR100,1.5,
//     2026-11-23T12:30:01.250Z,HR100:float32:2,HR102,-2,
//     2026-11-23T12:30:01.271Z,IR1,,,PLC no response (read 1 word(s) from 1-IR1)
//
//     {"time":"2026-11-23T12:30:01.250Z","tag":"HR100:float32:2","addresses":["HR100","HR102"],"values":[1.5,-2]}
//     {"time":"2026-11-23T12:30:01.271Z","tag":"IR1","error":"PLC no response (read 1 word(s) from 1-IR1)"}

#include <QJsonValue>

#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

struct Sample
{
    int64_t wallMs = 0; // when its answer was complete, in milliseconds since 1970-01-01 UTC
    std::string tag; // as the user gave it
    bool ok = false;
    std::vector<std::string> addresses; // one per value
    std::vector<std::string> values; // texts in the tag's format
    bool numeric = true; // the values are numbers (JSON numbers), not texts
    std::string error; // a failed sample: the driver's text

    // Now, by the wall clock.
    static int64_t nowMs();
};

// "2026-11-23T12:30:01.250Z".
std::string isoTime(int64_t wallMs);
// One CSV field, quoted when it holds a comma, a double quote, CR or LF.
std::string csvField(const std::string &text);
// A value for JSON: a number when numeric and the text is a finite number,
// otherwise the text ("nan", "inf", "0x1234", a string's characters).
QJsonValue jsonValue(const std::string &text, bool numeric);

// The CSV header row and a sample's rows, each ending in CRLF.
extern const char sampleCsvHeader[];
std::string sampleCsv(const Sample &sample);
// A sample as one JSON object on one line, without the line end.
std::string sampleJson(const Sample &sample);

// A log file of samples, created with createTextFile (never through a
// symbolic link); each sample is flushed as written.
class SampleLog
{
public:
    SampleLog() = default;
    ~SampleLog();
    SampleLog(const SampleLog &) = delete;
    SampleLog &operator=(const SampleLog &) = delete;

    // Creates path and, for CSV, writes the header. False with the reason
    // in error, worded to follow "cannot write the log to PATH: ".
    bool open(const std::string &path, bool jsonLines, std::string &error);
    bool isOpen() const { return file != nullptr; }
    // False with one sentence once the file cannot be written (a full disk).
    bool write(const Sample &sample, std::string &error);
    void close();

private:
    FILE *file = nullptr;
    bool json = false;
};

#endif // HOST_SAMPLELOG_H
