#include "bench/svg_chart.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <iterator>

#include <fmt/format.h>

namespace framehold::bench {

namespace {

constexpr double kWidth = 900.0;
constexpr double kChartHeight = 430.0;
constexpr double kLeft = 80.0;
constexpr double kPlotWidth = 520.0;
constexpr double kTop = 50.0;
constexpr double kPlotHeight = 310.0;
constexpr double kRight = kLeft + kPlotWidth;
constexpr double kBottom = kTop + kPlotHeight;

constexpr std::array<const char*, 12> kColours{"#4477aa", "#ee6677", "#228833", "#ccbb44",
                                               "#66ccee", "#aa3377", "#222222", "#ee8866",
                                               "#999999", "#44bb99", "#882255", "#997700"};

const char* colour(size_t i) { return kColours[i % kColours.size()]; }

std::string escape(const std::string& text) {
    std::string out;
    for (const char c : text) {
        switch (c) {
            case '&':
                out += "&amp;";
                break;
            case '<':
                out += "&lt;";
                break;
            case '>':
                out += "&gt;";
                break;
            default:
                out += c;
        }
    }
    return out;
}

/// Collects the elements of one chart.
class Canvas {
public:
    template <class... Arguments>
    void add(fmt::format_string<Arguments...> format, Arguments&&... arguments) {
        fmt::format_to(std::back_inserter(body_), format, std::forward<Arguments>(arguments)...);
        body_ += '\n';
    }

    void text(double x, double y, const char* anchor, const std::string& content) {
        add(R"(<text x="{:.1f}" y="{:.1f}" text-anchor="{}">{}</text>)", x, y, anchor,
            escape(content));
    }

    void line(double x1, double y1, double x2, double y2, const char* stroke) {
        add(R"(<line x1="{:.1f}" y1="{:.1f}" x2="{:.1f}" y2="{:.1f}" stroke="{}"/>)", x1, y1, x2,
            y2, stroke);
    }

    void frame(const std::string& title, const std::string& xLabel, const std::string& yLabel) {
        add(R"(<text x="{}" y="24" class="title">{}</text>)", kLeft, escape(title));
        text((kLeft + kRight) / 2.0, kBottom + 42.0, "middle", xLabel);
        add(R"svg(<text transform="translate(22 {}) rotate(-90)" text-anchor="middle">{}</text>)svg",
            (kTop + kBottom) / 2.0, escape(yLabel));
        line(kLeft, kBottom, kRight, kBottom, "black");
        line(kLeft, kTop, kLeft, kBottom, "black");
    }

    void legend(size_t place, size_t index, const std::string& name) {
        const double y = kTop + 10.0 + 20.0 * static_cast<double>(place);
        add(R"(<rect x="{}" y="{:.1f}" width="14" height="8" fill="{}"/>)", kRight + 20.0, y - 8.0,
            colour(index));
        text(kRight + 40.0, y, "start", name);
    }

    const std::string& body() const { return body_; }

private:
    std::string body_;
};

/// A logarithmic axis over whole decades' 1, 2 and 5.
class LogAxis {
public:
    LogAxis(double low, double high, double from, double to)
        : low_(std::log10(low)), span_(std::log10(high) - low_), from_(from), to_(to) {}

    double at(double value) const {
        return from_ + (std::log10(value) - low_) / span_ * (to_ - from_);
    }

