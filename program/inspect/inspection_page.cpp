#include "common/text_fields.h"
#include "inspect/inspection.h"
#include "inspect/line_chart.h"

#include <algorithm>
#include <cmath>

#include <fmt/format.h>

namespace framehold {

namespace {

constexpr const char* kHead = R"(<!DOCTYPE html>
<html lang="en">
<head>
<meta charset="utf-8">
<meta name="viewport" content="width=device-width, initial-scale=1">
<meta http-equiv="Content-Security-Policy" content="default-src 'none'; style-src 'unsafe-inline'">
<style>
:root {
  color-scheme: light dark;
  --ground: #f6f7f9; --card: #ffffff; --ink: #1c2430; --soft: #5b6675; --line: #dfe3e8;
  --picture: #d9622b; --log: #1668c7; --clip: #1668c722; --gap: #c03a3a66;
  --note: #5b6675; --warning: #b07410; --unusable: #c03a3a;
}
@media (prefers-color-scheme: dark) {
  :root {
    --ground: #12161c; --card: #1b212a; --ink: #e6eaf0; --soft: #9aa6b5; --line: #2f3844;
    --picture: #f08a55; --log: #62a8f5; --clip: #62a8f52e; --gap: #ea7a7488;
    --note: #9aa6b5; --warning: #e0a030; --unusable: #ea7a74;
  }
}
* { box-sizing: border-box; }
body {
  margin: 0 auto; padding: 1.5rem clamp(0.6rem, 3vw, 1.25rem) 3rem; max-width: 72rem;
  background: var(--ground); color: var(--ink); font: 16px/1.5 system-ui, sans-serif;
}
h1 { margin: 0 0 0.4rem; font-size: clamp(1.3rem, 4vw, 1.8rem); line-height: 1.2; overflow-wrap: anywhere; }
h2 { margin: 0 0 0.5rem; font-size: 1.2rem; }
p { margin: 0 0 0.6rem; overflow-wrap: anywhere; }
.soft, .unit, figcaption { color: var(--soft); font-size: 0.9rem; }
section {
  margin-top: 1.25rem; padding: 1rem clamp(0.7rem, 3vw, 1.25rem);
  background: var(--card); border: 1px solid var(--line); border-radius: 12px;
}
ul { margin: 0; padding: 0; list-style: none; }
li { padding: 0.3rem 0 0.3rem 0.75rem; border-left: 0.3rem solid; overflow-wrap: anywhere; }
li + li { margin-top: 0.5rem; }
li.note { border-color: var(--note); }
li.warning { border-color: var(--warning); }
li.unusable { border-color: var(--unusable); }
figure { margin: 0 0 1rem; }
.plot { position: relative; height: 9rem; margin: 0.4rem 0.8rem 0 3.4rem; }
svg { display: block; width: 100%; height: 100%; border: 1px solid var(--line); }
.plot span { position: absolute; color: var(--soft); font-size: 0.75rem; white-space: nowrap; }
.plot .y { right: 100%; padding-right: 0.4rem; transform: translateY(-50%); }
.plot .x { top: 100%; padding-top: 0.1rem; transform: translateX(-50%); }
.unit { margin: 1.3rem 0.8rem 0; text-align: right; font-size: 0.75rem; }
path { fill: none; vector-effect: non-scaling-stroke; }
.grid { stroke: var(--line); stroke-width: 1px; }
.line { stroke-width: 1.3px; stroke-linejoin: round; }
.log { stroke: var(--log); }
.picture { stroke: var(--picture); }
rect.clip { fill: var(--clip); }
rect.gap { fill: var(--gap); }
.key { margin-right: 0.5rem; white-space: nowrap; }
.key b { display: inline-block; width: 1rem; height: 0.7rem; margin-right: 0.3rem; }
.key .log { background: var(--log); }
.key .picture { background: var(--picture); }
.key .clip { background: var(--clip); }
.key .gap { background: var(--gap); }
pre { margin: 0; font-size: 0.8rem; white-space: pre-wrap; overflow-wrap: anywhere; }
</style>
)";

constexpr const char* kAxes[] = {"x", "y", "z"};

class InspectionPage {
public:
    explicit InspectionPage(const Inspection& inspection)
        : inspection_(inspection), rates_(inspection.log.angularRates()),
          stamps_(inspection.log.rates.empty() ? inspection.statistics.orientations
                                               : inspection.statistics.rates.stamps) {}

