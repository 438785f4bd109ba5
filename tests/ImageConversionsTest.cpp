// Image conversions, thresholds, copy and division: the worked values of the rounding and saturation
// rules, statuses and their order, in-place narrowing, and every processor form against the scalar one.
#include "TestSupport.h"

#include "primitives/ProcessorLevel.h"
#include "primitives/Px.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <functional>
#include <limits>
#include <random>
#include <vector>

namespace {

const float nan = std::numeric_limits<float>::quiet_NaN();
const float inf = std::numeric_limits<float>::infinity();

// Runs f at each level, then lets the processor choose again.
template <class F>
void ForEachLevel(F f) {
    for (int32_t level : SupportedLevels()) {
        PxForceProcessorLevel(level);
        SCOPED_TRACE(level);
        f(level);
    }
    PxForceProcessorLevel(-1);
}

// Byte image with rows `step` apart, filled with a marker so untouched bytes can be checked.
struct Image {
    int32_t step;
    std::vector<uint8_t> bytes;
    Image(int32_t step, int32_t height, uint8_t fill = 0xA5) : step(step), bytes(size_t(step) * height, fill) {}
    template <class T> T* Row(int32_t y) { return reinterpret_cast<T*>(bytes.data() + size_t(y) * step); }
    template <class T> T* Data() { return reinterpret_cast<T*>(bytes.data()); }
};

// A row of 40 (vector blocks and a tail) holding the values at both ends, converted at each level.
template <class S, class D, class F>
void ExpectOneRow(const std::vector<S>& in, const std::vector<D>& want, F convert) {
    const size_t n = 40;
    std::vector<S> src(n, S(0));
    for (size_t i = 0; i < in.size(); ++i) src[i] = src[n - in.size() + i] = in[i];
    ForEachLevel([&](int32_t) {
        std::vector<D> dst(n);
        ASSERT_EQ(convert(src.data(), dst.data(), PxSize{int32_t(n), 1}), PxStatusOk);
        for (size_t i = 0; i < in.size(); ++i) {
            EXPECT_EQ(dst[i], want[i]) << "value " << in[i];
            EXPECT_EQ(dst[n - in.size() + i], want[i]) << "value " << in[i] << " in the tail";
        }
    });
}

// What the sweep below does not reach: NaN (255 as bytes, 0 as words), infinities and huge values, the other
// rounding modes (7 is taken as half up), and the saturation of words to bytes.
TEST(ImageConvertTest, SpecialValuesRoundingModesAndSaturation) {
    const auto to8 = [](int32_t mode) {
        return [mode](const float* s, uint8_t* d, PxSize roi) {
            return PxConvertImage_32f8u(s, roi.width * 4, d, roi.width, roi, mode);
        };
    };
    ExpectOneRow<float, uint8_t>({1000.0f, nan, -inf, inf, -0.6f}, {255, 255, 0, 255, 0}, to8(2));
    ExpectOneRow<float, uint16_t>({1e20f, nan, 65535.4f, inf, -inf}, {65535, 0, 65535, 65535, 0},
                                  [](const float* s, uint16_t* d, PxSize roi) {
                                      return PxConvertImage_32f16u(s, roi.width * 4, d, roi.width * 2, roi, 2);
                                  });
    const std::vector<float> in{2.5f, 3.5f, 1.7f, -0.6f, -1.5f, 254.9f};
    ExpectOneRow<float, uint8_t>(in, {2, 3, 1, 0, 0, 254}, to8(0));
    ExpectOneRow<float, uint8_t>(in, {2, 4, 2, 0, 0, 255}, to8(1));
    ExpectOneRow<float, uint8_t>(in, {3, 4, 2, 0, 0, 255}, to8(7));
    ExpectOneRow<uint16_t, uint8_t>({256, 255, 65535, 7}, {255, 255, 255, 7},
                                    [](const uint16_t* s, uint8_t* d, PxSize roi) {
                                        return PxConvertImage_16u8u(s, roi.width * 2, d, roi.width, roi);
                                    });
}

// Half up is exactly floor(x + 0.5), taken here in double, where the addition is exact: values around
// every half and whole number of both ranges.
TEST(ImageConvertTest, HalfUpIsExactFloorOfXPlusHalf) {
    std::vector<float> in;
    for (float k = -2.0f; k <= 65537.0f; k += k < 300.0f ? 0.5f : 64.5f)
        for (float x : {std::nextafter(k, -inf), k, std::nextafter(k, inf)}) in.push_back(x);
    const PxSize roi{int32_t(in.size()), 1};
    ForEachLevel([&](int32_t) {
        std::vector<uint8_t> to8(in.size());
        std::vector<uint16_t> to16(in.size());
        ASSERT_EQ(PxConvertImage_32f8u(in.data(), roi.width * 4, to8.data(), roi.width, roi, 2), PxStatusOk);
        ASSERT_EQ(PxConvertImage_32f16u(in.data(), roi.width * 4, to16.data(), roi.width * 2, roi, 2), PxStatusOk);
        for (size_t i = 0; i < in.size(); ++i) {
            const double r = std::floor(double(in[i]) + 0.5);
            ASSERT_EQ(to8[i], r < 0 ? 0 : r > 255 ? 255 : r) << in[i];
            ASSERT_EQ(to16[i], r < 0 ? 0 : r > 65535 ? 65535 : r) << in[i];
        }
    });
}

TEST(ImageStatusTest, ChecksInOrderAndWritesNothing) {
    ForEachLevel([](int32_t) {
        float f[4] = {1, 2, 3, 4};
        uint8_t b[16] = {9, 9, 9, 9};
        uint16_t w[4] = {9, 9, 9, 9};
        const PxSize ok{2, 2}, bad{0, 2};
        EXPECT_EQ(PxConvertImage_32f8u(nullptr, 8, b, 2, bad, -1), PxStatusNullPointer);
        EXPECT_EQ(PxConvertImage_32f8u(f, 8, nullptr, 2, ok, 2), PxStatusNullPointer);
        EXPECT_EQ(PxConvertImage_32f8u(f, 0, b, 2, PxSize{2, -1}, -1), PxStatusBadSize);
        EXPECT_EQ(PxConvertImage_32f8u(f, 0, b, 2, ok, -1), PxStatusBadStep);
        EXPECT_EQ(PxConvertImage_32f16u(f, 8, w, -4, ok, -1), PxStatusBadStep);
        EXPECT_EQ(PxConvertImage_32f16u(f, 8, w, 4, ok, -1), PxStatusBadArgument);
        EXPECT_EQ(b[0], 9);
        EXPECT_EQ(w[0], 9);
        EXPECT_EQ(PxConvertImage_8u32f(b, 2, nullptr, 8, bad), PxStatusNullPointer);
        EXPECT_EQ(PxConvertImage_16u32f(w, 4, f, 8, PxSize{2, 0}), PxStatusBadSize);
        EXPECT_EQ(PxConvertImage_8u16u(b, 0, w, 4, ok), PxStatusBadStep);
        EXPECT_EQ(PxConvertImage_16u8u(w, 4, b, 0, ok), PxStatusBadStep);
        EXPECT_EQ(PxThresholdGTImage_8u_I(nullptr, 0, bad, 1), PxStatusNullPointer);
        EXPECT_EQ(PxThresholdGTImage_16u_I(w, 0, bad, 1), PxStatusBadSize);
        EXPECT_EQ(PxThresholdGTImage_16u_I(w, 0, ok, 1), PxStatusBadStep);
        EXPECT_EQ(PxCopyImage_16u(w, 4, nullptr, 4, bad), PxStatusNullPointer);
        EXPECT_EQ(PxCopyImage_16u(w, 4, w + 2, 4, PxSize{-1, 1}), PxStatusBadSize);
        EXPECT_EQ(PxCopyImage_16u(w, 0, w + 2, 0, PxSize{2, 2}), PxStatusOk);  // the copy checks no step
        EXPECT_EQ(PxDivImage_32f(f, 8, nullptr, 8, f, 8, bad), PxStatusNullPointer);
        EXPECT_EQ(PxDivImage_32f(f, 0, f, 8, f, 8, bad), PxStatusBadSize);
        EXPECT_EQ(PxDivImage_32f(f, 8, f, 8, f, 0, ok), PxStatusBadStep);
        EXPECT_EQ(f[0], 1.0f);
    });
}

// In place, each row's narrowed samples land over the start of the row and the rest of the row stays.
TEST(ImageConvertTest, InPlaceNarrowingKeepsRestOfRows) {
    std::mt19937 rng(7);
    std::uniform_real_distribution<float> value(-20.0f, 70000.0f);
    for (int32_t width : {1, 7, 33, 70}) {
        const int32_t height = 5, step = width * 4 + 12;
        Image floats(step, height);  // its bytes also serve as the 16-bit samples
        for (int32_t y = 0; y < height; ++y)
            for (int32_t x = 0; x < width; ++x) floats.Row<float>(y)[x] = value(rng);
        ForEachLevel([&](int32_t) {
            const auto check = [&](const Image& before, Image& after, auto narrow, size_t elementBytes) {
                Image separate(step, height);
                ASSERT_EQ(narrow(before.bytes.data(), separate.bytes.data()), PxStatusOk);
                ASSERT_EQ(narrow(after.bytes.data(), after.bytes.data()), PxStatusOk);
                for (int32_t y = 0; y < height; ++y) {
                    const size_t row = size_t(y) * step, used = size_t(width) * elementBytes;
                    EXPECT_EQ(0, std::memcmp(&after.bytes[row], &separate.bytes[row], used)) << "row " << y;
                    EXPECT_EQ(0, std::memcmp(&after.bytes[row + used], &before.bytes[row + used], step - used));
                }
            };
            Image a = floats, b = floats, c = floats;
            check(floats, a, [&](const uint8_t* s, uint8_t* d) {
                return PxConvertImage_32f8u(reinterpret_cast<const float*>(s), step, d, step, PxSize{width, height}, 2);
            }, 1);
            check(floats, b, [&](const uint8_t* s, uint8_t* d) {
                return PxConvertImage_32f16u(reinterpret_cast<const float*>(s), step, reinterpret_cast<uint16_t*>(d),
                                             step, PxSize{width, height}, 2);
            }, 2);
            check(floats, c, [&](const uint8_t* s, uint8_t* d) {
                return PxConvertImage_16u8u(reinterpret_cast<const uint16_t*>(s), step, d, step, PxSize{width, height});
            }, 1);
        });
    }
}

// Every form against the scalar one, on random data with odd sizes, padded steps and offset starts.
TEST(ImageFormsTest, MatchScalarOnRandomImages) {
    std::mt19937 rng(11);
    const float specials[] = {nan, inf, -inf, 0.5f, 254.5f, 65534.5f, std::nextafter(0.5f, 0.0f), -0.0f};
    for (PxSize roi : {PxSize{1, 1}, PxSize{37, 3}, PxSize{130, 9}, PxSize{1023, 2}}) {
        const int32_t pad = 3 + int32_t(rng() % 13), height = roi.height;
        Image src(roi.width * 4 + pad * 4, height), src2(roi.width * 4 + pad * 4, height);
        for (auto& v : src.bytes) v = uint8_t(rng());
        for (int32_t y = 0; y < height; ++y)
            for (int32_t x = 0; x < roi.width; ++x) {
                src.Row<float>(y)[x] = rng() % 8 == 0 ? specials[rng() % 8]
                                                       : std::uniform_real_distribution<float>(-300, 70000)(rng);
                src2.Row<float>(y)[x] = rng() % 16 == 0 ? 0.0f : std::uniform_real_distribution<float>(-9, 9)(rng);
            }
        const int32_t s = src.step, d = roi.width * 4 + 20;
        // Each case writes dst (offset by one byte to be unaligned for some forms) and returns the status.
        const std::vector<std::function<PxStatus(Image&)>> cases = {
            [&](Image& o) { return PxConvertImage_8u32f(src.Data<uint8_t>() + 1, s, o.Data<float>(), d, roi); },
            [&](Image& o) { return PxConvertImage_16u32f(src.Data<uint16_t>() + 1, s, o.Data<float>(), d, roi); },
            [&](Image& o) { return PxConvertImage_8u16u(src.Data<uint8_t>() + 3, s, o.Data<uint16_t>(), d, roi); },
            [&](Image& o) { return PxConvertImage_16u8u(src.Data<uint16_t>(), s, o.Data<uint8_t>() + 1, d, roi); },
            [&](Image& o) { return PxCopyImage_16u(src.Data<uint16_t>() + 1, s, o.Data<uint16_t>() + 1, d, roi); },
            [&](Image& o) { return PxConvertImage_32f8u(src.Data<float>(), s, o.Data<uint8_t>() + 1, d, roi, 2); },
            [&](Image& o) { return PxConvertImage_32f8u(src.Data<float>(), s, o.Data<uint8_t>(), d, roi, 0); },
            [&](Image& o) { return PxConvertImage_32f16u(src.Data<float>(), s, o.Data<uint16_t>(), d, roi, 2); },
            [&](Image& o) { return PxConvertImage_32f16u(src.Data<float>(), s, o.Data<uint16_t>(), d, roi, 1); },
            // Contiguous rows in both images, which the forms may run as one long row.
            [&](Image& o) {
                return PxConvertImage_8u32f(src.Data<uint8_t>(), roi.width, o.Data<float>(), roi.width * 4, roi);
            },
            [&](Image& o) {
                return PxConvertImage_32f8u(src.Data<float>(), roi.width * 4, o.Data<uint8_t>(), roi.width, roi, 2);
            },
        };
        for (size_t c = 0; c < cases.size(); ++c) {
            SCOPED_TRACE(testing::Message() << "case " << c << " width " << roi.width);
            PxForceProcessorLevel(0);
            Image want(d, height);
            const PxStatus wantStatus = cases[c](want);
            ForEachLevel([&](int32_t) {
                Image got(d, height);
                EXPECT_EQ(cases[c](got), wantStatus);
                EXPECT_EQ(got.bytes, want.bytes);
            });
        }
        // Division may differ in the last bits between forms; zero divisors give the same specials.
        const auto divide = [&](Image& o) {
            return PxDivImage_32f(src2.Data<float>(), s, src.Data<float>(), s, o.Data<float>(), d, roi);
        };
        PxForceProcessorLevel(0);
        Image want(d, height);
        const PxStatus wantStatus = divide(want);
        ForEachLevel([&](int32_t) {
            Image got(d, height);
            EXPECT_EQ(divide(got), wantStatus);
            for (int32_t y = 0; y < height; ++y)
                for (int32_t x = 0; x < roi.width; ++x) {
                    const float g = got.Row<float>(y)[x], w = want.Row<float>(y)[x];
                    if (std::isnan(w))
                        EXPECT_TRUE(std::isnan(g));
                    else if (std::isinf(w))
                        EXPECT_EQ(g, w);
                    else
                        EXPECT_NEAR(g, w, std::fabs(w) * 1e-6f);
                }
        });
    }
}

TEST(ImageFormsTest, LargeCopyStreamsToUnalignedRows) {
    const PxSize roi{1101, 500};  // above 1 MiB
    Image src(roi.width * 2 + 6, roi.height), want(roi.width * 2 + 10, roi.height, 0);
    for (auto& v : src.bytes) v = uint8_t(v * 31 + (&v - src.bytes.data()));
    for (int32_t y = 0; y < roi.height; ++y) std::memcpy(want.Row<uint8_t>(y) + 2, src.Row<uint8_t>(y), roi.width * 2);
    ForEachLevel([&](int32_t) {
        Image got(want.step, roi.height, 0);
        ASSERT_EQ(PxCopyImage_16u(src.Data<uint16_t>(), src.step, got.Data<uint16_t>() + 1, got.step, roi), PxStatusOk);
        EXPECT_EQ(got.bytes, want.bytes);
    });
}

TEST(ImageDivTest, ZeroDivisorsAndAllRowsDone) {
    // Row 0 warns; row 1 (after it) must still be computed. Specials sit in the vector part and the tail.
    const int32_t w = 11;
    std::vector<float> divisor(2 * w, 2.0f), numerator(2 * w, 3.0f);
    const float num[5] = {1.0f, -1.0f, 0.0f, nan, 1.0f}, div[5] = {-0.0f, 0.0f, 0.0f, 0.0f, nan};
    for (int i = 0; i < 5; ++i) {
        numerator[i] = numerator[w - 5 + i] = num[i];
        divisor[i] = divisor[w - 5 + i] = div[i];
    }
    ForEachLevel([&](int32_t) {
        std::vector<float> q(2 * w, 0.0f);
        EXPECT_EQ(PxDivImage_32f(divisor.data(), w * 4, numerator.data(), w * 4, q.data(), w * 4, PxSize{w, 2}),
                  PxStatusDivideByZero);
        for (int at : {0, w - 5}) {
            EXPECT_EQ(q[at + 0], inf);
            EXPECT_EQ(q[at + 1], -inf);
            EXPECT_TRUE(std::isnan(q[at + 2]));
            EXPECT_TRUE(std::isnan(q[at + 3]));
            EXPECT_TRUE(std::isnan(q[at + 4]));
        }
        EXPECT_EQ(q[w + 3], 1.5f);
        EXPECT_EQ(PxDivImage_32f(divisor.data() + w, w * 4, numerator.data() + w, w * 4, q.data(), w * 4,
                                 PxSize{w, 1}), PxStatusOk);
    });
}

TEST(ImageThresholdTest, ClampsAboveLevelWithinRoi) {
    Image img8(13, 3), img16(30, 3);
    for (size_t i = 0; i < img8.bytes.size(); ++i) img8.bytes[i] = uint8_t(i * 37);
    for (size_t i = 0; i < img16.bytes.size(); ++i) img16.bytes[i] = uint8_t(i * 53);
    Image before8 = img8, before16 = img16;
    ASSERT_EQ(PxThresholdGTImage_8u_I(img8.Data<uint8_t>(), 13, PxSize{10, 3}, 100), PxStatusOk);
    ASSERT_EQ(PxThresholdGTImage_16u_I(img16.Data<uint16_t>(), 30, PxSize{12, 3}, 30000), PxStatusOk);
    for (int32_t y = 0; y < 3; ++y) {
        for (int32_t x = 0; x < 13; ++x) {
            const uint8_t b = before8.Row<uint8_t>(y)[x];
            EXPECT_EQ(img8.Row<uint8_t>(y)[x], x < 10 && b > 100 ? 100 : b);
        }
        for (int32_t x = 0; x < 15; ++x) {
            const uint16_t b = before16.Row<uint16_t>(y)[x];
            EXPECT_EQ(img16.Row<uint16_t>(y)[x], x < 12 && b > 30000 ? 30000 : b);
        }
    }
}

}  // namespace
