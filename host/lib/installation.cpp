#include "installation.h"

#include "driverhost.h"

#include <QCoreApplication>
#include <QDir>
#include <QFileInfo>

const char *hostVersion() { return TECO_VERSION; }

const char *installedPluginPath() { return TECO_INSTALLED_PLUGIN; }

std::string defaultPluginPath()
{
    const QString installed
        = QDir::cleanPath(QCoreApplication::applicationDirPath() + "/" + QString(TECO_INSTALLED_PLUGIN));
    if (QFileInfo(installed).isFile())
        return installed.toStdString();
    return TECO_BUILT_PLUGIN;
}

std::string versionText(const std::string &program, const std::string &pluginPath)
{
    std::string text = program + " " + hostVersion() + "\n";
    if (pluginPath.empty())
        return text;
    DriverHost host;
    std::string error;
    DriverInterface *driver = host.load(pluginPath, error);
    if (!driver)
        return text + "driver plug-in: " + error + "\n";
    return text + "driver plug-in " + pluginPath + ": " + driver->name().toLocal8Bit().toStdString() + " "
        + driver->getVersionNumber().toLocal8Bit().toStdString() + "\n";
}
