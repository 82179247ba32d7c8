// The element framehold-iiosrc, on a made-up sysfs tree with pipes as character devices.
#include "gstreamer/iio_device.h"
#include "gstreamer/iio_source.h"
#include "gstreamer/motion_record.h"
#include "support/temporary_folder.h"

#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include <fcntl.h>
#include <gst/gst.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

namespace framehold {
namespace {

namespace fs = std::filesystem;
using zpr_test::TemporaryFolder;

struct ElementCase {
    const char* text;
    std::vector<uint8_t> bytes;
    int64_t number;
};

TEST(IioDevice, ReadsNumbersOfAllLayouts) {
    const ElementCase cases[] = {
        {"le:s16/16>>0", {0x01, 0x80}, -32767},
        {"be:s16/16>>0", {0x80, 0x01}, -32767},
        {"le:s12/16>>4", {0xf0, 0xff}, -1},
        {"be:u12/16>>4", {0xff, 0xf7}, 4095},
        {"le:s16/16", {0x00, 0x00}, 0},  // not known: no shift
        {"be:s24/32>>8", {0xff, 0xff, 0xfe, 0x77}, -2},
        {"le:s8/8>>0", {0x80}, -128},
        {"le:s64/64>>0", {0xff, 0xff, 0xff, 0xff, 0xff, 0xff, 0xff, 0x7f}, INT64_MAX},
        {"le:u64/64>>0", {2, 0, 0, 0, 0, 0, 0, 0}, 2},
        {"le:s16/16X2>>0", {}, 0},
        {"le:s16/24>>0", {}, 0},
        {"le:s16/16>>4", {}, 0},
        {"xe:s16/16>>0", {}, 0},
        {"le:s0/16>>0", {}, 0},
        {"le:s16/16>>0 ", {}, 0},
    };
    for (const auto& [text, bytes, number] : cases) {
        const auto element = parseIioElement(text);
        const bool isKnown = !bytes.empty() && std::string(text).find(">>") != std::string::npos;
        ASSERT_EQ(element.has_value(), isKnown) << text;
        if (!isKnown) continue;
        ASSERT_EQ(static_cast<size_t>(element->storageBytes), bytes.size()) << text;
        EXPECT_EQ(element->read(bytes.data()), number) << text;
    }
    EXPECT_EQ(parseIioMatrix("0, 1, 0; -1,0,0; 0, 0, 1"), (IioMatrix{0, 1, 0, -1, 0, 0, 0, 0, 1}));
    for (const char* bad : {"", "1, 0, 0", "1,0,0;0,1,0;0,0", "1,0,0;0,1,0;0,0,x"}) {
        EXPECT_EQ(parseIioMatrix(bad), std::nullopt) << bad;
    }
}

/// Sysfs tree and folder of character devices.
class IioSource : public testing::Test {
protected:
    static void SetUpTestSuite() { gst_init(nullptr, nullptr); }

    void SetUp() override { fs::create_directory(folder_.path("dev")); }

    void write(const std::string& file, const std::string& text) const {
        fs::create_directories(fs::path(folder_.path(file)).parent_path());
        std::ofstream(folder_.path(file)) << text << "\n";
    }

    std::string read(const std::string& file) const {
        std::ifstream stream(folder_.path(file), std::ios::binary);
        std::ostringstream text;
        text << stream.rdbuf();
        return text.str();
    }

    /// Six axes, a temperature that is on, and times; 32 bytes a record. The gyroscope is turned.
    void makeSixAxes() const {
        const std::string device = "sys/iio:device3/";
        write(device + "name", "six");
        int index = 0;
        for (const std::string kind : {"accel", "anglvel"}) {
            const bool isAccel = kind == "accel";
            for (const char axis : std::string("xyz")) {
                const std::string channel = "in_" + kind + "_" + axis;
                write(device + channel + "_raw", std::to_string(index));
                write(device + "scan_elements/" + channel + "_en", "0");
                write(device + "scan_elements/" + channel + "_index", std::to_string(index++));
                write(device + "scan_elements/" + channel + "_type",
                      isAccel ? "be:s16/16>>0" : "le:s12/16>>4");
            }
        }
        write(device + "in_accel_scale", "0.5");
        write(device + "in_anglvel_scale", "0.001");
        write(device + "in_anglvel_z_offset", "-10");
        write(device + "in_anglvel_mount_matrix", "0, 1, 0; -1, 0, 0; 0, 0, 1");
        write(device + "sampling_frequency", "100");
        for (const std::string kind : {"in_temp", "in_timestamp"}) {
            write(device + "scan_elements/" + kind + "_en", kind == "in_temp" ? "1" : "0");
            write(device + "scan_elements/" + kind + "_index", std::to_string(index++));
            write(device + "scan_elements/" + kind + "_type",
                  kind == "in_temp" ? "le:u8/8>>0" : "le:s64/64>>0");
        }
        write(device + "buffer/enable", "0");
        write(device + "buffer/length", "2");
        ASSERT_EQ(mkfifo(folder_.path("dev/iio:device3").c_str(), 0600), 0);
    }

