/// \file
/// What the Linux kernel reports about the surroundings of the process: whether another process is
/// alive, and which IPv4 address a network interface has. No state is kept and nothing is logged.
#ifndef MAVKIT_SYS_QUERY_H
#define MAVKIT_SYS_QUERY_H

/// Reports whether the process `pid` exists and, unless `name` is null, runs under the name `name`:
/// exactly, with case, as the first line of /proc/PID/status gives it. What counts as a process,
/// and what that line contains, is decided by the kernel:
///
/// - A process that has ended exists until its parent has waited for it.
/// - The id of a single thread counts too, under the name of that thread.
/// - A program's name is cut to 15 characters, so a longer one matches no program; some kernel
///   threads have longer names. A name of more than 120 characters never matches.
/// - A backslash in the name appears there as `\\`, and a line feed as `\n`.
///
/// \return true when the process exists and its name, if asked for, matches or cannot be read;
///         false otherwise, also for every id below 1
bool IsProcessRunning(int pid, const char* name);

/// Asks for the IPv4 address of the network interface `ifname` (such as "eth0"; only the first 15
/// characters count) and writes it to `out` as dotted decimal text. The buffer holds at least 16
/// bytes; it may be null when only the result is wanted.
/// \return 0; -1, and `out` unchanged, when there is no such interface, when it has no IPv4
///         address, for a null name, and when the system gives no socket
int GetNetIP(const char* ifname, char* out);

#endif
