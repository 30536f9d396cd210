#pragma once
// Named loggers shared across the library.
//
// Logger::createSharedLogger(name, true) returns the same logger for the same name, so every
// instance of an element writes through one logger ("OFFSET", "MINMAX", ...). Records go to the
// console (standard error) through spdlog, filtered by the console level, which starts from the
// environment variable NORDA_LOG_LEVEL ("trace" ... "critical", "off"; default "info").
// A host or a test may install one listener that receives every record, whatever the console level.

#include "nordalib/core/logging/LogLevel.h"

#include <fmt/format.h>

#include <functional>
#include <memory>
#include <string>

namespace norda::logging {

class Logger {
public:
    using Listener =
        std::function<void(const std::string& logger, LogLevel level, const std::string& message)>;

    // shared = true: one logger per name, created on first use. false: a private logger.
    static std::shared_ptr<Logger> createSharedLogger(const std::string& name, bool shared);

    void log(LogLevel level, const char* message);
    void log(LogLevel level, const std::string& message);
    // "{}" placeholders, formatted only when someone will read the record.
    template <typename... Args> void log(LogLevel level, fmt::format_string<Args...> format, Args&&... args) {
        if (wants(level))
            write(level, fmt::format(format, std::forward<Args>(args)...));
    }

    const std::string& getName() const { return m_name; }
    // Whether a record of this level reaches the console or the listener.
    bool wants(LogLevel level) const;

    // Receives every record of every logger; an empty function removes it.
    static void setListener(Listener listener);
    // Console level for all loggers.
    static void setConsoleLevel(LogLevel level);
    static LogLevel consoleLevel();

    explicit Logger(std::string name); // use createSharedLogger
    ~Logger();

private:
    void write(LogLevel level, const std::string& message);

    std::string m_name;
    struct Backend;
    std::unique_ptr<Backend> m_backend;
};

} // namespace norda::logging
