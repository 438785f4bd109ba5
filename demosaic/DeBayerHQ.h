// The abstract high-quality demosaicking stage. It validates sizes and formats, derives the Bayer phase and
// interleaves the algorithm's three result planes into the output frame; an algorithm supplies the five
// operations behind those of ImageProcessing and nothing else.
#pragma once

#include "stream/ImageProcessing.h"

#include <cstdint>

class DeBayerHQ : public ImageProcessing {
public:
    ~DeBayerHQ() override;

    // Refuses, in order and with a level 3 message each: a width that is no multiple of 16 or an odd height;
    // an input depth above 12 or below 1; an output other than RGBX; a scale above 1 for any algorithm but HA; a scale
    // above 1 with input deeper than 8 bits; input samples packed in a way this stage cannot read. A format
    // other than the four Bayer orders is refused without a message. Ends with AllocateWorkspace(param).
    bool Init(uint32_t width, uint32_t height, const ImageFormat* in, const ImageFormat* out, uint32_t scale,
              uint32_t mode, const void* param) final;
    uint32_t OutputSize() final;
    // Interpolates and interleaves the planes (8-bit RGBX with padding 0xFF, or the two deep layouts). A failed
    // frame logs "Debayer failed" and leaves out unwritten; the size is returned either way.
    uint32_t Process(const void* in, void* out, const void* param) final;

    // Allocates every per-stream buffer; applies the parameter block when params is not null.
    virtual bool AllocateWorkspace(const void* params) = 0;
    // Clamps the value into the parameter's range and stores it; false for a null value or an unknown id.
    virtual bool SetParameter(uint32_t id, const void* value) = 0;
    // Demosaics one frame from rows srcStride bytes apart into the result planes, reduced to the output's
    // scale and depth. False when the frame failed.
    virtual bool Interpolate(const void* src, int32_t srcStride) = 0;
    virtual void GetPlaneGeometry(uint32_t* planeWidth, uint32_t* planeRowBytes, uint32_t* planeHeight) = 0;
    // Red, green and blue planes in that order.
    virtual bool GetResultPlanes(void* planes[3]) = 0;

protected:
    // The largest sample of the input depth, which Init keeps within 1 to 12 bits.
    int32_t InputMaximum() const { return (int32_t(1) << inFormat.bitDepth) - 1; }
    // Red, green and blue from the planes of the even rows' colour, green and the odd rows' colour: bit 0 of
    // BayerPhase says which colour the even rows carry. Always true.
    bool PlanesInOutputOrder(void* planes[3], void* even, void* green, void* odd) const {
        const bool redOnEvenRows = (BayerPhase & 1) != 0;
        planes[0] = redOnEvenRows ? even : odd;
        planes[1] = green;
        planes[2] = redOnEvenRows ? odd : even;
        return true;
    }

    // 0 to 3. Bit 0 set: red lies on the even rows. Bit 1 set: row 0 begins with a green sample.
    int32_t BayerPhase = 0;

private:
    // Densely packed 10- and 12-bit input is unpacked here into little-endian words before Interpolate.
    uint8_t* unpackedInput = nullptr;
};
