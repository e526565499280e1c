#include "forth/machine/StringHeap.h"

#include "forth/machine/ForthException.h"

ForthString *StringHeap::make(const QString &text)
{
    if (m_bytes + bytesOf(text) > m_limitBytes)
        throw ForthException(ForthError::StringOverflow);
    m_strings.push_back(std::make_unique<ForthString>(ForthString{text}));
    m_bytes += bytesOf(text);
    return m_strings.back().get();
}

void StringHeap::sweep()
{
    std::erase_if(m_strings, [](const auto &string) { return !string->isMarked; });
    m_bytes = 0;
    for (const auto &string : m_strings) {
        string->isMarked = false;
        m_bytes += bytesOf(string->text);
    }
    m_nextCollection = std::min(std::max(smallestCollection, m_bytes * 2), m_limitBytes);
}
