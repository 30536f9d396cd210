#include "nordalib/vision/streaming/Pipeline.h"

#include "nordalib/core/exception/Exception.h"
#include "nordalib/core/logging/Logger.h"

#include <algorithm>

namespace norda::exp::streaming {

namespace {
using Clock = std::chrono::steady_clock;

double elapsedMs(Clock::time_point since) {
    return std::chrono::duration<double, std::milli>(Clock::now() - since).count();
}
} // namespace

Pipeline::Pipeline() : m_log(logging::Logger::createSharedLogger("PIPELINE", true)) {}

Pipeline::~Pipeline() {
    stop();
    while (!m_stages.empty())
        m_stages.pop_back();
}

StreamingElement& Pipeline::add(std::unique_ptr<StreamingElement> element,
                                std::vector<STREAMING_DATATYPE> optionalInputs, RunCondition condition) {
    if (!element)
        NORDA_THROW("no element given", "norda::exp::streaming::Pipeline::add");
    if (m_running.load())
        NORDA_THROW("can not add " + element->getName() + " while the pipeline runs",
                    "norda::exp::streaming::Pipeline::add");
    Stage stage;
    for (auto slot : element->getInputTypes())
        if (std::find(optionalInputs.begin(), optionalInputs.end(), slot) == optionalInputs.end())
            stage.required.push_back(slot);
    stage.stats.name = element->getName();
    stage.condition = std::move(condition);
    stage.element = std::move(element);
    std::lock_guard<std::mutex> lock(m_statsMutex);
    m_stages.push_back(std::move(stage));
    return *m_stages.back().element;
}

StreamingElement* Pipeline::find(const std::string& name) const {
    for (const auto& stage : m_stages)
        if (stage.element->getName() == name)
            return stage.element.get();
    return nullptr;
}

std::vector<std::string> Pipeline::names() const {
    std::vector<std::string> out;
    for (const auto& stage : m_stages)
        out.push_back(stage.element->getName());
    return out;
}

void Pipeline::setErrorHandler(ErrorHandler handler) {
    m_errorHandler = std::move(handler);
}

void Pipeline::start() {
    for (auto& stage : m_stages)
        if (!stage.element->isStarted())
            stage.element->start();
}

bool Pipeline::ready(const Stage& stage, const FrameMap& frames) const {
    for (auto slot : stage.required) {
        auto it = frames.find(slot);
        if (it == frames.end() || !it->second)
            return false;
    }
    return !stage.condition || stage.condition(frames);
}

void Pipeline::report(Stage& stage, const std::string& message) {
    const bool changed = !stage.failing || stage.stats.lastError != message;
    {
        std::lock_guard<std::mutex> lock(m_statsMutex);
        ++stage.stats.failures;
        stage.stats.lastError = message;
    }
    stage.failing = true;
    if (m_errorHandler)
        m_errorHandler(stage.stats.name, message);
    else if (changed)
        m_log->log(logging::LogLevel::error, "element {} failed: {}", stage.stats.name, message);
}

Pipeline::CycleResult Pipeline::runCycle() {
    if (m_running.load())
        NORDA_THROW("runCycle while the pipeline thread runs", "norda::exp::streaming::Pipeline::runCycle");
    return cycle();
}

Pipeline::CycleResult Pipeline::cycle() {
    start();
    CycleResult result;
    FrameMap frames;
    const auto cycleStart = Clock::now();
    for (auto& stage : m_stages) {
        if (!ready(stage, frames)) {
            ++result.skipped;
            std::lock_guard<std::mutex> lock(m_statsMutex);
            ++stage.stats.skipped;
            continue;
        }
        FrameMap outputs;
        const auto t0 = Clock::now();
        std::string error;
        try {
            stage.element->process(frames, outputs);
        } catch (const std::exception& e) {
            error = e.what();
            if (error.empty())
                error = "unnamed exception";
        } catch (...) {
            error = "unknown exception";
        }
        const double ms = elapsedMs(t0);
        {
            std::lock_guard<std::mutex> lock(m_statsMutex);
            auto& s = stage.stats;
            ++s.calls;
            stage.totalMs += ms;
            s.meanMs = stage.totalMs / static_cast<double>(s.calls);
            s.worstMs = std::max(s.worstMs, ms);
        }
        ++result.ran;
        if (!error.empty()) {
            ++result.failed;
            report(stage, error);
            if (m_stopOnError) {
                result.stopped = true;
                break;
            }
        } else if (stage.failing) {
            stage.failing = false;
            if (!m_errorHandler)
                m_log->log(logging::LogLevel::info, "element {} works again", stage.stats.name);
        }
        for (auto& [slot, frame] : outputs)
            if (frame)
                frames[slot] = std::move(frame);
    }
    const uint64_t cycle = m_cycles.fetch_add(1) + 1;
    {
        const double ms = elapsedMs(cycleStart);
        std::lock_guard<std::mutex> lock(m_statsMutex);
        ++m_timedCycles;
        m_totalCycleMs += ms;
        m_worstCycleMs = std::max(m_worstCycleMs, ms);
    }
    if (m_observer)
        m_observer(frames, cycle);
    return result;
}

void Pipeline::startThread(uint64_t maxCycles) {
    if (m_running.load())
        NORDA_THROW("the pipeline thread already runs", "norda::exp::streaming::Pipeline::startThread");
    if (m_thread.joinable())
        m_thread.join();
    start();
    m_stopRequested = false;
    m_stoppedOnError = false;
    m_running = true;
    m_thread = std::thread([this, maxCycles] { threadMain(maxCycles); });
}

void Pipeline::threadMain(uint64_t maxCycles) {
    uint64_t done = 0;
    auto next = Clock::now();
    while (!m_stopRequested.load() && (maxCycles == 0 || done < maxCycles)) {
        if (m_period.count() > 0) {
            std::this_thread::sleep_until(next);
            next = std::max(next + m_period, Clock::now());
        }
        CycleResult result;
        try {
            result = cycle();
        } catch (const std::exception& e) {
            // Only the cycle observer can get here; treat it like a failing element.
            m_log->log(logging::LogLevel::error, "cycle observer failed: {}", e.what());
            result.stopped = m_stopOnError;
        }
        ++done;
        if (result.stopped) {
            m_stoppedOnError = true;
            break;
        }
    }
    m_running = false;
}

void Pipeline::stop() {
    m_stopRequested = true;
    if (m_thread.joinable() && m_thread.get_id() != std::this_thread::get_id())
        m_thread.join();
}

void Pipeline::join() {
    if (m_thread.joinable() && m_thread.get_id() != std::this_thread::get_id())
        m_thread.join();
}

Pipeline::Statistics Pipeline::statistics() const {
    std::lock_guard<std::mutex> lock(m_statsMutex);
    Statistics s;
    s.cycles = m_cycles.load();
    s.meanCycleMs = m_timedCycles ? m_totalCycleMs / static_cast<double>(m_timedCycles) : 0.0;
    s.worstCycleMs = m_worstCycleMs;
    for (const auto& stage : m_stages)
        s.elements.push_back(stage.stats);
    return s;
}

void Pipeline::resetStatistics() {
    std::lock_guard<std::mutex> lock(m_statsMutex);
    m_cycles = 0;
    m_totalCycleMs = m_worstCycleMs = 0.0;
    m_timedCycles = 0;
    for (auto& stage : m_stages) {
        const std::string name = stage.stats.name;
        stage.stats = ElementStatistics{};
        stage.stats.name = name;
        stage.totalMs = 0.0;
    }
}

} // namespace norda::exp::streaming
