#include "terminal.h"

#include <cstring>
#include <sys/ioctl.h>
#include <unistd.h>

namespace {

volatile std::sig_atomic_t interruptFlag = 0;
int depth = 0; // scopes alive

void onInterrupt(int) { interruptFlag = 1; }

} // namespace

bool stderrIsTerminal() { return isatty(STDERR_FILENO) == 1; }

int stderrColumns()
{
    struct winsize size;
    std::memset(&size, 0, sizeof size);
    if (ioctl(STDERR_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 0)
        return size.ws_col;
    return 80;
}

InterruptScope::InterruptScope()
{
    struct sigaction action;
    std::memset(&action, 0, sizeof action);
    action.sa_handler = onInterrupt; // no SA_RESTART: a pause ends at once
    sigaction(SIGINT, &action, &previous);
    if (depth++ == 0)
        interruptFlag = 0;
}

InterruptScope::~InterruptScope()
{
    sigaction(SIGINT, &previous, nullptr);
    --depth;
}

bool InterruptScope::interrupted() { return interruptFlag != 0; }

void InterruptScope::reset() { interruptFlag = 0; }
