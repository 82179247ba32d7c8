#include "common/output_file.h"

#include "common/interruption.h"

#include <array>
#include <cerrno>
#include <filesystem>
#include <random>
#include <stdexcept>
#include <streambuf>
#include <system_error>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace framehold {

namespace fs = std::filesystem;

namespace {

constexpr mode_t kNewFile = 0666;  // less what the user's mask takes away
constexpr mode_t kPermissions = 07777;

[[noreturn]] void fail(const std::string& path, const std::string& reason) {
    throwIfInterrupted();
    throw std::runtime_error(path + ": cannot be written: " + reason);
}

[[noreturn]] void fail(const std::string& path, int error) {
    fail(path, std::generic_category().message(error));
}

[[noreturn]] void failAsWrittenMeanwhile(const std::string& path) {
    throw std::runtime_error(path +
                             ": another program has written it in the meantime; this run's "
                             "result is dropped");
}

bool find(const std::string& path, struct stat& status) { return stat(path.c_str(), &status) == 0; }

std::string unusedName(const std::string& target) {
    constexpr std::string_view kLetters = "abcdefghijklmnopqrstuvwxyz0123456789";
    constexpr size_t kLongestName = 200;  // of 255, so that ours fits
    std::random_device random;
    const fs::path path(target);
    std::string name = path.filename().string().substr(0, kLongestName) + ".";
    for (int i = 0; i < 8; ++i) name += kLetters[random() % kLetters.size()];
    return (path.parent_path() / (name + ".part")).string();
}

}  // namespace

/// Writes to a descriptor, and keeps the error that a stream would forget.
class OutputFile::Buffer final : public std::streambuf {
public:
    explicit Buffer(int descriptor) : descriptor_(descriptor) {
        setp(bytes_.data(), bytes_.data() + bytes_.size());
    }

    /// The system's number; 0 if all that was written went well.
    int error() const { return error_; }

protected:
    int_type overflow(int_type c) override {
        if (sync() != 0) return traits_type::eof();
        if (!traits_type::eq_int_type(c, traits_type::eof())) {
            sputc(traits_type::to_char_type(c));
        }
        return traits_type::not_eof(c);
    }

    int sync() override {
        const char* from = pbase();
        while (from < pptr() && error_ == 0) {
            const ssize_t written = write(descriptor_, from, static_cast<size_t>(pptr() - from));
            if (written >= 0) {
                from += written;
            } else if (errno != EINTR || isInterrupted()) {
                error_ = errno;
            }
        }
        setp(bytes_.data(), bytes_.data() + bytes_.size());
        return error_ == 0 ? 0 : -1;
    }

private:
    int descriptor_;
    int error_ = 0;
    std::array<char, 65536> bytes_{};
};

bool FileIdentity::operator==(const FileIdentity& other) const {
    return device == other.device && inode == other.inode && path == other.path;
}

FileIdentity identityOf(const std::string& path) {
    struct stat status {};
    if (find(path, status)) return {status.st_dev, status.st_ino, ""};
    std::error_code ignored;
    const fs::path resolved = fs::weakly_canonical(fs::absolute(followLinks(path)), ignored);
    return {0, 0, ignored ? path : resolved.string()};
}

bool isSpecialFile(const std::string& path) {
    struct stat status {};
    return find(path, status) && !S_ISREG(status.st_mode) && !S_ISDIR(status.st_mode);
}

std::string followLinks(const std::string& path) {
    constexpr int kMostLinks = 40;
    fs::path target(path);
    std::error_code ignored;
    for (int i = 0; i < kMostLinks; ++i) {
        if (!fs::is_symlink(target, ignored)) return target.string();
        target = target.parent_path() / fs::read_symlink(target);
    }
    fail(path, ELOOP);
}