    /// `framehold-iiosrc OPTIONS ! filesink`.
    GstElement* makePipeline(const std::string& options) const {
        GstElement* source =
            GST_ELEMENT(g_object_new(iioSourceType(), "sysfs-root", folder_.path("sys").c_str(),
                                     "device-folder", folder_.path("dev").c_str(), nullptr));
        std::istringstream words(options);
        for (std::string word; words >> word;) {
            const size_t equals = word.find('=');
            gst_util_set_object_arg(G_OBJECT(source), word.substr(0, equals).c_str(),
                                    word.substr(equals + 1).c_str());
        }
        GstElement* sink = gst_element_factory_make("filesink", nullptr);
        g_object_set(sink, "location", folder_.path("records").c_str(), nullptr);
        GstElement* pipeline = gst_pipeline_new(nullptr);
        gst_bin_add_many(GST_BIN(pipeline), source, sink, nullptr);
        EXPECT_TRUE(gst_element_link(source, sink));
        return pipeline;
    }

    /// Starts a pipeline, has `feed` give data, waits for the end, and says the first error or
    /// warning; "" without one.
    template <class Feed>
    std::string run(const std::string& options, Feed feed) {
        GstElement* pipeline = makePipeline(options);
        GstBus* bus = gst_element_get_bus(pipeline);
        std::string said;
        bool goesOn =
            gst_element_set_state(pipeline, GST_STATE_PLAYING) != GST_STATE_CHANGE_FAILURE;
        if (goesOn) feed();
        while (GstMessage* message = gst_bus_timed_pop_filtered(
                   bus, goesOn ? 20 * GST_SECOND : 0,
                   static_cast<GstMessageType>(GST_MESSAGE_EOS | GST_MESSAGE_ERROR |
                                               GST_MESSAGE_WARNING))) {
            GError* error = nullptr;
            gchar* debug = nullptr;
            if (GST_MESSAGE_TYPE(message) == GST_MESSAGE_ERROR) {
                gst_message_parse_error(message, &error, &debug);
            } else if (GST_MESSAGE_TYPE(message) == GST_MESSAGE_WARNING) {
                gst_message_parse_warning(message, &error, &debug);
            }
            if (error != nullptr && said.empty()) said = std::string(error->message) + "|" + debug;
            if (GST_MESSAGE_TYPE(message) != GST_MESSAGE_WARNING) goesOn = false;
            g_clear_error(&error);
            g_free(debug);
            gst_message_unref(message);
            if (!goesOn) break;
        }
        EXPECT_FALSE(goesOn) << "no end: " << options;
        gst_element_set_state(pipeline, GST_STATE_NULL);
        gst_object_unref(bus);
        gst_object_unref(pipeline);
        return said;
    }

    std::vector<ZPR_SensorData> records() const {
        const std::string bytes = read("records");
        EXPECT_EQ(bytes.size() % kMotionRecordSize, 0U);
        std::vector<ZPR_SensorData> samples;
        for (size_t at = 0; at < bytes.size(); at += kMotionRecordSize) {
            samples.push_back(readMotionRecord(reinterpret_cast<const uint8_t*>(&bytes[at])));
        }
        return samples;
    }

