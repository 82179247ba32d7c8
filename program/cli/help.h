#pragma once

#include <string>

#include <CLI/App.hpp>
#include <CLI/Config.hpp>
#include <CLI/Formatter.hpp>

namespace framehold {

/// Lays out the help of a `Command` in 80 columns, a line for an option where it fits.
/// The order suits help2man, which makes the manual pages of it.
class HelpFormatter final : public CLI::FormatterBase {
public:
    std::string make_help(const CLI::App* app, std::string name,
                          CLI::AppFormatMode mode) const override;
};

}  // namespace framehold
