#include "forth/machine/WordList.h"

#include "forth/machine/ForthException.h"

quint32 WordList::hashOf(std::string_view name)
{
    quint32 hash = 2166136261u; // FNV-1a
    for (const char c : name)
        hash = (hash ^ quint8(c)) * 16777619u;
    return hash;
}

WordList::Entry &WordList::slot(std::vector<Entry> &table, std::string_view name, quint32 hash) const
{
    size_t i = hash & (table.size() - 1);
    while (table[i].word && (table[i].hash != hash || table[i].word->name() != name))
        i = (i + 1) & (table.size() - 1);
    return table[i];
}

pcode *WordList::find(std::string_view name, quint32 hash) const
{
    if (m_table.empty())
        return nullptr;
    return slot(const_cast<std::vector<Entry> &>(m_table), name, hash).word;
}

void WordList::enter(pcode *word)
{
    if (m_count * 3 >= m_table.size() * 2) {
        std::vector<Entry> larger(std::max<size_t>(32, m_table.size() * 2));
        for (const Entry &entry : m_table) {
            if (entry.word)
                slot(larger, entry.word->name(), entry.hash) = entry;
        }
        m_table.swap(larger);
    }
    const quint32 hash = hashOf(word->name());
    Entry &entry = slot(m_table, word->name(), hash);
    m_count += !entry.word;
    entry = {hash, word};
    word->wordList = this;
}

std::vector<pcode *> WordList::sorted() const
{
    std::vector<pcode *> words;
    for (const Entry &entry : m_table) {
        if (entry.word)
            words.push_back(entry.word);
    }
    std::ranges::sort(words, {}, &pcode::name);
    return words;
}

WordList *SearchOrder::top() const
{
    if (m_lists.empty())
        throw ForthException(ForthError::SearchOrderUnderflow);
    return m_lists.back();
}

void SearchOrder::replaceTop(WordList *list)
{
    dropTop();
    m_lists.push_back(list);
}

void SearchOrder::pushTop(WordList *list)
{
    if (m_lists.size() == capacity)
        throw ForthException(ForthError::SearchOrderOverflow);
    m_lists.push_back(list);
}

void SearchOrder::dropTop()
{
    top();
    m_lists.pop_back();
}
