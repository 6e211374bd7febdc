#pragma once

#include <ZyrTools/Misc.h>

#include <string>

namespace Zyr {

/// Says on standard error what is wrong with that log file.
inline void reportLogProblem(const std::string& logPath, const QString& problem)
{
    Misc::reportProblem(QStringLiteral("log file '%1'").arg(QString::fromStdString(logPath)), problem);
}

} // namespace Zyr
