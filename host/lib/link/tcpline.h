#ifndef HOST_LINK_TCPLINE_H
#define HOST_LINK_TCPLINE_H

// RTU frames over a TCP connection, as a serial device server in raw mode
// passes them between its serial port and the network: the same bytes as on
// the wire, no Modbus TCP header. A device text "tcp:HOST:PORT" names such a
// line (HOST a name, an IPv4 address or an IPv6 one in brackets).

#include <string>

// Whether a device text names a line over TCP.
bool isTcpDevice(const std::string &device);
// Splits "HOST:PORT" into its parts; false with one sentence in error when
// text is not of that form or the port is not 1 to 65535. what: the text as
// the user gave it, for the message.
bool parseHostPort(const std::string &text, const std::string &what, std::string &host, std::string &port,
    std::string &error);
// Checks a device text "tcp:HOST:PORT"; true for any other device text.
bool checkTcpDevice(const std::string &device, std::string &error);
// Connects to "tcp:HOST:PORT": a non-blocking socket without Nagle's delay,
// or -1 with one sentence in error.
int connectTcp(const std::string &device, std::string &error);
// Listens on "HOST:PORT" (port 0: one the system picks) for one connection
// at a time: a non-blocking socket, or -1 with one sentence in error.
int listenTcp(const std::string &address, std::string &error);
// The address a listening socket took, as "HOST:PORT".
std::string listeningAddress(int fd);

#endif // HOST_LINK_TCPLINE_H
