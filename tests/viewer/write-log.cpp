// Writes what check.sh looks for: each level, a text that JSON needs escapes for and one that breaks it, and enough
// more that archives come of it.

#include <ZyrLogger/Logger.h>

#include <QtCore/QCoreApplication>
#include <QtCore/QThread>

using namespace Qt::StringLiterals;

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    app.setApplicationName(u"pump"_s);
    const auto write = [](unsigned char level, const QString& text) {
        Zyr::Logger::instance().out(level, text).endl();
        QThread::msleep(1); // a time of its own for each record: the viewer goes by the time alone
    };
    for (const unsigned char level : {0, 1, 2, 3, 4, 5, 6, 7, 8, 11, 12})
        write(level, u"Level "_s + QString::number(level));
    write(Zyr::Warning, u"Valve \"V3\" in C:\\valves: 48 °C, 阀, 🚰"_s);
    write(Zyr::Warning, u"Raw\ttab"_s);
    for (int i = 1; i <= 300; ++i)
        write(Zyr::Info, u"Record "_s + QString::number(i));
}
