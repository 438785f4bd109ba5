// AVX2 forms of the BitPacker kernels. This file is compiled for AVX2: apart from the exported kernels
// everything stays in the anonymous namespace and no library template is used, so that the linker can never
// pick AVX2 code for a function that baseline code also calls.
//
// The packed forms build, within each 128-bit lane, one 16-bit word per sample from the two bytes that hold
// its top bits (a byte shuffle), and multiply each word by the power of two that lifts the wanted bits to the
// top of the word; one shift right then leaves the sample in the low bits. A lane holds 8 samples. The loads
// of a 32-sample step are placed so that they stay inside the step's bytes and so that one pack or one lane
// exchange puts the samples back in order.
#include "stages/BitPacker.h"

#include <immintrin.h>

namespace {

// Where the top bits of each sample of a packed group stand.
struct GroupLayout {
    uint32_t groupBytes;
    uint32_t samplesPerGroup;
    uint8_t wordStart[4];     // byte of the group at which the sample's word begins
    bool wordInGroup[4];      // false: the wanted bits end in the first byte, and the next byte is not read
    uint16_t lift[4];         // multiplier that moves the wanted bits to the top of the word
};

// Top 8 of the 10 bits: bits 2-9, 12-19, 22-29 and 32-39 of the group, lifted to bits 8-15.
const GroupLayout tenToEight = {5, 4, {0, 1, 2, 4}, {true, true, true, false}, {64, 16, 4, 256}};
// All 10 bits: bits 0-9, 10-19, 20-29 and 30-39 of the group, lifted to bits 6-15.
const GroupLayout tenToSixteen = {5, 4, {0, 1, 2, 3}, {true, true, true, true}, {64, 16, 4, 1}};
// Top 8 of the 12 bits: bits 4-11 and 16-23 of the group, lifted to bits 8-15.
const GroupLayout twelveToEight = {3, 2, {0, 2}, {true, false}, {16, 256}};

// The byte shuffle that builds the words of 8 samples per lane, with the lower lane's first group at byte
// lowStart of its lane and the upper lane's at highStart. A last index of 15 at most keeps every byte in
// the lane; an index with its top bit set gives zero.
__m256i WordShuffle(const GroupLayout& layout, uint32_t lowStart, uint32_t highStart) {
    uint8_t indices[32];
    for (uint32_t lane = 0; lane < 2; ++lane) {
        const uint32_t start = lane == 0 ? lowStart : highStart;
        for (uint32_t j = 0; j < 8; ++j) {
            const uint32_t k = j % layout.samplesPerGroup;
            const uint32_t first = start + j / layout.samplesPerGroup * layout.groupBytes + layout.wordStart[k];
            indices[16 * lane + 2 * j] = static_cast<uint8_t>(first);
            indices[16 * lane + 2 * j + 1] = layout.wordInGroup[k] ? static_cast<uint8_t>(first + 1) : 0x80;
        }
    }
    return _mm256_loadu_si256(reinterpret_cast<const __m256i*>(indices));
}

__m256i WordLifts(const GroupLayout& layout) {
    uint16_t lifts[16];
    for (uint32_t j = 0; j < 16; ++j) lifts[j] = layout.lift[j % layout.samplesPerGroup];
    return _mm256_loadu_si256(reinterpret_cast<const __m256i*>(lifts));
}

inline __m256i LiftedWords(__m256i bytes, __m256i shuffle, __m256i lifts) {
    return _mm256_mullo_epi16(_mm256_shuffle_epi8(bytes, shuffle), lifts);
}

inline __m256i LoadLanes(const uint8_t* low, const uint8_t* high) {
    const __m128i lowLane = _mm_loadu_si128(reinterpret_cast<const __m128i*>(low));
    return _mm256_inserti128_si256(_mm256_castsi128_si256(lowLane),
                                   _mm_loadu_si128(reinterpret_cast<const __m128i*>(high)), 1);
}

}  // namespace

