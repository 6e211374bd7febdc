// Times the steps of an entry on the thread that logs it, with Google Benchmark. `script/bench --steps` runs it; what
// counts is the column CPU, the time of the calling thread alone.

#include "Steps.h"

#include <QtCore/QLocale>

#include <map>
#include <mutex>
#include <optional>

#include <benchmark/benchmark.h>

namespace {

std::optional<Bench::Loggers> loggers;

} // namespace

Zyr::Logger& Bench::logger(const std::string& name, const std::string& settings)
{
    static std::mutex mutex;
    static std::map<std::string, Zyr::Logger*> made;
    const std::lock_guard lock(mutex);
    Zyr::Logger*& found = made[name];
    if (!found)
        found = &loggers->make(name, settings);
    return *found;
}

int main(int count, char* words[])
{
    // Else the C library asks for the file's date whenever POCO's formatter asks for the time zone.
    setenv("TZ", ":/etc/localtime", 0);
    const QCoreApplication application(count, words);
    QCoreApplication::setApplicationName(QStringLiteral("steps"));
    QLocale::setDefault(QLocale(QLocale::English, QLocale::UnitedStates));
    loggers.emplace();
    benchmark::Initialize(&count, words);
    if (benchmark::ReportUnrecognizedArguments(count, words))
        return 1;
    benchmark::AddCustomContext("compiler", Bench::compiler);
    benchmark::AddCustomContext("qt", qVersion());
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    loggers->finish();
    loggers.reset();
    return 0;
}
