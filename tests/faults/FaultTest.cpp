// Faults from outside: a full disk while recording or saving images, settings or calibration files,
// a recording process killed in the middle of a frame, and a damaged radiometric calibration.
//
// A full disk is simulated with a file-size limit in a forked child (SIGXFSZ ignored, so writes
// past the limit fail with EFBIG like on a full file system); the child reports through its exit
// status and the parent checks the files it left.

#include "nordalib/core/cmd/CommandProxy.h"
#include "nordalib/core/keys/DefaultParameters.h"
#include "nordalib/vision/imageio/ImageDecoderPxM.h"
#include "nordalib/vision/imageio/PxmImage.h"
#include "nordalib/vision/imgproc/DistortionTable.h"
#include "nordalib/vision/rix/Rix.h"
#include "nordalib/vision/streaming/ImageWriteElement.h"
#include "nordalib/vision/streaming/PxmRecorderElement.h"
#include "nordalib/vision/streaming/RadiometryElement.h"
#ifdef NORDACAM_CORE
#include "apps/nordacam/Settings.h"
#endif
#include "tests/vision/TestSupport.h"

#include <gtest/gtest.h>

#include <csignal>
#include <filesystem>
#include <fstream>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

using namespace norda;
using namespace norda::exp;
using namespace norda::exp::streaming;

