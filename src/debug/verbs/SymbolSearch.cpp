#include "debug/verbs/SymbolSearch.h"

#include "elf/ElfFile.h"

const ElfSymbol *symbolOfName(const ElfFile &elf, const QString &name)
{
    if (const ElfSymbol *symbol = elf.symbolNamed(name))
        return symbol;
    const QByteArray raw = name.toUtf8();
    const ElfSymbol *found = nullptr;
    for (const ElfSymbol *symbol : elf.symbolsByAddress()) {
        if (symbol->rawName() == raw)
            return symbol;
        if (!found && symbol->rawName().startsWith("_Z") && symbol->name().startsWith(name + u'('))
            found = symbol;
    }
    return found;
}

const ElfSymbol *symbolOfAddress(const ElfFile &elf, quint32 address)
{
    const auto holds = [&](const ElfSymbol *symbol) { return symbol && address - symbol->value() < symbol->size(); };
    if (const ElfSymbol *function = elf.functionSymbolAt(address, true, false); holds(function))
        return function;
    if (const ElfSymbol *object = elf.objectSymbolAt(address, true); holds(object))
        return object;
    return elf.nearestSymbol(address);
}
