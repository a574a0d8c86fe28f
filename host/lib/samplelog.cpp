#include "samplelog.h"

#include "textfile.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

#include <cctype>
#include <cerrno>
#include <charconv>
#include <chrono>
#include <cmath>
#include <cstring>
#include <ctime>

const char sampleCsvHeader[] = "time,tag,address,value,error\r\n";

int64_t Sample::nowMs()
{
    using namespace std::chrono;
    return duration_cast<milliseconds>(system_clock::now().time_since_epoch()).count();
}

std::string isoTime(int64_t wallMs)
{
    const int64_t ms = ((wallMs % 1000) + 1000) % 1000;
    const time_t seconds = time_t((wallMs - ms) / 1000);
    struct tm utc;
    if (!gmtime_r(&seconds, &utc))
        return "?";
    char text[64];
    std::snprintf(text, sizeof text, "%04d-%02d-%02dT%02d:%02d:%02d.%03dZ", utc.tm_year + 1900,
        utc.tm_mon + 1, utc.tm_mday, utc.tm_hour, utc.tm_min, utc.tm_sec, int(ms));
    return text;
}

std::string csvField(const std::string &text)
{
    // A reader trims unquoted fields: leading or trailing blanks need quotes.
    const bool blankEnd = !text.empty()
        && (std::isspace(static_cast<unsigned char>(text.front()))
            || std::isspace(static_cast<unsigned char>(text.back())));
    if (!blankEnd && text.find_first_of(",\"\r\n") == std::string::npos)
        return text;
    std::string out = "\"";
    for (char c : text) {
        if (c == '"')
            out += '"';
        out += c;
    }
    return out + "\"";
}

QJsonValue jsonValue(const std::string &text, bool numeric)
{
    double d = 0;
    const char *end = text.data() + text.size();
    if (numeric) {
        const auto r = std::from_chars(text.data(), end, d);
        if (r.ec == std::errc() && r.ptr == end && std::isfinite(d))
            return QJsonValue(d);
    }
    return QJsonValue(QString::fromLocal8Bit(text.c_str()));
}

std::string sampleCsv(const Sample &s)
{
    const std::string lead = csvField(isoTime(s.wallMs)) + "," + csvField(s.tag) + ",";
    if (!s.ok)
        return lead + ",," + csvField(s.error) + "\r\n";
    std::string rows;
    for (size_t i = 0; i < s.values.size(); ++i)
        rows += lead + csvField(i < s.addresses.size() ? s.addresses[i] : std::string()) + ","
            + csvField(s.values[i]) + ",\r\n";
    return rows;
}

std::string sampleJson(const Sample &s)
{
    QJsonObject o;
    o["time"] = QString::fromStdString(isoTime(s.wallMs));
    o["tag"] = QString::fromLocal8Bit(s.tag.c_str());
    if (s.ok) {
        QJsonArray addresses, values;
        for (const std::string &a : s.addresses)
            addresses.append(QString::fromStdString(a));
        for (const std::string &v : s.values)
            values.append(jsonValue(v, s.numeric));
        o["addresses"] = addresses;
        o["values"] = values;
    } else {
        o["error"] = QString::fromLocal8Bit(s.error.c_str());
    }
    return QJsonDocument(o).toJson(QJsonDocument::Compact).toStdString();
}

SampleLog::~SampleLog() { close(); }

bool SampleLog::open(const std::string &path, bool jsonLines, std::string &error)
{
    close();
    file = createTextFile(path, error);
    if (!file)
        return false;
    json = jsonLines;
    if (!json && std::fputs(sampleCsvHeader, file) < 0) {
        error = std::strerror(errno);
        close();
        return false;
    }
    return true;
}

bool SampleLog::write(const Sample &sample, std::string &error)
{
    if (!file)
        return false;
    const std::string text = json ? sampleJson(sample) + "\n" : sampleCsv(sample);
    if (std::fwrite(text.data(), 1, text.size(), file) != text.size() || std::fflush(file) != 0) {
        error = std::string("cannot write the log: ") + std::strerror(errno);
        return false;
    }
    return true;
}

void SampleLog::close()
{
    if (file)
        std::fclose(file);
    file = nullptr;
}
