#ifndef HOST_LIB_READPLAN_H
#define HOST_LIB_READPLAN_H

// Reads that serve several tags: tags of one station and one area whose
// registers (or bits) are neighbours, or close, are read with one command
// within the driver's block sizes (125 registers, 2008 bits), and each tag's
// values are taken back out of the answer exactly as a read of the tag alone
// gives them. The driver's own register window (HR60000..HR60010) is never
// joined with anything, and neither is a byte read.

#include "driverhost.h"
#include "formattedio.h"
#include "tag.h"

#include <cstddef>
#include <vector>

struct PlannedRead
{
    Tag tag; // what is read: a tag on its own, or a block of words or bits
    std::vector<size_t> members; // the tags it serves (places in the list), in address order
    bool joined = false; // tag is a block that members are taken out of
};

// The gap a poll joins by default (docs/benchmarks.md has its measurement).
constexpr int defaultReadGap = 8;
// The largest gap: as many as the driver's block sizes allow.
constexpr int anyReadGap = 1 << 20;

// The reads of tags, each at its own station (Tag::station, compared as
// given). gap: how many registers no tag names may lie between two tags of
// one read (for bits, 16 bits for each register: the same bytes of answer);
// 0 joins touching tags only, a negative gap joins nothing. excluded[i],
// when given, keeps tag i out of joined reads. The reads come in the order of
// their first tag in the list.
std::vector<PlannedRead> planReads(
    const std::vector<Tag> &tags, int gap, const std::vector<bool> &excluded = {});

// The registers (outside registers, the bits) a tag covers from its first.
int tagSpan(const Tag &tag);

// One tag's values out of the answer r of the joined read of block, as
// readAsTexts gives them for the tag alone; a failed read hands on its error.
FormattedResult memberResult(const Tag &block, const Tag &member, const DriverHost::Result &r);

#endif // HOST_LIB_READPLAN_H
