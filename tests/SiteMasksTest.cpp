// Site patterns and their row parity, masking by sites with its statuses, the single-precision rounding of the
// widening products, and adding or subtracting on selected sites only.
#include "demosaic/SiteMasks.h"

#include <gtest/gtest.h>

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

bool Selected(uint32_t pattern, uint32_t x, uint32_t y) { return (pattern >> (8 * (2 * (y & 1) + (x & 1)))) & 0xFF; }

void Random(ImageBuffer32& image, uint32_t w, uint32_t h, uint32_t seed) {
    std::mt19937 rng(seed);
    std::uniform_real_distribution<float> value(-100.0f, 100.0f);
    image.Resize(w, h);
    for (size_t i = 0; i < size_t(w) * h; ++i) image.data[i] = value(rng);
}

TEST(SitePatterns, FollowBit1OfThePhaseAndCarryTheirRowParity) {
    for (int32_t phase = 0; phase < 4; ++phase) {
        const SitePatterns p = MakeSitePatterns(phase);
        const bool s = phase & 2;
        EXPECT_EQ(p.siteGreenEven, s ? 0x00000001u : 0x00000100u);
        EXPECT_EQ(p.siteColourEven, s ? 0x00000100u : 0x00000001u);
        EXPECT_EQ(p.siteGreenOdd, s ? 0x01000000u : 0x00010000u);
        EXPECT_EQ(p.siteColourOdd, s ? 0x00010000u : 0x01000000u);
        EXPECT_EQ(RowParity(p.siteGreenEven | p.siteColourEven), 2);
        EXPECT_EQ(RowParity(p.siteColourOdd), -1);
        EXPECT_EQ(RowParity(p.siteGreenEven | p.siteGreenOdd), 0);
    }
    EXPECT_EQ(RowParity(0), 0);
    EXPECT_EQ(RowParity(0x000000FF), -1);  // bytes are signed
    EXPECT_EQ(RowParity(0xFF000000), 1);
}

TEST(MaskBySites, KeepsTheBitsOfSelectedSitesAndZeroesTheRest) {
    ImageBuffer32 src, dst;
    Random(src, 16, 4, 1);
    src.data[0] = -0.0f;
    src.data[1] = std::numeric_limits<float>::quiet_NaN();
    dst.Resize(16, 4);
    for (uint32_t pattern : {0x00000001u, 0x00000100u, 0x01010000u, 0x01000101u, 0x01010101u, 0u}) {
        ASSERT_EQ(MaskBySites(dst.data, src.data, pattern, 16, 4), PxStatusOk);
        for (uint32_t i = 0; i < 64; ++i)
            EXPECT_EQ(Bits(dst.data[i]), Selected(pattern, i % 16, i / 16) ? Bits(src.data[i]) : 0u) << i;
    }
    ImageBuffer32 copy;
    Random(copy, 16, 4, 1);
    ASSERT_EQ(MaskBySites(copy.data, copy.data, 0x00010001, 16, 4), PxStatusOk);  // in place
    for (uint32_t i = 0; i < 64; ++i) EXPECT_EQ(copy.data[i] != 0.0f, i % 2 == 0) << i;
}

TEST(MaskBySites, RefusesNullAndPartialBlocksWithoutWriting) {
    std::vector<float> src(64, 1.0f), dst(64, 7.0f);
    EXPECT_EQ(MaskBySites(nullptr, src.data(), 1, 16, 4), PxStatusNullPointer);
    EXPECT_EQ(MaskBySites(dst.data(), nullptr, 1, 16, 4), PxStatusNullPointer);
    EXPECT_EQ(MaskBySites(dst.data(), src.data(), 1, 12, 4), PxStatusBadSize);
    EXPECT_EQ(MaskBySites(dst.data(), src.data(), 1, 16, 3), PxStatusBadSize);
    EXPECT_EQ(MaskBySites(dst.data(), src.data(), 1, 16, 0), PxStatusOk);
    EXPECT_EQ(dst, std::vector<float>(64, 7.0f));
}

