#include "cli/run_files.h"

#include "cli/exit_codes.h"
#include "common/image_sequence.h"
#include "common/output_file.h"
#include "common/text_fields.h"

#include <map>
#include <stdexcept>
#include <tuple>

#include <fmt/format.h>

#include <CLI/CLI.hpp>

namespace framehold {

namespace {

using Key = std::tuple<uint64_t, uint64_t, std::string>;

Key keyOf(const std::string& path) {
    const FileIdentity identity = identityOf(path);
    return {identity.device, identity.inode, identity.path};
}

/// Path of a file that may be lost; none for pipes and devices.
std::string losable(const std::string& path, const char* inPlaceOfDash) {
    const std::string real = path == "-" ? inPlaceOfDash : path;
    return isSpecialFile(real) ? "" : real;
}

/// Some inputs are only looked for.
bool isThere(const std::string& path) { return identityOf(path).path.empty(); }

}  // namespace

void RunFiles::addInput(const std::string& path) {
    if (path.empty()) return;
    const auto sequence = findImageSequence(path);
    const std::vector<std::string>& files = sequence ? sequence->files : std::vector{path};
    inputs_.insert(inputs_.end(), files.begin(), files.end());
}

void RunFiles::addOutput(const std::string& option, const std::string& path,
                         const std::string& user) {
    if (!path.empty()) outputs_.push_back({option, path, user});
}

void RunFiles::check(bool overwrites, bool quiet) const {
    checkAgainstInputs();
    checkAgainstEachOther();
    if (!overwrites) checkExisting();
    for (const Output& output : outputs_) {
        const std::string target = followLinks(output.path);
        if (quiet || output.path == "-" || target == output.path) continue;
        if (isSpecialFile(output.path)) continue;
        fmt::print(stderr, "{} is a link: {} is written\n", output.path, target);
    }
}

void RunFiles::checkAgainstInputs() const {
    std::map<Key, std::string> inputs;
    for (const std::string& input : inputs_) {
        const std::string path = losable(input, "/dev/stdin");
        if (path.empty() || !isThere(path)) continue;
        inputs.emplace(keyOf(path), input);
    }
    for (const Output& output : outputs_) {
        const std::string path = losable(output.path, "/dev/stdout");
        const auto input = path.empty() ? inputs.end() : inputs.find(keyOf(path));
        if (input == inputs.end()) continue;
        const bool isSameName = input->second == output.path;
        throw std::runtime_error(fmt::format("{}: {} is the input itself{}", output.option,
                                             writtenName(output.path),
                                             isSameName ? "" : " (" + input->second + ")"));
    }
}

void RunFiles::checkAgainstEachOther() const {
    std::map<Key, const Output*> known;
    for (const Output& output : outputs_) {
        const std::string path = losable(output.path, "/dev/stdout");
        if (path.empty()) continue;
        const auto [other, isNew] = known.emplace(keyOf(path), &output);
        if (isNew) continue;
        const Output& first = *other->second;
        if (first.user != output.user) {
            throw CLI::ValidationError(
                output.option, fmt::format("{} would be written for {} and for {}", output.path,
                                           first.user, output.user));
        }
        throw CLI::ValidationError(
            output.option, fmt::format("{} is what {} writes, too", output.path, first.option));
    }
}

void RunFiles::checkExisting() const {
    std::vector<std::string> existing;
    for (const Output& output : outputs_) {
        if (output.path == "-") continue;
        try {
            refuseExisting({output.path});
        } catch (const std::runtime_error&) {
            existing.push_back(output.path);
        }
    }
    if (!existing.empty()) refuseExisting({existing.front()}, existing.size() - 1);
}

std::string writtenName(const std::string& path) { return path == "-" ? "standard output" : path; }

void reportLosses(const std::vector<std::string>& losses) {
    for (const std::string& loss : losses) fmt::print(stderr, "warning: {}\n", escaped(loss));
    if (!losses.empty()) throw DoneWithLosses("done, with losses");
}

}  // namespace framehold
