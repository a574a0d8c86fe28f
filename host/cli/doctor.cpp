// teco-cli doctor: the link doctor's checks (linkdoctor.h), one after the
// other until one fails, shown as a table or as one JSON object.

#include "session.h"

#include "linkdoctor.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

#include <cstdio>

namespace {

void showText(const std::vector<DoctorCheck> &checks)
{
    int failed = 0, warned = 0;
    for (const DoctorCheck &c : checks) {
        std::string finding = c.finding; // its later lines under its first
        for (size_t at = finding.find('\n'); at != std::string::npos; at = finding.find('\n', at + 16))
            finding.insert(at + 1, 15, ' ');
        std::printf("%-8s %-4s  %s\n", c.name.c_str(), doctorStatusName(c.status), finding.c_str());
        if (!c.advice.empty())
            std::printf("%-15swhat to do: %s\n", "", c.advice.c_str());
        failed += c.status == DoctorCheck::Status::Fail ? 1 : 0;
        warned += c.status == DoctorCheck::Status::Warn ? 1 : 0;
    }
    if (failed == 0 && warned == 0)
        std::printf("doctor: all %zu checks passed\n", checks.size());
    else
        std::printf("doctor: %d of %zu checks failed, %d warned\n", failed, checks.size(), warned);
}

void showJson(const std::vector<DoctorCheck> &checks, bool ok)
{
    QJsonArray list;
    for (const DoctorCheck &c : checks) {
        QJsonObject figures;
        for (const auto &f : c.figures)
            figures[QString::fromStdString(f.first)] = f.second;
        list.append(QJsonObject { { "name", QString::fromStdString(c.name) },
            { "status", doctorStatusName(c.status) }, { "finding", QString::fromStdString(c.finding) },
            { "advice", QString::fromStdString(c.advice) }, { "figures", figures } });
    }
    const QJsonObject o { { "command", "doctor" }, { "ok", ok }, { "checks", list } };
    std::printf("%s\n", QJsonDocument(o).toJson(QJsonDocument::Compact).constData());
}

bool failed(const std::vector<DoctorCheck> &checks)
{
    return !checks.empty() && checks.back().status == DoctorCheck::Status::Fail;
}

int finish(const Command &c, const std::vector<DoctorCheck> &checks)
{
    if (c.options.json)
        showJson(checks, !failed(checks));
    else
        showText(checks);
    std::fflush(stdout);
    return failed(checks) ? ExitFailed : ExitOk;
}

} // namespace

int Session::run(const Command &c, const DoctorCommand &)
{
    std::vector<DoctorCheck> checks;
    // The device is looked at before the link opens it (and locks it).
    if (session.port) {
        checks.push_back(checkDevice(*session.port));
        if (failed(checks))
            return finish(c, checks);
        checks.push_back(checkLatencyTimer(*session.port, sysfsRoot()));
    }
    const int opened = openLineFor(c, true);
    if (opened != ExitOk)
        return opened;
    if (!session.port) {
        DoctorCheck device;
        device.name = "device";
        device.finding = "no --port given: the simulated drive's pseudo-terminal " + drive.sim().devicePath();
        checks.push_back(device);
        checks.push_back(checkLatencyTimer(drive.sim().devicePath(), sysfsRoot()));
    }
    checks.push_back(checkStation(host(), link()));
    if (!failed(checks))
        checks.push_back(checkTiming(link()));
    return finish(c, checks);
}
