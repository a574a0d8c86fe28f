#ifndef HOST_CLI_BATCHLINES_H
#define HOST_CLI_BATCHLINES_H

#include "textfile.h"

#include <cerrno>
#include <cstring>
#include <string>
#include <unistd.h>

// The lines of a batch: from a file read whole (readTextFile), or from
// standard input as they come, so that typed commands run at once. A UTF-8
// byte-order mark at the start is dropped. A line from standard input is
// refused beyond lineLimit bytes rather than kept growing.
class BatchLines
{
public:
    enum { lineLimit = 65536 };

    bool readFile(const std::string &path, std::string &error)
    {
        fromInput = false;
        started = true; // readTextFile drops the mark
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
    // error set if it ended by a failure. A line of standard input longer
    // than lineLimit gives true with line empty and error set ("line N is
    // longer than 64 KiB"); the next call goes on after that line's end.
    bool next(std::string &line, std::string &error)
    {
        error.clear();
        for (;;) {
            if (skipping && !skipToLineEnd(error))
                return false;
            const size_t end = pending.find('\n', consumed);
            const size_t stop = end == std::string::npos ? pending.size() : end;
            if (fromInput && stop - consumed > lineLimit) {
                consumed = stop;
                skipping = true;
                line.clear();
                error = "line " + std::to_string(++lines) + " is longer than 64 KiB";
                return true;
            }
            if (started && (end != std::string::npos || atEnd)) {
                if (end == std::string::npos && consumed >= pending.size())
                    return false;
                line.assign(pending, consumed, stop - consumed);
                consumed = end == std::string::npos ? pending.size() : end + 1;
                ++lines;
                return true;
            }
            if (!fromInput)
                atEnd = true;
            else if (!readMore(error))
                return false;
        }
    }

private:
    // Drops what is left of a line refused for its length, reading on to
    // its end; false at the end of the input (or a failure, in error).
    bool skipToLineEnd(std::string &error)
    {
        for (;;) {
            const size_t end = pending.find('\n', consumed);
            if (end != std::string::npos) {
                consumed = end + 1;
                skipping = false;
                return true;
            }
            consumed = pending.size();
            if (atEnd || !readMore(error))
                return false;
        }
    }

    // Reads what standard input has; false with error if reading failed.
    bool readMore(std::string &error)
    {
        pending.erase(0, consumed);
        consumed = 0;
        char buffer[4096];
        ssize_t n;
        while ((n = ::read(STDIN_FILENO, buffer, sizeof buffer)) < 0 && errno == EINTR) { }
        if (n < 0) {
            error = std::string("cannot read the batch from standard input: ") + std::strerror(errno);
            return false;
        }
        atEnd = n == 0;
        pending.append(buffer, size_t(n > 0 ? n : 0));
        // The byte-order mark, once enough has come to tell.
        if (!started && (pending.size() >= 3 || atEnd)) {
            if (pending.compare(0, 3, utf8ByteOrderMark) == 0)
                pending.erase(0, 3);
            started = true;
        }
        return true;
    }

    std::string pending;
    size_t consumed = 0;
    int lines = 0;
    bool fromInput = true;
    bool atEnd = false;
    bool started = false; // whether a byte-order mark was looked for
    bool skipping = false; // the rest of a line too long
};

#endif // HOST_CLI_BATCHLINES_H
