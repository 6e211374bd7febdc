// spdlog's asynchronous logger: one worker, 8192 slots; callers wait while all are taken. The worker formats the
// line. Built twice: with ZYR_BENCH_PLAIN, texts are not escaped, and a quote in one of them breaks its line.

#include "JsonText.h"
#include "Workload.h"

#include <spdlog/async.h>
#include <spdlog/sinks/basic_file_sink.h>
#include <spdlog/spdlog.h>
#include <spdlog/version.h>

#include <memory>

namespace {

class Spdlog
{
public:
#ifdef ZYR_BENCH_PLAIN
    static constexpr const char* name = "spdlog, not escaped";
    static std::string text(const QString& line)
    {
        return line.toStdString();
    }
#else
    static constexpr const char* name = "spdlog";
    static std::string text(const QString& line)
    {
        return Bench::jsonText(line);
    }
#endif
    static std::string version()
    {
        return std::to_string(SPDLOG_VER_MAJOR) + '.' + std::to_string(SPDLOG_VER_MINOR) + '.' +
               std::to_string(SPDLOG_VER_PATCH);
    }

    Spdlog(const QString& file, int)
    {
        spdlog::init_thread_pool(8192, 1);
        logger = spdlog::basic_logger_mt<spdlog::async_factory>("bench", file.toStdString());
        logger->set_pattern(R"({"timestamp":"%Y-%m-%dT%H:%M:%S.%e%z","level":"%l","msg":"%v"})");
    }

    void log(int number, const QString& line, double pressure)
    {
        SPDLOG_LOGGER_INFO(logger, "pump {} on line {} has a pressure of {} bar", number, text(line), pressure);
    }

    /// SPDLOG_LOGGER_DEBUG is nothing at all unless the program is built for debugging. The text is ready: the time to
    /// make it varies by more than the rest takes.
    void logDisabled(int number, const QString&, double pressure)
    {
        SPDLOG_LOGGER_CALL(logger, spdlog::level::debug, "pump {} on line {} has a pressure of {} bar", number, ready,
                           pressure);
    }

    void makeArguments(int, const QString&, double)
    {
    }

    /// The worker empties its queue before it ends; the file is closed with the last one who knows the logger.
    void finish()
    {
        logger.reset();
        spdlog::shutdown();
    }

private:
    const std::string ready = text(Bench::Record::Lines().of(0));
    std::shared_ptr<spdlog::logger> logger;
};

} // namespace

int main(int count, char* words[])
{
    return Bench::run<Spdlog>(count, words);
}
