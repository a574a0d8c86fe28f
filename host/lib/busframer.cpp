#include "busframer.h"

#include <algorithm>

namespace {

// The longest frame a header can announce: a reply of 255 data bytes.
const int longestFrame = 5 + 255;
// Bytes held before the head is given up as no frame, whatever comes next.
const int mostHeld = 2 * longestFrame;

FrameRole otherRole(FrameRole role)
{
    return role == FrameRole::Request ? FrameRole::Reply : FrameRole::Request;
}

// What the header at bytes says of a frame in one role.
struct Reading
{
    bool good = false; // the whole frame is there and its CRC holds
    bool waits = false; // more bytes are needed to know
    int length = -1;
};

Reading readAs(const uint8_t *bytes, int have, FrameRole role)
{
    Reading r;
    r.length = frameLength(bytes, have, role);
    if (r.length > longestFrame)
        r.length = -1;
    r.waits = r.length == 0 || r.length > have;
    r.good = r.length > 0 && r.length <= have && modbusCrcOk(bytes, r.length);
    return r;
}

} // namespace

BusFramer::Timing BusFramer::timingOf(const LinkSettings &line, int64_t batchNs, int64_t replyWindowNs)
{
    Timing t;
    t.characterNs = line.characterNs();
    // Half the RTU silence: a pause that long between two bytes is already
    // more than a sender keeps inside one frame.
    t.gapNs = line.silenceNs() / 2;
    // Bytes stop inside a frame only when its sender stalls (a loaded machine
    // relaying them): what a quiet line ends waits for the reply window.
    t.quietNs = std::max({ line.silenceNs(), batchNs, replyWindowNs });
    t.replyWindowNs = replyWindowNs;
    return t;
}

BusFramer::BusFramer(const Timing &timing)
    : timing(timing)
{
}

void BusFramer::feed(const uint8_t *data, int count, int64_t readNs, std::vector<BusFrame> &out)
{
    for (int i = 0; i < count; ++i) {
        // The bytes of one read came one after another, the last just now;
        // a read that came late does not move bytes before earlier ones.
        int64_t end = readNs - int64_t(count - 1 - i) * timing.characterNs;
        const bool first = lastEndNs == 0 && bytes.empty();
        // Nor does a line faster than its settings say move bytes past the read.
        if (!first)
            end = std::min(std::max(end, lastEndNs + timing.characterNs), std::max(readNs, lastEndNs));
        silenceBefore.push_back(char(!first && end - timing.characterNs - lastEndNs > timing.gapNs ? 1 : 0));
        bytes.push_back(data[i]);
        ends.push_back(end);
        lastEndNs = end;
    }
    extract(false, out);
}

void BusFramer::idle(int64_t nowNs, std::vector<BusFrame> &out)
{
    if (!bytes.empty() && nowNs - ends.back() >= timing.quietNs)
        extract(true, out);
}

void BusFramer::finish(std::vector<BusFrame> &out) { extract(true, out); }

void BusFramer::extract(bool final, std::vector<BusFrame> &out)
{
    while (!bytes.empty()) {
        const Step step = nextStep(final);
        if (step.wait)
            return;
        takeOut(step, out);
    }
}

FrameRole BusFramer::preferredRole() const
{
    // While a request waits for its reply the master is silent: what comes
    // in its reply window is a reply, of any station or function. A master
    // sends its next request as soon as the window has passed, by its own
    // clock: in the last tenth a frame may be either, and is read as a request.
    if (requestStation < 0 || bytes.empty())
        return FrameRole::Request;
    const int64_t startNs = ends[0] - timing.characterNs;
    return startNs - requestEndNs <= timing.replyWindowNs / 10 * 9 ? FrameRole::Reply : FrameRole::Request;
}

BusFramer::Step BusFramer::nextStep(bool final) const
{
    const int have = int(bytes.size());
    const FrameRole first = preferredRole();
    const Reading preferred = readAs(bytes.data(), have, first);
    const Reading other = readAs(bytes.data(), have, otherRole(first));
    if (preferred.good)
        return Step { false, BusFrame::Good, first, preferred.length };
    // The other reading is not taken while the preferred one may still come
    // whole, unless a silence ends it.
    const bool silenceAfter = other.length > 0 && other.length < have && silenceBefore[size_t(other.length)];
    if (other.good && (!preferred.waits || final || silenceAfter))
        return Step { false, BusFrame::Good, otherRole(first), other.length };
    if ((preferred.waits || other.waits) && !final && have < mostHeld)
        return splitAtSilence();
    return badUnit(final);
}

BusFramer::Step BusFramer::waitStep()
{
    Step wait;
    wait.wait = true;
    return wait;
}

BusFramer::Step BusFramer::splitAtSilence() const
{
    // A frame still short of its length ends at a silence that a good frame
    // follows, or at a good frame before that.
    FrameRole role;
    for (int at = 1; at < int(bytes.size()); ++at)
        if (silenceBefore[at] && goodFrameAt(at, role) > 0) {
            int first = 1;
            while (goodFrameAt(first, role) == 0)
                ++first;
            return classify(first);
        }
    return waitStep();
}

