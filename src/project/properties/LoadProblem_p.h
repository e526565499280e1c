#pragma once

#include "xml/preprocessor/XMLPP2.h"

#include <QFileInfo>

// Why the document, whose load() gave `isRead`, has no root: "FILE:LINE: reason".
inline QString loadProblem(const QString &path, const XMLPP2 &document, bool isRead)
{
    if (!QFileInfo(path).isFile())
        return path + QStringLiteral(": no such file");
    const auto &[openName, openLine] = document.openElement();
    const QByteArray reason = !isRead              ? document.errorText()
                              : openName.isEmpty() ? "the document is empty or cut off"
                                                   : '<' + openName + "> has no end";
    const quint32 line = isRead ? openLine : document.errorLine();
    return QStringLiteral("%1:%2: %3").arg(path, QString::number(line + 1), QString::fromUtf8(reason));
}
