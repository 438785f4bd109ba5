// Reading the fixed version record of a Windows executable without the version API.
#include "platform/Platform.h"

namespace platform {

namespace {

uint32_t ReadLittleEndian32(const uint8_t* bytes) {
    return uint32_t(bytes[0]) | uint32_t(bytes[1]) << 8 | uint32_t(bytes[2]) << 16 | uint32_t(bytes[3]) << 24;
}

}  // namespace

bool FindProductVersion(const uint8_t* bytes, size_t size, uint16_t parts[4]) {
    // The record starts with the signature 0xFEEF04BD; the product version sits at bytes 16 to 23
    // as (major << 16 | minor) and (build << 16 | revision). Resources keep it 4-byte aligned.
    constexpr uint32_t signature = 0xFEEF04BDu;
    constexpr size_t recordBytes = 52;
    for (size_t at = 0; size >= recordBytes && at <= size - recordBytes; at += 4) {
        if (ReadLittleEndian32(bytes + at) != signature) continue;
        const uint32_t high = ReadLittleEndian32(bytes + at + 16);
        const uint32_t low = ReadLittleEndian32(bytes + at + 20);
        parts[0] = uint16_t(high >> 16);
        parts[1] = uint16_t(high);
        parts[2] = uint16_t(low >> 16);
        parts[3] = uint16_t(low);
        return true;
    }
    return false;
}

}  // namespace platform
