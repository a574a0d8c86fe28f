#ifndef HOST_CLI_BATCHLINES_H
#define HOST_CLI_BATCHLINES_H

#include "textfile.h"

#include <cerrno>
#include <cstring>
#include <string>
#include <unistd.h>

// The lines of a batch: from a file read whole (a regular file within
// userTextFileLimit), or from standard input as they come, so that typed
// commands run at once; a line from standard input is refused beyond
// lineLimit bytes rather than kept growing.
class BatchLines
{
public:
    enum { lineLimit = 65536 };

    bool readFile(const std::string &path, std::string &error)
    {
        fromInput = false;
        return readTextFile(path, userTextFileLimit, pending, error);
    }

    // Back to the first line of a file.
    void rewind()
    {
        consumed = 0;
        lines = 0;
        atEnd = false;
    }

    // The next line without its end; false at the end of the batch, with
    // error set if it ended by a failure.
    bool next(std::string &line, std::string &error)
    {
        error.clear();
        for (;;) {
            const size_t end = pending.find('\n', consumed);
            if (end != std::string::npos || atEnd) {
                if (end == std::string::npos && consumed >= pending.size())
                    return false;
                const size_t stop = end == std::string::npos ? pending.size() : end;
                line.assign(pending, consumed, stop - consumed);
                consumed = end == std::string::npos ? pending.size() : end + 1;
                ++lines;
                return true;
            }
            if (!fromInput) {
                atEnd = true;
                continue;
            }
            if (pending.size() - consumed > lineLimit) {
                error = "batch line " + std::to_string(lines + 1) + " is longer than 64 KiB";
                return false;
            }
            pending.erase(0, consumed);
            consumed = 0;
            char buffer[4096];
            const ssize_t n = ::read(STDIN_FILENO, buffer, sizeof buffer);
            if (n < 0 && errno == EINTR)
                continue;
            if (n < 0) {
                error = std::string("cannot read the batch from standard input: ") + std::strerror(errno);
                return false;
            }
            if (n == 0)
                atEnd = true;
            else
                pending.append(buffer, size_t(n));
        }
    }

private:
    std::string pending;
    size_t consumed = 0;
    int lines = 0;
    bool fromInput = true;
    bool atEnd = false;
};

#endif // HOST_CLI_BATCHLINES_H
