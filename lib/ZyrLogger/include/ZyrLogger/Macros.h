#pragma once

#include <ZyrLogger/CallSite.h>
#include <ZyrLogger/ClassLogger.h>
#include <ZyrLogger/Logger.h>

#include <QtCore/QString>

#include <cstddef>
#include <type_traits>

/// @file
/// Statements that log and cost next to nothing while their level is off:
///
/// \code
/// ZYR_ERROR("Tank %1 holds %2 litres").arg(name).arg(measure()).endl();
/// \endcode
///
/// The level is asked first, and while it is off, nothing of the statement is evaluated: no argument, no topic. With
/// the setting `checkRepeatedMsg` no level is off, since repeats below it are counted too. The entry carries source
/// file and line. Each is one statement, also where braces are left out. The text is a string literal, without u or _s,
/// that is stored as UTF-16: nothing is allocated or counted for it. Other texts do not compile; use an argument (`%1`)
/// or Zyr::Logger::out() for those.
///
/// There are these for each level; ERROR stands for all of them:
///
/// | Macro | Writes |
/// |---|---|
/// | #ZYR_ERROR | through the main logger |
/// | #ZYR_ERROR_EVERY | every n-th entry of the statement |
/// | #ZYR_ERROR_AT_MOST | at most n entries of the statement per second |
/// | #ZYR_ERROR_TO, #ZYR_ERROR_EVERY_TO, #ZYR_ERROR_AT_MOST_TO | the same through a logger of your own |
///
/// A level that the application itself has raised at the Poco::Logger is noticed with the next entry that is made, of
/// any kind (Zyr::Logger::isEnabled()).
///
/// Only entries that pass the level count. A statement in a template counts per instance, one in an inline function
/// once for all its users in a library or program.

#ifndef ZYR_LOG_FLOOR
/// Removes the statements below that level from an optimised program, text included; they are still compiled. It is
/// Zyr::Trace, which removes none, unless you define it.
///
/// Do so before a statement, or for the compiler: `-DZYR_LOG_FLOOR=::Zyr::Info`. What counts is the priority, so that
/// Zyr::Notice keeps System, and Zyr::Debug keeps Todo. `logger` and `n` of a statement that is removed are not
/// evaluated; otherwise `logger` is evaluated once, and `n` once if the level is on.
#define ZYR_LOG_FLOOR ::Zyr::Trace
#endif

namespace Zyr::Detail {

/// The logger where the level is on, for the loop of a statement; null elsewhere.
inline Logger* ifEnabled(Logger& logger, unsigned char level) noexcept
{
    return logger.isEnabled(level) ? &logger : nullptr;
}

inline Logger* ifEnabled(const ClassLogger& logger, unsigned char level)
{
    return ifEnabled(logger.getLogger(), level);
}

/// Deleted: the temporary would be destroyed before the entry is made.
void ifEnabled(const ClassLogger&& temporary, unsigned char level) = delete;

/// Logger::out() with a string literal. Not inline: the statements shall be small.
[[nodiscard]] ZYRLOGGER_EXPORT LogMessage& out(Logger& logger, unsigned char level, const char16_t* text,
                                               qsizetype length, const char* file, int line);

template <std::size_t size>
[[nodiscard]] LogMessage& out(Logger& logger, unsigned char level, const char16_t (&text)[size], const char* file,
                              int line)
{
    return out(logger, level, text, static_cast<qsizetype>(size - 1), file, line);
}

} // namespace Zyr::Detail

// clang-format off

// A loop: with an if, compilers would warn of missing braces where the statement is itself a branch of an if.
#define ZYR_DETAIL_KEPT(level) \
    (::std::bool_constant<(::Zyr::priorityOf(level) <= ::Zyr::priorityOf(ZYR_LOG_FLOOR))>::value)
#define ZYR_DETAIL_NAMED(name, level, logger, refused, text) \
    for (::Zyr::Logger* name = ZYR_DETAIL_KEPT(level) ? ::Zyr::Detail::ifEnabled(logger, level) : nullptr; \
         ZYR_DETAIL_KEPT(level) && name && !(false refused); name = nullptr) \
        ::Zyr::Detail::out(*name, level, u"" text, __FILE__, __LINE__)

