#include "bench/plot.h"

#include "bench/measurements.h"
#include "bench/svg_chart.h"

#include <algorithm>

#include <fmt/format.h>
#include <fmt/os.h>

namespace framehold::bench {

namespace {

void addRendering(const Table& table, LineChart& chart) {
    for (const Line& line : table.lines) {
        auto series = std::find_if(chart.series.begin(), chart.series.end(),
                                   [&](const Series& s) { return s.name == line.name; });
        if (series == chart.series.end()) {
            chart.series.push_back({line.name, {}});
            series = chart.series.end() - 1;
        }
        series->points.emplace_back(static_cast<double>(table.size.pixels()) * 1e-6,
                                    line.ms.median);
    }
}

void addStages(const Table& table, BarChart& chart) {
    BarChart::Bar bar{
        fmt::format("{}x{}\ndelay {}", table.size.width, table.size.height, table.delayFrames), {}};
    for (const std::string& stage : kStageNames) {
        for (const Line& line : table.lines) {
            if (line.name == stage) bar.layers.push_back(line.ms.median);
        }
    }
    chart.bars.push_back(bar);
}

}  // namespace

void writePlot(const std::string& path, const std::vector<Table>& tables) {
    LineChart rendering{"Rendering a frame: one thread, cold frames",
                        "luma pixels of the frame, millions",
                        "milliseconds",
                        {}};
    BarChart stages{"Stages of ZPR_Stabilize: one thread", "milliseconds", kStageNames, {}};
    for (const Table& table : tables) {
        if (table.section == "rendering" && table.threads == 1 && table.ring > 1) {
            addRendering(table, rendering);
        }
        if (table.section == "stages") addStages(table, stages);
    }
    auto file = fmt::output_file(path);
    file.print("{}", drawCharts(rendering, stages));
}

}  // namespace framehold::bench
