#include "api/delay_ring.h"

#include "runtime/frame_memory.h"

#include <cstring>
#include <limits>

namespace qlx::zpr_framehold {

namespace {

/// Bytes of one frame; negative for a negative pitch.
int64_t frameBytes(const ZPR_Image& image) {
    const int64_t rows = int64_t{image.height} + image.height / 2;
    return image.pitch[0] * rows;
}

/// True if a frame has left the nearer caches when it is rendered. Where it has not, plain copies do
/// better.
bool outgrowsCaches(int64_t frame, int64_t count) {
    constexpr int64_t kNearCaches = 4 << 20;
    return count > 1 && frame * count >= kNearCaches;
}

int64_t slotCount(const ZPR_Param& param) { return int64_t{param.delayFrames} + 1; }

}  // namespace

bool fitsDelayRing(const ZPR_Param& param) {
    constexpr int64_t kLargest = std::numeric_limits<uint32_t>::max();
    const int64_t count = slotCount(param);
    const int64_t frame = frameBytes(param.inputImage);
    return count <= kLargest / static_cast<int64_t>(sizeof(FrameSlot)) && frame >= 0 &&
           frame <= kLargest / count;
}

bool buildDelayRing(MemoryHandle memory, const ZPR_Param& param, DelayRing& ring) {
    if (!fitsDelayRing(param)) return false;
    const int64_t count = slotCount(param);
    const AlignedBlock slots =
        allocAligned(memory, static_cast<uint64_t>(count) * sizeof(FrameSlot), alignof(FrameSlot));
    if (slots.data == nullptr) return false;
    ring.slots = static_cast<FrameSlot*>(slots.data);
    ring.slotsBlock = slots.block;
    ring.count = count;

    const ZPR_Image& input = param.inputImage;
    const int64_t frame = frameBytes(input);
    ring.pixels = static_cast<uint8_t*>(alloc(memory, static_cast<uint32_t>(frame * count)));
    if (ring.pixels == nullptr) return false;
    // Memory of the caller is not ours to advise on.
    if (memory == nullptr && outgrowsCaches(frame, count)) {
        adviseLargePages(ring.pixels, static_cast<size_t>(frame * count));
    }
    uint8_t* luma = ring.pixels;
    for (int64_t i = 0; i < count; ++i, luma += frame) {
        FrameSlot& slot = ring.slots[i];
        slot = {};
        slot.frame.format = input.format;
        slot.frame.width = input.width;
        slot.frame.height = input.height;
        slot.frame.plane[0] = luma;
        slot.frame.plane[1] = luma + ptrdiff_t{input.pitch[0]} * input.height;
        slot.frame.pitch[0] = input.pitch[0];
        slot.frame.pitch[1] = input.pitch[0];
    }
    return true;
}

void destroyDelayRing(MemoryHandle memory, DelayRing& ring) {
    free(memory, ring.pixels);
    free(memory, ring.slotsBlock);
    ring = {};
}

void storeFrame(const DelayRing& ring, int64_t index, const ZPR_Image& input, double timestamp) {
    FrameSlot& slot = ring.slotOf(index);
    const ZPR_Image& frame = slot.frame;
    const auto height = static_cast<size_t>(frame.height);
    slot.timestamp = timestamp;
    const auto copy = [&](int plane, size_t rows) {
        const size_t bytes = static_cast<size_t>(frame.pitch[plane]) * rows;
        if (outgrowsCaches(frameBytes(frame), ring.count)) {
            copyPastCaches(frame.plane[plane], input.plane[plane], bytes);
        } else {
            std::memcpy(frame.plane[plane], input.plane[plane], bytes);
        }
    };
    copy(0, height);
    copy(1, height / 2);
}

}  // namespace qlx::zpr_framehold
