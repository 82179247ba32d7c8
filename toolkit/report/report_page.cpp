#include "report/report_page.h"

#include "common/output_file.h"
#include "report/page_data.h"
#include "report/report_page.h"

#include <stdexcept>
#include <string_view>

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

/// JSON as it may stand inside a script element, which any "</" could end.
std::string embeddable(const nlohmann::ordered_json& data) {
    std::string text = data.dump(-1, ' ', false, nlohmann::ordered_json::error_handler_t::replace);
    for (size_t at = 0; (at = text.find("</", at)) != std::string::npos; at += 3) {
        text.insert(at + 1, "\\");
    }
    return text;
}

}  // namespace

void requireReports() { requiredAssets(); }

void writeReport(const std::string& path, const ReportContent& content) {
    const PageAssets& assets = requiredAssets();
    std::string page(assets.page);
    // The data come last: they may hold anything, marks too.
    replaceMark(page, "<!--style-->", assets.style);
    replaceMark(page, "<!--script-->", assets.script);
    replaceMark(page, "<!--data-->", embeddable(pageData(content)));
    writeFile(path, page);
}

}  // namespace framehold
