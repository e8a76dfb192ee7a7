/// \file
/// What the Linux kernel tells about the process's surroundings: whether another process is alive,
/// and which IPv4 address a network interface has. No state is kept and nothing is logged.
#ifndef MAVKIT_SYS_QUERY_H
#define MAVKIT_SYS_QUERY_H

/// Tells whether the process \p pid exists and, unless \p name is null, runs under the name
/// \p name: exactly, with case, as /proc/PID/status gives it on its first line. The kernel keeps no
/// more than 15 characters of a name, so a longer one matches no process.
/// \return true when the process exists and its name, if asked for, matches or cannot be read;
///         false otherwise, so for every id below 1
bool IsProcessRunning(int pid, const char* name);

/// Asks for the IPv4 address of the network interface \p ifname (such as "eth0"; only the first 15
/// characters count) and writes it to \p out as dotted decimal text. The buffer holds at least 16
/// bytes; it may be null when only the result is wanted.
/// \return 0; -1, and \p out untouched, when there is no such interface, it has no IPv4 address, the
///         name is null, or the system gives no socket
int GetNetIP(const char* ifname, char* out);

#endif
