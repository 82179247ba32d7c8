#include "runtime/frame_memory.h"

#include <cstdint>
#include <cstring>
#include <iterator>

#if defined(__x86_64__)
#include <emmintrin.h>
#if defined(__linux__)
#include <sys/mman.h>
#endif
#endif

namespace qlx::zpr_framehold {

#if defined(__x86_64__)

void copyPastCaches(void* to, const void* from, size_t bytes) {
    constexpr size_t kLine = 64;
    auto* out = static_cast<uint8_t*>(to);
    const auto* in = static_cast<const uint8_t*>(from);
    const size_t toLine = (kLine - reinterpret_cast<uintptr_t>(to) % kLine) % kLine;
    if (bytes < toLine + kLine) {
        std::memcpy(out, in, bytes);
        return;
    }
    std::memcpy(out, in, toLine);
    size_t i = toLine;
    // Whole lines, or the processor reads the rest of a line before it writes it.
    for (; bytes - i >= kLine; i += kLine) {
        __m128i line[kLine / sizeof(__m128i)];
        std::memcpy(line, in + i, kLine);
        auto* target = reinterpret_cast<__m128i*>(out + i);
        for (size_t k = 0; k < std::size(line); ++k) _mm_stream_si128(target + k, line[k]);
    }
    std::memcpy(out + i, in + i, bytes - i);
    _mm_sfence();
}

#else

void copyPastCaches(void* to, const void* from, size_t bytes) { std::memcpy(to, from, bytes); }

#endif

#if defined(__x86_64__) && defined(__linux__)

void adviseLargePages(void* memory, size_t bytes) {
    constexpr uintptr_t kPage = 4096;
    const auto start = reinterpret_cast<uintptr_t>(memory);
    const uintptr_t first = (start + kPage - 1) / kPage * kPage;
    const uintptr_t end = (start + bytes) / kPage * kPage;
    // It is advice: pages stay small where it is not taken.
    if (first < end)
        madvise(static_cast<uint8_t*>(memory) + (first - start), end - first, MADV_HUGEPAGE);
}

#else

void adviseLargePages(void* /*memory*/, size_t /*bytes*/) {}

#endif

}  // namespace qlx::zpr_framehold
