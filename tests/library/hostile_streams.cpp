// Sensor streams that no device should send: every frame still comes out, and no call takes much
// longer than others do. Work is counted in calls of trigonometric functions, most of which is
// interpolation between sensor samples; with --time it is measured as well.
#include "support/frame.h"
#include "support/kernel_levels.h"
#include "support/test_instance.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <functional>
#include <limits>
#include <string>
#include <vector>

#include <time.h>

using namespace zpr_test;

namespace {

long g_calls = 0;

}  // namespace

// The linker sends calls of f to __wrap_f, and calls of __real_f to f.
extern "C" {
double __real_sin(double);
double __real_cos(double);
double __real_acos(double);
void __real_sincos(double, double*, double*);
double __wrap_sin(double x) { return ++g_calls, __real_sin(x); }
double __wrap_cos(double x) { return ++g_calls, __real_cos(x); }
double __wrap_acos(double x) { return ++g_calls, __real_acos(x); }
void __wrap_sincos(double x, double* s, double* c) {
    ++g_calls;
    __real_sincos(x, s, c);
}
}

namespace {

/// Promise of the documents for frames of 1280 x 720: no call takes so many times as long as the
/// median call on a steady stream, both on one thread. Most of it is pictures so distorted that the
/// scalar kernel renders them.
constexpr double kLongest = 20.0;

/// The most trigonometric calls of a frame: two for each interpolation, of which there are 20 for
/// each point of a crop test. A frame has one test for each frame looked ahead to, and at most 34
/// more; drawing its mesh costs no more than one.
double mostWork(int height, int delay) {
    constexpr int kLookAhead = 60;
    const int points = 2 * (2 + (height - 1) / 128);
    return 2.0 * 20 * points * (kLookAhead + delay + 35);
}

constexpr int kFrames = 60;
constexpr double kNan = std::numeric_limits<double>::quiet_NaN();
constexpr double kInfinity = std::numeric_limits<double>::infinity();

using Feed = std::function<void(const ZPR_SensorData&)>;

/// Feeds what comes between two frames' times.
using Stream = std::function<void(double from, double to, const Feed& feed)>;

ZPR_SensorData turned(double time, double angle, double length = 1.0) {
    const double s = length * std::sin(angle), c = length * std::cos(angle);
    return sample(ZPR_SENSOR_ROTATION_1, time, 0.3 * s, s, 0.0, c);
}

double handAngle(double time) { return 0.03 * std::sin(9.0 * time) + 0.02 * std::sin(23.0 * time); }

/// Orientations at a rate, each made by `make` from its time and number.
template <class Make>
Stream atRate(double rate, Make make) {
    return [rate, make, number = 0](double, double to, const Feed& feed) mutable {
        for (; 0.9 + number / rate < to; ++number) feed(make(0.9 + number / rate, number));
    };
}

/// A hand's orientations, some of them replaced by `odd`.
Stream withOdd(ZPR_SensorData odd) {
    return atRate(200, [odd](double t, int i) {
        ZPR_SensorData s = odd;
        s.timestamp = t;
        return i % 7 == 3 ? s : turned(t, handAngle(t));
    });
}

/// A movement of random speed, size and sharpness, sampled at a random rate and handed over early.
Stream atRandom(uint32_t seed) {
    Random random(seed);
    const double rate = std::exp(random.uniform(1.0, 8.0));
    const double ahead = random.integer(0, 1) * random.uniform(0.0, 1.0);
    const double turn = random.integer(0, 1) * random.uniform(0.0, 8.0);
    const double size = std::exp(random.uniform(-5.0, 0.5));
    const double frequency = std::exp(random.uniform(0.0, 5.0));
    const bool isSharp = random.integer(0, 3) == 0;
    return atRate(rate, [=](double t, int) {
        const double wave = std::sin(frequency * t);
        return turned(t + ahead, turn * t + size * (isSharp ? std::copysign(1.0, wave) : wave));
    });
}

struct Case {
    std::string name;
    Stream stream;
};

std::vector<Case> makeCases() {
    constexpr uint32_t kRandomCases = 40;
    const auto hand = [](double t, int) { return turned(t, handAngle(t)); };
    std::vector<Case> cases = {
        {"steady", atRate(200, hand)},
        {"nothing", [](double, double, const Feed&) {}},
        {"gaps", atRate(200,
                        [](double t, int) {
                            return turned(std::fmod(t, 0.5) < 0.3 ? t : t - 0.2, handAngle(t));
                        })},
        {"steps", atRate(200, [](double t, int i) { return turned(t, 0.8 * (i / 25 % 2)); })},
        {"small steps", atRate(200, [](double t, int i) { return turned(t, 0.04 * (i / 9 % 2)); })},
        {"10 kHz", atRate(10000, hand)},
        {"1 Hz", atRate(1, hand)},
        {"constant stamps", atRate(200, [](double t, int) { return turned(2.0, handAngle(t)); })},
        {"reversed stamps",
         atRate(200, [](double t, int) { return turned(4.0 - t, handAngle(t)); })},
        {"repeated stamps",
         atRate(200, [](double t, int i) { return turned(0.9 + i / 4 * 0.02, handAngle(t)); })},
        {"shuffled stamps",
         atRate(200, [](double t, int i) { return turned(t + 0.05 * (i * 7 % 5), handAngle(t)); })},
        {"far future",
         atRate(200, [](double t, int i) { return turned(i < 60 ? t : t * 1e6, 0.1); })},
        {"two seconds ahead",
         atRate(200, [](double t, int) { return turned(t + 2.0, handAngle(t)); })},
        {"spinning", atRate(200, [](double t, int) { return turned(t, 20.0 * t); })},
        {"tumbling", atRate(200, [](double t, int) { return turned(t, 3.0 * t); })},
        {"jittery", atRate(200, [](double t, int i) { return turned(t, 0.05 * (i * 13 % 7)); })},
        {"length 1.5", atRate(200, [](double t, int) { return turned(t, handAngle(t), 1.5); })},
        {"length 0", withOdd(turned(0, 0, 0))},
        {"length 1e-300", withOdd(turned(0, 0.1, 1e-300))},
        {"length 1e-150", withOdd(turned(0, 0.1, 1e-150))},
        {"length 1e150", withOdd(turned(0, 0.1, 1e150))},
        {"length 1e300", withOdd(turned(0, 0.1, 1e300))},
        {"not a number", withOdd(turned(0, kNan))},
        {"infinite", withOdd(sample(ZPR_SENSOR_ROTATION_1, 0, kInfinity, 0, 0, 1))},
    };
    for (uint32_t seed = 1; seed <= kRandomCases; ++seed) {
        cases.push_back({"random " + std::to_string(seed), atRandom(seed)});
    }
    return cases;
}

/// Costs of the calls of a stream, in order.
struct Costs {
    std::vector<double> work;
    std::vector<double> seconds;
    double leastWritten = 1.0;  // share of the luma bytes of a frame
    bool isRendered = true;     // each frame

