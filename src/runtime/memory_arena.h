#pragma once

#include <cstddef>
#include <cstdint>

namespace qlx::zpr_framehold {

/// Header of an arena block; the payload follows.
struct BlockHeader {
    int32_t size;  // payload bytes, a multiple of 4
    int32_t used;  // 0 free, 1 allocated
};

static_assert(sizeof(BlockHeader) == 8);

/// A sequence of blocks that ends with a header of size -1, named by its first header.
using MemoryArena = BlockHeader;

/// The address of a caller-formatted arena, or null for the process heap.
using MemoryHandle = MemoryArena*;

/// Takes `size` bytes, aligned to 4 at least; null if there is no room or, in an arena, size is 0.
/// First fit; a block is split when more than 31 bytes would be left besides a new header.
void* alloc(MemoryHandle memory, uint32_t size);

/// Gives back what `alloc` returned and joins it with free neighbours. A null `p`, or one that is
/// not a payload of the arena, does nothing.
void free(MemoryHandle memory, void* p);

/// Memory for objects that need more alignment than an arena gives. `block` is for `free`.
struct AlignedBlock {
    void* block;
    void* data;
};

/// Takes `size` bytes for objects of `alignment`; both pointers are null if there is no room or
/// the size is more than a request can say.
AlignedBlock allocAligned(MemoryHandle memory, uint64_t size, size_t alignment);

}  // namespace qlx::zpr_framehold
