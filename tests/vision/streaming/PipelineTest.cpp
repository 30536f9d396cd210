#include "nordalib/vision/streaming/Pipeline.h"

#include "nordalib/core/exception/Exception.h"

#include <gtest/gtest.h>

#include <atomic>
#include <stdexcept>
#include <thread>

using namespace norda::exp;
using namespace norda::exp::streaming;

namespace {

// A source that emits a 2x2 frame holding its cycle number, with a metadata tag.
class CountingSource : public StreamingElement {
public:
    explicit CountingSource(STREAMING_DATATYPE slot, int stopAfter = -1)
        : StreamingElement({}, {slot}, "Source", nullptr, true, 0), m_slot(slot), m_stopAfter(stopAfter) {}
    bool process(FrameMap&, FrameMap& outputs) override {
        if (m_stopAfter >= 0 && m_count >= m_stopAfter)
            return false;
        ++m_count;
        auto frame = std::make_unique<Frame>(cv::Mat(2, 2, CV_16UC1, cv::Scalar(m_count)));
        frame->addMetaDate("origin", makeVariant(std::string("source")));
        emit(outputs, m_slot, std::move(frame));
        return true;
    }
    int count() const { return m_count; }

private:
    STREAMING_DATATYPE m_slot;
    int m_stopAfter;
    int m_count = 0;
};

// Adds a value to every pixel and moves the frame from one slot to another (metadata moves too).
class AddElement : public StreamingElement {
public:
    AddElement(const std::string& name, STREAMING_DATATYPE in, STREAMING_DATATYPE out, int add)
        : StreamingElement({in}, {out}, name, nullptr, false, 0), m_in(in), m_out(out), m_add(add) {}
    bool process(FrameMap& inputs, FrameMap& outputs) override {
        auto& frame = inputs[m_in];
        if (m_throwOnce) {
            m_throwOnce = false;
            throw std::runtime_error("boom in " + getName());
        }
        cv::Mat result = frame->getFrameData() + m_add;
        emit(outputs, m_out, std::make_unique<Frame>(result, frame->releaseMetaData()));
        return true;
    }
    bool m_throwOnce = false;

private:
    STREAMING_DATATYPE m_in, m_out;
    int m_add;
};

// Records what it sees without consuming it.
class Probe : public StreamingElement {
public:
    explicit Probe(std::vector<STREAMING_DATATYPE> inputs)
        : StreamingElement(inputs, {}, "Probe", nullptr, true, 0) {}
    bool process(FrameMap& inputs, FrameMap&) override {
        ++calls;
        for (auto slot : getInputTypes()) {
            auto it = inputs.find(slot);
            seen[slot] =
                (it != inputs.end() && it->second) ? it->second->getFrameData().at<uint16_t>(0, 0) : -1;
            if (it != inputs.end() && it->second)
                hadOrigin = it->second->isMetaDateAvailable("origin");
        }
        return false;
    }
    int calls = 0;
    bool hadOrigin = false;
    std::map<STREAMING_DATATYPE, int> seen;
};

} // namespace

TEST(Pipeline, CarriesOutputsToLaterElementsWithMetadata) {
    Pipeline p;
    p.emplace<CountingSource>(STREAMING_DATATYPE_RAW);
    auto& rawProbe = p.emplace<Probe>(std::vector<STREAMING_DATATYPE>{STREAMING_DATATYPE_RAW});
    p.emplace<AddElement>("ToCorrected", STREAMING_DATATYPE_RAW, STREAMING_DATATYPE_CORRECTED, 10);
    p.emplace<AddElement>("InPlace", STREAMING_DATATYPE_CORRECTED, STREAMING_DATATYPE_CORRECTED, 100);
    auto& probe = p.emplace<Probe>(std::vector<STREAMING_DATATYPE>{STREAMING_DATATYPE_CORRECTED});

    FrameMap last;
    p.setCycleObserver([&](const FrameMap& frames, uint64_t) {
        last.clear();
        for (const auto& [slot, f] : frames)
            if (f)
                last[slot] = f->clone();
    });
    for (int i = 0; i < 3; ++i) {
        auto r = p.runCycle();
        EXPECT_EQ(r.ran, 5u);
        EXPECT_EQ(r.skipped, 0u);
    }
    EXPECT_EQ(rawProbe.seen[STREAMING_DATATYPE_RAW], 3); // a reading sink leaves the frame in place
    EXPECT_EQ(probe.seen[STREAMING_DATATYPE_CORRECTED], 113);
    EXPECT_TRUE(probe.hadOrigin);
    // The raw frame was consumed by ToCorrected (its metadata moved on); the result is carried.
    ASSERT_TRUE(last.count(STREAMING_DATATYPE_CORRECTED));
    EXPECT_EQ(last[STREAMING_DATATYPE_CORRECTED]->getFrameData().at<uint16_t>(1, 1), 113);
    const auto stats = p.statistics();
    EXPECT_EQ(stats.cycles, 3u);
    for (const auto& e : stats.elements)
        EXPECT_EQ(e.calls, 3u) << e.name;
}

