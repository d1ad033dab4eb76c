#pragma once
// Registers the Linux defaults with the platform registry: application information named after
// the executable, FileStore settings, LinuxDeviceInfo, the curl HTTP client and sio sockets.
// The facade does this when it is first made; calling it again does nothing new.

namespace halvora::platform {

void useLinuxDefaults();

}  // namespace halvora::platform
