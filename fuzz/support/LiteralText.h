#pragma once

#include <QtCore/QList>
#include <QtCore/QMap>
#include <QtCore/QString>
#include <QtCore/QVariant>

/// The end of a text whose placeholders could not all be filled in.
inline const QString unfilledMark = QStringLiteral(" [placeholders left unfilled: the text would be too long]");

/// Max. UTF-16 units of a message's text before it is escaped: 2^20 more than text and values together.
qsizetype maxUnits(const QString& text, const QList<QVariant>& args, const QMap<QString, QVariant>& topics);

/// A message's text as it is defined, step by step: the arguments from the last to the first, then the topics by
/// ascending key, each up to maxUnits(); then the escapes, and the mark. Written independently of the library, so that
/// both do not have the same mistake.
QString literalText(const QString& text, const QList<QVariant>& args, const QMap<QString, QVariant>& topics);
