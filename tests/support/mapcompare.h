#ifndef TESTS_MAPCOMPARE_H
#define TESTS_MAPCOMPARE_H

// The first difference between two parameter maps (every field a file
// holds, not the lines it was on), or "" when they are the same. The tests
// and the fuzz target check round trips through a map file with it.

#include "parammap.h"

#include <string>

inline std::string tagDifference(const Tag &a, const Tag &b)
{
    if (a.text != b.text || a.address.text() != b.address.text() || a.type != b.type || a.count != b.count)
        return "tag " + a.text + " / " + b.text;
    if (bool(a.format) != bool(b.format)
        || (a.format
            && (a.format->text() != b.format->text() || a.format->orderGiven != b.format->orderGiven)))
        return "format of " + a.text;
    return "";
}

inline std::string parameterDifference(const Parameter &a, const Parameter &b)
{
    auto same = [](const std::vector<ValueText> &x, const std::vector<ValueText> &y) {
        if (x.size() != y.size())
            return false;
        for (size_t i = 0; i < x.size(); ++i)
            if (x[i].raw != y[i].raw || x[i].text != y[i].text)
                return false;
        return true;
    };
    const std::string tag = tagDifference(a.tag, b.tag);
    if (!tag.empty())
        return a.name + ": " + tag;
    if (a.name != b.name || a.scaleText != b.scaleText || a.offsetText != b.offsetText || a.scale != b.scale
        || a.offset != b.offset || a.unit != b.unit || a.minimum != b.minimum || a.maximum != b.maximum
        || a.access != b.access || a.defaultText != b.defaultText || a.group != b.group
        || a.description != b.description || !same(a.valueTexts, b.valueTexts) || a.alarm != b.alarm
        || a.motion != b.motion || a.backup != b.backup)
        return a.name + " / " + b.name + ": a column differs";
    return "";
}

inline std::string mapDifference(const ParameterMap &a, const ParameterMap &b)
{
    if (a.parameters.size() != b.parameters.size())
        return std::to_string(a.parameters.size()) + " / " + std::to_string(b.parameters.size())
            + " parameters";
    for (size_t i = 0; i < a.parameters.size(); ++i) {
        const std::string d = parameterDifference(a.parameters[i], b.parameters[i]);
        if (!d.empty())
            return d;
    }
    return "";
}

#endif // TESTS_MAPCOMPARE_H
