#pragma once

#include "runtime/memory_arena.h"
#include "zpr_framehold.h"

#include <cstdint>

namespace qlx::zpr_framehold {

/// One buffered frame. Only planes and pitches 0 and 1 of the image are set.
struct FrameSlot {
    ZPR_Image frame;
    double timestamp;  // corrected to the sensors' clock
};

#if defined(__arm__)
static_assert(sizeof(FrameSlot) == 56);
#endif

/// The delayFrames + 1 frames that an instance holds, each in its part of one pixel block. Plain
/// memory; all zeros is a ring not built.
struct DelayRing {
    FrameSlot* slots;
    void* slotsBlock;  // what the slots lie in
    uint8_t* pixels;
    int64_t count;

    FrameSlot& slotOf(int64_t frame) const { return slots[frame % count]; }
};

/// Bytes for slots and pixels, or false if they are more than an allocation can take.
bool fitsDelayRing(const ZPR_Param& param);

/// Returns false if there is no memory; what was taken is then left for `destroyDelayRing`.
bool buildDelayRing(MemoryHandle memory, const ZPR_Param& param, DelayRing& ring);

void destroyDelayRing(MemoryHandle memory, DelayRing& ring);

/// Copies a frame into the slot of its index. Both planes are taken to be laid out with the slot's
/// pitch.
void storeFrame(const DelayRing& ring, int64_t index, const ZPR_Image& input, double timestamp);

}  // namespace qlx::zpr_framehold