BusFramer::Step BusFramer::badUnit(bool final) const
{
    const int have = int(bytes.size());
    FrameRole role;
    int good = 1; // where the next good frame begins
    while (good < have && goodFrameAt(good, role) == 0)
        ++good;
    Step step;
    if (headerLengthStep(good, final, step))
        return step;
    // Else the bytes up to the broken reply that follows them, or up to the
    // next good frame: a silence inside a reply cut short may be the
    // machine's pause, not the reply's end.
    for (int at = 1; at + 1 < good; ++at)
        if (brokenReplyAt(at, good))
            return classify(at);
    if (good < have)
        return classify(good);
    if (final)
        return classify(have);
    return have >= mostHeld ? classify(have - longestFrame) : waitStep();
}

bool BusFramer::headerLengthStep(int good, bool final, Step &step) const
{
    // The length the header gives, when a silence or a good frame follows
    // it: a frame with a wrong CRC. A pause inside it (an adapter's, or the
    // machine's) does not cut it.
    const int have = int(bytes.size());
    const FrameRole first = preferredRole();
    for (FrameRole r : { first, otherRole(first) }) {
        const int length = readAs(bytes.data(), have, r).length;
        if (length <= 0 || length > good)
            continue; // a good frame begins inside it
        if (length < have && (silenceBefore[size_t(length)] || length == good)) {
            step = !final && mayBeginAfterSilenceIn(length) ? waitStep() : classify(length);
            return true;
        }
        // What follows it may yet be a good frame, or the line may fall quiet.
        if (length == have || (!final && frameMayFollow(length))) {
            step = final ? classify(length) : waitStep();
            return true;
        }
    }
    return false;
}

bool BusFramer::brokenReplyAt(int at, int end) const
{
    const uint8_t *b = bytes.data() + at;
    return b[0] == requestStation && (b[1] & 0x7F) == requestFunction
        && frameLength(b, end - at, FrameRole::Reply) == end - at;
}

bool BusFramer::mayBeginAfterSilenceIn(int length) const
{
    for (int at = 1; at < length; ++at)
        if (silenceBefore[size_t(at)] && frameMayFollow(at))
            return true;
    return false;
}

bool BusFramer::frameMayFollow(int at) const
{
    const int have = int(bytes.size()) - at;
    return readAs(bytes.data() + at, have, FrameRole::Request).waits
        || readAs(bytes.data() + at, have, FrameRole::Reply).waits;
}

int BusFramer::goodFrameAt(int at, FrameRole &role) const
{
    const int have = int(bytes.size()) - at;
    for (FrameRole r : { FrameRole::Request, FrameRole::Reply }) {
        const Reading reading = readAs(bytes.data() + at, have, r);
        if (reading.good) {
            role = r;
            return reading.length;
        }
    }
    return 0;
}

BusFramer::Step BusFramer::classify(int length) const
{
    Step step;
    step.length = length;
    const FrameRole first = preferredRole();
    for (FrameRole role : { first, otherRole(first) })
        if (length >= 4 && frameLength(bytes.data(), length, role) == length) {
            step.kind = BusFrame::BadCrc;
            step.role = role;
            return step;
        }
    // The start of the reply that the request before it asked for: its
    // station and function (stray bytes in the reply's time are no reply).
    const int expected = frameLength(bytes.data(), length, FrameRole::Reply);
    const bool itsStart = length >= 2 && bytes[0] == requestStation && (bytes[1] & 0x7F) == requestFunction;
    if (first == FrameRole::Reply && itsStart && (expected == 0 || expected > length)) {
        step.kind = BusFrame::Truncated;
        step.role = FrameRole::Reply;
    }
    return step;
}

void BusFramer::takeOut(const Step &step, std::vector<BusFrame> &out)
{
    BusFrame f;
    f.kind = step.kind;
    f.role = step.role;
    f.bytes.assign(bytes.begin(), bytes.begin() + step.length);
    f.startNs = ends[0] - timing.characterNs;
    f.endNs = ends[size_t(step.length) - 1];
    if (f.kind == BusFrame::Good && f.role == FrameRole::Request) {
        // A broadcast asks for no reply.
        requestStation = bytes[0] != 0 ? bytes[0] : -1;
        requestFunction = bytes[1];
        requestEndNs = f.endNs;
    } else if (f.kind != BusFrame::Garbage && (f.kind != BusFrame::Good || bytes[0] == requestStation)) {
        // Answered, if badly; another station's reply leaves the request waiting.
        requestStation = -1;
    }
    bytes.erase(bytes.begin(), bytes.begin() + step.length);
    ends.erase(ends.begin(), ends.begin() + step.length);
    silenceBefore.erase(silenceBefore.begin(), silenceBefore.begin() + step.length);
    out.push_back(f);
}
