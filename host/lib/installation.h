#ifndef HOST_INSTALLATION_H
#define HOST_INSTALLATION_H

// What a host program knows about itself: the version it was built as, and
// which driver plug-in it loads when not told: the one installed with it,
// found relative to the program (so that an installed tree can move), else
// the one built with it.

#include <string>

// The version of these sources, such as "1.0.0" (the CMake project's).
const char *hostVersion();

// Where an installation keeps the plug-in, relative to the directory of the
// programs, such as "../lib/x86_64-linux-gnu/teco-servo/libteco_servo.so".
const char *installedPluginPath();

// The plug-in loaded without --plugin: installedPluginPath() from the
// program's directory when that file exists, else the plug-in of the build
// tree. Needs the QCoreApplication.
std::string defaultPluginPath();

// What --version prints: "PROGRAM VERSION", and for a program that loads
// the driver (pluginPath not empty) a second line with the plug-in's path
// and the driver's own name and version, or why it does not load.
std::string versionText(const std::string &program, const std::string &pluginPath = std::string());

#endif // HOST_INSTALLATION_H
