#include "report/report_page.h"

#include "report/page_data.h"
#include "report/report_page.h"

#include <algorithm>
#include <iterator>
#include <stdexcept>
#include <string_view>
#include <utility>

namespace framehold {

namespace {

const PageAssets& requiredAssets() {
    const PageAssets* assets = pageAssets();
    if (assets == nullptr) {
        throw std::runtime_error(
            "reports are off: this program was built without Node's npm, which gets the plots");
    }
    return *assets;
}

void replaceMark(std::string& page, std::string_view mark, std::string_view text) {
    page.replace(page.find(mark), mark.size(), text);
}

/// JSON as it may stand inside a script element: without what could end the element, start a comment
/// in it, or end a line of a script. All these characters occur in strings only.
std::string embeddable(const nlohmann::ordered_json& data) {
    constexpr std::pair<std::string_view, std::string_view> kEscapes[] = {
        {"<", "\\u003c"},
        {">", "\\u003e"},
        {"&", "\\u0026"},
        {"\xE2\x80\xA8", "\\u2028"},
        {"\xE2\x80\xA9", "\\u2029"},
    };
    const std::string text =
        data.dump(-1, ' ', false, nlohmann::ordered_json::error_handler_t::replace);
    std::string result;
    for (std::string_view rest = text; !rest.empty();) {
        const auto escape = std::find_if(std::begin(kEscapes), std::end(kEscapes), [&](auto& e) {
            return rest.substr(0, e.first.size()) == e.first;
        });
        const bool isPlain = escape == std::end(kEscapes);
        result += isPlain ? rest.substr(0, 1) : escape->second;
        rest.remove_prefix(isPlain ? 1 : escape->first.size());
    }
    return result;
}

}  // namespace

void requireReports() { requiredAssets(); }

void writeReport(const OutputName& name, const ReportContent& content) {
    const PageAssets& assets = requiredAssets();
    std::string page(assets.page);
    // The data come last: they may hold anything, marks too.
    replaceMark(page, "<!--style-->", assets.style);
    replaceMark(page, "<!--script-->", assets.script);
    replaceMark(page, "<!--data-->", embeddable(pageData(content)));
    writeFile(name, page);
}

}  // namespace framehold
