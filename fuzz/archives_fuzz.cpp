// Any bytes into the reader of logs in zip archives.
#include "checked_log.h"
#include "common/text_fields.h"
#include "motion/motion_log_reader.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string_view content(reinterpret_cast<const char*>(data), size);
    try {
        framehold::LogArchive archive("archive", content);
        zpr_fuzz::useLog(framehold::readArchivedLog(archive));
    } catch (const framehold::FileError&) {
    }
    return 0;
}
