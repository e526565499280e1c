#include "elf/ElfSymbolTable_p.h"

namespace {

constexpr qsizetype maximumSymbolsNear = 11;
// So many look-ups of a name walk the table: who asks for one or two names shouldn't pay for an index.
constexpr int maximumScans = 4;

using Symbols = std::vector<ElfSymbol *>;

quint32 valueOf(const ElfSymbol *symbol)
{
    return symbol->value();
}

// The first symbol not below `address` in a list that is sorted by value.
Symbols::const_iterator notBelow(const Symbols &symbols, quint32 address)
{
    return std::ranges::lower_bound(symbols, address, {}, valueOf);
}

// The first symbol of exactly that value that `accept` takes; failing that, with `searchBack`, the closest
// earlier one.
template <typename Accept>
ElfSymbol *acceptedAt(const Symbols &symbols, quint32 address, bool searchBack, Accept accept)
{
    const auto start = notBelow(symbols, address);
    for (auto it = start; it != symbols.end() && (*it)->value() == address; ++it)
        if (accept(*it))
            return *it;
    if (searchBack)
        for (auto it = start; it != symbols.begin();)
            if (accept(*--it))
                return *it;
    return nullptr;
}

} // namespace

ElfFile::SymbolTable::SymbolTable(ElfFile &file)
{
    const quint32 count = quint32(file.m_symbolCount);
    if (file.isArm())
        arm.reserve(count);
    else
        plain.reserve(count);
    for (quint32 i = 0; i < count; ++i) {
        ElfSymbol *symbol = file.isArm() ? &arm.emplace_back(file, i) : &plain.emplace_back(file, i);
        const QByteArrayView name = symbol->rawName();
        const char first = name.isEmpty() ? '\0' : name.front();
        ElfSection *section = file.sectionOfSymbol(symbol);
        if (first == '\0' || first == '!' || first == '.' || (first == '$' && !(section && section->isLoadable()))) {
            others.push_back(symbol);
        } else if (first == '$') {
            mapping.push_back(symbol);
            section->m_mappingSymbols.push_back(symbol);
        } else {
            named.push_back(symbol);
            if (section)
                byAddress.push_back(symbol);
        }
    }
    sortByValue(byAddress);
    sortByValue(mapping);
    for (const auto &section : file.m_sections)
        sortByValue(section->m_mappingSymbols);
}

// Among equal values the table's order stands.
void ElfFile::SymbolTable::sortByValue(Symbols &symbols)
{
    std::vector<quint64> keys(symbols.size());
    for (size_t i = 0; i < keys.size(); ++i)
        keys[i] = quint64(symbols[i]->value()) << 32 | symbols[i]->index();
    std::ranges::sort(keys);
    for (size_t i = 0; i < keys.size(); ++i)
        symbols[i] = at(quint32(keys[i]));
}

ElfFile::SymbolTable &ElfFile::symbols() const
{
    // The table is a cache: what it holds is fixed by the image.
    if (!m_symbols)
        m_symbols = std::make_unique<SymbolTable>(const_cast<ElfFile &>(*this));
    return *m_symbols;
}

ElfSymbol *ElfFile::symbolAtIndex(quint32 index) const
{
    return index < quint64(m_symbolCount) ? symbols().at(index) : nullptr;
}

ElfSymbol *ElfFile::symbolNamed(const QString &name) const
{
    SymbolTable &table = symbols();
    if (m_demangle) {
        if (table.demangledIndex.isEmpty())
            for (auto it = table.named.rbegin(); it != table.named.rend(); ++it)
                table.demangledIndex.insert((*it)->name(), *it); // the first in table order comes last and stays
        return table.demangledIndex.value(name);
    }
    const QByteArray key = name.toUtf8();
    if (table.scans < maximumScans) {
        ++table.scans;
        const auto found = std::ranges::find(table.named, QByteArrayView(key), &ElfSymbol::rawName);
        return found != table.named.end() ? *found : nullptr;
    }
    if (table.rawIndex.isEmpty()) {
        table.rawIndex.reserve(qsizetype(table.named.size()));
        for (auto it = table.named.rbegin(); it != table.named.rend(); ++it)
            table.rawIndex.insert((*it)->rawName(), *it);
    }
    return table.rawIndex.value(key);
}

