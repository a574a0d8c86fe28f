#ifndef HOST_TEXTFILE_H
#define HOST_TEXTFILE_H

// Files that users name on a command line: register maps and batches to
// read, traces to write. A wrong path must give one clear sentence, never a
// hang on a FIFO, an endless read of a device or an exhausted memory, and a
// trace must never write through a symbolic link or truncate a file that is
// not the user's own.

#include <cstddef>
#include <cstdio>
#include <string>

// The size limit for maps and batches: 1 MiB, some 50,000 lines.
constexpr size_t userTextFileLimit = size_t(1) << 20;

// Reads the whole of path into contents. Only a regular file (a symbolic
// link to one is followed) of at most limit bytes is read: a directory,
// device, FIFO or socket is refused without reading from it, and so is a
// larger file. On failure returns false, leaves contents unchanged and puts
// the reason in error, worded to follow "cannot read PATH: ", such as "it is
// a directory, not a regular file".
bool readTextFile(const std::string &path, size_t limit, std::string &contents, std::string &error);

// Opens path for writing text, never through a symbolic link: a new file is
// created; an existing regular file is emptied and reused only if it belongs
// to the user running the program and has no other name (hard link);
// anything else (a symbolic link, directory, device, FIFO, socket, another
// user's file) is refused without being opened for writing. Symbolic links
// among the directories above path are followed, as for any path. Returns
// nullptr on failure with the reason in error, worded to follow "cannot
// write PATH: ".
FILE *createTextFile(const std::string &path, std::string &error);

// "a directory", "a device", "a FIFO" ... for a file's st_mode.
const char *fileKindName(unsigned mode);

#endif // HOST_TEXTFILE_H
