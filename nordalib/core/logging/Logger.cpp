#include "nordalib/core/logging/Logger.h"

#include <spdlog/sinks/stdout_color_sinks.h>
#include <spdlog/spdlog.h>

#include <atomic>
#include <cstdlib>
#include <cstring>
#include <map>
#include <mutex>

namespace norda::logging {

const char* levelName(LogLevel level) {
    switch (level) {
    case LogLevel::trace:
        return "trace";
    case LogLevel::debug:
        return "debug";
    case LogLevel::info:
        return "info";
    case LogLevel::warning:
        return "warning";
    case LogLevel::error:
        return "error";
    case LogLevel::critical:
        return "critical";
    case LogLevel::off:
        return "off";
    }
    return "unknown";
}

LogLevel levelFromName(const char* name, LogLevel fallback) {
    if (!name || !*name)
        return fallback;
    static const std::pair<const char*, LogLevel> names[] = {
        {"trace", LogLevel::trace},     {"debug", LogLevel::debug},       {"info", LogLevel::info},
        {"warning", LogLevel::warning}, {"warn", LogLevel::warning},      {"error", LogLevel::error},
        {"err", LogLevel::error},       {"critical", LogLevel::critical}, {"off", LogLevel::off}};
    for (const auto& [text, level] : names)
        if (std::strcmp(text, name) == 0)
            return level;
    if (name[0] >= '0' && name[0] <= '6' && name[1] == '\0')
        return static_cast<LogLevel>(name[0] - '0');
    return fallback;
}

namespace {

spdlog::level::level_enum toSpd(LogLevel level) {
    switch (level) {
    case LogLevel::trace:
        return spdlog::level::trace;
    case LogLevel::debug:
        return spdlog::level::debug;
    case LogLevel::info:
        return spdlog::level::info;
    case LogLevel::warning:
        return spdlog::level::warn;
    case LogLevel::error:
        return spdlog::level::err;
    case LogLevel::critical:
        return spdlog::level::critical;
    case LogLevel::off:
        return spdlog::level::off;
    }
    return spdlog::level::info;
}

struct Registry {
    std::mutex mutex;
    std::map<std::string, std::shared_ptr<Logger>> loggers;
    std::shared_ptr<const Logger::Listener> listener;
    std::atomic<int> consoleLevel{
        static_cast<int>(levelFromName(std::getenv("NORDA_LOG_LEVEL"), LogLevel::info))};
    spdlog::sink_ptr sink = std::make_shared<spdlog::sinks::stderr_color_sink_mt>();
    std::atomic<bool> hasListener{false};
};

Registry& registry() {
    static Registry* r = new Registry(); // never destroyed: loggers may log from static destructors
    return *r;
}

} // namespace

struct Logger::Backend {
    std::shared_ptr<spdlog::logger> spd;
};

Logger::Logger(std::string name) : m_name(std::move(name)), m_backend(std::make_unique<Backend>()) {
    m_backend->spd = std::make_shared<spdlog::logger>(m_name, registry().sink);
    m_backend->spd->set_level(spdlog::level::trace); // filtering happens in wants()
    m_backend->spd->set_pattern("[%H:%M:%S.%e] [%n] [%l] %v");
}

Logger::~Logger() = default;

std::shared_ptr<Logger> Logger::createSharedLogger(const std::string& name, bool shared) {
    if (!shared)
        return std::make_shared<Logger>(name);
    auto& r = registry();
    std::lock_guard<std::mutex> lock(r.mutex);
    auto& slot = r.loggers[name];
    if (!slot)
        slot = std::make_shared<Logger>(name);
    return slot;
}

bool Logger::wants(LogLevel level) const {
    auto& r = registry();
    return r.hasListener.load(std::memory_order_acquire) ||
           static_cast<int>(level) >= r.consoleLevel.load(std::memory_order_relaxed);
}

void Logger::log(LogLevel level, const char* message) {
    log(level, std::string(message ? message : ""));
}

void Logger::log(LogLevel level, const std::string& message) {
    if (wants(level))
        write(level, message);
}

void Logger::write(LogLevel level, const std::string& message) {
    auto& r = registry();
    if (static_cast<int>(level) >= r.consoleLevel.load(std::memory_order_relaxed) && level != LogLevel::off)
        m_backend->spd->log(toSpd(level), "{}", message);
    if (r.hasListener.load(std::memory_order_acquire)) {
        std::shared_ptr<const Listener> listener;
        {
            std::lock_guard<std::mutex> lock(r.mutex);
            listener = r.listener;
        }
        if (listener && *listener)
            (*listener)(m_name, level, message);
    }
}

void Logger::setListener(Listener listener) {
    auto& r = registry();
    std::lock_guard<std::mutex> lock(r.mutex);
    if (listener) {
        r.listener = std::make_shared<const Listener>(std::move(listener));
        r.hasListener = true;
    } else {
        r.listener.reset();
        r.hasListener = false;
    }
}

void Logger::setConsoleLevel(LogLevel level) {
    registry().consoleLevel = static_cast<int>(level);
}

LogLevel Logger::consoleLevel() {
    return static_cast<LogLevel>(registry().consoleLevel.load());
}

} // namespace norda::logging
