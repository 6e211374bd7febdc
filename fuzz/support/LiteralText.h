#pragma once

#include <QtCore/QList>
#include <QtCore/QMap>
#include <QtCore/QString>
#include <QtCore/QVariant>

/// What a message's text is defined to be, step by step: the arguments from the last one down, then the topics by
/// ascending key, then the escapes. Written without a look at the library's own ways, so that both do not err alike.
QString literalText(const QString& text, const QList<QVariant>& args, const QMap<QString, QVariant>& topics);