    std::string write() {
        writeHeader();
        writeFindings();
        writeRates();
        writeSteps();
        if (inspection_.video) writeSynchronization(*inspection_.video);
        section("All that was found", "<pre>" + htmlText(inspectionText(inspection_)) + "</pre>\n");
        return page_ + "</main>\n</body>\n</html>\n";
    }

private:
    void section(const char* title, const std::string& content) {
        page_ += fmt::format("<section>\n<h2>{}</h2>\n{}</section>\n", title, content);
    }

    static std::string key(const char* style, const char* meaning) {
        return fmt::format("<span class=\"key\"><b class=\"{}\"></b>{}</span> ", style, meaning);
    }

    static std::string hint(const std::string& html) {
        return "<p class=\"soft\">" + html + "</p>\n";
    }

    void writeHeader() {
        const MotionLog& log = inspection_.log;
        std::string names;
        for (const std::string& file : log.files) {
            names += (names.empty() ? "" : ", ") + htmlText(escaped(file));
        }
        page_ = fmt::format(
            "{}<title>{}</title>\n</head>\n<body>\n<header>\n<p class=\"soft\">"
            "Framehold: inspection of a motion log</p>\n<h1>{}</h1>\n<p class=\"soft\">{}</p>\n"
            "</header>\n<main>\n",
            kHead, names, names,
            htmlText(fmt::format("{}, {:.1f} Hz, {}, {}", escaped(log.format), stamps_.perSecond(),
                                 durationText(stamps_.seconds()), counted(stamps_.gaps, "gap"))));
        if (inspection_.video && log.files != std::vector<std::string>{inspection_.video->video}) {
            page_ += hint("with " + htmlText(escaped(inspection_.video->video)));
        }
    }

    void writeFindings() {
        static constexpr const char* kStyles[] = {"note", "warning", "unusable"};
        std::string items;
        for (const LogFinding& finding : inspection_.findings) {
            const char* style = kStyles[static_cast<int>(finding.severity)];
            items += fmt::format("<li class=\"{0}\">{0}: {1}</li>\n", style,
                                 htmlText(escaped(finding.text)));
        }
        section("Findings", items.empty() ? "<p>Nothing will go wrong with it.</p>\n"
                                          : "<ul>\n" + items + "</ul>\n");
    }

    /// The clip and the gaps, on the clock of the charts.
    std::vector<ChartSpan> spans() const {
        std::vector<ChartSpan> spans;
        if (const auto& video = inspection_.video) {
            const double offset = video->timeOffset - stamps_.from;
            spans.push_back({"clip", video->frames.from + offset,
                             video->frames.to + video->readoutTime + offset});
        }
        for (const auto& gap : stamps_.firstGaps) {
            spans.push_back(
                {"gap", gap.from - stamps_.from, gap.from + gap.seconds - stamps_.from});
        }
        return spans;
    }

    LineChart chartOfLog(const std::string& title, const ChartRange& y) const {
        return {title, "s since the first sample", {0.0, stamps_.seconds()}, y, spans(), {}};
    }

    std::string keysOfLog() const {
        std::string keys;
        if (inspection_.video) keys += key("clip", "the video");
        if (stamps_.gaps > 0) {
            keys += key("gap", stamps_.gaps > stamps_.firstGaps.size() ? "the first gaps" : "gaps");
        }
        return keys;
    }

    void writeRates() {
        if (rates_.empty()) return section("Angular rates", "<p>The log has none.</p>\n");
        double largest = 0.0;
        for (const MotionSample& sample : rates_) {
            for (const double value : sample.value) largest = std::max(largest, std::fabs(value));
        }
        const bool areLogged = !inspection_.log.rates.empty();
        std::string content = hint(
            fmt::format("{} The first sample is at {:.3f} s of the log's clock. {}",
                        areLogged ? "About the logged axes." : "Between the logged orientations.",
                        stamps_.from, keysOfLog()));
        for (size_t axis = 0; axis < 3; ++axis) {
            LineChart chart = chartOfLog(fmt::format("{}, rad/s", kAxes[axis]),
                                         {-1.05 * largest, 1.05 * largest});
            ChartLine line{"log", {}, 3.0 * stamps_.step};
            for (const MotionSample& sample : rates_) {
                line.points.push_back({sample.time - stamps_.from, sample.value[axis]});
            }
            chart.lines.push_back(std::move(line));
            content += chartHtml(chart);
        }
        section("Angular rates", content);
    }

