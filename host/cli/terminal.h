#ifndef HOST_CLI_TERMINAL_H
#define HOST_CLI_TERMINAL_H

// What teco-cli needs of the terminal it runs in: whether standard error is
// one (for live status lines), and Ctrl-C as a request to stop a long
// command rather than to kill the program.

#include <csignal>

bool stderrIsTerminal();
// The width of the terminal on standard error in columns; 80 when it does
// not say (not a terminal, or a width of 0).
int stderrColumns();

// While an InterruptScope lives, Ctrl-C sets interrupted() instead of ending
// the program; waits without SA_RESTART end at once. The previous handler
// comes back when the scope ends. A scope inside another (a poll inside a
// shell's command) sees a Ctrl-C that came before it began.
class InterruptScope
{
public:
    InterruptScope();
    ~InterruptScope();
    InterruptScope(const InterruptScope &) = delete;
    InterruptScope &operator=(const InterruptScope &) = delete;

    static bool interrupted();
    // Forgets a Ctrl-C that came before, for a scope over several steps
    // (the shell's, over its prompts and commands).
    static void reset();

private:
    struct sigaction previous;
};

#endif // HOST_CLI_TERMINAL_H