const Symbols &ElfFile::symbolsByName() const
{
    SymbolTable &table = symbols();
    if (table.byName.empty() && !table.named.empty()) {
        std::vector<std::pair<QString, ElfSymbol *>> keys;
        keys.reserve(table.named.size());
        for (ElfSymbol *symbol : table.named)
            keys.emplace_back(symbol->name(), symbol);
        std::ranges::stable_sort(keys, {}, &decltype(keys)::value_type::first);
        for (const auto &key : keys)
            table.byName.push_back(key.second);
    }
    return table.byName;
}

const Symbols &ElfFile::symbolsByAddress() const
{
    return symbols().byAddress;
}

const Symbols &ElfFile::mappingSymbols() const
{
    return symbols().mapping;
}

const Symbols &ElfFile::otherSymbols() const
{
    return symbols().others;
}

ElfSymbol *ElfFile::nearestSymbol(quint32 address) const
{
    const Symbols &sorted = symbolsByAddress();
    const auto found = notBelow(sorted, address);
    if (found != sorted.end() && (*found)->value() == address)
        return *found;
    return found != sorted.begin() ? *(found - 1) : nullptr;
}

ElfSymbol *ElfFile::objectSymbolAt(quint32 address, bool searchBack) const
{
    return acceptedAt(symbolsByAddress(), address, searchBack,
                      [](const ElfSymbol *symbol) { return symbol->type() == STT_OBJECT; });
}

ElfSymbol *ElfFile::functionSymbolAt(quint32 address, bool searchBack, bool acceptCodeGlobals) const
{
    return acceptedAt(symbolsByAddress(), address, searchBack, [&](const ElfSymbol *symbol) {
        if (symbol->isFunction())
            return true;
        const ElfSection *section = acceptCodeGlobals ? sectionOfSymbol(symbol) : nullptr;
        return section && symbol->binding() == STB_GLOBAL && (section->header().sh_flags & SHF_EXECINSTR);
    });
}

bool ElfFile::symbolsNear(quint32 address, QList<ElfSymbol *> &list) const
{
    const ElfSymbol *nearest = nearestSymbol(address);
    if (!nearest)
        return false;
    const Symbols &sorted = symbolsByAddress();
    const quint32 value = nearest->value();
    for (auto it = notBelow(sorted, value); it != sorted.end() && (*it)->value() == value; ++it)
        if (list.size() < maximumSymbolsNear)
            list.append(*it);
    return true;
}

bool ElfFile::symbolsAt(quint32 address, const ElfSection *wanted, QList<ElfSymbol *> &list) const
{
    const Symbols &sorted = symbolsByAddress();
    for (auto it = notBelow(sorted, address); it != sorted.end() && (*it)->value() == address; ++it) {
        const ElfSection *section = sectionOfSymbol(*it);
        if (section && section->isLoadable() && (!wanted || section == wanted))
            list.append(*it);
    }
    return !list.isEmpty();
}

bool ElfFile::stretchAt(quint32 address, bool &isCode, quint32 &size) const
{
    const ElfSymbol *nearest = nearestSymbol(address);
    if (!nearest)
        return false;
    const Symbols &sorted = symbolsByAddress();
    const quint32 value = nearest->value();
    auto it = notBelow(sorted, value);
    bool isDecided = false;
    for (; it != sorted.end() && (*it)->value() == value; ++it) {
        const bool isTyped = (*it)->isFunction() || (*it)->type() == STT_OBJECT;
        if (!isDecided && isTyped)
            isCode = (*it)->isFunction();
        isDecided |= isTyped;
    }
    for (; it != sorted.end(); ++it) {
        if ((*it)->isFunction() || (*it)->type() == STT_OBJECT) {
            size = (*it)->value() - address;
            break;
        }
    }
    return true;
}

ElfSymbol *ElfFile::mappingSymbolAt(quint32 address, const ElfSection *section) const
{
    // The entry at which the walk back begins: the first not below the address, or the last.
    const auto startIn = [address](const Symbols &sorted) {
        const auto found = notBelow(sorted, address);
        return found == sorted.end() ? found - 1 : found;
    };
    if (section && !section->mappingSymbols().empty()) {
        ElfSymbol *own = *startIn(section->mappingSymbols());
        if (own->value() <= address)
            return own;
    }
    const Symbols &sorted = mappingSymbols();
    if (sorted.empty())
        return nullptr;
    for (auto it = startIn(sorted) + 1; it != sorted.begin();) {
        ElfSymbol *symbol = *--it;
        if (symbol->value() <= address && (!section || sectionOfSymbol(symbol) == section))
            return symbol;
    }
    return nullptr;
}
