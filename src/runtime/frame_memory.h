#pragma once

#include <cstddef>

namespace qlx::zpr_framehold {

/// Copies `bytes` from one place to another that does not overlap it. Where the processor can, it
/// writes past the caches: for memory that has left them when it is read again. That saves reading
/// the lines that are overwritten, and leaves what is in the caches there.
void copyPastCaches(void* to, const void* from, size_t bytes);

/// Asks the system for large pages for memory of this process that has not been touched yet: there
/// are then fewer addresses to look up. Does nothing where the system has none.
void adviseLargePages(void* memory, size_t bytes);

}  // namespace qlx::zpr_framehold
