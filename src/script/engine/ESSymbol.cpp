#include "script/engine/ESValue.h"

#include <QHash>
#include <array>

namespace {

// The decimal form of an integer below 0x7FFFFFFF as property names have it: no sign, no leading zero.
quint32 indexOf(QStringView text)
{
    if (text.isEmpty() || text.size() > 10 || (text[0] == u'0' && text.size() > 1))
        return ESSymbol::noIndex;
    quint64 value = 0;
    for (const QChar digit : text) {
        if (digit < u'0' || digit > u'9')
            return ESSymbol::noIndex;
        value = value * 10 + (digit.unicode() - u'0');
    }
    return value < 0x7FFFFFFF ? quint32(value) : ESSymbol::noIndex;
}

} // namespace

ESSymbol::ESSymbol(const QString &text) : m_text(text), m_index(indexOf(text))
{
    m_characters = reinterpret_cast<const char16_t *>(m_text.utf16());
    m_length = quint32(m_text.size());
    m_symbol = this;
}

// Symbols are never freed: code, contexts and hosts hold them by address.
class ESSymbolTable
{
public:
    ESSymbolTable()
    {
        for (quint32 i = 0; i < numbers.size(); ++i)
            numbers[i] = intern(QString::number(i));
    }

    ESSymbol *intern(QStringView text)
    {
        if (const auto found = m_symbols.constFind(text); found != m_symbols.cend())
            return *found;
        auto *symbol = new ESSymbol(text.toString());
        m_symbols.insert(symbol->text(), symbol);
        return symbol;
    }

    std::array<ESSymbol *, 1024> numbers;

private:
    QHash<QStringView, ESSymbol *> m_symbols; // the keys are the symbols' own texts
};

namespace {

ESSymbolTable &symbolTable()
{
    static ESSymbolTable *table = new ESSymbolTable;
    return *table;
}

} // namespace

ESSymbol *esIntern(QStringView text)
{
    return symbolTable().intern(text);
}

ESSymbol *esIntern(const char *latin1)
{
    return esIntern(QString::fromLatin1(latin1));
}

ESSymbol *esSymbolOf(quint32 index)
{
    ESSymbolTable &table = symbolTable();
    return index < table.numbers.size() ? table.numbers[index] : table.intern(QString::number(index));
}

const ESNames &esNames()
{
    static const ESNames names = {
        esIntern(""),           esIntern("length"),    esIntern("prototype"), esIntern("constructor"),
        esIntern("arguments"),  esIntern("callee"),    esIntern("index"),     esIntern("eval"),
        esIntern("null"),       esIntern("undefined"), esIntern("true"),      esIntern("false"),
        esIntern("name"),       esIntern("message"),   esIntern("fileName"),  esIntern("lineNumber"),
        esIntern("sourceLine"), esIntern("stack"),     esIntern("toString"),  esIntern("valueOf"),
        esIntern("help"),       esIntern("anonymous")};
    return names;
}
