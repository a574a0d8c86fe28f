#include "command.h"

#include "faultrule.h"
#include "textutil.h"

namespace {

bool typeAndCount(const std::string &text, Tag &tag, const std::optional<std::string> &typeName,
    std::optional<int> count, std::string &error)
{
    if (!AddressText::parse(text, tag.address, error))
        return false;
    tag.text = tag.address.text();
    tag.type = defaultType(tag.address);
    if (typeName && !parseValueType(*typeName, tag.type)) {
        error = "unknown data type \"" + *typeName + "\" (bit, byte, word or dword)";
        return false;
    }
    if (!typeFits(tag.address, tag.type, error))
        return false;
    tag.count = count ? *count : 1;
    return true;
}

} // namespace

bool parseTag(const std::string &text, Tag &tag, std::string &error)
{
    const std::vector<std::string> parts = splitFields(text, ':');
    if (parts.size() > 3) {
        error = "bad tag \"" + text + "\" (ADDRESS[:TYPE][:COUNT], such as HR100:word:2)";
        return false;
    }
    std::optional<std::string> type;
    std::optional<int> count;
    for (size_t i = 1; i < parts.size(); ++i) {
        const std::string &p = parts[i];
        int n = 0;
        if (!count && !p.empty() && p.find_first_not_of("0123456789") == std::string::npos) {
            if (!parseWholeNumber(p, 1, 65535, n)) {
                error = "bad count in tag \"" + text + "\" (1 to 65535)";
                return false;
            }
            count = n;
        } else if (i == 1 && !type) {
            type = p;
        } else {
            error = "bad tag \"" + text + "\" (ADDRESS[:TYPE][:COUNT], such as HR100:word:2)";
            return false;
        }
    }
    if (!typeAndCount(parts[0], tag, type, count, error))
        return false;
    tag.text = text;
    return true;
}

bool prepareCommand(const CliOptions &o, bool batchLine, Command &c, std::string &error)
{
    c = Command();
    c.options = o;
    if (o.arguments.empty()) {
        error = "no command given";
        return false;
    }
    c.name = o.arguments[0];
    const std::vector<std::string> args(o.arguments.begin() + 1, o.arguments.end());

    if (batchLine && (c.name == "trace" || c.name == "fault")) {
        if (args.size() != 1 || (c.name == "trace" && args[0] != "on" && args[0] != "off")) {
            error = c.name == "trace" ? "usage: trace on|off" : "usage: fault KIND[:KEY=VALUE,...]";
            return false;
        }
        if (c.name == "fault") {
            FaultRule rule;
            if (!FaultRule::parse(args[0], rule, error))
                return false;
        }
        c.argument = args[0];
        return true;
    }
    if (batchLine && c.name == "batch") {
        error = "a batch cannot start another batch";
        return false;
    }
    if (!checkCommandOptions(c.name, o, error))
        return false;

    if (c.name == "info") {
        if (!args.empty()) {
            error = "info takes no arguments";
            return false;
        }
    } else if (c.name == "read") {
        if (args.size() != 1) {
            error = "usage: read ADDRESS [--type bit|byte|word|dword] [--count N]";
            return false;
        }
        if (!typeAndCount(args[0], c.target, o.type, o.count, error))
            return false;
    } else if (c.name == "write") {
        if (args.size() < 2) {
            error = "usage: write ADDRESS VALUE... [--type bit|byte|word|dword]";
            return false;
        }
        if (!typeAndCount(args[0], c.target, o.type, std::nullopt, error))
            return false;
        for (size_t i = 1; i < args.size(); ++i) {
            uint32_t v = 0;
            if (!parseValue(args[i], c.target.type, v, error))
                return false;
            c.values.push_back(v);
        }
        if (c.values.size() > 2008) {
            error = "too many values for one write";
            return false;
        }
        c.target.count = int(c.values.size());
    } else if (c.name == "poll") {
        if (args.empty()) {
            error = "usage: poll TAG... [--interval MS] [--cycles N] [--duration S]";
            return false;
        }
        for (const std::string &a : args) {
            Tag t;
            if (!parseTag(a, t, error))
                return false;
            c.tags.push_back(t);
        }
        c.intervalMs = o.interval ? *o.interval : 1000;
        c.cycles = o.cycles ? *o.cycles : 0;
        c.durationS = o.duration ? *o.duration : 0;
    } else if (c.name == "scan") {
        if (!args.empty()) {
            error = "usage: scan [--from N] [--to N] [--address ADDRESS]";
            return false;
        }
        c.from = o.from ? *o.from : 1;
        c.to = o.to ? *o.to : 247;
        if (c.from < 1 || c.to > 247 || c.from > c.to) {
            error = "scan needs 1 <= --from <= --to <= 247";
            return false;
        }
        Tag probe;
        if (!typeAndCount(o.address ? *o.address : "HR1", probe, std::nullopt, std::nullopt, error))
            return false;
        if (probe.address.bit >= 0 || probe.address.swap) {
            error = "scan probes with one word or bit read: give a plain address such as HR1 or DI1";
            return false;
        }
        c.probe = probe.address;
    } else if (c.name == "batch") {
        if (args.size() > 1) {
            error = "usage: batch [FILE] (commands one per line; standard input without FILE)";
            return false;
        }
        c.argument = args.empty() ? "-" : args[0];
    }
    return true;
}
