#include "forth/machine/Source.h"

#include "forth/machine/ForthException.h"

#include <cerrno>

using namespace Qt::StringLiterals;

void Source::checkLength(size_t length)
{
    if (length > maximumLineLength)
        throw ForthException(ForthError::StringOverflow, u"line of more than 255 characters"_s);
}

bool StringSource::refill()
{
    if (m_lineNumber != 0)
        return false;
    m_lineNumber = 1;
    checkLength(size_t(m_text.size()));
    m_length = size_t(m_text.size());
    std::memcpy(m_buffer.data(), m_text.constData(), m_length + 1);
    return true;
}

int FileSource::close()
{
    std::FILE *file = std::exchange(m_file, nullptr);
    return file && std::fclose(file) != 0 ? errno : 0;
}

bool FileSource::refill()
{
    int c = getc_unlocked(m_file);
    if (c == EOF && std::ferror(m_file))
        throw ForthException(ForthError::FileError, name());
    if (c == EOF)
        return false;
    ++m_lineNumber;
    m_length = 0;
    for (; c != EOF && c != '\n' && c != '\r'; c = getc_unlocked(m_file)) {
        if (m_length == maximumLineLength) {
            std::ungetc(c, m_file);
            checkLength(m_length + 1);
        }
        m_buffer[m_length++] = char(c);
    }
    m_buffer[m_length] = '\0';
    if (c == '\r' && (c = getc_unlocked(m_file)) != '\n' && c != EOF)
        std::ungetc(c, m_file);
    return true;
}
