// The main logger: how it is made at the first call, and how it ends.

#pragma once

#include <ZyrLogger/Logger.h>

#include <QtCore/QStringView>

#include <cstddef>

namespace Zyr {

/// Where the main logger lives. Only its end belongs to static destruction: the object itself stays, so that whoever
/// logs after that still finds a logger, one whose operations are harmless.
class MainLogger
{
public:
    static constexpr QStringView name = u"MainLogger";

    /// Made, and started unless the calling thread is just doing that or another process has made it.
    static Logger& instance();

private:
    MainLogger();
    ~MainLogger();
    MainLogger(const MainLogger&) = delete;
    MainLogger& operator=(const MainLogger&) = delete;

    static Logger& logger();
    static void start();

    alignas(Logger) static std::byte storage[sizeof(Logger)];
};

} // namespace Zyr
