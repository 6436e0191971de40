// A private sandbox for tests that run real firewall tools: the calling
// process moves into a network and mount namespace of its own, with a fresh
// tmpfs on /run (so `ip netns add` and the agent's socket never reach the host's) and the
// loopback up. The recording stand-ins (scripts/stand-ins) go first on PATH.
//
// Call once, before any thread starts (the kernel refuses a new mount
// namespace to a process that shares its file-system state with threads).
// There is no way back: the process stays in the sandbox until it exits,
// and everything made inside disappears with it.
#pragma once

#include <string>

// "" on success, else the reason the sandbox could not be made (not root,
// no namespaces); a caller then skips its tests with that reason.
std::string enterSandbox();
