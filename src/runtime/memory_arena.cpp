#include "runtime/memory_arena.h"

#include <cstdlib>
#include <limits>

namespace qlx::zpr_framehold {

namespace {

constexpr int32_t kEnd = -1;
constexpr int32_t kHeaderSize = sizeof(BlockHeader);
constexpr int32_t kSmallestRemainder = 32;
constexpr uint32_t kGranularity = 4;

void* payload(BlockHeader* header) { return header + 1; }

BlockHeader* next(BlockHeader* header) {
    return reinterpret_cast<BlockHeader*>(static_cast<char*>(payload(header)) + header->size);
}

bool isEnd(const BlockHeader* header) { return header->size == kEnd; }

void* allocFromArena(MemoryArena* arena, uint32_t size) {
    constexpr uint32_t kLargest = std::numeric_limits<int32_t>::max() - (kGranularity - 1);
    if (size == 0 || size > kLargest) return nullptr;
    const auto wanted = static_cast<int32_t>((size + kGranularity - 1) & ~(kGranularity - 1));
    BlockHeader* block = arena;
    while (!isEnd(block) && (block->used != 0 || block->size < wanted)) block = next(block);
    if (isEnd(block)) return nullptr;

    const int32_t remainder = block->size - wanted - kHeaderSize;
    if (remainder >= kSmallestRemainder) {
        block->size = wanted;
        *next(block) = {remainder, 0};
    }
    block->used = 1;
    return payload(block);
}

/// Joins a block with the next one, unless their size were more than a header can say.
void absorbNext(BlockHeader* block) {
    const int64_t joined = int64_t{block->size} + next(block)->size + kHeaderSize;
    if (joined <= std::numeric_limits<int32_t>::max()) block->size = static_cast<int32_t>(joined);
}

void freeToArena(MemoryArena* arena, void* p) {
    BlockHeader* previous = nullptr;
    BlockHeader* block = arena;
    while (!isEnd(block) && payload(block) != p) {
        previous = block;
        block = next(block);
    }
    if (isEnd(block)) return;
    block->used = 0;
    if (!isEnd(next(block)) && next(block)->used == 0) absorbNext(block);
    if (previous != nullptr && previous->used == 0) absorbNext(previous);
}

}  // namespace

void* alloc(MemoryHandle memory, uint32_t size) {
    return memory == nullptr ? std::malloc(size) : allocFromArena(memory, size);
}

void free(MemoryHandle memory, void* p) {
    if (memory == nullptr) {
        std::free(p);
    } else if (p != nullptr) {
        freeToArena(memory, p);
    }
}

AlignedBlock allocAligned(MemoryHandle memory, uint64_t size, size_t alignment) {
    // The heap aligns for everything; arena payloads lie up to alignment - 4 bytes off.
    const uint64_t slack =
        memory != nullptr && alignment > kGranularity ? alignment - kGranularity : 0;
    if (size + slack > std::numeric_limits<uint32_t>::max()) return {};
    void* block = alloc(memory, static_cast<uint32_t>(size + slack));
    const auto address = reinterpret_cast<uintptr_t>(block);
    const uintptr_t off = memory != nullptr ? (0 - address) & (alignment - 1) : 0;
    return {block, block == nullptr ? nullptr : static_cast<char*>(block) + off};
}

}  // namespace qlx::zpr_framehold
