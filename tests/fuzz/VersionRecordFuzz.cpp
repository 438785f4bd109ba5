// The host-version reader on random "ArchiveHost.exe" contents: it finds a product version or reports none,
// and never reads outside the bytes.
#include "platform/Platform.h"

#include <cstdint>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    // A copy of exactly the input's size, so any read past its end is caught.
    std::vector<uint8_t> bytes(data, data + size);
    uint16_t parts[4] = {};
    platform::FindProductVersion(bytes.data(), bytes.size(), parts);
    return 0;
}
