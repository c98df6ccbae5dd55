// What a daemon in its steady state may ask of the kernel: reading, writing and mapping files, its sockets,
// timers and threads. Not: starting programs, mapping code, other processes, mounts, modules, raw memory,
// becoming somebody. What is not on the list fails with EPERM, and the daemon goes on.
//
// A build with sanitizers has no filter: NoSystemCallFilter.cpp takes the place of SystemCallFilter.cpp
// there.
#pragma once

#include <string>

namespace Guard {

enum class Sockets { local, localAndPackets };  // beside those of IPv4 and IPv6

// Filters from now on, in every thread of the process and for good. Empty, or why it could not be done: then
// nothing is filtered.
std::string filterSystemCalls(Sockets sockets);

}  // namespace Guard
