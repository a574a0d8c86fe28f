#include "driversession.h"

DriverSession::~DriverSession() { close(); }

bool DriverSession::load(const std::string &path, std::string &error)
{
    DriverInterface *loaded = host_.load(path, error);
    if (loaded && link_.isOpen())
        loaded->initialize(&link_);
    return loaded != nullptr;
}

void DriverSession::unload() { host_.unload(); }

bool DriverSession::startSim(const SimDrive::Options &options, std::string &error)
{
    return sim_.start(options, error);
}

bool DriverSession::open(
    const std::string &port, const LinkSettings &settings, const LinkOptions &options, std::string &error)
{
    const std::string device = port.empty() ? sim_.devicePath() : port;
    if (!link_.open(device, settings, options, error)) {
        sim_.stop();
        return false;
    }
    if (DriverInterface *d = host_.driver())
        d->initialize(&link_);
    return true;
}

bool DriverSession::connect(const std::string &port, SimDrive::Options sim, const LinkSettings &settings,
    const LinkOptions &options, std::string &error)
{
    if (port.empty()) {
        sim.link = settings;
        if (!sim_.start(sim, error)) {
            error = "cannot start the simulated drive: " + error;
            return false;
        }
    }
    return open(port, settings, options, error);
}

bool DriverSession::close()
{
    const bool wasRunning = link_.isOpen() || sim_.running();
    link_.close();
    sim_.stop();
    return wasRunning;
}

std::string DriverSession::deviceGoneText() const { return link_.goneText(); }

FormattedResult DriverSession::readTag(const Tag &t)
{
    return readAsTexts(host_, link_, t.address, t.type, t.format, t.count);
}

DriverHost::Result DriverSession::writeTag(const Tag &t, const std::vector<uint32_t> &values)
{
    if (!t.format)
        return host_.write(link_, t.address, t.type, values);
    return writeRegisters(host_, link_, t.address, std::vector<uint16_t>(values.begin(), values.end()));
}
