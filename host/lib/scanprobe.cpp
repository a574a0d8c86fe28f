#include "scanprobe.h"

ScanVerdict judgeScanProbe(const DriverHost::Result &result)
{
    ScanVerdict v;
    const DriverError &e = result.error;
    if (result.requestsSent == 0) {
        // Nothing went on the line (the driver served the read itself, or
        // refused it): no station was asked, so none answered.
    } else if (result.ok) {
        v.answers = v.heard = true;
        v.text = "answers";
    } else if (e.kind == ErrorKind::Exception) {
        v.answers = v.heard = true;
        v.text = "answers with " + e.text;
    } else if (e.kind != ErrorKind::TimeOut) {
        v.heard = true;
        v.text = "garbled answer: " + e.text;
    }
    return v;
}

std::vector<LinkSettings> lineSettingsToTry(const std::vector<int> &bauds, const std::vector<char> &parities,
    const std::vector<int> &stopBits, const LinkSettings &own)
{
    std::vector<LinkSettings> all;
    for (int baud : bauds.empty() ? std::vector<int> { own.baudRate } : bauds)
        for (char parity : parities.empty() ? std::vector<char> { own.parity } : parities)
            for (int stop : stopBits.empty() ? std::vector<int> { own.stopBits } : stopBits) {
                LinkSettings s = own;
                s.baudRate = baud;
                s.parity = parity;
                s.stopBits = stop;
                all.push_back(s);
            }
    return all;
}
