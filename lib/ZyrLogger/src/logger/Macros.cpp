// The part of a logging statement that is not inline.

#include <ZyrLogger/Macros.h>

namespace Zyr::Detail {

LogMessage& out(Logger& logger, unsigned char level, const char16_t* text, qsizetype length, const char* file, int line)
{
    return logger.out(level, QString::fromRawData(reinterpret_cast<const QChar*>(text), length), file, line);
}

} // namespace Zyr::Detail
