// Times the steps of an entry on the thread that logs it, with Google Benchmark. `script/bench --steps` runs it; what
// counts is the column CPU, the time of the calling thread alone.
//
//   steps [--dirty] [<an option of Google Benchmark>...]
//
// --dirty: before each step that begins in the library, something is left in the upper part of a vector register, as
// code for AVX may leave it. That alone takes less than a nanosecond.

#include "Steps.h"

#include <QtCore/QLocale>

#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstdio>
#include <map>
#include <mutex>
#include <optional>
#include <string_view>

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

bool Bench::leavesDirty = false;

void Bench::useVectorRegisters() noexcept
{
#if defined(__x86_64__)
    if (__builtin_cpu_supports("avx512f"))
        asm volatile("vpternlogd $0xff, %%zmm15, %%zmm15, %%zmm15" ::: "xmm15");
    else
        asm volatile("vcmptrueps %%ymm15, %%ymm15, %%ymm15" ::: "xmm15");
#endif
}

namespace {

/// Removes the option from the arguments, which are then Google Benchmark's. False where this machine lacks AVX.
bool takeDirty(int& count, char* words[])
{
    char** const end = std::remove(words + 1, words + count, std::string_view("--dirty"));
    Bench::leavesDirty = end != words + count;
    count = int(end - words);
#if defined(__x86_64__)
    return !Bench::leavesDirty || __builtin_cpu_supports("avx");
#else
    return !Bench::leavesDirty;
#endif
}

} // namespace

int main(int count, char* words[])
{
    // Else the C library asks for the file's date whenever POCO's formatter asks for the time zone.
    setenv("TZ", ":/etc/localtime", 0);
    if (!takeDirty(count, words)) {
        std::fputs("This processor has no upper parts of vector registers\n", stderr);
        return 1;
    }
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
