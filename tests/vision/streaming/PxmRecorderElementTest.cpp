#include "nordalib/vision/streaming/PxmRecorderElement.h"
#include "nordalib/core/cmd/CommandProxy.h"
#include "nordalib/core/keys/Keys.h"
#include "nordalib/vision/imageio/ImageDecoderPxM.h"
#include "nordalib/vision/streaming/FileReaderElement.h"
#include "tests/support/Messages.h"
#include "tests/support/Shell.h"
#include "tests/support/TempDir.h"

#include <fmt/format.h>
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <thread>

using namespace norda;
using namespace norda::exp;
using namespace norda::exp::streaming;

namespace {
struct Recorder {
    cmd::CommandProxy commands;
    std::vector<bool> states;
    std::vector<unsigned long long> progress;
    PxmRecorderElement element{STREAMING_DATATYPE_RAW, "PxmRecorder", commands,
                               [this](bool s) { states.push_back(s); },
                               [this](unsigned long long p) { progress.push_back(p); }};

    void start(const std::string& file, unsigned long long frames, unsigned short delay) {
        commands.call("PxmRecorder", "Start",
                      cmd::ParameterPack{makeVariant(file), makeVariant(frames), makeVariant(delay),
                                         makeVariant(false)});
    }
    bool cycle(uint16_t value, bool shutterClosed = false) {
        FrameMap in, out;
        DataStorage<std::string> meta;
        meta.setValue(Id::Shutter::Closed, shutterClosed);
        meta.setValue("Value", value);
        in[STREAMING_DATATYPE_RAW] =
            std::make_unique<Frame>(cv::Mat(3, 4, CV_16UC1, cv::Scalar(value)), std::move(meta));
        return element.process(in, out);
    }
};

// The frames of a recording by their value; each carries its own metadata.
std::vector<uint16_t> recordedValues(const std::string& path) {
    vision::ImageDecoderPxM decoder;
    std::vector<uint16_t> values;
    cv::Mat frame;
    for (bool open = decoder.open(path); open && decoder.grab(frame, nullptr);) {
        values.push_back(frame.at<uint16_t>(0, 0));
        EXPECT_EQ(decoder.getMetaData().get<unsigned short>("Value"), values.back());
    }
    return values;
}
} // namespace

TEST(PxmRecorderElement, RecordsCountedOrUntilStopped) {
    test::TempDir dir;
    Recorder r;
    // As clients read the commands: "bCaptShutter" shares index 2 with "u16Delay".
    std::vector<std::string> described;
    for (const auto& d : r.commands.getDescriptions("PxmRecorder")) {
        described.push_back(d.getName() + ": " + d.getDescription());
        for (const auto& p : d.getParameters())
            described.back() += fmt::format(" {}{}", p.getIndex(), p.getName());
    }
    EXPECT_EQ(described, (std::vector<std::string>{
                             "Start: start pxm recording 0strFilename 1u64NumFrames 2bCaptShutter 2u16Delay",
                             "Stop: stop pxm recording"}));
    EXPECT_FALSE(r.cycle(1)); // not recording: no callback
    EXPECT_TRUE(r.progress.empty());

    r.start(dir.file("three.pxm"), 3, 0);
    r.start(dir.file("ignored.pxm"), 5, 0); // a second Start during a recording is ignored
    for (uint16_t v = 1; v <= 5; ++v)
        EXPECT_FALSE(r.cycle(v));
    EXPECT_EQ(r.progress, (std::vector<unsigned long long>{2, 1, 0}));
    EXPECT_EQ(r.states, (std::vector<bool>{true, false}));
    EXPECT_EQ(recordedValues(dir.file("three.pxm")), (std::vector<uint16_t>{1, 2, 3}));
    EXPECT_FALSE(std::filesystem::exists(dir.file("ignored.pxm")));

    // 0 frames: until stopped.
    r.start(dir.file("open.pxm"), 0, 0);
    for (uint16_t v = 10; v < 14; ++v)
        r.cycle(v);
    r.commands.call("PxmRecorder", "Stop", {});
    r.cycle(99); // closes the file without writing
    EXPECT_EQ(r.states, (std::vector<bool>{true, false, true, false}));
    EXPECT_EQ(recordedValues(dir.file("open.pxm")), (std::vector<uint16_t>{10, 11, 12, 13}));

    // A file that cannot be created fails the command and leaves the element idle.
    EXPECT_NE(
        test::messageOf([&] { r.start(dir.file("no/such/folder/rec.pxm"), 3, 0); }).find("no/such/folder"),
        std::string::npos);
    EXPECT_EQ(r.states.size(), 4u);
    EXPECT_FALSE(r.cycle(1));
}

