#include "inspect/line_chart.h"

#include <algorithm>
#include <cmath>

#include <fmt/format.h>

namespace framehold {

namespace {

// Of the drawing, which the page stretches.
constexpr double kWidth = 1500.0;
constexpr double kHeight = 200.0;
constexpr int kColumns = 750;
constexpr double kNarrowest = 2.0;  // of what is shaded

/// A range that is not empty.
ChartRange widened(const ChartRange& range) {
    if (range.high > range.low) return range;
    const double half = std::max(0.5, 1e-6 * std::fabs(range.low));
    return {range.low - half, range.low + half};
}

/// Share of a range at a value, 0 to 1.
double shareOf(const ChartRange& range, double value) {
    return std::clamp((value - range.low) / (range.high - range.low), 0.0, 1.0);
}

/// 1, 2 or 5 times a power of ten, so that at most `most` steps fit into the range.
double tickStep(const ChartRange& range, int most) {
    const double least = (range.high - range.low) / most;
    const double power = std::pow(10.0, std::floor(std::log10(least)));
    for (const double factor : {1.0, 2.0, 5.0}) {
        if (factor * power >= least) return factor * power;
    }
    return 10.0 * power;
}

struct Tick {
    double share;
    std::string text;
};

std::vector<Tick> ticksOf(const ChartRange& range, int most) {
    const double step = tickStep(range, most);
    const double first = std::ceil(range.low / step);
    const int decimals = std::clamp(static_cast<int>(-std::floor(std::log10(step))), 0, 9);
    std::vector<Tick> ticks;
    for (int i = 0; i <= most; ++i) {
        const double value = (first + i) * step;
        if (value > range.high) break;
        const bool isLong = std::fabs(value) >= 1e6;
        ticks.push_back({shareOf(range, value), isLong ? fmt::format("{:g}", value)
                                                       : fmt::format("{:.{}f}", value, decimals)});
    }
    return ticks;
}

/// Data of an SVG path.
class PathWriter {
public:
    explicit PathWriter(const LineChart& chart) : chart_(chart) {}

    std::string write(const ChartLine& line) {
        // A break that is narrower than a column cannot be seen.
        const double column = (chart_.x.high - chart_.x.low) / kColumns;
        const double longest = line.longestStep > 0.0 ? std::max(line.longestStep, column) : 0.0;
        const ChartPoint* before = nullptr;
        for (const ChartPoint& point : line.points) {
            if (!std::isfinite(point.x) || !std::isfinite(point.y)) continue;
            const int here = static_cast<int>(kColumns * shareOf(chart_.x, point.x));
            const bool breaks = before != nullptr && longest > 0.0 && point.x - before->x > longest;
            if (before != nullptr && (here != column_ || breaks)) endColumn();
            if (breaks) isDown_ = false;
            if (low_ == nullptr || point.y < low_->y) low_ = &point;
            if (high_ == nullptr || point.y > high_->y) high_ = &point;
            column_ = here;
            before = &point;
        }
        endColumn();
        return std::move(data_);
    }

private:
    void endColumn() {
        if (low_ == nullptr) return;
        const bool lowIsFirst = low_ <= high_;
        draw(lowIsFirst ? *low_ : *high_);
        if (low_ != high_) {
            draw(lowIsFirst ? *high_ : *low_);
        } else if (!isDown_) {
            data_ += "h0.1";  // a point alone would not be seen
        }
        isDown_ = true;
        low_ = high_ = nullptr;
    }

    void draw(const ChartPoint& point) {
        data_ +=
            fmt::format("{}{:.1f} {:.1f}", isDown_ ? 'L' : 'M', kWidth * shareOf(chart_.x, point.x),
                        kHeight * (1.0 - shareOf(chart_.y, point.y)));
        isDown_ = true;
    }

    const LineChart& chart_;
    std::string data_;
    bool isDown_ = false;  // there is a point to go on from
    int column_ = 0;
    // Of the column.
    const ChartPoint* low_ = nullptr;
    const ChartPoint* high_ = nullptr;
};

}  // namespace

std::string htmlText(const std::string& text) {
    std::string result;
    for (const char c : text) {
        switch (c) {
            case '&':
                result += "&amp;";
                break;
            case '<':
                result += "&lt;";
                break;
            case '>':
                result += "&gt;";
                break;
            case '"':
                result += "&quot;";
                break;
            case '\'':
                result += "&#39;";
                break;
            default:
                result += c;
        }
    }
    return result;
}

std::string chartHtml(const LineChart& given) {
    LineChart chart = given;
    chart.x = widened(given.x);
    chart.y = widened(given.y);
    const std::string title = htmlText(chart.title);
    std::string drawing, labels;
    for (const ChartSpan& span : chart.spans) {
        if (span.to < chart.x.low || span.from > chart.x.high) continue;
        const double from = kWidth * shareOf(chart.x, span.from);
        const double to = kWidth * shareOf(chart.x, span.to);
        drawing += fmt::format(
            "<rect class=\"{}\" x=\"{:.1f}\" y=\"0\" width=\"{:.1f}\" "
            "height=\"{}\"/>\n",
            span.style, from, std::max(to - from, kNarrowest), kHeight);
    }
    for (const Tick& tick : ticksOf(chart.y, 4)) {
        const double down = 1.0 - tick.share;
        drawing +=
            fmt::format("<path class=\"grid\" d=\"M0 {:.1f}H{}\"/>\n", kHeight * down, kWidth);
        labels += fmt::format("<span class=\"y\" style=\"top:{:.2f}%\">{}</span>", 100.0 * down,
                              tick.text);
    }
    for (const Tick& tick : ticksOf(chart.x, 6)) {
        drawing += fmt::format("<path class=\"grid\" d=\"M{:.1f} 0V{}\"/>\n", kWidth * tick.share,
                               kHeight);
        labels += fmt::format("<span class=\"x\" style=\"left:{:.2f}%\">{}</span>",
                              100.0 * tick.share, tick.text);
    }
    for (const ChartLine& line : chart.lines) {
        drawing += fmt::format("<path class=\"line {}\" d=\"{}\"/>\n", line.style,
                               PathWriter(chart).write(line));
    }
    return fmt::format(
        "<figure>\n<figcaption>{0}</figcaption>\n<div class=\"plot\">\n"
        "<svg viewBox=\"0 0 {1} {2}\" preserveAspectRatio=\"none\" role=\"img\" "
        "aria-label=\"{0}\">\n{3}</svg>\n{4}</div>\n<p class=\"unit\">{5}</p>\n</figure>\n",
        title, kWidth, kHeight, drawing, labels, htmlText(chart.xUnit));
}

}  // namespace framehold
