// A listener gets every record that is written: here it counts the serious ones, as for a lamp at the front panel.

#include <ZyrLogger/Logger.h>
#include <ZyrLogger/Macros.h>

#include <QtCore/QCoreApplication>

#include <atomic>
#include <cstdio>

using namespace Qt::StringLiterals;

class Lamp : public Zyr::Logger::LogListener
{
public:
    Lamp() { Zyr::Logger::instance().registerLogListener(this); }
    ~Lamp() override { Zyr::Logger::instance().unregisterLogListener(this); }

    /// On the thread that logs, maybe on several at once. The names are those of the setting priorityNames.
    void handleMessage(QString priority, QString, QString) override
    {
        if (priority == "error"_L1 || priority == "panic"_L1 || priority == "fatal"_L1)
            ++count;
    }

    int errors() const { return count; }

private:
    std::atomic<int> count = 0;
};

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    app.setApplicationName(u"pump"_s);
    const Lamp lamp;
    ZYR_INFO("Pump starts").endl();
    ZYR_ERROR("No water").endl();
    ZYR_DEBUG("Below the level: not written, not counted").endl();
    std::printf("%d error(s)\n", lamp.errors());
}
