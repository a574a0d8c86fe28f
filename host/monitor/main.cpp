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
                         "  --plugin PATH       the driver plug-in (default: the one installed with\n"
                         "                      teco-monitor, else the one built with it)\n"
                         "  --sim-fault RULE    a fault for the simulated drive from the start; repeatable\n"
                         "                      (as teco-sim --fault takes it)\n"
                         "  --sim-map FILE      the simulated drive's map (teco-sim --print-map shows it)\n"
                         "  --tab NAME          the tab shown first: trends, traffic or scan\n"
                         "  --screenshot FILE   poll the simulated drive, save the window as a PNG and exit\n"
                         "  --seconds N         how long to poll before the screenshot (default 3)\n"
                         "  --version           the version of teco-monitor and of its plug-in\n";

struct MonitorArguments
{
    std::optional<std::string> tags, plugin, screenshot, tab, simMap;
    QStringList simFaults;
    std::optional<int> seconds;
    bool help = false;
    bool version = false;
};

} // namespace

int main(int argc, char **argv)
{
    MonitorArguments a;
    const OptionTable table({
        OptionTable::text("tags", a.tags),
        OptionTable::text("plugin", a.plugin),
        OptionTable::text("screenshot", a.screenshot),
        OptionTable::checked("sim-fault",
            [&a](const std::string &text, std::string &error) {
                FaultRule rule;
                if (!FaultRule::parse(text, rule, error))
                    return false;
                a.simFaults << QString::fromStdString(text);
                return true;
            }),
        OptionTable::text("sim-map", a.simMap),
        OptionTable::checked("tab",
            [&a](const std::string &text, std::string &error) {
                if (text != "trends" && text != "traffic" && text != "scan") {
                    error = "unknown tab \"" + text + "\" (trends, traffic or scan)";
                    return false;
                }
                a.tab = text;
                return true;
            }),
        OptionTable::integer("seconds", 1, 3600, a.seconds),
        OptionTable::flag("help", a.help),
        OptionTable::flag("version", a.version),
    });
    std::vector<std::string> args;
    for (int i = 1; i < argc; ++i)
        args.push_back(argv[i]);
    std::string error;
    if (!table.parse(args, nullptr, error)) {
        std::fprintf(stderr, "teco-monitor: %s\n(teco-monitor --help shows the usage)\n", error.c_str());
        return 2;
    }
    if (a.help) {
        std::fputs(usageText, stdout);
        return 0;
    }
    if (a.version) {
        QCoreApplication core(argc, argv);
        std::fputs(versionText("teco-monitor", a.plugin ? *a.plugin : defaultPluginPath()).c_str(), stdout);
        return 0;
    }
    if (a.seconds && !a.screenshot) {
        std::fprintf(stderr, "teco-monitor: --seconds goes with --screenshot\n");
        return 2;
    }
    // A screenshot needs no screen; a window does.
    if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM")) {
        if (a.screenshot) {
            qputenv("QT_QPA_PLATFORM", "offscreen");
        } else if (qEnvironmentVariableIsEmpty("DISPLAY") && qEnvironmentVariableIsEmpty("WAYLAND_DISPLAY")) {
            std::fprintf(stderr, "teco-monitor: no display to open a window on (DISPLAY is not set)\n");
            return 2;
        }
    }
    QApplication app(argc, argv);
    const std::string plugin = a.plugin ? *a.plugin : defaultPluginPath();

    MainWindow window(QString::fromStdString(plugin));
    window.setSimFaults(a.simFaults);
    if (a.simMap)
        window.setSimMap(QString::fromStdString(*a.simMap));
    if (a.tab)
        window.tabs()->setCurrentIndex(*a.tab == "trends" ? 0 : *a.tab == "traffic" ? 1 : 2);
    if (a.tags) {
        QString e;
        if (!window.loadTags(QString::fromStdString(*a.tags), e)) {
            std::fprintf(stderr, "teco-monitor: %s\n", e.toLocal8Bit().constData());
            return 2;
        }
    }
    int status = 0;
    QObject::connect(&window, &MainWindow::driverReady, &app, [&](bool ok, const QString &e) {
        if (!ok) {
            std::fprintf(stderr, "teco-monitor: %s\n", e.toLocal8Bit().constData());
            status = 2;
            if (a.screenshot)
                app.quit();
        }
    });
    if (a.screenshot) {
        QObject::connect(&window, &MainWindow::connectFailed, &app, [&](const QString &e) {
            std::fprintf(stderr, "teco-monitor: cannot connect: %s\n", e.toLocal8Bit().constData());
            status = 1;
            app.quit();
        });
        const QString path = QString::fromStdString(*a.screenshot);
        QTimer::singleShot((a.seconds ? *a.seconds : 3) * 1000, &app, [&, path] {
            window.trends()->refresh();
            if (!window.grab().save(path, "PNG")) {
                std::fprintf(stderr, "teco-monitor: cannot write %s as a PNG image\n", a.screenshot->c_str());
                status = 1;
            } else {
                std::printf("teco-monitor: wrote %s: %d tags, %d points plotted\n", a.screenshot->c_str(),
                    window.tags()->rowCount(), window.trends()->plottedPoints());
            }
            app.quit();
        });
    }
    window.show();
    const int ran = app.exec();
    return status ? status : ran;
}
