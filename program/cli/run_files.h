#pragma once

#include <string>
#include <vector>

namespace framehold {

/// Files that a run reads and writes. Every command names them all here before it opens one for
/// writing, so that none is lost.
class RunFiles {
public:
    /// path: "-" is standard input; the pattern of an image sequence stands for all of its files;
    /// empty: none.
    void addInput(const std::string& path);

    /// option: that names the file. path: "-" is standard output; empty: none. user: the clip that
    /// it is written for, where there are several.
    void addOutput(const std::string& option, const std::string& path,
                   const std::string& user = "");

    /// Throws CLI::ValidationError if two outputs are one file, and std::runtime_error if an output
    /// is an input too, or is there already and `overwrites` is not set. Files are the same that
    /// links of any kind lead to. Prints which links are followed, unless it is to be quiet.
    void check(bool overwrites, bool quiet) const;

private:
    struct Output {
        std::string option;
        std::string path;
        std::string user;
    };

    void checkAgainstInputs() const;
    void checkAgainstEachOther() const;
    void checkExisting() const;

    std::vector<std::string> inputs_;
    std::vector<Output> outputs_;
};

/// Name of what was written, for the user.
std::string writtenName(const std::string& path);

/// Prints what could not be read of a run's inputs; throws DoneWithLosses if that is anything.
void reportLosses(const std::vector<std::string>& losses);

}  // namespace framehold
