// Motion logs of 10 MB, each of a kind that makes a careless reader slow or greedy. Runs the program
// over them and holds it to 5 s of processor time and to 10 times the log's size in memory beyond
// what it needs for a small log; to 20 times for telemetry in a video.
// Usage: hostile_logs FRAMEHOLD [KIND...]; hostile_logs --write KIND FILE
#include "support/archives.h"
#include "support/temporary_folder.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <functional>
#include <iterator>
#include <string>
#include <vector>

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

using zpr_test::TemporaryFolder;

constexpr size_t kSize = 10'000'000;  // bytes
constexpr double kMostSeconds = 5.0;
constexpr double kMostMemory = 10.0;  // times kSize

const std::string kHead = "CAMERA IMU LOG\nversion,1.3\n";
const std::string kTable = "t,gx,gy,gz\n";

/// `start`, then what `line` gives for 0, 1, 2, ... up to the size, then `end`.
std::string repeated(std::string start, const std::function<std::string(size_t)>& line,
                     const std::string& end = "") {
    start.reserve(kSize + 100'000);
    for (size_t i = 0; start.size() + end.size() < kSize; ++i) start += line(i);
    return start + end;
}

std::string repeated(const std::string& start, const std::string& text,
                     const std::string& end = "") {
    return repeated(
        start, [&](size_t) { return text; }, end);
}

std::string row(double time) {
    char text[64];
    std::snprintf(text, sizeof text, "%.17g,1,2,3\n", time);
    return text;
}

/// A zip archive of files with these contents, named 0.csv, 1.csv, ...
std::string archiveOf(const std::vector<std::string>& contents) {
    const TemporaryFolder folder;
    std::vector<std::pair<std::string, std::string>> files;
    for (const std::string& content : contents) {
        files.emplace_back(std::to_string(files.size()) + ".csv", content);
    }
    zpr_test::writeArchive(folder.path("hostile.zip"), files);
    std::ifstream file(folder.path("hostile.zip"), std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

std::string bigEndian(const std::vector<size_t>& numbers, int size = 4) {
    std::string bytes;
    for (const size_t number : numbers) {
        for (int shift = 8 * (size - 1); shift >= 0; shift -= 8) {
            bytes += static_cast<char>(number >> shift & 0xFF);
        }
    }
    return bytes;
}

std::string box(const std::string& type, const std::string& content) {
    return bigEndian({content.size() + 8}) + type + content;
}

/// A MOV file with a telemetry track of that type, whose packets are all the same.
std::string telemetryOf(const std::string& type, const std::string& packet) {
    const size_t count = kSize / packet.size();
    const auto full = [](const char* name, const std::string& content) {
        return box(name, std::string(4, '\0') + content);
    };
    const std::string zeros(64, '\0');
    const std::string kind = box("ftyp", "qt  " + zeros.substr(0, 4) + "qt  ");
    const std::string entry = box(type, bigEndian({0, 1, 0}));
    const std::string table = full("stsd", bigEndian({1}) + entry) +
                              full("stts", bigEndian({1, count, 1})) +
                              full("stsc", bigEndian({1, 1, count, 1})) +
                              full("stsz", bigEndian({packet.size(), count})) +
                              full("stco", bigEndian({1, kind.size() + 8}));
    const std::string media = full("mdhd", bigEndian({0, 0, 1000, count, 0})) +
                              full("hdlr", zeros.substr(0, 4) + "meta" + zeros.substr(0, 13)) +
                              box("minf", full("nmhd", "") + box("stbl", table));
    const std::string track =
        box("trak", full("tkhd", bigEndian({0, 0, 1, 0, count}) + zeros.substr(0, 60)) +
                        box("mdia", media));
    const std::string head = full("mvhd", bigEndian({0, 0, 1000, count}) + zeros + bigEndian({2}));
    return kind + box("mdat", repeated("", packet).substr(0, count * packet.size())) +
           box("moov", head + track);
}

/// A GPMF record, of elements of that size.
std::string gpmf(const std::string& key, size_t size, const std::string& data) {
    std::string record = key + (size == 1 ? '\0' : 's') + bigEndian({size}, 1);
    // Of what holds records, four bytes are one element.
    if (size == 1) record.back() = 4;
    record += bigEndian({data.size() / (size == 1 ? 4 : size)}, 2) + data;
    return record + std::string((4 - data.size() % 4) % 4, '\0');
}

struct Kind {
    const char* name;
    std::function<std::string()> content;
    double mostMemory = kMostMemory;
};

// A reading takes as little as 6 bytes.
constexpr double kMostMemoryOfTelemetry = 20.0;

const Kind kKinds[] = {
    {"one_line", [] { return repeated("", "a"); }},
    {"one_number", [] { return repeated(kHead + kTable, "1"); }},
    {"header_lines",
     [] {
         return repeated(
             kHead, [](size_t i) { return "k" + std::to_string(i) + ",v\n"; },
             kTable + row(0) + row(1));
     }},
    {"header_known_lines", [] { return repeated(kHead, "id,v\n", kTable + row(0) + row(1)); }},
    {"header_value", [] { return repeated(kHead + "note,", "v", "\n" + kTable + row(0)); }},
    {"header_versions", [] { return repeated(kHead, "version,9\n", kTable + row(0)); }},
    {"header_only", [] { return repeated(kHead, "k,v\n"); }},
    {"header_commas", [] { return repeated(kHead, ",", "\n" + kTable + row(0)); }},
    {"column_commas", [] { return repeated("time", ",", "\n"); }},
    {"column_names", [] { return repeated("time,gx,gy,gz", ",gx", "\n1,2,3\n"); }},
    {"column_table", [] { return repeated(kHead + "t,gx,gy,gz", ",x", "\n" + row(0)); }},
    {"row_commas", [] { return repeated(kHead + kTable + "1,2,3,4", ",", "\n"); }},
    {"short_rows", [] { return repeated(kHead + kTable, "0,0,0,0\n"); }},
    {"short_quaternions", [] { return repeated("t,qx,qy,qz\n", "0,0,0,0\n1,0,0,1\n"); }},
    {"rising", [] { return repeated(kHead + kTable, [](size_t i) { return row(double(i)); }); }},
    {"equal", [] { return repeated(kHead + kTable, "7,1,2,3\n"); }},
    {"alternating", [] { return repeated(kHead + kTable, "0,1,2,3\n1,1,2,3\n"); }},
    {"falling",
     [] { return repeated(kHead + kTable, [](size_t i) { return row(1e7 - double(i)); }); }},
    {"microseconds",
     [] {
         return repeated(kHead + "tscale,1e-6\n" + kTable,
                         [](size_t i) { return std::to_string(i) + ",0,0,1\n"; });
     }},
    {"crammed_first",
     [] {
         return repeated(
             kHead + kTable, [](size_t i) { return row(1e-12 * double(i)); }, row(30));
     }},
    {"crammed_last",
     [] {
         return repeated(kHead + kTable + row(-30),
                         [](size_t i) { return row(2 + 1e-12 * double(i)); });
     }},
    {"crammed_middle",
     [] {
         return repeated(
             kHead + kTable + row(-30), [](size_t i) { return row(1 + 1e-12 * double(i)); },
             row(30));
     }},
    {"crammed_twice",
     [] {
         return repeated(
             kHead + kTable,
             [](size_t i) { return row(i < 300'000 ? 1e-12 * double(i) : 1 + 1e-12 * double(i)); },
             row(30));
     }},
    {"gaps",
     [] {
         return repeated(kHead + kTable,
                         [](size_t i) { return row(double(i) * (i % 2 == 0 ? 1e20 : 1)); });
     }},
    {"not_a_number", [] { return repeated(kHead + kTable, row(1), "nan,1,2,3\n"); }},
    {"blanks",
     [] { return repeated(kHead + kTable, "1," + std::string(10'000, ' ') + "2,3,4\n"); }},
    {"blank_lines", [] { return repeated(kHead + kTable, "\n", row(0) + row(1)); }},
    {"blank_first_lines", [] { return repeated("", " \n", kHead + kTable + row(0)); }},
    {"long_numbers",
     [] { return repeated(kHead + kTable, "0." + std::string(100'000, '1') + ",1,2,3\n"); }},
    {"gravity_only", [] { return repeated("t,ax,ay,az\n", "0,0,0,1\n"); }},
    {"camm_rates",
     [] { return telemetryOf("camm", std::string("\0\0\x02\0", 4) + std::string(12, '\1')); }},
    {"camm_exposures",
     [] { return telemetryOf("camm", std::string("\0\0\x01\0", 4) + std::string(8, '\1')); }},
    {"gpmf_rates",
     [] {
         const std::string samples = gpmf("GYRO", 6, std::string(60'000, '\1'));
         return telemetryOf("gpmd", gpmf("DEVC", 1, gpmf("STRM", 1, samples)));
     },
     kMostMemoryOfTelemetry},
    {"gpmf_orientations",
     [] {
         const std::string samples =
             gpmf("SCAL", 2, "\x01\x01") +
             gpmf("CORI", 8, repeated("", "\x01\x01" + std::string(6, '\0')).substr(0, 80'000));
         return telemetryOf("gpmd", gpmf("DEVC", 1, gpmf("STRM", 1, samples)));
     },
     kMostMemoryOfTelemetry},
    {"messages",
     [] {
         const std::string vector = "\x0C" + std::string(12, '\0');
         return repeated("", "\x22\x1E\x08\x01\x12" + vector + "\x22" + vector);
     }},
    {"message_frames",
     [] { return repeated("", "\x2A\x26\x08\x01\x52\x02\x08\x01" + std::string(32, '\x18')); }},
    {"zip_log", [] { return archiveOf({repeated(kHead + kTable, "0,0,0,0\n")}); }},
    {"zip_bomb", [] { return archiveOf({std::string(8 * kSize, '0')}); }},
    {"zip_files", [] { return archiveOf(std::vector<std::string>(kSize / 100)); }},
    {"zip_logs",
     [] { return archiveOf(std::vector<std::string>(10, repeated(kTable, "0,0,0,0\n"))); }},
};

struct Usage {
    int code;  // of the exit; -1: ended by a signal
    double seconds;
    double megabytes;
};

Usage run(const std::vector<std::string>& arguments) {
    std::fflush(stdout);
    const pid_t child = fork();
    if (child == 0) {
        const int nowhere = open("/dev/null", O_RDWR);
        for (const int stream : {0, 1, 2}) dup2(nowhere, stream);
        // What hangs is ended long after it has failed.
        const rlimit limit{60, 60};
        setrlimit(RLIMIT_CPU, &limit);
        std::vector<char*> argv;
        for (const std::string& a : arguments) argv.push_back(const_cast<char*>(a.c_str()));
        argv.push_back(nullptr);
        execv(argv[0], argv.data());
        _exit(127);
    }
    int status = 0;
    rusage usage{};
    wait4(child, &status, 0, &usage);
    const auto seconds = [](const timeval& t) {
        return static_cast<double>(t.tv_sec) + 1e-6 * static_cast<double>(t.tv_usec);
    };
    return {WIFEXITED(status) ? WEXITSTATUS(status) : -1,
            seconds(usage.ru_utime) + seconds(usage.ru_stime),
            1e-6 * 1024.0 * static_cast<double>(usage.ru_maxrss)};
}

class Trial {
public:
    explicit Trial(std::string program) : program_(std::move(program)) {
        run({program_, "simulate", folder_.path("clip"), "-q", "--size", "320x180", "--duration",
             "2.5"});
        // Apart from the clip's own log, which would be found.
        video_ = folder_.path("video.mp4");
        std::filesystem::rename(folder_.path("clip") + "/clip.mp4", video_);
        folder_.write("small.gcsv", kHead + kTable + row(0) + row(1));
        std::printf("%-20s %32s   %32s\n", "", "inspect LOG", "inspect VIDEO --motion LOG");
        small_ = {runAlone("small.gcsv"), runWithVideo("small.gcsv")};
        print("(a small log)", small_);
    }

    /// Returns true if the program kept to its limits.
    bool passes(const Kind& kind) {
        folder_.write("hostile.csv", kind.content());
        const Both used = {runAlone("hostile.csv"), runWithVideo("hostile.csv")};
        print(kind.name, used);
        std::filesystem::remove(folder_.path("hostile.csv"));
        return keeps(used.alone, small_.alone, kind.mostMemory) &&
               keeps(used.withVideo, small_.withVideo, kind.mostMemory);
    }

private:
    struct Both {
        Usage alone;
        Usage withVideo;
    };

    Usage runAlone(const char* log) { return run({program_, "inspect", folder_.path(log)}); }
    Usage runWithVideo(const char* log) {
        return run({program_, "inspect", "-q", video_, "--motion", folder_.path(log)});
    }

    static bool keeps(const Usage& used, const Usage& small, double mostMemory) {
        return used.code >= 0 && used.seconds <= kMostSeconds &&
               used.megabytes - small.megabytes <= mostMemory * 1e-6 * kSize;
    }

    static void print(const char* name, const Both& used) {
        std::printf("%-20s", name);
        for (const Usage& u : {used.alone, used.withVideo}) {
            std::printf("   exit %2d, %7.2f s, %7.1f MB", u.code, u.seconds, u.megabytes);
        }
        std::printf("\n");
    }

    TemporaryFolder folder_;
    std::string program_;
    std::string video_;
    Both small_{};
};

int write(const std::string& name, const char* file) {
    for (const Kind& kind : kKinds) {
        if (name != kind.name) continue;
        const std::string content = kind.content();
        std::FILE* out = std::fopen(file, "wb");
        if (out == nullptr) return 1;
        const size_t written = std::fwrite(content.data(), 1, content.size(), out);
        return std::fclose(out) == 0 && written == content.size() ? 0 : 1;
    }
    return 2;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc == 4 && std::strcmp(argv[1], "--write") == 0) return write(argv[2], argv[3]);
    if (argc < 2) return 2;
    const std::vector<std::string> wanted(argv + 2, argv + argc);
    Trial trial(argv[1]);
    int failures = 0;
    for (const Kind& kind : kKinds) {
        const bool isWanted =
            wanted.empty() || std::find(wanted.begin(), wanted.end(), kind.name) != wanted.end();
        if (!isWanted || trial.passes(kind)) continue;
        std::printf("FAILED: %s\n", kind.name);
        ++failures;
    }
    return failures == 0 ? 0 : 1;
}
