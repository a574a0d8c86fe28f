// teco-cli: loads a driver plug-in of the panel runtime by path, exactly as the
// panel does (QPluginLoader), and talks to it.

#include "driverinterface.h"

#include <QCoreApplication>
#include <QPluginLoader>
#include <QStringList>

#include <cstdio>
#include <memory>

namespace {

const char usageText[] = "usage: teco-cli [--plugin PATH] info\n"
                         "  info    print the driver's identity and default settings\n";

int usage(const char *problem)
{
    if (problem)
        std::fprintf(stderr, "teco-cli: %s\n", problem);
    std::fputs(usageText, stderr);
    return 2;
}

QByteArray local(const QString &text)
{
    return text.toLocal8Bit();
}

int info(DriverInterface *driver)
{
    std::printf("name:             %s\n", local(driver->name()).constData());
    std::printf("protocol:         %s\n", local(driver->vender()).constData());
    std::printf("version:          %s\n", local(driver->getVersionNumber()).constData());
    std::printf("default link:     %s\n", local(driver->getStringBasedDefaultDriverSetting()).constData());
    std::unique_ptr<DeviceSetting> device(driver->getDefaultSerialDeviceSetting());
    if (device)
        std::printf("default port:     %s (type %d, %d baud, %d data bits, stop-bit code %d, parity code %d)\n",
                    local(device->string).constData(), int(device->type), device->baudrate, device->databits,
                    device->stopbits, device->parity);
    std::unique_ptr<DriverSetting> protocol(driver->getDefaultDriverSetting());
    if (protocol)
        std::printf("default protocol: time-out %d ms, retry %d, station %d, delay %d ms\n", protocol->timeout,
                    protocol->retry, protocol->stationId, protocol->delay);
    std::printf("block sizes:      %d registers, %d bits\n", driver->getBlockAccessSize(),
                driver->getBitBlockAccessSize());
    return 0;
}

} // namespace

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    QStringList args = app.arguments().mid(1);
    QString pluginPath = QString::fromLocal8Bit(TECO_DEFAULT_PLUGIN);
    if (args.size() >= 2 && args.at(0) == "--plugin") {
        pluginPath = args.at(1);
        args = args.mid(2);
    }
    if (args.isEmpty())
        return usage("no command given");
    if (args.at(0) == "--help" || args.at(0) == "-h") {
        std::fputs(usageText, stdout);
        return 0;
    }

    QPluginLoader loader(pluginPath);
    QObject *instance = loader.instance();
    if (!instance)
        return usage(local("cannot load plug-in: " + loader.errorString()).constData());
    DriverInterface *driver = qobject_cast<DriverInterface *>(instance);
    if (!driver)
        return usage(local("not a driver plug-in: " + pluginPath).constData());

    if (args.at(0) == "info" && args.size() == 1)
        return info(driver);
    return usage(local("unknown command: " + args.join(" ")).constData());
}
