#ifndef HOST_DRIVERHOST_H
#define HOST_DRIVERHOST_H

// Loading a driver plug-in of this runtime by path, as the panel's runtime
// does: QPluginLoader, the plug-in's root instance, and the DriverInterface
// that instance implements.
//
// Qt shares a plug-in's root instance between every loader of the same file,
// so two hosts of one file hand out the same driver object. Destroying a host
// leaves that object alive, as QPluginLoader does. unload() ends it for every
// host of the file (their driver() turns nullptr) and lets Qt unload the
// library once no loader holds it; the next load() starts with a new driver
// object: a clear error state and a new register window.

#include "commandtally.h"
#include "driverinterface.h"
#include "errorkind.h"
#include "seriallink.h"
#include "values.h"

#include <QPluginLoader>
#include <QPointer>

#include <optional>
#include <string>
#include <type_traits>
#include <vector>

// The link a command goes over, and what that link tells of the command
// (commandtally.h) when it can: a link that keeps a tally passes it along
// by its type alone, any other link passes without one.
struct CommandLink
{
    explicit CommandLink(AbstractDeviceInterface &link)
        : device(link)
    {
    }
    template <class Link, std::enable_if_t<std::is_base_of_v<CommandTally, Link>, int> = 0>
    CommandLink(Link &link)
        : device(link)
        , tally(&link)
    {
    }
    AbstractDeviceInterface &device;
    CommandTally *tally = nullptr;
};

class DriverHost
{
public:
    DriverHost() = default;
    DriverHost(const DriverHost &) = delete;
    DriverHost &operator=(const DriverHost &) = delete;

    // Loads the plug-in at path and returns its driver. On failure returns
    // nullptr with one sentence in error: a path that does not exist or is
    // not a file, a file that Qt cannot load as a plug-in, a plug-in that is
    // not a driver of this runtime. A host holds one plug-in: loading another
    // lets go of the one it holds first (without ending its driver object).
    DriverInterface *load(const std::string &path, std::string &error);
    // The loaded driver, or nullptr.
    DriverInterface *driver() const { return instance ? loaded : nullptr; }
    // The path given to the last successful load().
    const std::string &path() const { return pluginPath; }
    // Ends the driver object (see above).
    void unload();

    // The driver's own defaults, as a new panel project takes them: its link
    // text (or linkText, when given) and its protocol settings (time-out,
    // retry, station, delay) over the link options' own. False with one
    // sentence for a link text that does not parse or has 7 data bits.
    bool defaults(const std::optional<std::string> &linkText, LinkSettings &settings, LinkOptions &options,
        std::string &error) const;

    // One command through the loaded driver. A read succeeds only with
    // exactly the bytes its type and count give: a driver that returns
    // fewer or more without an error text fails here, never shows a value.
    struct Result
    {
        bool ok = false;
        std::vector<Element> elements; // read: one per value
        std::string errorText; // the driver's text, as it recorded it
        DriverError error; // the text sorted into its kind
        // When the command's last answer was complete, by the wall clock (ms
        // since the epoch); 0 when no answer came (or the link cannot tell).
        int64_t answeredMs = 0;
        // Requests the command put on the line; -1 when the link cannot tell.
        // 0 for a command the driver served itself (its register window).
        int64_t requestsSent = -1;
    };
    Result read(CommandLink link, const AddressText &address, ValueType type, int count) const;
    Result write(CommandLink link, const AddressText &address, ValueType type,
        const std::vector<uint32_t> &values) const;

private:
    void release();

    QPluginLoader loader;
    QPointer<QObject> instance;
    DriverInterface *loaded = nullptr;
    std::string pluginPath;
};

#endif // HOST_DRIVERHOST_H
