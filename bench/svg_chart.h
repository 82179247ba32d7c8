#pragma once

#include <string>
#include <utility>
#include <vector>

namespace framehold::bench {

struct Series {
    std::string name;
    std::vector<std::pair<double, double>> points;
};

/// Lines over two logarithmic axes.
struct LineChart {
    std::string title;
    std::string xLabel;
    std::string yLabel;
    std::vector<Series> series;
};

/// Bars side by side, each made of layers.
struct BarChart {
    struct Bar {
        std::string label;
        std::vector<double> layers;
    };

    std::string title;
    std::string yLabel;
    std::vector<std::string> layers;
    std::vector<Bar> bars;
};

/// An SVG document with one chart above the other.
std::string drawCharts(const LineChart& lines, const BarChart& bars);

}  // namespace framehold::bench
