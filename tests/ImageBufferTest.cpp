// The growable work images: growth without shrinking, failures thrown as false, and the site operations
// with their silent no-ops.
#include "TestSupport.h"
#include "demosaic/ImageBuffer.h"
#include "platform/Platform.h"

#include <gtest/gtest.h>

#include <cstdint>

namespace {

void Fill(ImageBuffer32& image, uint32_t w, uint32_t h, float first) {
    image.Resize(w, h);
    for (uint32_t i = 0; i < w * h; ++i) image.data[i] = first + float(i);
}

void Fill(ImageBuffer64& image, uint32_t w, uint32_t h, double first) {
    image.Resize(w, h);
    for (uint32_t i = 0; i < w * h; ++i) image.data[i] = first + double(i);
}

TEST(ImageBuffer, GrowsToExactSizeNeverShrinksAndKeepsItsBlock) {
    ImageBuffer64 image;
    EXPECT_EQ(image.data, nullptr);
    image.Resize(8, 4);
    EXPECT_EQ(image.capacity, 8u * 4 * 8);
    EXPECT_EQ(reinterpret_cast<uintptr_t>(image.data) % 64, 0u);
    double* block = image.data;
    image.data[0] = 42.0;
    image.Resize(2, 2);  // smaller: same block, content kept
    EXPECT_EQ(image.data, block);
    EXPECT_EQ(image.capacity, 8u * 4 * 8);
    EXPECT_EQ(image.Size(), std::make_pair(2u, 2u));
    EXPECT_EQ(image.data[0], 42.0);
    image.Resize(16, 4);
    EXPECT_EQ(image.capacity, 16u * 4 * 8);
    EXPECT_EQ(image.data[0], 42.0);  // reallocation keeps the content
    image.Release();
    EXPECT_EQ(image.data, nullptr);
    EXPECT_EQ(image.capacity, 0u);
    EXPECT_EQ(image.Size(), std::make_pair(0u, 0u));
}

TEST(ImageBuffer, FailedGrowthThrowsFalseAndLeavesTheBufferAsItWas) {
    ImageBuffer32 image;
    Fill(image, 8, 2, 1.0f);
    float* block = image.data;
    platform::FailAllocationAfter(1);
    EXPECT_TRUE(ThrowsFalse([&] { image.Resize(64, 64); }));
    platform::FailAllocationAfter(0);
    EXPECT_EQ(image.data, block);
    EXPECT_EQ(image.Size(), std::make_pair(8u, 2u));
    EXPECT_EQ(image.capacity, 8u * 2 * 4);
    EXPECT_EQ(image.data[15], 16.0f);
}

TEST(ImageBuffer, ArithmeticKeepsOperandOrderAndRefusesMismatches) {
    ImageBuffer64 a, b, result;
    Fill(a, 4, 2, 10.0);
    Fill(b, 4, 2, 1.0);
    result.Subtract(a, b);
    EXPECT_EQ(result.Size(), a.Size());
    for (int i = 0; i < 8; ++i) EXPECT_EQ(result.data[i], 9.0);
    result.Multiply(a, b);
    for (int i = 0; i < 8; ++i) EXPECT_EQ(result.data[i], (10.0 + i) * (1.0 + i));

    ImageBuffer64 other, empty;
    Fill(other, 2, 4, 0.0);  // same element count, different shape
    EXPECT_TRUE(ThrowsFalse([&] { result.Multiply(a, other); }));
    EXPECT_TRUE(ThrowsFalse([&] { result.Subtract(empty, a); }));
    EXPECT_TRUE(ThrowsFalse([&] { empty.FillSitePattern(0x01000001); }));
}

TEST(ImageBuffer, SitePatternsMarkTheBayerSites) {
    ImageBuffer64 mask;
    mask.Resize(8, 4);
    mask.FillSitePattern(0x00010100);  // the two green sites of an RGGB-like pattern
    for (uint32_t y = 0; y < 4; ++y)
        for (uint32_t x = 0; x < 8; ++x) EXPECT_EQ(mask.data[y * 8 + x], ((x + y) & 1) ? 1.0 : 0.0) << x << "," << y;

    // Widths that are no multiple of 4 and odd or single-row heights are left alone.
    for (const auto& [w, h] : {std::make_pair(6u, 4u), std::make_pair(8u, 3u), std::make_pair(8u, 1u)}) {
        ImageBuffer64 untouched;
        Fill(untouched, w, h, 7.0);
        untouched.FillSitePattern(0x01010101);
        for (uint32_t i = 0; i < w * h; ++i) ASSERT_EQ(untouched.data[i], 7.0 + i) << w << "x" << h;
    }
}

TEST(ImageBuffer, MergeTakesEachSiteFromItsPatternsImage) {
    ImageBuffer32 a, b, merged;
    Fill(a, 8, 2, 100.0f);
    Fill(b, 8, 2, 200.0f);
    merged.MergeBySites(a, 0x00000001, b, 0x01000000);  // (even, even) from a, (odd, odd) from b, the rest 0
    for (uint32_t y = 0; y < 2; ++y)
        for (uint32_t x = 0; x < 8; ++x) {
            const uint32_t i = y * 8 + x;
            const float want = (x % 2 == 0 && y == 0) ? a.data[i] : (x % 2 == 1 && y == 1) ? b.data[i] : 0.0f;
            EXPECT_EQ(merged.data[i], want) << x << "," << y;
        }

    EXPECT_TRUE(ThrowsFalse([&] { merged.MergeBySites(a, 0x00000101, b, 0x00000100); }));  // common site
    ImageBuffer32 small;
    Fill(small, 4, 2, 0.0f);
    EXPECT_TRUE(ThrowsFalse([&] { merged.MergeBySites(a, 1, small, 0x100); }));

    // A width that is no multiple of 8: resized, but nothing written.
    ImageBuffer32 narrowA, narrowB, narrow;
    Fill(narrowA, 4, 2, 1.0f);
    Fill(narrowB, 4, 2, 2.0f);
    Fill(narrow, 4, 2, -5.0f);
    narrow.MergeBySites(narrowA, 1, narrowB, 0x100);
    EXPECT_EQ(narrow.Size(), std::make_pair(4u, 2u));
    for (uint32_t i = 0; i < 8; ++i) EXPECT_EQ(narrow.data[i], -5.0f + float(i));
}

}  // namespace
