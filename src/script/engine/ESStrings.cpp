#include "script/engine/ESContext.h"

#include <array>

namespace {

constexpr quint32 longestString = 0x1FFFFFFF; // UTF-16 units
constexpr quint32 copiedAtOnce = 24;          // up to here a copy is cheaper than what it saves
constexpr quint32 buffered = 256;

void copyCharacters(char16_t *to, QStringView from)
{
    std::memcpy(to, from.utf16(), size_t(from.size()) * sizeof(char16_t));
}

} // namespace

char16_t *ESContext::makeCharacters(quint32 length, ESString *&string)
{
    if (length > longestString)
        fatal("string too long");
    char16_t *characters = m_arena.array<char16_t>(std::max(length, 1u));
    string = m_arena.make<ESString>();
    string->m_characters = characters;
    string->m_length = length;
    return characters;
}

ESString *ESContext::makeString(QStringView text)
{
    if (text.size() <= 1)
        return text.isEmpty() ? esNames().empty : makeCharacter(text[0].unicode());
    if (text.size() > qsizetype(longestString))
        fatal("string too long");
    ESString *string;
    copyCharacters(makeCharacters(quint32(text.size()), string), text);
    return string;
}

ESString *ESContext::makeCharacter(char16_t character)
{
    static std::array<ESSymbol *, 256> latin1 = {};
    if (character >= latin1.size())
        return esIntern(QStringView(&character, 1));
    ESSymbol *&symbol = latin1[character];
    return symbol ? symbol : symbol = esIntern(QStringView(&character, 1));
}

ESString *ESContext::substring(ESString *string, quint32 from, quint32 length)
{
    const QStringView text = view(string);
    if (length == string->m_length)
        return string;
    if (length <= 1)
        return length ? makeCharacter(text[from].unicode()) : esNames().empty;
    ESString *part = m_arena.make<ESString>();
    part->m_characters = string->m_characters + from;
    part->m_length = length;
    return part;
}

// Appending to the string that was appended to last goes into the room behind it. Everything else that is long
// keeps its two halves until somebody reads it, so that neither appending nor putting in front copies again.
ESString *ESContext::concatenate(ESString *left, ESString *right)
{
    if (left->m_length == 0)
        return right;
    if (right->m_length == 0)
        return left;
    const quint64 total = quint64(left->m_length) + right->m_length;
    if (total > longestString)
        fatal("string too long");
    const quint32 length = quint32(total);

    ESString *string = nullptr;
    const bool flat = left->isFlat() && right->isFlat();
    if (length <= copiedAtOnce) {
        char16_t *to = makeCharacters(length, string);
        copyCharacters(to, view(left));
        copyCharacters(to + left->m_length, view(right));
        return string;
    }
    string = m_arena.make<ESString>();
    string->m_length = length;
    ESString::Buffer *buffer = flat && !left->isSymbol() ? left->m_buffer : nullptr;
    const bool appends = buffer ? buffer->used == left->m_length : flat && length <= buffered;
    if (!appends) {
        string->m_left = left;
        string->m_right = right;
        return string;
    }
    if (!buffer || length > buffer->capacity) {
        const quint32 capacity = length * 2;
        buffer = static_cast<ESString::Buffer *>(
            m_arena.allocate(sizeof(ESString::Buffer) + size_t(capacity) * sizeof(char16_t)));
        buffer->capacity = capacity;
        auto *characters = reinterpret_cast<char16_t *>(buffer + 1);
        copyCharacters(characters, left->flat());
        if (left->m_buffer) { // it must not be seen as the last one again
            left->m_characters = characters;
            left->m_buffer = buffer;
        }
    }
    auto *characters = reinterpret_cast<char16_t *>(buffer + 1);
    copyCharacters(characters + left->m_length, right->flat());
    buffer->used = length;
    string->m_characters = characters;
    string->m_buffer = buffer;
    return string;
}

QStringView ESContext::flatten(ESString *string)
{
    const quint32 capacity = string->m_length + string->m_length / 4;
    auto *buffer = static_cast<ESString::Buffer *>(
        m_arena.allocate(sizeof(ESString::Buffer) + size_t(capacity) * sizeof(char16_t)));
    *buffer = {string->m_length, capacity};
    auto *characters = reinterpret_cast<char16_t *>(buffer + 1);

    // From the end to the start: a string built by appending needs no deep list of what is still to do.
    char16_t *end = characters + string->m_length;
    std::vector<ESString *> pending = {string};
    while (!pending.empty()) {
        ESString *part = pending.back();
        pending.pop_back();
        if (part->isFlat()) {
            end -= part->m_length;
            copyCharacters(end, part->flat());
        } else {
            pending.push_back(part->m_left);
            pending.push_back(part->m_right);
        }
    }
    string->m_characters = characters;
    string->m_buffer = buffer;
    string->m_symbol = nullptr;
    return string->flat();
}
