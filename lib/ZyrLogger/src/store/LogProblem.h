#pragma once

#include <ZyrTools/Misc.h>

#include <string>

namespace Zyr {

/// Reports a problem with that log file on standard error.
inline void reportLogProblem(const std::string& logPath, const QString& problem)
{
    Misc::reportProblem(QStringLiteral("log file '%1'").arg(QString::fromStdString(logPath)), problem);
}

} // namespace Zyr
