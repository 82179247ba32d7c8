#pragma once

#include <string>
#include <vector>

namespace framehold {

struct ChartPoint {
    double x;
    double y;
};

/// Line of a chart.
struct ChartLine {
    std::string style;                 // class in the page's style sheet
    std::vector<ChartPoint> points{};  // in order of x; any number
    double longestStep = 0.0;          // in x, above which the line is broken; 0: it never is
};

/// Part of a chart that is shaded over all its height.
struct ChartSpan {
    std::string style;
    double from;  // in x
    double to;
};

struct ChartRange {
    double low;
    double high;
};

struct LineChart {
    std::string title;
    std::string xUnit;
    ChartRange x;
    ChartRange y;  // values outside are drawn at its ends
    std::vector<ChartSpan> spans{};
    std::vector<ChartLine> lines{};
};

/// Text as it may stand in HTML.
std::string htmlText(const std::string& text);

/// A figure in HTML, as wide as the page. Of a line with many points the smallest and the largest
/// of each column are left, so that none that stands out is lost.
std::string chartHtml(const LineChart& chart);

}  // namespace framehold
