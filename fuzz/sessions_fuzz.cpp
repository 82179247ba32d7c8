// Any bytes as a recorded session, behind its head line.
#include "draw.h"
#include "session/session_file.h"
#include "support/temporary_folder.h"

#include <algorithm>
#include <stdexcept>
#include <string>

using framehold::SessionReader;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static const zpr_test::TemporaryFolder folder;
    const std::string bytes(reinterpret_cast<const char*>(data), size);
    const std::string head = "FRAMEHOLD SESSION 1\n";
    uint32_t sum = 0;
    try {
        SessionReader session(folder.write("session", head + bytes));
        const ZPR_Image& frame = session.frame();
        const auto sizeOf = [](const ZPR_Image& image) { return 1.5 * image.width * image.height; };
        const double kept = (1.0 + session.param().delayFrames) * sizeOf(frame) +
                            sizeOf(session.param().outputImage);
        zpr_fuzz::require(kept <= std::max(1.1e9, 2.0 * static_cast<double>(size)),
                          "no more memory is asked for than the file accounts for");
        for (auto event = session.next(); event != SessionReader::Event::kEnd;
             event = session.next()) {
            if (event != SessionReader::Event::kFrame) continue;
            // The last bytes that a frame says it has.
            sum += frame.plane[0][ptrdiff_t{frame.pitch[0]} * frame.height - 1];
            sum += frame.plane[1][ptrdiff_t{frame.pitch[1]} * (frame.height / 2) - 1];
        }
    } catch (const std::runtime_error&) {
    }
    zpr_fuzz::require(sum <= size * 2 * 255, "frames come from the file");
    return 0;
}
