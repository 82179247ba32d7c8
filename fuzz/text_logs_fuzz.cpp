// Any text into the reader of motion logs, which tells the format by itself.
#include "checked_log.h"
#include "common/text_fields.h"
#include "motion/motion_log_reader.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string_view content(reinterpret_cast<const char*>(data), size);
    try {
        zpr_fuzz::useLog(framehold::parseTextLog("log", content));
    } catch (const framehold::FileError&) {
    }
    return 0;
}
