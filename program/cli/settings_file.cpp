#include "cli/settings_file.h"

#include "common/nearest_name.h"
#include "common/text_fields.h"

#include <algorithm>
#include <set>

#include <fmt/format.h>

#include <nlohmann/json.hpp>

namespace framehold {

namespace {

using Json = nlohmann::ordered_json;

constexpr const char* kVersionKey = "framehold_settings";
constexpr int kSettingsVersion = 1;
constexpr const char* kPresetFile = "--preset-file";

/// True for options that are a habit, as opposed to a matter of one run.
bool isSetting(const CLI::Option& option) {
    static const std::set<std::string> kOfOneRun = {
        "preset-file", "save-settings",  "overwrite", "help",  "help-all", "motion",
        "clip",        "record-session", "fps",       "force", "again"};
    return !option.get_positional() && !option.get_lnames().empty() &&
           kOfOneRun.count(option.get_lnames().front()) == 0;
}

/// True for the name of a file that one run writes, as opposed to a pattern of names.
bool namesOneFile(const Command& command, const CLI::Option& option) {
    const std::optional<OptionValue> takes = command.valueOf(option);
    return takes && takes->isPath && option.results().front().find('{') == std::string::npos;
}

/// True if the words give an option: by its name, or by its letter, maybe among those of other flags.
bool isGiven(const CLI::Option& option, const std::vector<std::string>& words) {
    return std::any_of(words.begin(), words.end(), [&](const std::string& word) {
        const std::string name = word.substr(0, word.find('='));
        if (name.size() < 2 || name[0] != '-') return false;
        if (name[1] == '-') return option.check_lname(name.substr(2));
        return std::any_of(name.begin() + 1, name.end(),
                           [&](char letter) { return option.check_sname({letter}); });
    });
}

/// A file of settings, its options checked.
class SettingsFile {
public:
    SettingsFile(std::string path, const Command& command)
        : path_(std::move(path)), command_(command) {
        constexpr size_t kLargest = 1 << 20;
        const Json json = Json::parse(readFile(path_, kLargest), nullptr, false);
        if (json.is_discarded()) fail("is not JSON, or holds a number that is too large");
        if (!json.is_object() || !json.contains(kVersionKey)) {
            fail(fmt::format("is not a file of settings: it has no {}", kVersionKey));
        }
        if (json[kVersionKey] != kSettingsVersion) {
            fail(fmt::format("{}: {} is not {}, the version that is known", kVersionKey,
                             excerpt(json[kVersionKey].dump()), kSettingsVersion));
        }
        for (const auto& [key, value] : json.items()) {
            if (key != kVersionKey && key != "options") fail(excerpt(key) + ": is not known");
        }
        if (!json.contains("options") || !json["options"].is_object()) {
            fail("options: is not a list of options with their values");
        }
        options_ = json["options"];
    }

    /// The options as words of a command line, but for those in `words` or excluded by them.
    std::vector<std::string> wordsBeside(const std::vector<std::string>& words) const {
        std::vector<std::string> added;
        for (const auto& [key, value] : options_.items()) {
            const CLI::Option& option = optionOf(key);
            const std::vector<std::string> values = valuesOf(option, key, value);
            const auto& excluded = option.get_excludes();
            const bool isExcluded =
                std::any_of(excluded.begin(), excluded.end(),
                            [&](const CLI::Option* other) { return isGiven(*other, words); });
            if (isExcluded || isGiven(option, words)) continue;
            const bool isFlag = !command_.valueOf(option);
            for (const std::string& text : values) {
                added.push_back(isFlag ? "--" + key : fmt::format("--{}={}", key, text));
            }
        }
        return added;
    }

private:
    [[noreturn]] void fail(const std::string& what) const { throw FileError(path_, 0, what); }

    const CLI::Option& optionOf(const std::string& key) const {
        const CLI::Option* option = command_.get_option_no_throw("--" + key);
        if (option != nullptr && isSetting(*option)) return *option;
        if (option != nullptr) fail(key + ": belongs on the command line, not to settings");
        std::vector<std::string> names;
        for (const CLI::Option* known :
             command_.get_options([](const CLI::Option* o) { return isSetting(*o); })) {
            names.push_back(known->get_lnames().front());
        }
        const std::string nearest = nearestName(key, names);
        fail(fmt::format("{}: there is no such option of {}{}", excerpt(key), command_.get_name(),
                         nearest.empty() ? "" : fmt::format("; did you mean {}?", nearest)));
    }