    TemporaryFolder folder_;
};

void expectSample(const ZPR_SensorData& sample, int32_t type, double time, double x, double y,
                  double z) {
    EXPECT_EQ(sample.type, type);
    EXPECT_DOUBLE_EQ(sample.timestamp, time);
    EXPECT_DOUBLE_EQ(sample.value[0], x);
    EXPECT_DOUBLE_EQ(sample.value[1], y);
    EXPECT_DOUBLE_EQ(sample.value[2], z);
}

TEST_F(IioSource, GivesWhatTheBufferHolds) {
    makeSixAxes();
    const auto feed = [this] {
        // Acceleration 2, -4, 256; rates 1, -1, 20 in the upper 12 bits; temperature; padding; times.
        std::string bytes("\x00\x02\xff\xfc\x01\x00\x1f\x00\xf0\xff\x40\x01\x55\xaa\xaa\xaa", 16);
        bytes += std::string("\x00\xca\x9a\x3b\x00\x00\x00\x00", 8);
        const std::string twice = bytes + bytes;
        const int fifo = open(folder_.path("dev/iio:device3").c_str(), O_WRONLY);
        ASSERT_GE(fifo, 0);
        EXPECT_EQ(::write(fifo, twice.data(), 30), 30);
        EXPECT_EQ(::write(fifo, twice.data() + 30, 18), 18);
        EXPECT_EQ(read("sys/iio:device3/buffer/enable"), "1");
        close(fifo);
    };
    EXPECT_EQ(run("mode=buffer rate=400 buffer-length=64", feed), "");
    const auto samples = records();
    ASSERT_EQ(samples.size(), 4U);
    for (size_t i = 0; i < samples.size(); i += 2) {
        expectSample(samples[i], ZPR_SENSOR_GRAVITY_1, 1.0, 1.0, -2.0, 128.0);
        expectSample(samples[i + 1], ZPR_SENSOR_RATE_1, 1.0, -0.001, -0.001, (20.0 - 10.0) * 0.001);
    }
    for (const auto& [file, text] :
         std::vector<std::pair<std::string, std::string>>{{"buffer/enable", "0"},
                                                          {"buffer/length", "64"},
                                                          {"sampling_frequency", "400"},
                                                          {"scan_elements/in_timestamp_en", "1"},
                                                          {"scan_elements/in_anglvel_y_en", "1"}}) {
        EXPECT_EQ(read("sys/iio:device3/" + file), text) << file;
    }
}

TEST_F(IioSource, PollsWhereThereIsNoBuffer) {
    makeSixAxes();
    fs::remove_all(folder_.path("sys/iio:device3/buffer"));
    const std::string said = run("rate=500 num-buffers=3", [] {});
    EXPECT_NE(said.find("six is polled, 500 times"), std::string::npos) << said;
    EXPECT_NE(said.find("buffer/enable: cannot be opened"), std::string::npos) << said;
    const auto samples = records();
    ASSERT_EQ(samples.size(), 6U);
    expectSample(samples[0], ZPR_SENSOR_GRAVITY_1, samples[1].timestamp, 0.0, 0.5, 1.0);
    expectSample(samples[1], ZPR_SENSOR_RATE_1, samples[0].timestamp, 0.004, -0.003, -0.005);
    EXPECT_GT(samples[4].timestamp, samples[0].timestamp);
}

constexpr const char* kIgnored = "/dev/null";

struct Fault {
    const char* file;  // in the tree
    const char* text;  // nullptr: it is removed; kIgnored: so is what is written to it
    const char* options;
    const char* said;
};

TEST_F(IioSource, NamesTheFileThatIsWrong) {
    const Fault faults[] = {
        {"sys/iio:device3/in_accel_scale", "fast", "", "in_accel_scale: 'fast' is no number"},
        {"sys/iio:device3/in_anglvel_mount_matrix", "1", "",
         "mount_matrix: '1' is no mount matrix"},
        {"sys/iio:device3/scan_elements/in_accel_y_type", "le:s16", "mode=buffer",
         "in_accel_y_type: 'le:s16' is not known"},
        {"sys/iio:device3/scan_elements/in_temp_index", nullptr, "mode=buffer",
         "in_temp_index: '' is no number"},
        {"sys/iio:device3/scan_elements/in_accel_y_en", kIgnored, "mode=buffer",
         "in_accel_y_en: cannot be set to 1"},
        {"dev/iio:device3", nullptr, "mode=buffer",
         "dev/iio:device3: cannot be opened: No such file"},
        {"sys/iio:device3/sampling_frequency", nullptr, "rate=10",
         "sampling_frequency: is missing"},
        {"sys/iio:device3/in_anglvel_x_raw", "", "mode=poll", "in_anglvel_x_raw: '' is no number"},
        {"sys/iio:device3/name", "six", "devices=seven", "no accelerometer called seven"},
        {"sys", nullptr, "", "sys: cannot be read: No such file or directory"},
    };
    for (const Fault& fault : faults) {
        fs::remove_all(folder_.path("sys"));
        fs::remove_all(folder_.path("dev/iio:device3"));
        makeSixAxes();
        const bool isIgnored = fault.text == kIgnored;
        if (fault.text == nullptr || isIgnored) fs::remove_all(folder_.path(fault.file));
        if (isIgnored) fs::create_symlink(kIgnored, folder_.path(fault.file));
        if (fault.text != nullptr && !isIgnored) write(fault.file, fault.text);
        const std::string said = run(fault.options, [] {});
        EXPECT_NE(said.find(fault.said), std::string::npos) << fault.said << ": " << said;
    }
}

TEST_F(IioSource, StopsWhileItWaits) {
    makeSixAxes();
    // Nothing comes, and it does not end either.
    const int fifo = open(folder_.path("dev/iio:device3").c_str(), O_RDWR);
    ASSERT_GE(fifo, 0);
    GstElement* pipeline = makePipeline("mode=buffer");
    for (int i = 0; i < 20; ++i) {
        EXPECT_NE(gst_element_set_state(pipeline, GST_STATE_PLAYING), GST_STATE_CHANGE_FAILURE);
        EXPECT_EQ(read("sys/iio:device3/buffer/enable"), "1");
        EXPECT_EQ(gst_element_set_state(pipeline, GST_STATE_NULL), GST_STATE_CHANGE_SUCCESS);
        EXPECT_EQ(read("sys/iio:device3/buffer/enable"), "0");
    }
    gst_object_unref(pipeline);
    close(fifo);
}

}  // namespace
}  // namespace framehold
