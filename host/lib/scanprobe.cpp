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