    /// Texts of an option's values, one for each time that it is given; of a flag one if it is set.
    std::vector<std::string> valuesOf(const CLI::Option& option, const std::string& key,
                                      const Json& value) const {
        if (!command_.valueOf(option)) {
            if (!value.is_boolean()) fail(key + ": is neither true nor false");
            return value.get<bool>() ? std::vector<std::string>{""} : std::vector<std::string>{};
        }
        std::vector<std::string> texts;
        for (const Json& one : value.is_array() ? value : Json::array({value})) {
            if (!one.is_string() && !one.is_number())
                fail(key + ": is neither a text nor a number");
            texts.push_back(one.is_string() ? one.get<std::string>() : one.dump());
            check(option, key, texts.back());
        }
        const bool mayRepeat = option.get_expected_max() >= CLI::detail::expected_max_vector_size;
        if (texts.size() != 1 && !mayRepeat) fail(key + ": takes one value");
        return texts;
    }

    /// Lets the option's own checks look at a value, part by part where it is a list.
    void check(const CLI::Option& option, const std::string& key, const std::string& text) const {
        auto& checked = const_cast<CLI::Option&>(option);  // whose checks are not changed
        const char separator = option.get_delimiter();
        for (std::string part : CLI::detail::split(text, separator != '\0' ? separator : '\n')) {
            for (int i = 0;; ++i) {
                std::string error;
                try {
                    error = (*checked.get_validator(i))(part);
                } catch (const CLI::OptionNotFound&) {
                    break;
                }
                if (!error.empty()) fail(fmt::format("{}: {}", key, error));
            }
        }
    }

    std::string path_;
    const Command& command_;
    Json options_;
};

}  // namespace

void addSettingsOptions(Command& command, std::string& save) {
    // Its value is taken from the command line before that is parsed.
    static std::string preset;
    const std::string group = "More settings";
    command.addInputFile(kPresetFile, preset, "Options that --save-settings wrote; others win")
        ->group(group);
    command.addOutputFile("--save-settings", save, "Write the options that are given to this file")
        ->group(group);
}

std::vector<std::string> withPresets(const Command& program,
                                     const std::vector<std::string>& words) {
    const auto& commands = program.commands();
    const auto command = std::find_if(commands.begin(), commands.end(), [&](const Command* c) {
        return !words.empty() && c->get_name() == words[0];
    });
    if (command == commands.end() || (*command)->get_option_no_throw(kPresetFile) == nullptr) {
        return words;
    }
    std::string path;
    const std::string withValue = std::string(kPresetFile) + "=";
    for (size_t i = 1; i < words.size() && words[i] != "--"; ++i) {
        if (words[i] == kPresetFile && i + 1 < words.size()) path = words[i + 1];
        if (words[i].rfind(withValue, 0) == 0) path = words[i].substr(withValue.size());
    }
    if (path.empty()) return words;
    std::vector<std::string> all = {words[0]};
    const auto added = SettingsFile(path, **command).wordsBeside(words);
    all.insert(all.end(), added.begin(), added.end());
    all.insert(all.end(), words.begin() + 1, words.end());
    return all;
}

void saveSettings(const Command& command, const OutputName& file,
                  const std::vector<std::pair<std::string, std::string>>& more) {
    Json json;
    json[kVersionKey] = kSettingsVersion;
    Json& options = json["options"] = Json::object();
    for (const CLI::Option* option : command.get_options(
             [](const CLI::Option* o) { return o->count() > 0 && isSetting(*o); })) {
        if (namesOneFile(command, *option)) continue;
        const std::string name = option->get_lnames().front();
        const std::vector<std::string>& values = option->results();
        if (!command.valueOf(*option)) {
            options[name] = true;
        } else if (const auto word = command.wordFor(name)) {
            options[name] = *word;
        } else if (const char separator = option->get_delimiter(); separator != '\0') {
            options[name] = CLI::detail::join(values, std::string(1, separator));
        } else if (values.size() == 1) {
            options[name] = values[0];
        } else {
            options[name] = values;
        }
    }
    for (const auto& [name, value] : more) options[name] = value;
    writeFile(file, json.dump(1, ' ', false, Json::error_handler_t::replace) + "\n");
}

}  // namespace framehold
