// Edits the settings file in place and waits for the logger's own record of the new settings.

#include "Operator.h"

#include <QtCore/QCoreApplication>
#include <QtCore/QFile>
#include <QtCore/QRegularExpression>
#include <QtCore/QTimer>

#include <chrono>
#include <cstdio>
#include <utility>

using namespace Qt::StringLiterals;
using namespace std::chrono_literals;

Operator::Operator(QString fileToEdit)
    : settingsFile(std::move(fileToEdit))
{
    Zyr::Logger::instance().registerLogListener(this);
}

Operator::~Operator()
{
    Zyr::Logger::instance().unregisterLogListener(this);
}

void Operator::edit(const QMap<QString, QString>& changes, std::function<void()> applied)
{
    whenApplied = std::move(applied);
    QTimer::singleShot(10s, qApp, [this] {
        if (!whenApplied)
            return;
        std::fprintf(stderr, "%s: the change did not take effect\n", qUtf8Printable(settingsFile));
        QCoreApplication::exit(1);
    });

    QFile file(settingsFile);
    if (!file.open(QIODevice::ReadWrite))
        return;
    QString text = QString::fromUtf8(file.readAll());
    for (auto change = changes.begin(); change != changes.end(); ++change) {
        const QRegularExpression line(u"^%1=.*$"_s.arg(change.key()), QRegularExpression::MultilineOption);
        text.replace(line, change.key() + u'=' + change.value());
    }
    file.resize(0);
    file.write(text.toUtf8());
}

/// The announcement comes on the thread that watches the settings files, so the rest is left to the event loop.
void Operator::handleMessage(QString, QString, QString text)
{
    const auto confirm = [this] {
        if (const auto applied = std::exchange(whenApplied, {}))
            applied();
    };
    if (text.endsWith("Logger configuration changed"_L1))
        QMetaObject::invokeMethod(qApp, confirm, Qt::QueuedConnection);
}
