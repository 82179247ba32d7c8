#include "motion/formats/packet_clock.h"

#include <algorithm>
#include <cmath>
#include <utility>

namespace framehold {

namespace {

/// Time of a sample: start + step * number.
struct EvenTimes {
    double start;
    double step;
};

/// Least squares through points of (number, time).
EvenTimes fitEvenTimes(const std::vector<std::pair<double, double>>& points) {
    double meanX = 0.0, meanY = 0.0;
    for (const auto& [x, y] : points) {
        meanX += x / static_cast<double>(points.size());
        meanY += y / static_cast<double>(points.size());
    }
    double xx = 0.0, xy = 0.0;
    for (const auto& [x, y] : points) {
        xx += (x - meanX) * (x - meanX);
        xy += (x - meanX) * (y - meanY);
    }
    const double step = xx > 0.0 ? xy / xx : 0.0;
    return {meanY - step * meanX, step};
}

}  // namespace

void PacketClock::add(double time, double duration, size_t samples,
                      std::optional<size_t> samplesSoFar) {
    size_t first = next_;
    if (samplesSoFar && *samplesSoFar >= next_ + samples) first = *samplesSoFar - samples;
    packets_.push_back({time, time + duration, samples, first});
    next_ = first + samples;
    samples_ += samples;
}

std::vector<double> PacketClock::spreadInPackets() const {
    std::vector<double> times;
    times.reserve(samples_);
    for (const Packet& packet : packets_) {
        const double step =
            (packet.end - packet.time) / std::max(1.0, static_cast<double>(packet.samples));
        for (size_t i = 0; i < packet.samples; ++i) {
            times.push_back(packet.time + step * static_cast<double>(i));
        }
    }
    return times;
}

std::vector<double> PacketClock::sampleTimes() const {
    constexpr double kLargestError = 0.1;
    if (packets_.empty()) return {};
    std::vector<std::pair<double, double>> points;
    for (const Packet& p : packets_) points.emplace_back(static_cast<double>(p.first), p.time);
    const Packet& last = packets_.back();
    // The last packet of a recording is often cut short, its duration is not.
    if (packets_.size() < 3) {
        points.emplace_back(static_cast<double>(last.first + last.samples), last.end);
    }
    const EvenTimes fit = fitEvenTimes(points);
    const bool isEven = std::all_of(points.begin(), points.end(), [&](const auto& point) {
        return std::abs(fit.start + fit.step * point.first - point.second) < kLargestError;
    });
    if (!isEven || fit.step <= 0.0) return spreadInPackets();
    std::vector<double> times;
    times.reserve(samples_);
    for (const Packet& packet : packets_) {
        for (size_t i = 0; i < packet.samples; ++i) {
            times.push_back(fit.start + fit.step * static_cast<double>(packet.first + i));
        }
    }
    return times;
}

}  // namespace framehold
