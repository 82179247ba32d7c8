#pragma once

#include <filesystem>
#include <fstream>
#include <functional>
#include <string>

namespace zpr_test {

/// A folder of the test's own, removed afterwards.
class TemporaryFolder {
public:
    TemporaryFolder() {
        std::string name = (std::filesystem::temp_directory_path() / "framehold_XXXXXX").string();
        path_ = mkdtemp(name.data());
    }
    ~TemporaryFolder() { std::filesystem::remove_all(path_); }

    std::string path(const std::string& name) const { return (path_ / name).string(); }

    std::string write(const std::string& name, const std::string& text) const {
        std::ofstream(path_ / name, std::ios::binary) << text;
        return path(name);
    }

private:
    std::filesystem::path path_;
};

/// Text of the exception that a call throws, "none" without one.
inline std::string errorOf(const std::function<void()>& call) {
    try {
        call();
        return "none";
    } catch (const std::exception& error) {
        return error.what();
    }
}

}  // namespace zpr_test
