#include "xml/tool/XmlCommands.h"

int main(int count, char **words)
{
    QStringList arguments;
    for (int i = 0; i < count; ++i)
        arguments += QString::fromLocal8Bit(words[i]);
    const CommandLine program("vnXml", "Resolves and lays out description files, and calculates as they do.",
                              xmlVerbs());
    return program.run(arguments, VN_VERSION);
}
