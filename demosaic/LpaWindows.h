// The sliding one-sided windows of LPA-ICI demosaicking. A line (a row or a column of colour differences) is
// read sample by sample, mirrored about its first and last samples; at each colour site a forward and a backward
// window of twelve samples feed straight-line fits of lengths 4, 6, 8 and 12, and the intersection of confidence
// intervals picks one length per direction.
#pragma once

#include <cstdint>

struct LpaWindows {
    float blend = 0;  // the blend the kernels were built with, before clamping
    float gamma = 0;  // ICI threshold of the current frame
    const uint8_t* cursor = nullptr;  // next sample of the line
    int32_t step = 0;                 // bytes to the next sample, negative while reading backward
    int32_t remaining = 0;            // reflection counter of NextSample
    alignas(16) float backward[12] = {};  // backward[t]: the sample t places before the site
    alignas(16) float forward[12] = {};   // forward[t]: the sample t places after the site
    // Estimate weights f, then slope weights g. Lengths 6 and 8 in groups of 8 (length 6 padded with two zeros),
    // length 4 in groups of 4, length 12 in groups of 12.
    alignas(16) float kernel4[8] = {};
    alignas(16) float kernel6[16] = {};
    alignas(16) float kernel8[16] = {};
    alignas(16) float kernel12[24] = {};

    // f[t] = a F(n, t) + (1 - a) / n and g[t] = a Gs(n, t), with a the blend clamped to 0..1: a first-order fit
    // at 1, a plain mean at 0.
    void BuildKernels(float blend);
    // Starts a line of `count` samples (at least 12) `step` bytes apart, with the windows at position 0 or 1.
    void LoadLine(const float* line, int32_t step, int32_t count, int32_t position);
    // S(0) .. S(N-1), S(N-2), ...: reflection without repeating an end sample.
    float NextSample();
    // Moves both windows two samples on.
    void AdvanceSite();
};

// The ICI rule on the intervals of lengths 4, 6, 8 and 12: the index of the chosen length, that is the number of
// lengths after 4 whose running intersection with all shorter ones is not empty, counting up to the first empty one.
int LpaIciChoice(const float lower[4], const float upper[4]);

// The twelve samples after and the twelve before each site of a run of sites along one line, or along lines
// side by side: tap t of site s is forward[t][s], the sample t places after the site, and backward[t][s], the
// sample t places before it. Each tap is a run of consecutive floats, so that a vector of sites loads it at once.
struct LpaTaps {
    const float* forward[12];
    const float* backward[12];
};

// The sites of a line of `count` samples from `position` (0 or 1) on, two samples apart: (count - position + 1) / 2.
inline int32_t LpaLineSites(int32_t count, int32_t position) { return (count - position + 1) / 2; }

// Floats of each of the two buffers that LpaSplitLine fills: the sites and the reach of the windows on both sides.
inline int32_t LpaSplitLength(int32_t count, int32_t position) { return LpaLineSites(count, position) + 12; }

// Taps along one line of `count` contiguous samples (at least 12) whose sites stand at `position`, `position` + 2,
// ...: the mirrored line is split into the samples an even and an odd number of places from the sites, `even`
// and `odd`, each of LpaSplitLength floats, so that the taps of consecutive sites are consecutive.
void LpaSplitLine(const float* line, int32_t count, int32_t position, float* even, float* odd, LpaTaps* taps);

// Taps of the sites at place `site` of lines laid side by side down a plane, one line per column: a line's samples
// are `stepBytes` apart and the lines' samples at one place form a row. Each tap is the row of the mirrored place.
// With ringRows above 0 the plane is a ring of that many rows (at least 23, the reach of the windows), place r in
// row r % ringRows.
void LpaColumnTaps(const float* plane, int32_t stepBytes, int32_t count, int32_t site, LpaTaps* taps,
                   int32_t ringRows = 0);

// Adds, for the forward then the backward window, q * e of the length the ICI rule chose to *sum and q to
// *weight, q being the approximate reciprocal of the estimate's variance plus 1e-6. This is the definition of the
// accumulation.
void LpaAccumulateSiteScalar(const LpaWindows& windows, float* sum, float* weight);

// The accumulation of LpaAccumulateSiteScalar at `count` sites given by their taps, into sum[s] and weight[s].
// The scalar twin runs the definition site by site; the AVX2 form takes eight sites at a time, one per lane, and
// gives the same bits. The windows give the kernels and the threshold only.
using LpaAccumulateForm = void (*)(const LpaWindows& windows, const LpaTaps& taps, int32_t count, float* sum,
                                   float* weight);
void LpaAccumulateLineScalar(const LpaWindows& windows, const LpaTaps& taps, int32_t count, float* sum,
                             float* weight);
void LpaAccumulateLineAvx2(const LpaWindows& windows, const LpaTaps& taps, int32_t count, float* sum, float* weight);