    std::vector<double> ticks() const {
        constexpr double kRounding = 1e-9;
        std::vector<double> out;
        for (int decade = static_cast<int>(std::floor(low_)); decade <= low_ + span_; ++decade) {
            for (const double step : {1.0, 2.0, 5.0}) {
                const double logarithm = decade + std::log10(step);
                if (logarithm >= low_ - kRounding && logarithm <= low_ + span_ + kRounding) {
                    out.push_back(std::pow(10.0, logarithm));
                }
            }
        }
        return out;
    }

private:
    double low_, span_, from_, to_;
};

std::string draw(const LineChart& chart) {
    double x[2] = {1e300, 0.0};
    double y[2] = {1e300, 0.0};
    for (const Series& series : chart.series) {
        for (const auto& point : series.points) {
            x[0] = std::min(x[0], point.first);
            x[1] = std::max(x[1], point.first);
            y[0] = std::min(y[0], point.second);
            y[1] = std::max(y[1], point.second);
        }
    }
    Canvas canvas;
    canvas.frame(chart.title, chart.xLabel, chart.yLabel);
    if (chart.series.empty()) return canvas.body();
    const LogAxis across(x[0] / 1.3, x[1] * 1.3, kLeft, kRight);
    const LogAxis up(y[0] / 1.3, y[1] * 1.3, kBottom, kTop);
    for (const double tick : across.ticks()) {
        canvas.line(across.at(tick), kTop, across.at(tick), kBottom, "#dddddd");
        canvas.text(across.at(tick), kBottom + 18.0, "middle", fmt::format("{:g}", tick));
    }
    for (const double tick : up.ticks()) {
        canvas.line(kLeft, up.at(tick), kRight, up.at(tick), "#dddddd");
        canvas.text(kLeft - 8.0, up.at(tick) + 4.0, "end", fmt::format("{:g}", tick));
    }
    // The legend in the order in which the lines end.
    std::vector<size_t> order(chart.series.size());
    for (size_t i = 0; i < order.size(); ++i) order[i] = i;
    std::sort(order.begin(), order.end(), [&](size_t a, size_t b) {
        return chart.series[a].points.back().second > chart.series[b].points.back().second;
    });
    for (size_t place = 0; place < order.size(); ++place) {
        const size_t i = order[place];
        std::string points;
        for (const auto& point : chart.series[i].points) {
            const double px = across.at(point.first);
            const double py = up.at(point.second);
            points += fmt::format("{:.1f},{:.1f} ", px, py);
            canvas.add(R"(<circle cx="{:.1f}" cy="{:.1f}" r="3" fill="{}"/>)", px, py, colour(i));
        }
        canvas.add(R"(<polyline points="{}" fill="none" stroke="{}" stroke-width="2"/>)", points,
                   colour(i));
        canvas.legend(place, i, chart.series[i].name);
    }
    return canvas.body();
}

/// 1, 2 or 5 times a power of ten: about a fifth of the span.
double niceStep(double span) {
    const double decade = std::pow(10.0, std::floor(std::log10(span / 5.0)));
    for (const double step : {1.0, 2.0, 5.0}) {
        if (step * decade * 5.0 >= span) return step * decade;
    }
    return 10.0 * decade;
}

std::string draw(const BarChart& chart) {
    double highest = 0.0;
    for (const BarChart::Bar& bar : chart.bars) {
        double sum = 0.0;
        for (const double layer : bar.layers) sum += std::max(layer, 0.0);
        highest = std::max(highest, sum);
    }
    Canvas canvas;
    canvas.frame(chart.title, "", chart.yLabel);
    if (highest <= 0.0) return canvas.body();
    const double step = niceStep(highest);
    const int steps = static_cast<int>(std::ceil(highest / step));
    const double scale = kPlotHeight / (step * steps);
    for (int i = 0; i <= steps; ++i) {
        const double y = kBottom - i * step * scale;
        if (i > 0) canvas.line(kLeft, y, kRight, y, "#dddddd");
        canvas.text(kLeft - 8.0, y + 4.0, "end", fmt::format("{:g}", i * step));
    }
    const double pitch = kPlotWidth / static_cast<double>(chart.bars.size());
    for (size_t i = 0; i < chart.bars.size(); ++i) {
        const double left = kLeft + (static_cast<double>(i) + 0.2) * pitch;
        double y = kBottom;
        for (size_t k = 0; k < chart.bars[i].layers.size(); ++k) {
            const double height = std::max(chart.bars[i].layers[k], 0.0) * scale;
            y -= height;
            canvas.add(R"(<rect x="{:.1f}" y="{:.2f}" width="{:.1f}" height="{:.2f}" fill="{}"/>)",
                       left, y, 0.6 * pitch, height, colour(k));
        }
        const std::string& label = chart.bars[i].label;
        const size_t split = std::min(label.find('\n'), label.size());
        canvas.text(left + 0.3 * pitch, kBottom + 18.0, "middle", label.substr(0, split));
        if (split < label.size()) {
            canvas.text(left + 0.3 * pitch, kBottom + 34.0, "middle", label.substr(split + 1));
        }
    }
    const size_t count = chart.layers.size();
    for (size_t k = 0; k < count; ++k) canvas.legend(count - 1 - k, k, chart.layers[k]);
    return canvas.body();
}

}  // namespace

std::string drawCharts(const LineChart& lines, const BarChart& bars) {
    return fmt::format(
        R"svg(<svg xmlns="http://www.w3.org/2000/svg" viewBox="0 0 {0} {1}" width="{0}" height="{1}">
<style>text {{ font: 13px sans-serif }} .title {{ font-size: 16px; font-weight: bold }}</style>
<rect width="100%" height="100%" fill="white"/>
<g>
{2}</g>
<g transform="translate(0 {3})">
{4}</g>
</svg>
)svg",
        kWidth, 2.0 * kChartHeight, draw(lines), kChartHeight, draw(bars));
}

}  // namespace framehold::bench