TEST(Pipeline, SkipsElementsWhoseInputsAreMissingUnlessOptional) {
    Pipeline p;
    p.emplace<CountingSource>(STREAMING_DATATYPE_RAW, 1); // one frame, then nothing
    auto& needsBoth =
        p.emplace<Probe>(std::vector<STREAMING_DATATYPE>{STREAMING_DATATYPE_YUV422, STREAMING_DATATYPE_RAW});
    auto optional = std::make_unique<Probe>(
        std::vector<STREAMING_DATATYPE>{STREAMING_DATATYPE_YUV422, STREAMING_DATATYPE_RAW});
    auto& copes = *optional;
    p.add(std::move(optional), {STREAMING_DATATYPE_YUV422});

    auto first = p.runCycle();
    EXPECT_EQ(first.ran, 2u);
    EXPECT_EQ(first.skipped, 1u);
    EXPECT_EQ(needsBoth.calls, 0);
    EXPECT_EQ(copes.calls, 1);
    EXPECT_EQ(copes.seen[STREAMING_DATATYPE_YUV422], -1);

    auto second = p.runCycle(); // the source produced nothing: everything downstream waits
    EXPECT_EQ(second.skipped, 2u);
    EXPECT_EQ(copes.calls, 1);
    EXPECT_EQ(p.statistics().elements[1].skipped, 2u);
}

TEST(Pipeline, ReportsFailuresByNameAndKeepsTheCycleUnlessAsked) {
    Pipeline p;
    p.emplace<CountingSource>(STREAMING_DATATYPE_RAW);
    auto& failing = p.emplace<AddElement>("Failing", STREAMING_DATATYPE_RAW, STREAMING_DATATYPE_RAW, 1);
    auto& after = p.emplace<Probe>(std::vector<STREAMING_DATATYPE>{STREAMING_DATATYPE_RAW});
    std::vector<std::string> reports;
    p.setErrorHandler([&](const std::string& element, const std::string& message) {
        reports.push_back(element + ": " + message);
    });

    failing.m_throwOnce = true;
    auto r = p.runCycle();
    EXPECT_EQ(r.failed, 1u);
    EXPECT_FALSE(r.stopped);
    EXPECT_EQ(after.calls, 1); // the failing element left its input, the next one still runs
    EXPECT_EQ(after.seen[STREAMING_DATATYPE_RAW], 1);
    EXPECT_EQ(reports, std::vector<std::string>{"Failing: boom in Failing"});
    EXPECT_EQ(p.statistics().elements[1].lastError, "boom in Failing");

    p.runCycle(); // recovered
    EXPECT_EQ(after.seen[STREAMING_DATATYPE_RAW], 3);

    p.setStopOnError(true);
    failing.m_throwOnce = true;
    r = p.runCycle();
    EXPECT_TRUE(r.stopped);
    EXPECT_EQ(after.calls, 2); // the rest of that cycle did not run
}

TEST(Pipeline, ThreadRunsStopsAndHonoursLimits) {
    Pipeline p;
    auto& source = p.emplace<CountingSource>(STREAMING_DATATYPE_RAW);
    p.emplace<AddElement>("Add", STREAMING_DATATYPE_RAW, STREAMING_DATATYPE_CORRECTED, 1);

    p.startThread(25);
    p.join();
    EXPECT_EQ(source.count(), 25);

    std::atomic<uint64_t> observed{0};
    p.setCycleObserver([&](const FrameMap&, uint64_t cycle) { observed = cycle; });
    p.startThread();
    EXPECT_THROW(p.startThread(), norda::Exception);
    EXPECT_THROW(p.runCycle(), norda::Exception);
    while (observed.load() < 40)
        std::this_thread::yield();
    p.stop();
    EXPECT_FALSE(p.isRunning());

    // Stop on error ends the thread on its own.
    auto& failing = p.emplace<AddElement>("Failing", STREAMING_DATATYPE_CORRECTED, STREAMING_DATATYPE_RAD, 0);
    failing.m_throwOnce = true;
    p.setErrorHandler([](const std::string&, const std::string&) {});
    p.setStopOnError(true);
    p.startThread();
    p.join();
    EXPECT_TRUE(p.stoppedOnError());
}
