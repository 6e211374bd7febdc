#pragma once

#include <QtCore/QList>
#include <QtCore/QMap>
#include <QtCore/QString>
#include <QtCore/QVariant>

/// What a text ends in that could not be filled to the end.
inline const QString unfilledMark = QStringLiteral(" [placeholders left unfilled: the text would be too long]");

/// How many UTF-16 units a message's text may have before it is escaped: a mebi more than text and values together.
qsizetype maxUnits(const QString& text, const QList<QVariant>& args, const QMap<QString, QVariant>& topics);

/// What a message's text is defined to be, step by step: the arguments from the last one down, then the topics by
/// ascending key, each as long as the text has no more than the most units; then the escapes, and the mark. Written
/// without a look at the library's own ways, so that both do not err alike.
QString literalText(const QString& text, const QList<QVariant>& args, const QMap<QString, QVariant>& topics);
