#include "misc/logger.h"

#include <spdlog/logger.h>
#include <spdlog/sinks/basic_file_sink.h>

#include <cstdlib>
#include <memory>
#include <string>

#include "misc/file_ops.h"
#include "misc/hex.h"

namespace crv {

namespace {

spdlog::level::level_enum toSpdlog(LogLevel level) {
    static_assert(static_cast<int>(LogLevel::Error) == static_cast<int>(spdlog::level::err));
    return static_cast<spdlog::level::level_enum>(level);
}

std::unique_ptr<spdlog::logger> makeLogger() noexcept {
    const char* path = secure_getenv("CRV_LOG");
    if (!path || *path == '\0') return nullptr;
    try {
        const FileDescriptor created(FileOps().open(path, O_WRONLY | O_CREAT | O_APPEND, 0600));
        auto logger =
            std::make_unique<spdlog::logger>("crv", std::make_shared<spdlog::sinks::basic_file_sink_mt>(path));
        const char* level = secure_getenv("CRV_LOG_LEVEL");
        logger->set_level(level ? spdlog::level::from_str(level) : spdlog::level::info);
        logger->set_pattern("%Y-%m-%d %H:%M:%S.%e %P %l %v");
        logger->flush_on(spdlog::level::trace);
        return logger;
    } catch (const std::exception&) {  // a log that cannot be opened is no log
        return nullptr;
    }
}

spdlog::logger* logger() noexcept {
    static const std::unique_ptr<spdlog::logger> instance = makeLogger();
    return instance.get();
}

std::string escaped(std::string_view text) {
    std::string out;
    for (const char c : text) {
        const auto octet = static_cast<unsigned char>(c);
        if (octet >= 0x20 && octet != 0x7F) {
            out += c;
        } else {
            (out += "\\x") += toHex(c);
        }
    }
    return out;
}

}  // namespace

bool logEnabled(LogLevel level) noexcept {
    return logger() && logger()->should_log(toSpdlog(level));
}

void logLine(LogLevel level, std::string_view text) noexcept {
    logLine(level, text, {});
}

void logLine(LogLevel level, std::string_view text, std::string_view detail) noexcept {
    if (!logEnabled(level)) return;
    try {
        logger()->log(toSpdlog(level), "{}{}", escaped(text), escaped(detail));
    } catch (const std::exception&) {  // no memory for a log line: go on without it
        return;
    }
}

}  // namespace crv
