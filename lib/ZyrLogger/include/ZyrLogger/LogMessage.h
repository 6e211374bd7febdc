#pragma once

#include <ZyrLogger/Export.h>
#include <ZyrLogger/LogLevel.h>

#include <QtCore/QList>
#include <QtCore/QMap>
#include <QtCore/QString>
#include <QtCore/QVariant>

#include <Poco/Timestamp.h>

#include <cstddef>
#include <new>
#include <string>
#include <string_view>
#include <type_traits>

namespace Zyr {

/// One log entry while it is being built: made by Logger::out(), filled by arg() and topic(), ended by endl().
///
/// It belongs to its caller until endl(), which deletes it; one that is never ended is a leak. A message is built and
/// ended by one thread at a time, which need not be the one that made it.
///
/// The fields are for completers to read; the operations keep them consistent.
class ZYRLOGGER_EXPORT LogMessage
{
    /// Types that a QVariant is not constructed from, or only ambiguously.
    template <typename T>
    static constexpr bool needsConversion =
        std::is_same_v<T, long> || std::is_same_v<T, unsigned long> || std::is_same_v<T, std::string> ||
        std::is_same_v<T, std::string_view> || std::is_same_v<T, const char*> || std::is_same_v<T, char*>;

    /// Types whose values go into the argument list without a detour, as QString does. They are taken by value: a
    /// constant that is only declared in its class has no address.
    template <typename T>
    static constexpr bool isUsualNumber =
        std::is_same_v<T, int> || std::is_same_v<T, uint> || std::is_same_v<T, qlonglong> ||
        std::is_same_v<T, qulonglong> || std::is_same_v<T, double>;

public:
    /// Receives a message when it is ended. Logger is one; derive another to take messages elsewhere.
    class Completer
    {
    public:
        Completer();
        virtual ~Completer();

        /// Called once per ended message, on the thread that ends it, perhaps by several at once. The message is
        /// destroyed afterwards: keep no reference to it and do not delete it. Exceptions are discarded.
        virtual void completeMessage(LogMessage& message) = 0;
    };

    /// Makes a message that ends without effect until setCompleter(); for entries, call Logger::out() instead.
    ///
    /// Takes the current time. `sourceFile` is UTF-8, is copied and may be null; any level is legal.
    explicit LogMessage(unsigned char messageLevel, const QString& messageText, const char* sourceFile = nullptr,
                        int sourceLine = 0);
    LogMessage(const LogMessage&) = delete;
    LogMessage& operator=(const LogMessage&) = delete;

    /// Drops an entry that endl() has not completed.
    virtual ~LogMessage();

    /// Sets who gets the message at endl(). The completer is not owned and must live until then; null removes it.
    void setCompleter(Completer* newCompleter);

    /// @name Arguments
    /// @{

    /// Appends the value of the next placeholder: the first call fills `%1`.
    ///
    /// `int`, `long long`, their unsigned siblings and `double` (six significant digits) are written by the default
    /// locale, everything else by QVariant's own conversion. `short` and `char` arrive as `int`; texts of `char` are
    /// UTF-8; `long` is not grouped. A value may itself hold placeholders, of arguments before it and of topics, which
    /// getStr() fills in as well.
    [[nodiscard]] LogMessage& arg(QVariant value);

    template <typename T, std::enable_if_t<isUsualNumber<T>, int> = 0>
    [[nodiscard]] LogMessage& arg(T value)
    {
        return append(value);
    }
    template <typename T, std::enable_if_t<std::is_same_v<T, QString>, int> = 0>
    [[nodiscard]] LogMessage& arg(const T& value)
    {
        return append(value);
    }

    template <typename T, std::enable_if_t<needsConversion<T>, int> = 0>
    [[nodiscard]] LogMessage& arg(T value)
    {
        return arg(toVariant(value));
    }
    /// @}

    /// @name Topics
    /// @{

    /// Sets the value of the placeholder `%` with the key behind it, case-sensitive; a second value replaces the first.
    ///
    /// Numbers are written by QVariant's own conversion, whatever the locale. A value may itself hold placeholders, of
    /// keys after its own, which getStr() fills in as well.
    [[nodiscard]] LogMessage& topic(const QString& key, QVariant value);

    template <typename T, std::enable_if_t<needsConversion<T>, int> = 0>
    [[nodiscard]] LogMessage& topic(const QString& key, T value)
    {
        return topic(key, toVariant(value));
    }
    /// @}

    /// The topic's value, or an invalid QVariant.
    QVariant getTopic(const QString& key) const;

    /// The text with placeholders filled in, escaped for a double-quoted field of a one-line record: quotes and
    /// backslashes get a backslash, a line feed becomes a blank, carriage returns go. Changes nothing.
    ///
    /// Arguments are filled in from the last to the first, then topics in the order of their keys, each in the result
    /// of the step before: a placeholder within a value is filled in by a later step. Placeholders without a value
    /// stay.
    ///
    /// Values that hold placeholders multiply. So filling in ends before the text (not yet escaped) would be more than
    /// 1,048,576 UTF-16 units longer than `text` and all values together: further placeholders stay, and the text ends
    /// in " [placeholders left unfilled: the text would be too long]".
    QString getStr();

    /// Empties everything but the completer and the time.
    void clear();

    /// Hands the message to its completer, on this thread, and deletes it: it must have been made by `new`. Never
    /// throws.
    void endl();

    Completer* completer = nullptr;            ///< not owned; null where endl() has no effect
    QList<QVariant>* args = nullptr;           ///< owned; null until the first arg()
    QMap<QString, QVariant>* topics = nullptr; ///< owned; null until the first topic()
    LogLevel level;                            ///< may be none of the named ones
    QString text;                              ///< with the placeholders
    QString file;                              ///< as the caller named it, path included; may be empty
    int line;                                  ///< 0 where the caller gave none
    Poco::Timestamp timestamp;                 ///< when the message was made, not when it was ended

    /// @name Memory
    /// @{

    /// The memory of messages that were deleted serves the next ones of the same thread; of derived classes and with an
    /// alignment, none is kept.
    static void* operator new(std::size_t size);
    static void* operator new(std::size_t, void* place) noexcept { return place; }
    static void* operator new(std::size_t size, const std::nothrow_t& tag) noexcept
    {
        return ::operator new(size, tag);
    }
    static void* operator new(std::size_t size, std::align_val_t alignment) { return ::operator new(size, alignment); }
    static void operator delete(void* memory, std::size_t size) noexcept;
    static void operator delete(void* memory, std::align_val_t alignment) noexcept
    {
        ::operator delete(memory, alignment);
    }
    /// @}

private:
    LogMessage& append(int value);
    LogMessage& append(uint value);
    LogMessage& append(qlonglong value);
    LogMessage& append(qulonglong value);
    LogMessage& append(double value);
    LogMessage& append(const QString& value);
    template <typename T>
    ZYRLOGGER_NO_EXPORT LogMessage& emplace(T&& value);
    ZYRLOGGER_NO_EXPORT void releaseContainers() noexcept;

    static QVariant toVariant(long value) { return QVariant::fromValue(value); }
    static QVariant toVariant(unsigned long value) { return QVariant::fromValue(value); }
    static QVariant toVariant(const char* utf8) { return QString::fromUtf8(utf8); }
    static QVariant toVariant(std::string_view utf8)
    {
        return QString::fromUtf8(utf8.data(), static_cast<qsizetype>(utf8.size()));
    }
};

} // namespace Zyr
