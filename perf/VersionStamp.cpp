#include "perf/VersionStamp.h"

#include "platform/Platform.h"

uint32_t ComposeVersionStamp(const uint16_t parts[4]) {
    return uint32_t(parts[0] & 0xFF) << 24 | uint32_t(parts[1] & 0xFF) << 16 | uint32_t(parts[2] & 0xFF) << 8 |
           uint32_t(parts[3] & 0xFF);
}

uint32_t VersionStampOf(const std::string& path) {
    uint16_t parts[4];
    return platform::ReadProductVersion(path, parts) ? ComposeVersionStamp(parts) : 0;
}

uint32_t HostVersionStamp() { return VersionStampOf(platform::HostExecutablePath()); }
