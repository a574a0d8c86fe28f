// teco-monitor: live tags, trends, the frame trace and station scans of
// servo drives through the driver plug-in, in a window.

#include "faultrule.h"
#include "installation.h"
#include "mainwindow.h"
#include "optiontable.h"
#include "tagmodel.h"
#include "trendview.h"

#include <QApplication>
#include <QTabWidget>
#include <QTimer>

#include <cstdio>

namespace {

const char usageText[] = "usage: teco-monitor [options]\n"
                         "  A window with live tags, trends, the frame trace and station scans. It starts\n"
                         "  connected to a simulated drive; choose a serial port to talk to real drives.\n"
                         "options:\n"
                         "  --tags FILE         load a tag list (one tag per line, as Save writes them)\n"
                         "  --map FILE          the register map that names the tags (default: the\n"
                         "                      simulated drive's own, while the window talks to it)\n"
                         "  --plugin PATH       the driver plug-in (default: the one installed with\n"
                         "                      teco-monitor, else the one built with it)\n"
                         "  --sim-fault RULE    a fault for the simulated drive from the start; repeatable\n"
                         "                      (as teco-sim --fault takes it)\n"
                         "  --sim-map FILE      the simulated drive's map (teco-sim --print-map shows it)\n"
                         "  --tab NAME          the tab shown first: trends, traffic, scan or parameters\n"
                         "  --screenshot FILE   poll the simulated drive, save the window as a PNG and exit\n"
                         "  --seconds N         how long to poll before the screenshot (default 3)\n"
                         "  --version           the version of teco-monitor and of its plug-in\n";

struct MonitorArguments
{
    std::optional<std::string> tags, plugin, screenshot, tab, simMap, map;
    QStringList simFaults;
    std::optional<int> seconds;
    bool help = false;
    bool version = false;
};

// The tab of a name, or -1.
int tabIndex(const std::string &name)
{
    const char *const names[] = { "trends", "traffic", "scan", "parameters" };
    for (int i = 0; i < 4; ++i)
        if (name == names[i])
            return i;
    return -1;
}

// Goes on with the program.
constexpr int carryOn = -1;

OptionTable monitorOptionTable(MonitorArguments &a)
{
    using T = OptionTable;
    return OptionTable({
        T::text("tags", a.tags),
        T::text("map", a.map),
        T::text("plugin", a.plugin),
        T::text("screenshot", a.screenshot),
        T::checked("sim-fault",
            [&a](const std::string &text, std::string &error) {
                FaultRule rule;
                if (!FaultRule::parse(text, rule, error))
                    return false;
                a.simFaults << QString::fromStdString(text);
                return true;
            }),
        T::text("sim-map", a.simMap),
        T::checked("tab",
            [&a](const std::string &text, std::string &error) {
                if (tabIndex(text) < 0) {
                    error = "unknown tab \"" + text + "\" (trends, traffic, scan or parameters)";
                    return false;
                }
                a.tab = text;
                return true;
            }),
        T::integer("seconds", 1, 3600, a.seconds),
        T::flag("help", a.help),
        T::flag("version", a.version),
    });
}

std::string pluginPath(const MonitorArguments &a) { return a.plugin ? *a.plugin : defaultPluginPath(); }

// Reads the command line into a and answers --help and --version: carryOn,
// or the exit status.
int parseArguments(int argc, char **argv, MonitorArguments &a)
{
    std::string error;
    if (!monitorOptionTable(a).parse(std::vector<std::string>(argv + 1, argv + argc), nullptr, error)) {
        std::fprintf(stderr, "teco-monitor: %s\n(teco-monitor --help shows the usage)\n", error.c_str());
        return 2;
    }
    if (a.help) {
        std::fputs(usageText, stdout);
        return 0;
    }
    if (a.version) {
        QCoreApplication core(argc, argv);
        std::fputs(versionText("teco-monitor", pluginPath(a)).c_str(), stdout);
        return 0;
    }
    if (a.seconds && !a.screenshot) {
        std::fprintf(stderr, "teco-monitor: --seconds goes with --screenshot\n");
        return 2;
    }
    return carryOn;
}

// A screenshot needs no screen; a window does. False with the message
// printed when there is none.
bool chooseScreen(bool screenshot)
{
    if (!qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM"))
        return true;
    if (screenshot) {
        qputenv("QT_QPA_PLATFORM", "offscreen");
        return true;
    }
    if (qEnvironmentVariableIsEmpty("DISPLAY") && qEnvironmentVariableIsEmpty("WAYLAND_DISPLAY")) {
        std::fprintf(stderr, "teco-monitor: no display to open a window on (DISPLAY is not set)\n");
        return false;
    }
    return true;
}

// The window as the command line asks for it; false with the message
// printed for a map or a tag list that does not load.
bool setUpWindow(MainWindow &window, const MonitorArguments &a)
{
    window.setSimFaults(a.simFaults);
    if (a.simMap)
        window.setSimMap(QString::fromStdString(*a.simMap));
    if (a.tab)
        window.tabs()->setCurrentIndex(tabIndex(*a.tab));
    QString e;
    if ((!a.map || window.openMap(QString::fromStdString(*a.map), e))
        && (!a.tags || window.loadTags(QString::fromStdString(*a.tags), e)))
        return true;
    std::fprintf(stderr, "teco-monitor: %s\n", e.toLocal8Bit().constData());
    return false;
}

// Saves the window as a PNG after polling for seconds, prints what it shows
// and quits; status becomes 1 when the line or the file fails.
void arrangeScreenshot(
    QApplication &app, MainWindow &window, const std::string &file, int seconds, int &status)
{
    QObject::connect(&window, &MainWindow::connectFailed, &app, [&app, &status](const QString &e) {
        std::fprintf(stderr, "teco-monitor: cannot connect: %s\n", e.toLocal8Bit().constData());
        status = 1;
        app.quit();
    });
    QTimer::singleShot(seconds * 1000, &app, [&app, &window, &status, file] {
        window.trends()->refresh();
        if (!window.grab().save(QString::fromStdString(file), "PNG")) {
            std::fprintf(stderr, "teco-monitor: cannot write %s as a PNG image\n", file.c_str());
            status = 1;
        } else {
            std::printf("teco-monitor: wrote %s: %d tags, %d points plotted\n", file.c_str(),
                window.tags()->rowCount(), window.trends()->plottedPoints());
        }
        app.quit();
    });
}

// Shows the window until it closes (or the screenshot is taken); the exit
// status.
int run(QApplication &app, const MonitorArguments &a)
{
    MainWindow window(QString::fromStdString(pluginPath(a)));
    if (!setUpWindow(window, a))
        return 2;
    int status = 0;
    const bool screenshot = a.screenshot.has_value();
    QObject::connect(
        &window, &MainWindow::driverReady, &app, [&app, &status, screenshot](bool ok, const QString &e) {
            if (ok)
                return;
            std::fprintf(stderr, "teco-monitor: %s\n", e.toLocal8Bit().constData());
            status = 2;
            if (screenshot)
                app.quit();
        });
    if (screenshot)
        arrangeScreenshot(app, window, *a.screenshot, a.seconds ? *a.seconds : 3, status);
    window.show();
    const int ran = app.exec();
    return status ? status : ran;
}

} // namespace

int main(int argc, char **argv)
{
    MonitorArguments a;
    const int parsed = parseArguments(argc, argv, a);
    if (parsed != carryOn)
        return parsed;
    if (!chooseScreen(a.screenshot.has_value()))
        return 2;
    QApplication app(argc, argv);
    return run(app, a);
}
