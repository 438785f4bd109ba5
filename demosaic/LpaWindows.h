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

// Adds, for the forward then the backward window, q * e of the length the ICI rule chose to *sum and q to
// *weight, q being the approximate reciprocal of the estimate's variance plus 1e-6. The twin is the definition;
// the AVX2 form runs both windows in the two halves of a 256-bit vector and gives the same bits.
using LpaAccumulateForm = void (*)(const LpaWindows& windows, float* sum, float* weight);
void LpaAccumulateSiteScalar(const LpaWindows& windows, float* sum, float* weight);
void LpaAccumulateSiteAvx2(const LpaWindows& windows, float* sum, float* weight);
