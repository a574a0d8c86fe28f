#ifndef HOST_TEXTFILE_H
#define HOST_TEXTFILE_H

// Files that users name on a command line: register maps and batches to
// read, traces to write. A wrong path must give one clear sentence, never a
// wait on a FIFO that nobody writes to, an endless read of a device or an
// exhausted memory, and a trace must never write through a symbolic link or
// truncate a file that is not the user's own.

#include <cstddef>
#include <cstdio>
#include <string>

// The UTF-8 byte-order mark that some editors put at the start of a text.
constexpr char utf8ByteOrderMark[] = "\xEF\xBB\xBF";

// The size limit for maps and batches: 1 MiB, some 50,000 lines.
constexpr size_t userTextFileLimit = size_t(1) << 20;

// Reads the whole of path into contents, without a UTF-8 byte-order mark
// at its start. A regular file (a symbolic link to one is followed) of at
// most limit bytes is read, and so is a FIFO or pipe that a program writes
// to (such as bash's <(command)), until that program ends: it is waited on
// then, but one that nobody writes to is refused without waiting. A
// directory, device or socket is refused without reading from it, and so is
// more than limit bytes. On failure returns false, leaves contents unchanged
// and puts the reason in error, worded to follow "cannot read PATH: ", such
// as "it is a directory, not a regular file".
bool readTextFile(const std::string &path, size_t limit, std::string &contents, std::string &error);

// Opens path for writing text, never through a symbolic link: a new file is
// created; an existing regular file is emptied and reused only if it belongs
// to the user running the program and has no other name (hard link); a FIFO
// is written to if a program reads it; /dev/null and terminals (/dev/tty,
// /dev/pts/N) are written to. /dev/stdout, /dev/stderr and /dev/fd/N stand
// for what the program's descriptor is open on, and are written after what
// it holds (never emptied). Anything else (a symbolic link, directory, other
// device, socket, another user's file) is refused without being opened for
// writing. Symbolic links among the directories above path are followed, as
// for any path. Returns nullptr on failure with the reason in error, worded
// to follow "cannot write PATH: ".
FILE *createTextFile(const std::string &path, std::string &error);

// "a directory", "a device", "a FIFO" ... for a file's st_mode.
const char *fileKindName(unsigned mode);

#endif // HOST_TEXTFILE_H
