#pragma once

#include <cstddef>
#include <optional>
#include <vector>

namespace framehold {

/// Assigns times to samples that come many to a packet, from the packets' times. The sensor's clock
/// is taken to run evenly: a packet more or less full says nothing of the sample rate.
class PacketClock {
public:
    /// time, duration: seconds. samplesSoFar: with those of this packet and those that were lost, if
    /// the sender counts them; it is not used once it runs backwards.
    void add(double time, double duration, size_t samples, std::optional<size_t> samplesSoFar);

    /// Times of all samples in order, in seconds: on the line of least squares through the packets'
    /// times over the number of samples; if a packet is further than 0.1 s from it, spread evenly
    /// over each packet.
    std::vector<double> sampleTimes() const;

private:
    struct Packet {
        double time;
        double end;
        size_t samples;
        size_t first;  // number of the first sample
    };

    std::vector<double> spreadInPackets() const;

    std::vector<Packet> packets_;
    size_t next_ = 0;     // number of the sample after the last one
    size_t samples_ = 0;  // that have come
};

}  // namespace framehold
