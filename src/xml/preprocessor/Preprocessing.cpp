#include "xml/preprocessor/Preprocessing_p.h"

#include <QDir>
#include <QFileInfo>

using namespace Qt::StringLiterals;

QString located(const QString &message, const Origin &origin, quint32 lineFromZero)
{
    const QString line = QString::number(lineFromZero + 1);
    return message + u" : "_s + (origin.writtenIn.isEmpty() ? u"line "_s + line : origin.writtenIn + u':' + line);
}

QStringList conditionList(const QString &text)
{
    return text.split(u',', Qt::SkipEmptyParts);
}

MacroMap overriddenBy(MacroMap macros, QString macroString)
{
    macros.insert(readMacroString(macroString.remove(u'\n')));
    return macros;
}

QString includePath(const QString &name, const Origin &origin)
{
    if (QDir::isAbsolutePath(name) || origin.file.isEmpty())
        return name;
    return QDir::cleanPath(QFileInfo(origin.file).path() + u'/' + name);
}
