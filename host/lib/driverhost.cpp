#include "driverhost.h"

#include "optiontable.h"

#include "settings.h"

#include <QFileInfo>

#include <memory>

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

bool DriverHost::defaults(const std::optional<std::string> &linkText, LinkSettings &settings,
    LinkOptions &options, std::string &error) const
{
    DriverInterface *d = driver();
    if (!d) {
        error = "no driver loaded";
        return false;
    }
    std::unique_ptr<DriverSetting> protocol(d->getDefaultDriverSetting());
    if (protocol) {
        options.timeoutMs = protocol->timeout > 0 ? protocol->timeout : options.timeoutMs;
        options.retry = protocol->retry;
        options.station = protocol->stationId;
        options.delayMs = protocol->delay > 0 ? (unsigned long)protocol->delay : 0;
    }
    const std::string text
        = linkText ? *linkText : d->getStringBasedDefaultDriverSetting().toLocal8Bit().toStdString();
    return parseRtuLink(text, settings, error);
}

namespace {

DriverHost::Result failedWith(DriverInterface &d, const std::string &fallback)
{
    DriverHost::Result r;
    r.errorText = d.hasError() ? d.getLastError().toLocal8Bit().toStdString() : fallback;
    r.error = classifyDriverError(r.errorText);
    return r;
}

} // namespace

namespace {

// A link that keeps a tally counts a command's repeated requests as
// retries; it needs to know where one command ends and the next begins. It
// also tells what the command sent and when its answer came.
struct CommandOnLink
{
    explicit CommandOnLink(CommandTally *tally)
        : tally(tally)
    {
        if (!tally)
            return;
        tally->commandBegins();
        requestsBefore = tally->requestsSent();
    }
    DriverHost::Result finish(DriverHost::Result r) const
    {
        if (!tally)
            return r;
        r.requestsSent = int64_t(tally->requestsSent() - requestsBefore);
        r.answeredMs = tally->lastAnswerWallMs();
        return r;
    }

    CommandTally *tally;
    uint64_t requestsBefore = 0;
};

} // namespace

DriverHost::Result DriverHost::read(
    CommandLink link, const AddressText &address, ValueType type, int count) const
{
    DriverInterface *d = driver();
    if (!d)
        return Result();
    const CommunicatorCommand cmd(commandDataType(type), count, QString::fromStdString(address.text()));
    const CommandOnLink onLink(link.tally);
    const QByteArray data = d->read(&link.device, cmd);
    if (d->hasError())
        return onLink.finish(failedWith(*d, std::string()));
    Result r;
    r.elements = unpackValues(data, address, type, count);
    if (int(r.elements.size()) != count || data.size() != expectedReadSize(type, count)) {
        r = failedWith(*d,
            "the driver returned " + std::to_string(data.size()) + " bytes for " + std::to_string(count) + " "
                + valueTypeName(type) + "(s)");
        return onLink.finish(r);
    }
    r.ok = true;
    return onLink.finish(r);
}

DriverHost::Result DriverHost::write(
    CommandLink link, const AddressText &address, ValueType type, const std::vector<uint32_t> &values) const
{
    DriverInterface *d = driver();
    if (!d)
        return Result();
    const CommunicatorCommand cmd(
        commandDataType(type), int(values.size()), QString::fromStdString(address.text()));
    const CommandOnLink onLink(link.tally);
    const bool ok = d->write(&link.device, cmd, packValues(values, type));
    if (d->hasError() || !ok)
        return onLink.finish(failedWith(*d, "the driver did not write " + address.text()));
    Result r;
    r.ok = true;
    return onLink.finish(r);
}
