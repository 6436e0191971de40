// Tells the service manager how the agent stands, by systemd's notify
// protocol: one datagram per message ("READY=1", "RELOADING=1",
// "STOPPING=1") to the Unix socket named in $NOTIFY_SOCKET, a path or, with
// a leading '@', an abstract name. Without the variable nothing is sent; a
// failure to send is ignored, since the agent works the same without a
// service manager.
#pragma once

#include <string_view>

namespace Agent::Service {

// Sends state as one datagram; false when there is no socket or it failed.
bool notify(std::string_view state);
// "RELOADING=1" with the monotonic time, as systemd asks of a reload.
bool notifyReloading();

}  // namespace Agent::Service
