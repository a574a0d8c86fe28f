#include "driverhost.h"

#include <QFileInfo>

DriverInterface *DriverHost::load(const std::string &path, std::string &error)
{
    release();
    const QFileInfo file(QString::fromLocal8Bit(path.c_str()));
    if (!file.exists()) {
        error = "plug-in not found: " + path;
        return nullptr;
    }
    if (!file.isFile()) {
        error = "not a plug-in file: " + path;
        return nullptr;
    }
    loader.setFileName(file.absoluteFilePath());
    QObject *root = loader.instance();
    if (!root) {
        error = "cannot load " + path + " as a plug-in: " + loader.errorString().toLocal8Bit().toStdString();
        loader.unload();
        return nullptr;
    }
    DriverInterface *driver = qobject_cast<DriverInterface *>(root);
    if (!driver) {
        error = path + " is a Qt plug-in but not a driver of this runtime";
        loader.unload();
        return nullptr;
    }
    instance = root;
    loaded = driver;
    pluginPath = path;
    return loaded;
}

void DriverHost::release()
{
    if (loaded)
        loader.unload(); // our hold on the library; Qt unloads it after the last one
    instance = nullptr;
    loaded = nullptr;
    pluginPath.clear();
}

void DriverHost::unload()
{
    // The root instance is shared; deleting it is what ends the object for
    // every host, as other loaders of the file may keep the library loaded.
    delete instance.data();
    release();
}
