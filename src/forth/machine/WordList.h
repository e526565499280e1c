#pragma once

#include "forth/machine/pcode.h"

// Words by upper-case name.
class WordList
{
public:
    WordList(int number, const QString &name) : m_number(number), m_name(name) {}

    int number() const { return m_number; } // how scripts name the list
    QString displayName() const { return m_name.isEmpty() ? QStringLiteral("ANON-WORDLIST") : m_name; }

    // Null when there is none. `hash` is hashOf(name), made once for a search through several lists.
    pcode *find(std::string_view name, quint32 hash) const;
    pcode *find(std::string_view name) const { return find(name, hashOf(name)); }
    // Enters the word under its name in place of what has it.
    void enter(pcode *word);
    std::vector<pcode *> sorted() const; // by name

    static quint32 hashOf(std::string_view name);

private:
    struct Entry
    {
        quint32 hash;
        pcode *word; // null: free
    };
    Entry &slot(std::vector<Entry> &table, std::string_view name, quint32 hash) const;

    int m_number;
    QString m_name;
    std::vector<Entry> m_table; // open addressing; size a power of two, at least a third of it free
    size_t m_count = 0;
};

// The lists that a name is looked up in, from the last to the first. At most 8 (-49); what needs a last one
// throws -50 when there is none.
class SearchOrder
{
public:
    static constexpr size_t capacity = 8;

    const std::vector<WordList *> &lists() const { return m_lists; }
    WordList *top() const;
    void replaceTop(WordList *list);
    void pushTop(WordList *list);
    void dropTop();
    void set(std::vector<WordList *> lists) { m_lists = std::move(lists); }

private:
    std::vector<WordList *> m_lists;
};
