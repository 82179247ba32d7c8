// Zip archives for tests.
#pragma once

#include <string>
#include <utility>
#include <vector>

#include <zip.h>

namespace zpr_test {

/// Writes an archive of files with these names and contents. password: of all files; empty: none.
inline void writeArchive(const std::string& path,
                         const std::vector<std::pair<std::string, std::string>>& files,
                         const char* password = "") {
    int error = 0;
    zip_t* archive = zip_open(path.c_str(), ZIP_CREATE | ZIP_TRUNCATE, &error);
    for (const auto& [name, content] : files) {
        zip_source_t* source = zip_source_buffer(archive, content.data(), content.size(), 0);
        const zip_int64_t index = zip_file_add(archive, name.c_str(), source, ZIP_FL_ENC_UTF_8);
        if (password[0] == '\0') continue;
        zip_file_set_encryption(archive, static_cast<zip_uint64_t>(index), ZIP_EM_AES_128,
                                password);
    }
    zip_close(archive);
}

}  // namespace zpr_test