namespace {
constexpr int kRows = 48, kCols = 64;

// Runs `body` in a child process limited to files of `limit` bytes; returns its exit code.
int inChildWithFileLimit(rlim_t limit, const std::function<int()>& body) {
    const pid_t pid = ::fork();
    if (pid == 0) {
        std::signal(SIGXFSZ, SIG_IGN);
        rlimit r{limit, RLIM_INFINITY}; // soft limit only: the body may make room again
        if (::setrlimit(RLIMIT_FSIZE, &r) != 0)
            ::_exit(99);
        int code = 98;
        try {
            code = body();
        } catch (...) {
        }
        ::_exit(code);
    }
    int status = 0;
    ::waitpid(pid, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

std::unique_ptr<Frame> rawFrame(uint16_t value) {
    DataStorage<std::string> meta;
    meta.setValue("Value", value);
    return std::make_unique<Frame>(cv::Mat(kRows, kCols, CV_16UC1, cv::Scalar(value)), std::move(meta));
}

// Every frame that reads back: its value and whether its pixels all carry that value.
std::vector<uint16_t> readBack(const std::string& file) {
    std::vector<uint16_t> values;
    vision::ImageDecoderPxM decoder;
    if (!decoder.open(file))
        return values;
    cv::Mat frame;
    try {
        while (decoder.grab(frame, nullptr)) {
            const auto v = decoder.getMetaData().get<unsigned short>("Value");
            EXPECT_EQ(cv::countNonZero(frame != v), 0) << "frame " << values.size() << " damaged";
            values.push_back(v);
        }
    } catch (const std::exception& e) {
        ADD_FAILURE() << "reading back " << file << ": " << e.what();
    }
    return values;
}

std::vector<uint16_t> iota(uint16_t from, size_t count) {
    std::vector<uint16_t> v(count);
    for (size_t i = 0; i < count; ++i)
        v[i] = static_cast<uint16_t>(from + i);
    return v;
}

// The entries of a table that moves every pixel `shift` columns to the left (clamped at the right
// edge): each entry addresses the top-left pixel of a 2x2 block inside the frame.
std::vector<vision::DistortionEntry> shiftEntries(int rows, int cols, int shift) {
    std::vector<vision::DistortionEntry> entries(size_t(rows) * cols);
    for (int y = 0; y < rows; ++y)
        for (int x = 0; x < cols; ++x) {
            const int sx = std::min(x + shift, cols - 1);
            const int y0 = std::min(y, rows - 2), x0 = std::min(sx, cols - 2);
            const int i = y * cols + x;
            vision::DistortionEntry e{static_cast<int16_t>(y0 * cols + x0 - i), 0, 0, 0, 0};
            const bool right = sx > x0, below = y > y0;
            (right ? (below ? e.w11 : e.w01) : (below ? e.w10 : e.w00)) = 65535;
            entries[size_t(i)] = e;
        }
    return entries;
}

std::string contentOf(const std::string& file) {
    std::ifstream in(file, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), {});
}
} // namespace

TEST(Faults, DiskFullWhileRecordingKeepsCompleteFramesAndThePipelineRunning) {
    test::TempDir dir;
    const std::string earlier = dir.file("earlier.pxm"), full = dir.file("full.pxm");
    const rlim_t limit = 20 * 1024; // room for a few frames of 6 KiB
    const int code = inChildWithFileLimit(limit, [&] {
        cmd::CommandProxy commands;
        bool recording = false;
        PxmRecorderElement recorder(
            STREAMING_DATATYPE_RAW, "Rec", commands, [&](bool s) { recording = s; }, nullptr);
        auto start = [&](const std::string& file) {
            commands.call("Rec", "Start",
                          cmd::ParameterPack{makeVariant(file), makeVariant(0ull), makeVariant(uint16_t(0)),
                                             makeVariant(false)});
        };
        // A short recording that fits, then one that runs into the limit.
        auto record = [&](uint16_t from, uint16_t to) {
            for (uint16_t v = from; v < to; ++v) {
                FrameMap in, out;
                in[STREAMING_DATATYPE_RAW] = rawFrame(v);
                recorder.process(in, out);
            }
        };
        start(earlier);
        record(1, 3);
        recorder.stop();
        record(0, 1); // closes the file
        if (recording)
            return 10;

        start(full);
        int failures = 0, cycles = 0;
        for (uint16_t v = 100; v < 120; ++v, ++cycles) {
            FrameMap in, out;
            in[STREAMING_DATATYPE_RAW] = rawFrame(v);
            if (v == 115) { // room again
                rlimit r{RLIM_INFINITY, RLIM_INFINITY};
                if (::setrlimit(RLIMIT_FSIZE, &r) != 0)
                    return 14;
            }
            try {
                recorder.process(in, out); // the host's loop logs the failure and goes on
            } catch (const Exception& e) {
                if (std::string(e.what()).find("File too large") == std::string::npos ||
                    std::string(e.what()).find("full.pxm") == std::string::npos)
                    return 11;
                ++failures;
            }
        }
        recorder.stop();
        record(999, 1000);
        if (recording)
            return 12;
        return failures > 0 && cycles == 20 ? 0 : 13;
    });
    ASSERT_EQ(code, 0);
    EXPECT_EQ(readBack(earlier), iota(1, 2));
    // The frames written before the disk filled, then those after room was made; nothing between.
    const auto values = readBack(full);
    ASSERT_GE(values.size(), 6u);
    const size_t before = values.size() - 5;
    EXPECT_GE(before, 1u);
    EXPECT_LT(before, 4u);
    auto expected = iota(100, before);
    for (uint16_t v = 115; v < 120; ++v)
        expected.push_back(v);
    EXPECT_EQ(values, expected);
}

TEST(Faults, DiskFullWhileSavingAnImageKeepsEarlierImagesAndTheChainRunning) {
    using Temp = quantity::Temperature<MarkedFloat>;
    test::TempDir dir;
    const std::string folder = test::slashed(dir);
    const int code = inChildWithFileLimit(RLIM_INFINITY, [&] {
        DataProxy<std::string> proxy;
        setDefaultParameters(proxy);
        proxy.setValue<unsigned int>(Id::Miscellaneous::ImageCounter, 41, false);
        proxy.setValue(Id::Miscellaneous::SaveJpeg, true, false);
        cmd::CommandProxy commands;
        std::atomic<bool> busy{false};
        test::LogCapture logs;
        ImageWriteElement writer(dir.path().string(), &proxy, &commands, {}, {}, 0, busy,
                                 STREAMING_DATATYPE_YUV422);
        auto cycle = [&] {
            FrameMap in, out;
            in[STREAMING_DATATYPE_RAD_CONST] =
                std::make_unique<Frame>(cv::Mat(120, 160, CV_16UC1, cv::Scalar(30000)));
            DataStorage<std::string> meta;
            meta.setValue(Id::Scaling::TempMax, Temp(MarkedFloat(40.0f)));
            meta.setValue(Id::Scaling::TempMin, Temp(MarkedFloat(15.0f)));
            meta.setValue(Id::Environment::EmissivityValue, 0.95f);
            meta.setValue(Id::Environment::ReflectedTemperature, Temp(MarkedFloat(21.0f)));
            in[STREAMING_DATATYPE_RGB] = std::make_unique<Frame>(
                cv::Mat(120, 160, CV_8UC3, cv::Scalar(10, 120, 230)), std::move(meta));
            in[STREAMING_DATATYPE_YUV422] =
                std::make_unique<Frame>(cv::Mat(768, 1024, CV_8UC2, cv::Scalar(128, 60)));
            writer.process(in, out); // never throws: the element reports and goes on
        };
        writer.triggerSave(false);
        cycle();
        if (proxy.getValue<unsigned int>(Id::Miscellaneous::ImageCounter) != 42)
            return 10;

        rlimit r{8 * 1024, RLIM_INFINITY}; // the disk fills up: far too little for an image
        if (::setrlimit(RLIMIT_FSIZE, &r) != 0)
            return 11;
        writer.triggerSave(false);
        cycle();
        proxy.flush();
        if (logs.countPrefix("Image " + folder + "IR000042.RIX Write fail:", logging::LogLevel::error) != 1 ||
            !proxy.getValue<bool>(Id::Miscellaneous::ErrorImageSaving))
            return 12;
        if (proxy.getValue<unsigned int>(Id::Miscellaneous::ImageCounter) != 42 ||
            proxy.getValue<bool>(Id::Miscellaneous::SpinnerVisible))
            return 13;

        r.rlim_cur = RLIM_INFINITY; // room again: the next request saves as usual
        if (::setrlimit(RLIMIT_FSIZE, &r) != 0)
            return 14;
        cycle(); // the failed request is not retried by itself
        if (proxy.getValue<unsigned int>(Id::Miscellaneous::ImageCounter) != 42)
            return 15;
        writer.triggerSave(false);
        cycle();
        return proxy.getValue<unsigned int>(Id::Miscellaneous::ImageCounter) == 43 ? 0 : 16;
    });
    ASSERT_EQ(code, 0);
    vision::Rix first, second;
    EXPECT_NO_THROW(first.load(dir.file("IR000041.RIX")));
    EXPECT_NO_THROW(second.load(dir.file("IR000042.RIX")));
    for (const auto& entry : std::filesystem::directory_iterator(dir.path())) {
        const std::string name = entry.path().filename().string();
        EXPECT_TRUE(name == "IR000041.RIX" || name == "IR000042.RIX" || name == "TR000041.JPG" ||
                    name == "TR000042.JPG")
            << "left behind: " << name;
    }
}

// Calibration tables, single images and the settings are replaced whole: a full disk leaves the old
// file and no temporary one.
TEST(Faults, DiskFullWhileWritingAFileKeepsTheOldOne) {
    test::TempDir dir;
    const std::string table = dir.file("distort.pxm"), image = dir.file("offset.pxm"),
                      settings = dir.file("settings.json");
    const std::vector<std::pair<std::string, std::function<void(int)>>> writers = {
        {table,
         [&](int v) { vision::DistortionTable(shiftEntries(kRows, kCols, v), kRows, kCols).save(table); }},
        {image, [&](int v) { vision::writePxmImage(image, cv::Mat(kRows, kCols, CV_16UC1, cv::Scalar(v))); }},
#ifdef NORDACAM_CORE
        {settings,
         [&](int v) {
             DataProxy<std::string> store;
             setDefaultParameters(store);
             nordacam::Settings s(store);
             s.setPath(settings);
             s.applyAssignment("Miscellaneous.ImageCounter=" + std::to_string(v + 12));
             s.save();
         }},
#endif
    };
    std::vector<std::string> before;
    for (const auto& [file, write] : writers) {
        write(0);
        before.push_back(contentOf(file));
    }
    const int code = inChildWithFileLimit(512, [&] {
        int failures = 0;
        for (const auto& [file, write] : writers) {
            try {
                write(1);
            } catch (const std::exception& e) {
                failures += std::string(e.what()).find("File too large") != std::string::npos;
            }
        }
        return failures;
    });
    EXPECT_EQ(code, int(writers.size())) << "every write must fail with the file-size error";
    for (size_t i = 0; i < writers.size(); ++i)
        EXPECT_EQ(contentOf(writers[i].first), before[i]) << writers[i].first;
    EXPECT_EQ(size_t(std::distance(std::filesystem::directory_iterator(dir.path()), {})), writers.size())
        << "a temporary file was left behind";
}

TEST(Faults, DamagedRadiometryCalibrationGivesInvalidDummyFrames) {
    test::TempDir dir;
    const std::string good = contentOf(test::calibrationDir() + "radiometry.json");
    DataProxy<std::string> proxy;
    setDefaultParameters(proxy);
    proxy.setValue<unsigned short>(Id::IrImage::Cols, 8, false);
    proxy.setValue<unsigned short>(Id::IrImage::Rows, 4, false);
    test::LogCapture logs;
    // Parsing every kind of damage is the fuzz target's; here: what the element makes of it.
    const std::vector<std::pair<std::string, std::string>> damages = {
        {"cut in half", good.substr(0, good.size() / 2)},
        {"wrong types", R"({"version": 1, "ranges": [{"range": "one", "R1": "x", "R2": null}]})"},
        {"deep nesting", std::string(100000, '[')},
    };
    for (const auto& [what, content] : damages) {
        SCOPED_TRACE(what);
        std::ofstream(dir.file("radiometry.json"), std::ios::binary | std::ios::trunc) << content;
        RadiometryElement e(&proxy, test::slashed(dir), vision::RadiometricCamTypeA);
        for (int i = 0; i < 2; ++i) {
            FrameMap in, out;
            in[STREAMING_DATATYPE_CORRECTED] =
                std::make_unique<Frame>(cv::Mat(4, 8, CV_16S, cv::Scalar(1000)), test::radiometricMeta());
            EXPECT_TRUE(e.process(in, out));
            ASSERT_TRUE(out[STREAMING_DATATYPE_RAD]);
            EXPECT_FALSE(out[STREAMING_DATATYPE_RAD]->getMetaData().get<bool>(Id::Temperatures::Validity));
        }
    }
    // Only the failure is reported, never the success of a load.
    EXPECT_EQ(logs.count("load/reload radiomety data"), 0);
    EXPECT_EQ(logs.countPrefix("Radiometric model could not be loaded: "), int(damages.size()));
}