TEST(WideningProducts, RoundToSinglePrecisionBeforeWidening) {
    std::vector<float> a(16), b(16);
    std::mt19937 rng(2);
    std::uniform_real_distribution<float> value(-5000.0f, 5000.0f);
    for (size_t i = 0; i < 16; ++i) a[i] = value(rng), b[i] = value(rng);
    a[3] = b[3] = 4097.0f;
    std::vector<double> product(16), square(16);
    ASSERT_EQ(ProductToDouble(product.data(), a.data(), b.data(), 16), PxStatusOk);
    ASSERT_EQ(SquareToDouble(square.data(), a.data(), 16), PxStatusOk);
    EXPECT_EQ(product[3], 16785408.0);  // not the exact 16785409
    EXPECT_EQ(square[3], 16785408.0);
    for (size_t i = 0; i < 16; ++i) {
        EXPECT_EQ(product[i], double(a[i] * b[i]));
        EXPECT_EQ(square[i], double(a[i] * a[i]));
    }
    std::vector<double> untouched(16, 3.0);
    EXPECT_EQ(ProductToDouble(nullptr, nullptr, nullptr, 0), PxStatusOk);
    EXPECT_EQ(ProductToDouble(untouched.data(), a.data(), nullptr, 8), PxStatusNullPointer);
    EXPECT_EQ(SquareToDouble(nullptr, a.data(), 8), PxStatusNullPointer);
    EXPECT_EQ(ProductToDouble(untouched.data(), a.data(), b.data(), 12), PxStatusBadSize);
    EXPECT_EQ(SquareToDouble(untouched.data(), a.data(), 12), PxStatusBadSize);
    EXPECT_EQ(untouched, std::vector<double>(16, 3.0));
}

TEST(AddAndSubtractBySites, ChangeSelectedSitesOnlyAndRefuseOrSkipAsStated) {
    ImageBuffer32 image, other, sum, difference;
    Random(other, 16, 4, 3);
    for (uint32_t pattern : {0x00000100u, 0x01000001u, 0x00010100u}) {
        Random(image, 16, 4, 4);
        image.data[0] = -0.0f;
        Random(sum, 16, 4, 4);
        sum.data[0] = -0.0f;
        Random(difference, 16, 4, 4);
        difference.data[0] = -0.0f;
        AddBySites(sum, other, pattern);
        SubtractBySites(difference, other, pattern);
        for (uint32_t i = 0; i < 64; ++i) {
            const bool on = Selected(pattern, i % 16, i / 16);
            EXPECT_EQ(Bits(sum.data[i]), Bits(on ? image.data[i] + other.data[i] : image.data[i])) << i;
            EXPECT_EQ(Bits(difference.data[i]), Bits(on ? image.data[i] - other.data[i] : image.data[i])) << i;
        }
    }
    ImageBuffer32 empty, wrongSize, narrow, narrowOther, oddHigh, oddHighOther;
    Random(wrongSize, 16, 2, 5);
    EXPECT_THROW(AddBySites(image, empty, 1), bool);
    EXPECT_THROW(SubtractBySites(empty, image, 1), bool);
    EXPECT_THROW(AddBySites(image, wrongSize, 1), bool);
    Random(narrow, 12, 2, 6), Random(narrowOther, 12, 2, 7);
    Random(oddHigh, 16, 3, 6), Random(oddHighOther, 16, 3, 7);
    const float before = narrow.data[0], beforeOdd = oddHigh.data[0];
    AddBySites(narrow, narrowOther, 0x01010101);
    SubtractBySites(oddHigh, oddHighOther, 0x01010101);
    EXPECT_EQ(narrow.data[0], before);
    EXPECT_EQ(oddHigh.data[0], beforeOdd);
}

}  // namespace