TEST(PxmRecorderElement, DelaySkipsClosedShutterAndSpacesFrames) {
    test::TempDir dir;
    Recorder r;
    r.start(dir.file("delay.pxm"), 0, 100);
    using clock = std::chrono::steady_clock;
    const auto begin = clock::now();
    clock::time_point lastClosed;
    std::vector<clock::time_point> writes;
    uint16_t value = 0;
    auto run = [&](bool closed, std::chrono::milliseconds span) {
        for (const auto end = clock::now() + span; clock::now() < end;) {
            const size_t before = r.progress.empty() ? 0 : r.progress.back();
            if (closed)
                lastClosed = clock::now(); // no later than the element's own time stamp
            r.cycle(++value, closed);
            if (!r.progress.empty() && r.progress.back() != before && before != 0)
                writes.push_back(clock::now());
            std::this_thread::sleep_for(std::chrono::milliseconds(5));
        }
    };
    run(false, std::chrono::milliseconds(250));
    run(true, std::chrono::milliseconds(150));
    const size_t writesBeforeClosing = writes.size();
    run(false, std::chrono::milliseconds(250));
    r.element.stop();
    r.cycle(0);

    // Measured after each cycle returns: a write can only look later than it was, never earlier.
    ASSERT_GE(writes.size(), writesBeforeClosing + 1);
    EXPECT_GE(writes.front() - begin, std::chrono::milliseconds(99));
    for (size_t i = 1; i < writes.size(); ++i)
        EXPECT_GE(writes[i] - writes[i - 1], std::chrono::milliseconds(99));
    EXPECT_GE(writes[writesBeforeClosing] - lastClosed, std::chrono::milliseconds(100));
    EXPECT_EQ(recordedValues(dir.file("delay.pxm")).size(), writes.size()); // no closed-shutter frame
}

TEST(PxmRecorderElement, ThreeHundredFrameRecordingPlaysBackFrameForFrame) {
    test::TempDir dir;
    const std::string path = dir.file("vga.pxm");
    cmd::CommandProxy commands;
    PxmRecorderElement recorder(STREAMING_DATATYPE_RAW, "Rec", commands, nullptr, nullptr);
    recorder.start(path, 300, 0, true);
    std::vector<cv::Mat> frames;
    cv::RNG rng(42);
    for (int i = 0; i < 300; ++i) {
        frames.emplace_back(480, 640, CV_16UC1);
        rng.fill(frames.back(), cv::RNG::UNIFORM, 0, 65536);
        FrameMap in, out;
        in[STREAMING_DATATYPE_RAW] = std::make_unique<Frame>(frames.back().clone());
        recorder.process(in, out);
    }
    EXPECT_EQ(recorder.getRemainingFrames(), 0u);
    // Playback: the reader starts at frame 1 and wraps to frame 0 after the last one.
    FileReaderElement reader(path);
    ASSERT_EQ(reader.getFrameCount(), 300u);
    FrameMap in, out;
    for (int i = 0; i < 300; ++i) {
        ASSERT_TRUE(reader.process(in, out));
        ASSERT_EQ(cv::norm(out[STREAMING_DATATYPE_RAW]->getFrameData(), frames[(i + 1) % 300], cv::NORM_INF),
                  0.0)
            << i;
    }
    // Standard tools see 300 grey images of 640 x 480 at 16 bits.
    if (!test::haveTool("pamfile") || !test::haveTool("identify"))
        GTEST_SKIP() << "pamfile or identify is not installed";
    EXPECT_EQ(test::countOf(test::runCommand("pamfile -allimages '" + path + "'"),
                            "PGM raw, 640 by 480  maxval 65535"),
              300u);
    EXPECT_EQ(test::countOf(test::runCommand("identify '" + path + "'"),
                            "PGM 640x480 640x480+0+0 16-bit Grayscale"),
              300u);
}

TEST(PxmRecorderElement, CommandsFromAnotherThreadDuringCycles) {
    test::TempDir dir;
    Recorder r;
    std::atomic<bool> done{false};
    std::atomic<int> files{0};
    std::thread ui([&] {
        while (!done) {
            r.start(dir.file("rec" + std::to_string(files++) + ".pxm"), files % 3, 0);
            std::this_thread::sleep_for(std::chrono::microseconds(200));
            r.commands.call("PxmRecorder", "Stop", {});
            (void)r.element.getRemainingFrames();
            (void)r.element.getTimeDiffSinceLastShutter();
        }
    });
    // Cycle until the command thread has gone through a number of start/stop rounds, however the
    // two threads happen to be scheduled (values stay increasing within 16 bits).
    for (uint16_t v = 1; v < 60000 && (v <= 1500 || files < 20); ++v)
        r.cycle(v);
    done = true;
    ui.join();
    r.element.stop();
    r.cycle(0);
    // The callbacks ran under the element's lock, so the vectors are consistent: states alternate.
    ASSERT_FALSE(r.states.empty());
    for (size_t i = 0; i < r.states.size(); ++i)
        EXPECT_EQ(r.states[i], i % 2 == 0);
    // Every file holds consecutive frames, whole.
    for (int i = 0; i < files; ++i) {
        const auto values = recordedValues(dir.file("rec" + std::to_string(i) + ".pxm"));
        for (size_t k = 1; k < values.size(); ++k)
            EXPECT_GT(values[k], values[k - 1]);
    }
}
