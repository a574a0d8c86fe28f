#ifndef HOST_DRIVERSESSION_H
#define HOST_DRIVERSESSION_H

// One driver session, as every program that runs the driver sets it up: the
// driver plug-in loaded as the panel loads it (DriverHost), the serial link
// it talks through, and, when asked, the simulated drive on a
// pseudo-terminal at the other end of the link. teco-cli, teco-monitor's
// worker, the soak and the end-to-end tests each hold one.
//
// The steps, each false with one sentence in error: load() the plug-in,
// startSim() when there is no port, open() the link (to the simulated drive
// without a port) and hand it to the driver (initialize). close() ends the
// link and the simulated drive; the destructor does too.

#include "driverhost.h"
#include "driverinterface.h"
#include "formattedio.h"
#include "seriallink.h"
#include "simdrive.h"
#include "tag.h"

#include <map>
#include <optional>
#include <string>
#include <vector>

class DriverSession
{
public:
    DriverSession() = default;
    ~DriverSession();
    DriverSession(const DriverSession &) = delete;
    DriverSession &operator=(const DriverSession &) = delete;

    // Loads the plug-in at path; on an open link the driver is initialized on it.
    bool load(const std::string &path, std::string &error);
    // Ends the driver object (DriverHost::unload): the next load starts anew.
    void unload();
    // The loaded driver, or nullptr.
    DriverInterface *driver() const { return host_.driver(); }
    // The driver's own defaults (DriverHost::defaults).
    bool defaults(const std::optional<std::string> &linkText, LinkSettings &settings, LinkOptions &options,
        std::string &error) const
    {
        return host_.defaults(linkText, settings, options, error);
    }

    // The simulated drive's options from what people give (SimDrive::optionsFrom).
    static bool simOptions(const std::optional<std::string> &stations, const std::vector<std::string> &faults,
        const std::optional<std::string> &mapPath, SimDrive::Options &options, std::string &error)
    {
        return SimDrive::optionsFrom(stations, faults, mapPath, options, error);
    }
    // Starts the simulated drive; error says what kept it from starting.
    bool startSim(const SimDrive::Options &options, std::string &error);
    // Opens the link to port, or with an empty port to the simulated drive,
    // and initializes the loaded driver on it. A failed open stops the
    // simulated drive.
    bool open(const std::string &port, const LinkSettings &settings, const LinkOptions &options,
        std::string &error);
    // With a port: open(). Without one: starts the simulated drive of sim
    // (with settings as its line) and opens the link to it.
    bool connect(const std::string &port, SimDrive::Options sim, const LinkSettings &settings,
        const LinkOptions &options, std::string &error);
    // Opens the last device again after it went away (SerialLink::reopen).
    bool reopen(std::string &error) { return link_.reopen(error); }
    // Closes the link and stops the simulated drive; true when either was running.
    bool close();
    bool isOpen() const { return link_.isOpen(); }
    // The device went away under the open link.
    bool deviceGone() const { return link_.deviceGone(); }
    // One sentence: the link's device went away.
    std::string deviceGoneText() const;

    // One read of a tag as texts (readAsTexts), at the link's options.
    FormattedResult readTag(const Tag &tag);
    // A tag's values: for a tag with a format the registers that hold them,
    // else one value each of its type.
    DriverHost::Result writeTag(const Tag &tag, const std::vector<uint32_t> &values);

    // What the line did, by station and in all (SerialLink's counts).
    std::map<int, SerialLink::StationHealth> health() const { return link_.health(); }
    SerialLink::StationHealth totalHealth() const { return link_.totalHealth(); }

    const DriverHost &host() const { return host_; }
    SerialLink &link() { return link_; }
    const SerialLink &link() const { return link_; }
    SimDrive &sim() { return sim_; }
    const SimDrive &sim() const { return sim_; }

private:
    DriverHost host_;
    SerialLink link_;
    SimDrive sim_;
};

#endif // HOST_DRIVERSESSION_H
