#ifndef HOST_LINK_DEVICEHOLDER_H
#define HOST_LINK_DEVICEHOLDER_H

// Who holds a serial device: the process named by its lock file
// (/var/lock/LCK..NAME or /run/lock/LCK..NAME, as minicom and other UUCP-style
// programs leave it) or, failing that, a process that has it open.

#include <string>

// "process 1234 (minicom)", or "" when no other live process can be named.
std::string deviceHolder(const std::string &device);

// The process of a lock file on the device that is still alive and is not
// this one; 0: none.
int lockFileHolder(const std::string &device);

#endif // HOST_LINK_DEVICEHOLDER_H