void refuseExisting(const OutputName& name, size_t others) {
    struct stat status {};
    if (name.replaces || name.path == "-" || !find(name.path, status) || isSpecialFile(name.path))
        return;
    if (S_ISDIR(status.st_mode)) fail(name.path, EISDIR);
    if (others > 0) {
        throw std::runtime_error(name.path + " and " + std::to_string(others) +
                                 " more: are there already; --overwrite replaces them");
    }
    throw std::runtime_error(name.path + ": is there already; --overwrite replaces it");
}

OutputFile::OutputFile(const OutputName& name) : path_(name.path) {
    if (path_ == "-") {
        path_ = "standard output";
        temporary_ = "/dev/stdout";
        descriptor_ = dup(STDOUT_FILENO);
        if (descriptor_ < 0) fail(path_, errno);
        return;
    }
    refuseExisting(name);
    struct stat status {};
    replaces_ = find(path_, status);
    if (replaces_ && (S_ISFIFO(status.st_mode) || S_ISCHR(status.st_mode))) {
        temporary_ = path_;
        return;
    }
    if (replaces_ && S_ISDIR(status.st_mode)) fail(path_, EISDIR);
    if (replaces_ && !S_ISREG(status.st_mode)) fail(path_, "it is neither a file nor a pipe");
    target_ = followLinks(path_);
    if (replaces_) {
        replaced_ = identityOf(target_);
        mode_ = status.st_mode & kPermissions;
    }
    makeTemporary();
}

void OutputFile::makeTemporary() {
    constexpr int kTries = 100;
    // Nobody may read the new content who may not read the old one.
    const mode_t mode = replaces_ ? (mode_ & kNewFile) | S_IRUSR | S_IWUSR : kNewFile;
    for (int i = 0; i < kTries && descriptor_ < 0; ++i) {
        temporary_ = unusedName(target_);
        descriptor_ =
            open(temporary_.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, mode);
        if (descriptor_ < 0 && errno != EEXIST) break;
    }
    if (descriptor_ < 0) fail(path_, errno);
}

OutputFile::~OutputFile() {
    if (descriptor_ >= 0) close(descriptor_);
    if (!target_.empty() && !isCommitted_) unlink(temporary_.c_str());
}

std::ostream& OutputFile::stream() {
    if (buffer_) return stream_;
    if (descriptor_ < 0) descriptor_ = open(temporary_.c_str(), O_WRONLY | O_CLOEXEC);
    if (descriptor_ < 0) fail(path_, errno);
    buffer_ = std::make_unique<Buffer>(descriptor_);
    stream_.rdbuf(buffer_.get());
    return stream_;
}

void OutputFile::commit() {
    if (buffer_ && !stream_.flush()) fail(path_, buffer_->error());
    if (target_.empty()) return;
    if (replaces_ && fchmod(descriptor_, mode_) != 0) fail(path_, errno);
    if (fsync(descriptor_) != 0) fail(path_, errno);
    takeName();
    isCommitted_ = true;
}

void OutputFile::takeName() {
    const char* const target = target_.c_str();
    if (!replaces_) {
        // Unlike a rename it never replaces a file.
        if (link(temporary_.c_str(), target) == 0) {
            unlink(temporary_.c_str());
            return;
        }
        if (errno == EEXIST) failAsWrittenMeanwhile(path_);
        // File systems without links: an empty file holds the name until it is replaced.
        const int held = open(target, O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, kNewFile);
        if (held < 0 && errno == EEXIST) failAsWrittenMeanwhile(path_);
        if (held < 0) fail(path_, errno);
        close(held);
    } else if (!(identityOf(target_) == replaced_)) {
        failAsWrittenMeanwhile(path_);
    }
    if (rename(temporary_.c_str(), target) == 0) return;
    const int error = errno;
    if (!replaces_) unlink(target);
    fail(path_, error);
}

void writeFile(const OutputName& name, std::string_view bytes) {
    OutputFile file(name);
    file.stream() << bytes;
    file.commit();
}

}  // namespace framehold
