#pragma once

#include "simulation/camera.h"
#include "simulation/camera_motion.h"
#include "support/random.h"
#include "zpr_framehold.h"

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <thread>
#include <vector>

#include <gst/gst.h>
#include <gst/video/video.h>

namespace zpr_test {

using LiveClock = std::chrono::steady_clock;

inline LiveClock::duration seconds(double s) {
    return std::chrono::duration_cast<LiveClock::duration>(std::chrono::duration<double>(s));
}

/// A simulated phone: its motion, and pictures of two seconds of it that come again and again.
class Phone {
public:
    Phone(int width, int height) {
        camera_.width = width;
        camera_.height = height;
        camera_.focal = 0.9 * width;
        camera_.readout = 0.02;
        const framehold::simulation::Town town;
        for (int n = 0; n < kPictures; ++n) {
            pictures_.push_back(renderFrame(town, camera_, path_, n / kFrameRate));
        }
    }

    static constexpr double kFrameRate = 30.0;
    static constexpr double kSampleRate = 400.0;

    const framehold::simulation::CameraModel& camera() const { return camera_; }

    /// Buffer of the top left part of a frame; it shares the picture.
    GstBuffer* frame(int64_t number, int width, int height) const {
        const auto& picture = pictures_[static_cast<size_t>(number % kPictures)];
        GstBuffer* buffer = gst_buffer_new();
        gsize offset[GST_VIDEO_MAX_PLANES] = {0, picture.luma.size()};
        gint stride[GST_VIDEO_MAX_PLANES] = {picture.width, picture.width};
        for (const std::vector<uint8_t>* plane : {&picture.luma, &picture.chroma}) {
            gst_buffer_append_memory(
                buffer, gst_memory_new_wrapped(GST_MEMORY_FLAG_READONLY,
                                               const_cast<uint8_t*>(plane->data()), plane->size(),
                                               0, plane->size(), nullptr, nullptr));
        }
        gst_buffer_add_video_meta_full(buffer, GST_VIDEO_FRAME_FLAG_NONE, GST_VIDEO_FORMAT_NV12,
                                       static_cast<guint>(width), static_cast<guint>(height), 2,
                                       offset, stride);
        return buffer;
    }

    /// A rate and, every eighth time, gravity before it.
    void samples(int64_t number, std::vector<ZPR_SensorData>& to) const {
        const double t = static_cast<double>(number) / kSampleRate;
        const Eigen::Quaterniond now = path_.at(t);
        if (number % 8 == 0) {
            const Eigen::Vector3d g = now.conjugate() * Eigen::Vector3d(0.0, 0.0, 9.81);
            to.push_back({ZPR_SENSOR_GRAVITY_1, t, {g.x(), g.y(), g.z(), 0.0}});
        }
        const Eigen::AngleAxisd turn(path_.at(t - 1.0 / kSampleRate).conjugate() * now);
        const Eigen::Vector3d rate = turn.angle() * kSampleRate * turn.axis();
        to.push_back({ZPR_SENSOR_RATE_1, t, {rate.x(), rate.y(), rate.z(), 0.0}});
    }

private:
    static constexpr int kPictures = 60;

    framehold::simulation::CameraModel camera_;
    framehold::simulation::CameraPath path_{framehold::simulation::PathSettings()};
    std::vector<framehold::simulation::Picture> pictures_;
};

/// An appsrc, and a thread that gives it buffers when their time has come.
class LiveSource {
public:
    /// Makes the buffer of a number. The time is that at which it is due, in seconds of the stream.
    struct Due {
        GstBuffer* buffer;
        double time;
    };
    using Make = std::function<Due(int64_t number)>;

    /// appsrc: borrowed. perSecond: buffers. pace: seconds of the stream in a real one.
    LiveSource(GstElement* appsrc, double perSecond, double pace, Make make)
        : appsrc_(appsrc), perSecond_(perSecond), pace_(pace), make_(std::move(make)) {
        g_signal_connect(appsrc, "seek-data", G_CALLBACK(seekData), this);
    }
    ~LiveSource() { stop(); }
    LiveSource(const LiveSource&) = delete;
    LiveSource& operator=(const LiveSource&) = delete;

    void start(LiveClock::time_point epoch) {
        epoch_ = epoch;
        thread_ = std::thread([this] { run(); });
    }
    void stop() {
        {
            const std::lock_guard<std::mutex> lock(mutex_);
            isOver_ = true;
        }
        changed_.notify_all();
        if (thread_.joinable()) thread_.join();
    }
    int64_t pushed() const { return pushed_; }

private:
    static gboolean seekData(GstElement*, guint64 offset, gpointer data) {
        auto& self = *static_cast<LiveSource*>(data);
        const std::lock_guard<std::mutex> lock(self.mutex_);
        self.base_ = static_cast<double>(offset) / GST_SECOND;
        self.epoch_ = LiveClock::now();
        self.next_ = static_cast<int64_t>(self.base_ * self.perSecond_);
        ++self.seeks_;
        self.changed_.notify_all();
        return TRUE;
    }

    void run() {
        std::unique_lock<std::mutex> lock(mutex_);
        while (!isOver_) {
            const int seeks = seeks_;
            const int64_t number = next_++;
            const Due due = make_(number);
            const LiveClock::time_point when = epoch_ + seconds((due.time - base_) / pace_);
            changed_.wait_until(lock, when, [&] { return isOver_ || seeks_ != seeks; });
            if (!isOver_ && seeks_ == seeks) {
                lock.unlock();
                GstFlowReturn flow = GST_FLOW_OK;
                g_signal_emit_by_name(appsrc_, "push-buffer", due.buffer, &flow);
                if (flow == GST_FLOW_OK) ++pushed_;
                lock.lock();
            }
            gst_buffer_unref(due.buffer);
        }
    }

    GstElement* appsrc_;
    double perSecond_;
    double pace_;
    Make make_;
    std::mutex mutex_;
    std::condition_variable changed_;
    double base_ = 0.0;  // place in the stream at epoch_
    LiveClock::time_point epoch_;
    int64_t next_ = 0;
    int seeks_ = 0;
    bool isOver_ = false;
    std::atomic<int64_t> pushed_{0};
    std::thread thread_;
};

}  // namespace zpr_test
