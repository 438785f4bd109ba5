// Reads typed values from a fuzzer's bytes; past the end every read gives zero.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>

class FuzzInput {
public:
    FuzzInput(const uint8_t* data, size_t size) : data(data), size(size) {}

    template <class T>
    T Take() {
        T value{};
        const size_t n = offset < size ? (size - offset < sizeof(T) ? size - offset : sizeof(T)) : 0;
        if (n > 0) std::memcpy(&value, data + offset, n);
        offset += sizeof(T);
        return value;
    }
    // One of the choices, picked by the next byte.
    template <class T, size_t N>
    T Pick(const T (&choices)[N]) {
        return choices[Take<uint8_t>() % N];
    }
    bool Empty() const { return offset >= size; }

private:
    const uint8_t* data;
    size_t size;
    size_t offset = 0;
};