    /// Keeps the lesser times: the rest is disturbance.
    void mergeTimes(const Costs& other) {
        for (size_t i = 0; i < seconds.size(); ++i) {
            seconds[i] = std::min(seconds[i], other.seconds[i]);
        }
    }
};

double median(std::vector<double> values) {
    std::nth_element(values.begin(), values.begin() + kFrames / 2, values.end());
    return values[kFrames / 2];
}

double cpuSeconds() {
    timespec now{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
    return static_cast<double>(now.tv_sec) + 1e-9 * static_cast<double>(now.tv_nsec);
}

/// Runs one stream, with the first frames delayed. Renders on one thread, whose time is measured.
Costs run(Stream stream, int width, int height, int delay) {
    ZPR_Param param = makeParam(width, height);
    param.sensorMask = ZPR_SENSOR_BIT(ZPR_SENSOR_ROTATION_1);
    param.delayFrames = delay;
    const Instance instance(createWith(param, qlx::zpr_framehold::selectRowKernels(), 0));
    Frame input(width, height), output(width, height);
    input.fill(200);
    Costs costs;
    for (int i = 0; i < kFrames + delay; ++i) {
        const double time = 1.0 + i / 30.0;
        stream(time - 1 / 30.0, time + 0.04,
               [&](const ZPR_SensorData& s) { ZPR_SetSensorData(instance, &s); });
        output.fill(0);
        const long callsBefore = g_calls;
        const double start = cpuSeconds();
        const int code = ZPR_Stabilize(instance, time, &input.image, &output.image, nullptr);
        if (code == ZPR_FRAME_BUFFERED) continue;
        costs.seconds.push_back(cpuSeconds() - start);
        costs.work.push_back(static_cast<double>(g_calls - callsBefore));
        const auto pixels = ptrdiff_t{width} * height;
        const auto* luma = output.image.plane[0];
        const auto written = std::count(luma, luma + pixels, 200);
        costs.leastWritten = std::min(costs.leastWritten, double(written) / double(pixels));
        costs.isRendered = costs.isRendered && code == ZPR_OK && written > 0;
    }
    return costs;
}

/// Prints a table for frames of one size; with more than one round, of the times, too. Returns
/// whether all promises hold.
bool check(int width, int height, int delay, int rounds) {
    const bool isTimed = rounds > 1;
    std::printf("%dx%d, %d frames of delay: at most %.0f calls\n%-18s %10s %14s %10s %20s\n", width,
                height, delay, mostWork(height, delay), "stream", "written %", "work: median",
                "longest", isTimed ? "time: longest/usual" : "");
    double usualTime = 0.0;  // of the steady stream, the first
    bool isGood = true;
    for (const Case& c : makeCases()) {
        Costs costs = run(c.stream, width, height, delay);
        for (int round = 1; round < rounds; ++round) {
            costs.mergeTimes(run(c.stream, width, height, delay));
        }
        if (usualTime == 0.0) usualTime = median(costs.seconds);
        const double work = *std::max_element(costs.work.begin(), costs.work.end());
        const double time =
            *std::max_element(costs.seconds.begin(), costs.seconds.end()) / usualTime;
        const bool holds = costs.isRendered && work <= mostWork(height, delay) &&
                           (!isTimed || height < 720 || time <= kLongest);
        std::printf("%-18s %10.1f %14.0f %10.0f", c.name.c_str(), 100.0 * costs.leastWritten,
                    median(costs.work), work);
        if (isTimed) std::printf(" %20.1f", time);
        std::printf("%s\n", holds ? "" : "  FAILED");
        isGood = isGood && holds;
    }
    return isGood;
}

}  // namespace

int main(int argc, char** argv) {
    const bool isTimed = argc == 2 && std::string(argv[1]) == "--time";
    if (argc != (isTimed ? 2 : 1)) {
        std::puts("usage: hostile_streams [--time]");
        return 2;
    }
    bool isGood = true;
    for (const int delay : {0, 15}) {
        isGood = check(256, 144, delay, isTimed ? 5 : 1) && isGood;
        if (isTimed) isGood = check(1280, 720, delay, 5) && isGood;
    }
    return isGood ? 0 : 1;
}
