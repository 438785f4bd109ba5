// Site patterns and their row parity, masking by sites, the single-precision rounding of the widening products,
// and adding or subtracting on selected sites only.
#include "demosaic/SiteMasks.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <limits>
#include <random>
#include <vector>

namespace {

uint32_t Bits(float x) {
    uint32_t b;
    std::memcpy(&b, &x, 4);
    return b;
}

bool On(uint32_t pattern, uint32_t i, uint32_t w) { return (pattern >> (8 * (2 * (i / w % 2) + i % 2))) & 0xFF; }

void Random(ImageBuffer32& image, uint32_t w, uint32_t h, uint32_t seed) {
    std::mt19937 rng(seed);
    image.Resize(w, h);
    for (size_t i = 0; i < size_t(w) * h; ++i) image.data[i] = std::uniform_real_distribution<float>(-99, 99)(rng);
    image.data[0] = -0.0f;
}

TEST(SitePatterns, FollowBit1OfThePhaseAndCarryTheirRowParity) {
    for (int32_t phase = 0; phase < 4; ++phase) {
        const SitePatterns p = MakeSitePatterns(phase);
        const bool s = phase & 2;
        EXPECT_EQ(p.siteGreenEven | p.siteGreenOdd, s ? 0x01000001u : 0x00010100u);
        EXPECT_EQ(p.siteColourEven | p.siteColourOdd, s ? 0x00010100u : 0x01000001u);
        EXPECT_EQ(RowParity(p.siteGreenEven | p.siteColourEven), 2);
        EXPECT_EQ(RowParity(p.siteColourOdd), -1);
        EXPECT_EQ(RowParity(p.siteGreenEven | p.siteGreenOdd), 0);
    }
    EXPECT_EQ(RowParity(0x000000FF), -1);  // bytes are signed
}

TEST(MaskBySites, KeepsTheBitsOfSelectedSitesZeroesTheRestAndRefusesPartialBlocks) {
    ImageBuffer32 src, dst;
    Random(src, 16, 4, 1);
    src.data[2] = std::numeric_limits<float>::quiet_NaN();
    dst.Resize(16, 4);
    for (uint32_t pattern : {0x00000001u, 0x01010000u, 0x01000100u, 0u}) {
        ASSERT_EQ(MaskBySites(dst.data, src.data, pattern, 16, 4), PxStatusOk);
        for (uint32_t i = 0; i < 64; ++i) EXPECT_EQ(Bits(dst.data[i]), On(pattern, i, 16) ? Bits(src.data[i]) : 0u);
    }
    const std::vector<float> before(src.data, src.data + 64);
    ASSERT_EQ(MaskBySites(src.data, src.data, 0x00010001, 16, 4), PxStatusOk);  // in place
    for (uint32_t i = 0; i < 64; ++i) EXPECT_EQ(Bits(src.data[i]), i % 2 ? 0u : Bits(before[i]));
    std::fill(dst.data, dst.data + 64, 7.0f);
    EXPECT_EQ(MaskBySites(dst.data, nullptr, 1, 16, 4), PxStatusNullPointer);
    EXPECT_EQ(MaskBySites(dst.data, src.data, 1, 12, 4), PxStatusBadSize);
    EXPECT_EQ(MaskBySites(dst.data, src.data, 1, 16, 3), PxStatusBadSize);
    EXPECT_EQ(MaskBySites(dst.data, src.data, 1, 16, 0), PxStatusOk);
    EXPECT_EQ(std::count(dst.data, dst.data + 64, 7.0f), 64);
}

TEST(WideningProducts, RoundToSinglePrecisionBeforeWidening) {
    const float a[8] = {4097.0f, 0.1f, -3.7f, 1e20f, 5.0f, 6.0f, 7.0f, 8.0f}, b[8] = {4097.0f, 0.3f, 2.9f, 1e20f};
    double product[8], square[8];
    ASSERT_EQ(ProductToDouble(product, a, b, 8), PxStatusOk);
    ASSERT_EQ(SquareToDouble(square, a, 8), PxStatusOk);
    EXPECT_EQ(product[0], 16785408.0);  // not the exact 16785409
    EXPECT_EQ(square[0], 16785408.0);
    for (int i = 0; i < 8; ++i) EXPECT_EQ(product[i], double(a[i] * b[i])) << i;  // 1e40 is +inf in float
    EXPECT_EQ(ProductToDouble(nullptr, nullptr, nullptr, 0), PxStatusOk);
    EXPECT_EQ(SquareToDouble(product, nullptr, 8), PxStatusNullPointer);
    EXPECT_EQ(ProductToDouble(product, a, b, 12), PxStatusBadSize);
    EXPECT_EQ(product[0], 16785408.0);
}

TEST(AddAndSubtractBySites, ChangeSelectedSitesOnlyAndRefuseOrSkipAsStated) {
    ImageBuffer32 image, other, sum, difference;
    Random(other, 16, 4, 3);
    Random(image, 16, 4, 4);
    for (uint32_t pattern : {0x00000100u, 0x01000001u}) {
        Random(sum, 16, 4, 4);
        Random(difference, 16, 4, 4);
        AddBySites(sum, other, pattern);
        SubtractBySites(difference, other, pattern);
        for (uint32_t i = 0; i < 64; ++i) {  // -0.0 at an unselected site stays -0.0
            const bool on = On(pattern, i, 16);
            EXPECT_EQ(Bits(sum.data[i]), Bits(on ? image.data[i] + other.data[i] : image.data[i]));
            EXPECT_EQ(Bits(difference.data[i]), Bits(on ? image.data[i] - other.data[i] : image.data[i]));
        }
    }
    ImageBuffer32 none, low, lowOther;
    EXPECT_THROW(AddBySites(image, none, 1), bool);
    Random(low, 16, 2, 5);
    EXPECT_THROW(SubtractBySites(image, low, 1), bool);
    Random(low, 12, 2, 5), Random(lowOther, 12, 2, 6);  // width no multiple of 8: nothing happens
    AddBySites(low, lowOther, 0x01010101);
    EXPECT_EQ(Bits(low.data[0]), Bits(-0.0f));
}

}  // namespace