void BitPack10To8Avx2(const uint8_t* in, uint8_t* out, size_t samples) {
    // Of the 40 bytes of a step, the load at byte 0 holds samples 0-7 from byte 0 of its lower lane and
    // samples 16-23 from byte 4 of its upper lane; the load at byte 8 holds 8-15 from byte 2 and 24-31 from 6.
    const __m256i shuffleAt0 = WordShuffle(tenToEight, 0, 4);
    const __m256i shuffleAt8 = WordShuffle(tenToEight, 2, 6);
    const __m256i lifts = WordLifts(tenToEight);
    const size_t wideSamples = samples & ~size_t(31);
    for (size_t i = 0; i < wideSamples; i += 32, in += 40) {
        const __m256i first = LiftedWords(_mm256_loadu_si256(reinterpret_cast<const __m256i*>(in)), shuffleAt0,
                                          lifts);
        const __m256i second = LiftedWords(_mm256_loadu_si256(reinterpret_cast<const __m256i*>(in + 8)),
                                           shuffleAt8, lifts);
        // Packing per lane gives samples 0-7, 8-15 | 16-23, 24-31.
        const __m256i packed = _mm256_packus_epi16(_mm256_srli_epi16(first, 8), _mm256_srli_epi16(second, 8));
        _mm256_storeu_si256(reinterpret_cast<__m256i*>(out + i), packed);
    }
    BitPack10To8(in, out + wideSamples, samples - wideSamples);
}

void BitPack10To16Avx2(const uint8_t* in, uint8_t* out, size_t samples) {
    // The loads of the 8-bit form; the lane exchange then joins samples 0-7 with 8-15 and 16-23 with 24-31.
    const __m256i shuffleAt0 = WordShuffle(tenToSixteen, 0, 4);
    const __m256i shuffleAt8 = WordShuffle(tenToSixteen, 2, 6);
    const __m256i lifts = WordLifts(tenToSixteen);
    const size_t wideSamples = samples & ~size_t(31);
    for (size_t i = 0; i < wideSamples; i += 32, in += 40) {
        const __m256i first = _mm256_srli_epi16(
            LiftedWords(_mm256_loadu_si256(reinterpret_cast<const __m256i*>(in)), shuffleAt0, lifts), 6);
        const __m256i second = _mm256_srli_epi16(
            LiftedWords(_mm256_loadu_si256(reinterpret_cast<const __m256i*>(in + 8)), shuffleAt8, lifts), 6);
        _mm256_storeu_si256(reinterpret_cast<__m256i*>(out + 2 * i), _mm256_permute2x128_si256(first, second, 0x20));
        _mm256_storeu_si256(reinterpret_cast<__m256i*>(out + 2 * i + 32),
                            _mm256_permute2x128_si256(first, second, 0x31));
    }
    BitPack10To16(in, out + 2 * wideSamples, samples - wideSamples);
}

void BitPack12To8Avx2(const uint8_t* in, uint8_t* out, size_t samples) {
    // Two 16-sample steps of 24 bytes each. Samples 0-7 and 16-23 come from lanes loaded at bytes 0 and 24,
    // samples 8-15 and 24-31 from lanes loaded at bytes 12 and 32, the last starting at byte 4 of its lane.
    const __m256i shuffleEvenEights = WordShuffle(twelveToEight, 0, 0);
    const __m256i shuffleOddEights = WordShuffle(twelveToEight, 0, 4);
    const __m256i lifts = WordLifts(twelveToEight);
    const size_t wideSamples = samples & ~size_t(31);
    for (size_t i = 0; i < wideSamples; i += 32, in += 48) {
        const __m256i first = LiftedWords(LoadLanes(in, in + 24), shuffleEvenEights, lifts);
        const __m256i second = LiftedWords(LoadLanes(in + 12, in + 32), shuffleOddEights, lifts);
        const __m256i packed = _mm256_packus_epi16(_mm256_srli_epi16(first, 8), _mm256_srli_epi16(second, 8));
        _mm256_storeu_si256(reinterpret_cast<__m256i*>(out + i), packed);
    }
    BitPack12To8(in, out + wideSamples, samples - wideSamples);
}

void BitPack16To8Avx2(const uint8_t* in, uint8_t* out, size_t samples) {
    const size_t wideSamples = samples & ~size_t(31);
    for (size_t i = 0; i < wideSamples; i += 32) {
        const __m256i low = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(in + 2 * i));
        const __m256i high = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(in + 2 * i + 32));
        // Per lane the pack interleaves the two inputs' halves; the qword permutation restores the order.
        const __m256i packed = _mm256_packus_epi16(_mm256_srli_epi16(low, 8), _mm256_srli_epi16(high, 8));
        _mm256_storeu_si256(reinterpret_cast<__m256i*>(out + i), _mm256_permute4x64_epi64(packed, 0xD8));
    }
    BitPack16To8(in + 2 * wideSamples, out + wideSamples, samples - wideSamples);
}
