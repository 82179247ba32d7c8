// Random requests to an arena, beside a model that keeps a list of its blocks.
#include "draw.h"
#include "runtime/memory_arena.h"
#include "support/guarded_frame.h"
#include "zpr_framehold.h"

#include <cstring>
#include <vector>

namespace fh = qlx::zpr_framehold;

namespace {

/// The blocks as they must lie in the arena.
class Model {
public:
    explicit Model(int64_t payload) : blocks_{{8, payload, false}} {}

    /// Offset of the payload in the region, or 0.
    int64_t alloc(uint32_t size) {
        const int64_t wanted = (int64_t{size} + 3) / 4 * 4;
        if (size == 0) return 0;
        for (size_t i = 0; i < blocks_.size(); ++i) {
            Block& block = blocks_[i];
            if (block.isUsed || block.size < wanted) continue;
            const int64_t rest = block.size - wanted - 8;
            block.isUsed = true;
            const int64_t offset = block.offset;
            if (rest >= 32) {
                block.size = wanted;
                blocks_.insert(blocks_.begin() + static_cast<ptrdiff_t>(i) + 1,
                               {offset + wanted + 8, rest, false});
            }
            return offset;
        }
        return 0;
    }

    void free(int64_t offset) {
        for (Block& block : blocks_) {
            if (block.offset == offset) block.isUsed = false;
        }
        for (size_t i = 1; i < blocks_.size();) {
            if (blocks_[i - 1].isUsed || blocks_[i].isUsed) {
                ++i;
                continue;
            }
            blocks_[i - 1].size += 8 + blocks_[i].size;
            blocks_.erase(blocks_.begin() + static_cast<ptrdiff_t>(i));
        }
    }

    bool isOneFreeBlock() const { return blocks_.size() == 1 && !blocks_[0].isUsed; }

private:
    struct Block {
        int64_t offset;
        int64_t size;
        bool isUsed;
    };
    std::vector<Block> blocks_;
};

/// A block in use, and the byte that fills it.
struct UsedBlock {
    uint8_t* data;
    uint32_t size;
    uint8_t mark;
};

void release(const UsedBlock& block, fh::MemoryHandle memory, Model& model, const uint8_t* region) {
    for (uint32_t i = 0; i < block.size; ++i) {
        zpr_fuzz::require(block.data[i] == block.mark, "blocks do not overlap");
    }
    fh::free(memory, block.data);
    model.free(block.data - region);
}

uint32_t drawSize(zpr_fuzz::Draw& draw) {
    switch (draw.integer(0, 7)) {
        case 0:
            return static_cast<uint32_t>(draw.word());
        case 1:
            return static_cast<uint32_t>(draw.integer(0, 5000));
        default:
            return static_cast<uint32_t>(draw.integer(0, 200));
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    zpr_fuzz::Draw draw(data, size);
    const int bytes = 4 * draw.integer(0, 1500) + draw.integer(0, 3);
    const int words = bytes / 4 * 4;
    zpr_test::GuardedPlane region(words > 0 ? words : 4, 1, words > 0 ? words : 4, draw.flag());
    uint8_t* base = region.data();
    const int code = ZPR_FormatArena(base, static_cast<size_t>(bytes));
    zpr_fuzz::require((code == ZPR_OK) == (bytes >= 20), "20 bytes are enough");
    if (code != ZPR_OK) return 0;

    auto* memory = reinterpret_cast<fh::MemoryHandle>(base);
    Model model(words - 16);
    std::vector<UsedBlock> blocks;
    while (!draw.isEmpty()) {
        const int choice = draw.integer(0, 9);
        if (choice < 6) {
            const uint32_t wanted = drawSize(draw);
            auto* got = static_cast<uint8_t*>(fh::alloc(memory, wanted));
            const int64_t expected = model.alloc(wanted);
            zpr_fuzz::require((got == nullptr ? 0 : got - base) == expected, "first fit");
            if (got == nullptr) continue;
            blocks.push_back({got, wanted, draw.byte()});
            std::memset(got, blocks.back().mark, wanted);
        } else if (choice < 9 && !blocks.empty()) {
            const int last = static_cast<int>(blocks.size()) - 1;
            const auto i = static_cast<size_t>(draw.integer(0, last));
            release(blocks[i], memory, model, base);
            blocks.erase(blocks.begin() + static_cast<ptrdiff_t>(i));
        } else {
            uint8_t foreign = 0;
            fh::free(memory, draw.flag() ? &foreign : nullptr);
        }
    }
    for (const UsedBlock& block : blocks) release(block, memory, model, base);
    zpr_fuzz::require(model.isOneFreeBlock(), "freed blocks join");
    const int32_t header[2] = {words - 16, 0};
    zpr_fuzz::require(std::memcmp(base, header, sizeof header) == 0, "the arena is as it was");
    return 0;
}
