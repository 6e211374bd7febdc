// POCO's own channels, and by hand what libZyrLogger adds to them: numbers by the locale, placeholders, escapes.

#include "Workload.h"

#include <Poco/AsyncChannel.h>
#include <Poco/AutoPtr.h>
#include <Poco/Event.h>
#include <Poco/FileChannel.h>
#include <Poco/FormattingChannel.h>
#include <Poco/Logger.h>
#include <Poco/PatternFormatter.h>
#include <Poco/Version.h>

namespace {

/// Tells when the last record is in the file: AsyncChannel::close() polls only ten times a second.
class CountingFileChannel : public Poco::FileChannel
{
public:
    CountingFileChannel(const std::string& path, int records)
        : Poco::FileChannel(path)
        , missing(records)
    {
    }

    void log(const Poco::Message& message) override
    {
        Poco::FileChannel::log(message);
        if (--missing == 0)
            complete.set();
    }

    void waitForLast()
    {
        if (!complete.tryWait(60'000))
            throw std::runtime_error(std::to_string(missing) + " records did not come to the file");
    }

protected:
    ~CountingFileChannel() override = default;

private:
    int missing; // only the asynchronous channel's thread writes
    Poco::Event complete;
};

class PocoChannels
{
public:
    static constexpr const char* name = "POCO";
    static std::string version()
    {
        return std::to_string(POCO_VERSION >> 24) + '.' + std::to_string((POCO_VERSION >> 16) & 0xff) + '.' +
               std::to_string((POCO_VERSION >> 8) & 0xff);
    }

    PocoChannels(const QString& path, int records)
        : file(new CountingFileChannel(path.toStdString(), records))
        , async(new Poco::AsyncChannel(file))
        , text(QStringLiteral("pump %1 on line %2 has a pressure of %3 bar"))
    {
        file->setProperty(Poco::FileChannel::PROP_ROTATION, "never");
        file->setProperty(Poco::FileChannel::PROP_FLUSH, "false");
        Poco::AutoPtr<Poco::PatternFormatter> formatter(
            new Poco::PatternFormatter(R"({"timestamp":"%Y-%m-%dT%H:%M:%S.%i%Z","level":"%p","msg":"%t"})"));
        formatter->setProperty(Poco::PatternFormatter::PROP_TIMES, "local");
        formatter->setProperty(Poco::PatternFormatter::PROP_PRIORITY_NAMES,
                               "fatal,panic,error,warn,notice,info,debug,trace");
        Poco::AutoPtr<Poco::FormattingChannel> formatting(new Poco::FormattingChannel(formatter, async));
        logger = &Poco::Logger::create("Bench", formatting);
    }

    ~PocoChannels() { async->close(); }

    void log(int number, const QString& line, double pressure)
    {
        poco_information(*logger, fill(number, line, pressure));
    }

    /// What poco_debug() is in a program built for debugging; else that is nothing at all.
    void logDisabled(int number, const QString& line, double pressure)
    {
        if (logger->debug())
            logger->debug(fill(number, line, pressure), __FILE__, __LINE__);
    }

    void makeArguments(int, const QString&, double) {}

    void finish()
    {
        file->waitForLast();
        file->close(); // and writes what it buffered
    }

private:
    std::string fill(int number, const QString& line, double pressure) const
    {
        const QLocale locale;
        QString filled = text;
        filled.replace(QLatin1String("%3"), locale.toString(pressure, 'g', 6));
        filled.replace(QLatin1String("%2"), line);
        filled.replace(QLatin1String("%1"), locale.toString(number));
        filled.replace(u'\\', QLatin1String("\\\\"));
        filled.replace(u'"', QLatin1String("\\\""));
        filled.remove(u'\r');
        filled.replace(u'\n', u' ');
        return filled.toStdString();
    }

    Poco::AutoPtr<CountingFileChannel> file;
    Poco::AutoPtr<Poco::AsyncChannel> async;
    const QString text;
    Poco::Logger* logger = nullptr;
};

} // namespace

int main(int count, char* words[])
{
    return Bench::run<PocoChannels>(count, words);
}