// A variable name of its own for every statement: one may be in a lambda within another.
#define ZYR_DETAIL_UNIQUE(number, level, logger, refused, text) \
    ZYR_DETAIL_NAMED(zyrLogger##number, level, logger, refused, text)
#define ZYR_DETAIL_COUNTED(number, level, logger, refused, text) \
    ZYR_DETAIL_UNIQUE(number, level, logger, refused, text)
#define ZYR_DETAIL_LOG(level, logger, refused, text) \
    ZYR_DETAIL_COUNTED(__COUNTER__, level, logger, refused, text)

// A static variable needs a lambda to be part of an expression.
#define ZYR_DETAIL_SITE(type) ([]() noexcept -> type& { static type zyrCallSite; return zyrCallSite; }())

#define ZYR_DETAIL_ALL(level, logger, text) ZYR_DETAIL_LOG(level, logger, , text)
#define ZYR_DETAIL_EVERY(level, logger, n, text) \
    ZYR_DETAIL_LOG(level, logger, || !ZYR_DETAIL_SITE(::Zyr::Detail::EveryNth).pass(n), text)
#define ZYR_DETAIL_AT_MOST(level, logger, n, text) \
    ZYR_DETAIL_LOG(level, logger, || !ZYR_DETAIL_SITE(::Zyr::Detail::AtMostPerSecond).pass(n), text)
#define ZYR_DETAIL_MAIN ::Zyr::Logger::instance()

// The texts stand for those of the other levels too.

/// Logs through the main logger, Zyr::Logger::instance(), at the level of the macro's name. `text` is a string literal.
#define ZYR_EMERG(text) ZYR_DETAIL_ALL(::Zyr::Emerg, ZYR_DETAIL_MAIN, text)
/// Logs the 1st, the n+1st, the 2n+1st and so on entry of this statement through the main logger. An `n` below 2 lets
/// all pass; it may differ from call to call.
#define ZYR_EMERG_EVERY(n, text) ZYR_DETAIL_EVERY(::Zyr::Emerg, ZYR_DETAIL_MAIN, n, text)
/// Logs at most `n` entries of this statement through the main logger in a second, which begins with the first of them.
/// An `n` below 1 lets none pass, one above 65535 counts as that; it may differ from call to call.
#define ZYR_EMERG_AT_MOST(n, text) ZYR_DETAIL_AT_MOST(::Zyr::Emerg, ZYR_DETAIL_MAIN, n, text)
/// Logs through `logger`, a Zyr::Logger or Zyr::ClassLogger, like `*pointer`.
#define ZYR_EMERG_TO(logger, text) ZYR_DETAIL_ALL(::Zyr::Emerg, logger, text)
/// Logs the 1st, the n+1st, the 2n+1st and so on entry of this statement through `logger`; they are counted whichever
/// logger they go to. Otherwise as without `_TO`.
#define ZYR_EMERG_EVERY_TO(logger, n, text) ZYR_DETAIL_EVERY(::Zyr::Emerg, logger, n, text)
/// Logs at most `n` entries of this statement through `logger` in a second; they are counted whichever logger they go
/// to. Otherwise as without `_TO`.
#define ZYR_EMERG_AT_MOST_TO(logger, n, text) ZYR_DETAIL_AT_MOST(::Zyr::Emerg, logger, n, text)

#define ZYR_ALERT(text) ZYR_DETAIL_ALL(::Zyr::Alert, ZYR_DETAIL_MAIN, text)
#define ZYR_ALERT_EVERY(n, text) ZYR_DETAIL_EVERY(::Zyr::Alert, ZYR_DETAIL_MAIN, n, text)
#define ZYR_ALERT_AT_MOST(n, text) ZYR_DETAIL_AT_MOST(::Zyr::Alert, ZYR_DETAIL_MAIN, n, text)
#define ZYR_ALERT_TO(logger, text) ZYR_DETAIL_ALL(::Zyr::Alert, logger, text)
#define ZYR_ALERT_EVERY_TO(logger, n, text) ZYR_DETAIL_EVERY(::Zyr::Alert, logger, n, text)
#define ZYR_ALERT_AT_MOST_TO(logger, n, text) ZYR_DETAIL_AT_MOST(::Zyr::Alert, logger, n, text)

#define ZYR_CRITICAL(text) ZYR_DETAIL_ALL(::Zyr::Critical, ZYR_DETAIL_MAIN, text)
#define ZYR_CRITICAL_EVERY(n, text) ZYR_DETAIL_EVERY(::Zyr::Critical, ZYR_DETAIL_MAIN, n, text)
#define ZYR_CRITICAL_AT_MOST(n, text) ZYR_DETAIL_AT_MOST(::Zyr::Critical, ZYR_DETAIL_MAIN, n, text)
#define ZYR_CRITICAL_TO(logger, text) ZYR_DETAIL_ALL(::Zyr::Critical, logger, text)
#define ZYR_CRITICAL_EVERY_TO(logger, n, text) ZYR_DETAIL_EVERY(::Zyr::Critical, logger, n, text)
#define ZYR_CRITICAL_AT_MOST_TO(logger, n, text) ZYR_DETAIL_AT_MOST(::Zyr::Critical, logger, n, text)

#define ZYR_ERROR(text) ZYR_DETAIL_ALL(::Zyr::Error, ZYR_DETAIL_MAIN, text)
#define ZYR_ERROR_EVERY(n, text) ZYR_DETAIL_EVERY(::Zyr::Error, ZYR_DETAIL_MAIN, n, text)
#define ZYR_ERROR_AT_MOST(n, text) ZYR_DETAIL_AT_MOST(::Zyr::Error, ZYR_DETAIL_MAIN, n, text)
#define ZYR_ERROR_TO(logger, text) ZYR_DETAIL_ALL(::Zyr::Error, logger, text)
#define ZYR_ERROR_EVERY_TO(logger, n, text) ZYR_DETAIL_EVERY(::Zyr::Error, logger, n, text)
#define ZYR_ERROR_AT_MOST_TO(logger, n, text) ZYR_DETAIL_AT_MOST(::Zyr::Error, logger, n, text)

#define ZYR_WARNING(text) ZYR_DETAIL_ALL(::Zyr::Warning, ZYR_DETAIL_MAIN, text)
#define ZYR_WARNING_EVERY(n, text) ZYR_DETAIL_EVERY(::Zyr::Warning, ZYR_DETAIL_MAIN, n, text)
#define ZYR_WARNING_AT_MOST(n, text) ZYR_DETAIL_AT_MOST(::Zyr::Warning, ZYR_DETAIL_MAIN, n, text)
#define ZYR_WARNING_TO(logger, text) ZYR_DETAIL_ALL(::Zyr::Warning, logger, text)
#define ZYR_WARNING_EVERY_TO(logger, n, text) ZYR_DETAIL_EVERY(::Zyr::Warning, logger, n, text)
#define ZYR_WARNING_AT_MOST_TO(logger, n, text) ZYR_DETAIL_AT_MOST(::Zyr::Warning, logger, n, text)

#define ZYR_NOTICE(text) ZYR_DETAIL_ALL(::Zyr::Notice, ZYR_DETAIL_MAIN, text)
#define ZYR_NOTICE_EVERY(n, text) ZYR_DETAIL_EVERY(::Zyr::Notice, ZYR_DETAIL_MAIN, n, text)
#define ZYR_NOTICE_AT_MOST(n, text) ZYR_DETAIL_AT_MOST(::Zyr::Notice, ZYR_DETAIL_MAIN, n, text)
#define ZYR_NOTICE_TO(logger, text) ZYR_DETAIL_ALL(::Zyr::Notice, logger, text)
#define ZYR_NOTICE_EVERY_TO(logger, n, text) ZYR_DETAIL_EVERY(::Zyr::Notice, logger, n, text)
#define ZYR_NOTICE_AT_MOST_TO(logger, n, text) ZYR_DETAIL_AT_MOST(::Zyr::Notice, logger, n, text)

#define ZYR_INFO(text) ZYR_DETAIL_ALL(::Zyr::Info, ZYR_DETAIL_MAIN, text)
#define ZYR_INFO_EVERY(n, text) ZYR_DETAIL_EVERY(::Zyr::Info, ZYR_DETAIL_MAIN, n, text)
#define ZYR_INFO_AT_MOST(n, text) ZYR_DETAIL_AT_MOST(::Zyr::Info, ZYR_DETAIL_MAIN, n, text)
#define ZYR_INFO_TO(logger, text) ZYR_DETAIL_ALL(::Zyr::Info, logger, text)
#define ZYR_INFO_EVERY_TO(logger, n, text) ZYR_DETAIL_EVERY(::Zyr::Info, logger, n, text)
#define ZYR_INFO_AT_MOST_TO(logger, n, text) ZYR_DETAIL_AT_MOST(::Zyr::Info, logger, n, text)

#define ZYR_DEBUG(text) ZYR_DETAIL_ALL(::Zyr::Debug, ZYR_DETAIL_MAIN, text)
#define ZYR_DEBUG_EVERY(n, text) ZYR_DETAIL_EVERY(::Zyr::Debug, ZYR_DETAIL_MAIN, n, text)
#define ZYR_DEBUG_AT_MOST(n, text) ZYR_DETAIL_AT_MOST(::Zyr::Debug, ZYR_DETAIL_MAIN, n, text)
#define ZYR_DEBUG_TO(logger, text) ZYR_DETAIL_ALL(::Zyr::Debug, logger, text)
#define ZYR_DEBUG_EVERY_TO(logger, n, text) ZYR_DETAIL_EVERY(::Zyr::Debug, logger, n, text)
#define ZYR_DEBUG_AT_MOST_TO(logger, n, text) ZYR_DETAIL_AT_MOST(::Zyr::Debug, logger, n, text)

#define ZYR_TRACE(text) ZYR_DETAIL_ALL(::Zyr::Trace, ZYR_DETAIL_MAIN, text)
#define ZYR_TRACE_EVERY(n, text) ZYR_DETAIL_EVERY(::Zyr::Trace, ZYR_DETAIL_MAIN, n, text)
#define ZYR_TRACE_AT_MOST(n, text) ZYR_DETAIL_AT_MOST(::Zyr::Trace, ZYR_DETAIL_MAIN, n, text)
#define ZYR_TRACE_TO(logger, text) ZYR_DETAIL_ALL(::Zyr::Trace, logger, text)
#define ZYR_TRACE_EVERY_TO(logger, n, text) ZYR_DETAIL_EVERY(::Zyr::Trace, logger, n, text)
#define ZYR_TRACE_AT_MOST_TO(logger, n, text) ZYR_DETAIL_AT_MOST(::Zyr::Trace, logger, n, text)

#define ZYR_SYSTEM(text) ZYR_DETAIL_ALL(::Zyr::System, ZYR_DETAIL_MAIN, text)
#define ZYR_SYSTEM_EVERY(n, text) ZYR_DETAIL_EVERY(::Zyr::System, ZYR_DETAIL_MAIN, n, text)
#define ZYR_SYSTEM_AT_MOST(n, text) ZYR_DETAIL_AT_MOST(::Zyr::System, ZYR_DETAIL_MAIN, n, text)
#define ZYR_SYSTEM_TO(logger, text) ZYR_DETAIL_ALL(::Zyr::System, logger, text)
#define ZYR_SYSTEM_EVERY_TO(logger, n, text) ZYR_DETAIL_EVERY(::Zyr::System, logger, n, text)
#define ZYR_SYSTEM_AT_MOST_TO(logger, n, text) ZYR_DETAIL_AT_MOST(::Zyr::System, logger, n, text)

#define ZYR_TODO(text) ZYR_DETAIL_ALL(::Zyr::Todo, ZYR_DETAIL_MAIN, text)
#define ZYR_TODO_EVERY(n, text) ZYR_DETAIL_EVERY(::Zyr::Todo, ZYR_DETAIL_MAIN, n, text)
#define ZYR_TODO_AT_MOST(n, text) ZYR_DETAIL_AT_MOST(::Zyr::Todo, ZYR_DETAIL_MAIN, n, text)
#define ZYR_TODO_TO(logger, text) ZYR_DETAIL_ALL(::Zyr::Todo, logger, text)
#define ZYR_TODO_EVERY_TO(logger, n, text) ZYR_DETAIL_EVERY(::Zyr::Todo, logger, n, text)
#define ZYR_TODO_AT_MOST_TO(logger, n, text) ZYR_DETAIL_AT_MOST(::Zyr::Todo, logger, n, text)

// clang-format on
