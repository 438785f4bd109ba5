// The pool that image buffers return their blocks to inside a scope: reuse of exact sizes, content kept across
// growth, the bound on what it keeps, injected allocation failures, and nothing reaching it outside a scope.
#include "demosaic/ImageBuffer.h"
#include "platform/Platform.h"

#include <gtest/gtest.h>

#include <cstdint>

namespace {

TEST(ImageBlockPool, ReusesBlocksOfTheSameSizeOnlyInsideItsScope) {
    ImageBlockPool pool;
    ImageBuffer64 outside;
    outside.Resize(16, 4);
    {
        const ImageBlockPool::Scope scope(pool);
        EXPECT_EQ(ImageBlockPool::Current(), &pool);
        double* block;
        {
            ImageBuffer64 first;
            first.Resize(32, 8);
            block = first.data;
        }
        EXPECT_EQ(pool.KeptBlocks(), 1u);
        ImageBuffer32 other;
        other.Resize(32, 8);  // half the bytes: a new block
        EXPECT_NE(static_cast<void*>(other.data), static_cast<void*>(block));
        ImageBuffer64 second;
        second.Resize(32, 8);
        EXPECT_EQ(second.data, block);
        EXPECT_EQ(pool.KeptBlocks(), 0u);

        // Growing takes a kept block, carries the content over and keeps the old block.
        ImageBuffer64 third;
        third.Resize(64, 8);
        double* larger = third.data;
        third.Release();
        outside.data[5] = 7.0;
        outside.Resize(64, 8);
        EXPECT_EQ(outside.data, larger);
        EXPECT_EQ(outside.data[5], 7.0);
        EXPECT_EQ(pool.KeptBlocks(), 1u);  // the old block of `outside`

        // An injected failure hits a kept block too, and leaves it kept.
        second.Release();
        const uint32_t kept = pool.KeptBlocks();
        ImageBuffer64 failing;
        platform::FailAllocationAfter(1);
        EXPECT_THROW(failing.Resize(32, 8), bool);
        platform::FailAllocationAfter(0);
        EXPECT_EQ(failing.data, nullptr);
        EXPECT_EQ(pool.KeptBlocks(), kept);
    }
    EXPECT_EQ(ImageBlockPool::Current(), nullptr);
    const uint32_t kept = pool.KeptBlocks();
    outside.Release();  // outside the scope: back to the system
    EXPECT_EQ(pool.KeptBlocks(), kept);
}

TEST(ImageBlockPool, KeepsABoundedNumberAndScopesNest) {
    ImageBlockPool outer, inner;
    const ImageBlockPool::Scope outerScope(outer);
    {
        const ImageBlockPool::Scope innerScope(inner);
        for (uint32_t i = 0; i < 40; ++i) {
            ImageBuffer32 image;
            image.Resize(16, 1 + i);
        }
        EXPECT_EQ(inner.KeptBlocks(), 32u);  // the oldest were freed
        ImageBuffer32 oldest;
        oldest.Resize(16, 1);
        EXPECT_EQ(inner.KeptBlocks(), 32u);  // not kept any more: a new block
    }
    EXPECT_EQ(ImageBlockPool::Current(), &outer);
    EXPECT_EQ(outer.KeptBlocks(), 0u);
    {
        ImageBuffer32 image;
        image.Resize(16, 1);
    }
    EXPECT_EQ(outer.KeptBlocks(), 1u);
}

}  // namespace
