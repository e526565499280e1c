#include "toolchain/ArchiveMembers.h"

#include "base/ByteCursor.h"

std::vector<std::span<const quint8>> archiveMembers(std::span<const quint8> archive)
{
    std::vector<std::span<const quint8>> members;
    ByteCursor cursor(archive, false);
    cursor.skip(8); // "!<arch>\n"
    while (cursor.remaining() >= 60) {
        const std::span<const quint8> header = cursor.readBytes(60);
        const QByteArrayView name = QByteArrayView(header.data(), 16).trimmed();
        bool ok = false;
        const quint64 size = QByteArrayView(header.data() + 48, 10).trimmed().toULongLong(&ok);
        std::span<const quint8> content = cursor.readBytes(size);
        if (!ok || cursor.failed())
            break;
        if (size % 2 && !cursor.atEnd())
            cursor.skip(1);
        if (name == "/" || name == "//" || name == "/SYM64/" || name == "__.SYMDEF")
            continue;
        if (name.startsWith("#1/")) { // the name takes the first bytes of the content
            const quint64 nameSize = name.sliced(3).toULongLong();
            content = content.subspan(std::min<size_t>(nameSize, content.size()));
        }
        members.push_back(content);
    }
    return members;
}

bool isBitcode(std::span<const quint8> bytes)
{
    const QByteArrayView view(bytes.data(), qsizetype(bytes.size()));
    return view.startsWith(QByteArrayView("BC\xC0\xDE", 4)) || view.startsWith(QByteArrayView("\xDE\xC0\x17\x0B", 4));
}