    void writeSteps() {
        constexpr double kMostSteps = 8.0;  // shown of a gap
        if (rates_.size() < 2) return;
        ChartLine line{"log"};
        double longest = 0.0;
        for (size_t i = 1; i < rates_.size(); ++i) {
            const double step = rates_[i].time - rates_[i - 1].time;
            longest = std::max(longest, step);
            line.points.push_back({rates_[i - 1].time - stamps_.from, 1e3 * step});
            line.points.push_back({rates_[i].time - stamps_.from, 1e3 * step});
        }
        const double shown = std::min(longest, kMostSteps * stamps_.step);
        LineChart chart = chartOfLog("From each sample to the next, ms", {0.0, 1.1e3 * shown});
        chart.lines.push_back(std::move(line));
        section("Time steps",
                hint(fmt::format("Half of the steps are of {:.3f} ms or less. {} {}",
                                 1e3 * stamps_.step,
                                 shown < longest ? fmt::format("The longest is of {}; long ones "
                                                               "are cut off at the top.",
                                                               durationText(longest))
                                                 : "",
                                 keysOfLog())) +
                    chartHtml(chart));
    }

    void writeSynchronization(const VideoInspection& video) {
        if (!video.curves || video.curves->turns.empty()) {
            return section("Synchronization",
                           "<p>No two frames of the video can be compared with the log.</p>\n");
        }
        const SynchronizationCurves& curves = *video.curves;
        std::string content = hint(fmt::format(
            "Turns from frame to frame about device axes, at a time offset of {:.4f} s ({}) and a "
            "focal length of {:.0f} pixels ({}). {}{}",
            curves.timeOffset,
            video.clock   ? "which fits the pictures"
            : video.found ? "found in the log"
                          : "which is used",
            curves.focal, curves.isFocalKnown ? "given" : "which fits best",
            key("picture", "by the pictures"), key("log", "by the log")));
        const double longestStep = 3.0 * video.frames.step;
        double largest = 0.0;
        for (const auto& turn : curves.turns) {
            for (size_t axis = 0; axis < 3; ++axis) {
                largest =
                    std::max({largest, std::fabs(turn.seen[axis]), std::fabs(turn.logged[axis])});
            }
        }
        for (size_t axis = 0; axis < 3; ++axis) {
            ChartLine seen{"picture", {}, longestStep}, logged{"log", {}, longestStep};
            for (const auto& turn : curves.turns) {
                const double time = turn.time - video.frames.from;
                seen.points.push_back({time, turn.seen[axis]});
                logged.points.push_back({time, turn.logged[axis]});
            }
            content += chartHtml({fmt::format("{}, rad/s", kAxes[axis]),
                                  "s since the first frame",
                                  {0.0, video.frames.seconds()},
                                  {-1.05 * largest, 1.05 * largest},
                                  {},
                                  {std::move(seen), std::move(logged)}});
        }
        section("Synchronization", content + sharesHtml(curves));
    }

    static std::string sharesHtml(const SynchronizationCurves& curves) {
        if (curves.shares.empty()) return "";
        ChartLine line{"log"};
        double least = 0.0;
        for (const auto& share : curves.shares) {
            line.points.push_back(
                {1e3 * (share.timeOffset - curves.timeOffset), 1e2 * share.explained});
            least = std::min(least, 1e2 * share.explained);
        }
        const double from = line.points.front().x, to = line.points.back().x;
        return chartHtml({"Share of the shake that the log explains at other time offsets, %",
                          fmt::format("ms from {:.4f} s", curves.timeOffset),
                          {from, to},
                          {std::max(least, -100.0), 100.0},
                          {},
                          {std::move(line)}});
    }

    const Inspection& inspection_;
    std::vector<MotionSample> rates_;
    const StampStatistics& stamps_;  // of the rates, or of the orientations they are from
    std::string page_;
};

}  // namespace

std::string inspectionPage(const Inspection& inspection) {
    return InspectionPage(inspection).write();
}

}  // namespace framehold
