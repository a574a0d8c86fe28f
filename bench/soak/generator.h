#ifndef BENCH_SOAK_GENERATOR_H
#define BENCH_SOAK_GENERATOR_H

// Draws soak commands from a seeded generator: every data type, every
// prefix, every station, reads and writes mixed, counts from one element up
// to each operation's largest, addresses mostly in a small range (so that
// reads meet what writes left) and also anywhere up to the top of the
// address space, the register window with its relay, and commands that the
// driver must refuse without sending anything. Now and then a command has
// the shape of the one before it (type, count, station, prefix) at another
// address, as when a panel polls a list of tags: then an answer meant for one
// of them would fit the other, which is what the oracle must catch.

#include "command.h"

#include <random>
#include <vector>

class SoakModel;

class CommandGenerator
{
public:
    CommandGenerator(unsigned seed, const std::vector<int> &stations);
    SoakCommand next(const SoakModel &model);

private:
    SoakCommand draw(const SoakModel &model);
    int uniform(int low, int high); // inclusive
    bool chance(double p);
    int station();
    // A count from 1 to most: mostly small, sometimes the largest.
    int countUpTo(int most);
    // A zero-based start for span elements: mostly in a small shared range,
    // sometimes around HR1300, anywhere, or at the top of the address space.
    int startFor(int span, bool avoidWindow);
    QByteArray words(int n);
    QByteArray bitStates(int n);
    std::string text(const std::string &prefix, int start, int bit = -1, bool swap = false);

    SoakCommand readWords();
    SoakCommand readDWords();
    SoakCommand readBytes();
    SoakCommand readBits();
    SoakCommand readRegisterBits();
    SoakCommand readWindow(const SoakModel &model);
    SoakCommand writeWords();
    SoakCommand writeDWords();
    SoakCommand writeBytes();
    SoakCommand writeCoils();
    SoakCommand writeRegisterBits();
    SoakCommand window(const SoakModel &model);
    SoakCommand configureWindow();
    SoakCommand refused();
    // The previous command again at another address, with other data: a
    // panel polls many tags of one shape, whose answers look alike.
    SoakCommand sibling();

    std::mt19937 random;
    std::vector<int> stations;
    SoakCommand previous;
    bool havePrevious = false;
};

#endif // BENCH_SOAK_GENERATOR_H
