#pragma once
// Pipeline: owns a chain of elements and runs their cycles, in order, on one thread.
//
// One frame map is carried through a cycle: each element gets the carried map as its inputs and
// a fresh output map, and whatever it puts into its outputs replaces the carried frame of that
// slot, so the outputs of one element are the inputs of the elements after it. Frames an element
// leaves in its inputs (sinks that only read) stay available to later elements.
//
// An element whose declared input slots do not all hold a frame is skipped in that cycle (the
// element contract dereferences declared inputs without a null test); a host may declare some of
// an element's inputs optional (an image writer that also works without a visual frame), and may
// give an element a condition on the cycle's frames that must hold too (the image writer waits
// while a visual frame is expected but not there).
//
// An exception escaping an element's process() is counted and reported with the element's name;
// the rest of the cycle goes on, unless the pipeline was told to stop on errors. Reports go to an
// error handler, by default a log record on the "PIPELINE" logger written when an element starts
// failing or fails differently, and once more when it recovers, not once per frame.
//
// Threads: add() before start(); runCycle() on the caller's thread or startThread() for a
// pipeline thread; never both at once. statistics() and cycles() may be read from any thread.

#include "nordalib/vision/streaming/StreamingElement.h"

#include <atomic>
#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace norda::logging {
class Logger;
}

namespace norda::exp::streaming {

class Pipeline {
public:
    // Per element: calls, skips (inputs missing), failures (exceptions), process() time.
    struct ElementStatistics {
        std::string name;
        uint64_t calls = 0;
        uint64_t skipped = 0;
        uint64_t failures = 0;
        double meanMs = 0.0;
        double worstMs = 0.0;
        std::string lastError;
    };
    struct Statistics {
        uint64_t cycles = 0;
        double meanCycleMs = 0.0;
        double worstCycleMs = 0.0;
        std::vector<ElementStatistics> elements;
    };
    // What one cycle did.
    struct CycleResult {
        size_t ran = 0;
        size_t skipped = 0;
        size_t failed = 0;
        bool stopped = false; // an element failed and the pipeline stops on errors
    };
    using ErrorHandler = std::function<void(const std::string& element, const std::string& message)>;
    // Sees the carried frames at the end of every cycle (on the pipeline thread).
    using CycleObserver = std::function<void(const FrameMap& frames, uint64_t cycle)>;
    // Whether an element may run on the frames a cycle carries when its turn comes.
    using RunCondition = std::function<bool(const FrameMap& frames)>;

    Pipeline();
    ~Pipeline(); // stops the thread, then destroys the elements in reverse order
    Pipeline(const Pipeline&) = delete;
    Pipeline& operator=(const Pipeline&) = delete;

    // Appends an element; `optionalInputs` lists declared input slots the element copes without.
    // Throws while the pipeline thread runs.
    StreamingElement& add(std::unique_ptr<StreamingElement> element,
                          std::vector<STREAMING_DATATYPE> optionalInputs = {}, RunCondition condition = {});
    template <typename E, typename... Args> E& emplace(Args&&... args) {
        auto element = std::make_unique<E>(std::forward<Args>(args)...);
        E& ref = *element;
        add(std::move(element));
        return ref;
    }

    size_t size() const { return m_stages.size(); }
    StreamingElement& element(size_t index) const { return *m_stages.at(index).element; }
    // First element of that name, nullptr when there is none.
    StreamingElement* find(const std::string& name) const;
    std::vector<std::string> names() const;

    void setStopOnError(bool stop) { m_stopOnError = stop; }
    // Replaces the default log report; an empty function restores it.
    void setErrorHandler(ErrorHandler handler);
    void setCycleObserver(CycleObserver observer) { m_observer = std::move(observer); }
    // The pipeline thread waits so that cycles start no closer than this (0: no pacing).
    void setMinimumCyclePeriod(std::chrono::microseconds period) { m_period = period; }

    // Calls start() once on every element not yet started.
    void start();
    // One cycle on the caller's thread (starts the elements first when needed); throws while the
    // pipeline thread runs.
    CycleResult runCycle();

    // Runs cycles on the pipeline thread until stop(), until `maxCycles` cycles ran (0: no
    // limit) or until an element fails while stopping on errors. Throws when already running.
    void startThread(uint64_t maxCycles = 0);
    // Asks the thread to finish its cycle and joins it. Safe to call repeatedly.
    void stop();
    // Waits until the thread ends on its own (cycle limit or error).
    void join();
    bool isRunning() const { return m_running.load(); }
    // Whether the thread ended because an element failed while stopping on errors.
    bool stoppedOnError() const { return m_stoppedOnError.load(); }

    uint64_t cycles() const { return m_cycles.load(); }
    Statistics statistics() const;
    void resetStatistics();

private:
    struct Stage {
        std::unique_ptr<StreamingElement> element;
        std::vector<STREAMING_DATATYPE> required;
        RunCondition condition;
        ElementStatistics stats;
        double totalMs = 0.0;
        bool failing = false;
    };
    CycleResult cycle();
    bool ready(const Stage& stage, const FrameMap& frames) const;
    void report(Stage& stage, const std::string& message);
    void threadMain(uint64_t maxCycles);

    std::vector<Stage> m_stages;
    bool m_stopOnError = false;
    ErrorHandler m_errorHandler;
    CycleObserver m_observer;
    std::chrono::microseconds m_period{0};
    std::shared_ptr<logging::Logger> m_log;

    mutable std::mutex m_statsMutex;
    std::atomic<uint64_t> m_cycles{0};
    double m_totalCycleMs = 0.0;
    double m_worstCycleMs = 0.0;
    uint64_t m_timedCycles = 0;

    std::atomic<bool> m_running{false};
    std::atomic<bool> m_stopRequested{false};
    std::atomic<bool> m_stoppedOnError{false};
    std::thread m_thread;
};

} // namespace norda::exp::streaming
