#include "driver/LtoResolver.h"

// Symbols are read one by one from the image: the file's indexes aren't needed for one walk.
void LtoResolver::collectElfSymbols(const ElfFile &file, QByteArrayView name,
                                    const std::function<void(LtoSymbol)> &undefined)
{
    for (quint32 i = 0; i < quint32(file.symbolCount()); ++i) {
        const ElfSymbol symbol(file, i);
        const quint8 binding = symbol.binding();
        if (binding == STB_WEAK)
            m_elfWeak.append({symbol.rawName(), name});
        else if (binding == STB_GLOBAL && symbol.sectionIndex() != SHN_UNDEF)
            m_elfStrong.append({symbol.rawName(), name});
        else if (binding == STB_GLOBAL)
            undefined({symbol.rawName(), name});
    }
}

void LtoResolver::addObject(const ElfFile &object, QByteArrayView name)
{
    collectElfSymbols(object, name, [this](const LtoSymbol &symbol) { m_elfUndefined.append(symbol); });
}

// Loads from each archive, in order, the member that defines `name`, and at once, depth first, the members
// that it needs in turn. True if `name` itself loaded one. The pending names stand in a list of our own: a
// chain of members may be longer than the stack is deep.
bool LtoResolver::pullFromArchives(QByteArrayView name)
{
    struct Pending
    {
        QByteArrayView name;
        size_t nextArchive = 0;
        std::vector<LtoSymbol> needs = {}; // the undefined symbols of the member loaded last
        size_t nextNeed = 0;
    };
    bool hasLoaded = false;
    std::vector<Pending> pending;
    pending.push_back({name});
    while (!pending.empty()) {
        Pending &top = pending.back();
        if (top.nextNeed < top.needs.size()) {
            const LtoSymbol need = top.needs[top.nextNeed++];
            m_elfUndefined.append(need);
            if (!irStrong.contains(need.name))
                pending.push_back({need.name});
        } else if (top.nextArchive < m_archives.size()) {
            QByteArrayView memberName;
            const ElfFile *member = m_archives[top.nextArchive++]->memberDefining(top.name, &memberName);
            if (member && m_loadedMembers.insert(member).second) {
                top.needs.clear();
                top.nextNeed = 0;
                collectElfSymbols(*member, memberName, [&](const LtoSymbol &symbol) { top.needs.push_back(symbol); });
                hasLoaded |= pending.size() == 1;
            }
        } else {
            pending.pop_back();
        }
    }
    return hasLoaded;
}

std::vector<QByteArrayView> LtoResolver::resolve()
{
    std::vector<QByteArrayView> preserved;
    bool changed;
    do {
        changed = false;
        preserved.clear();
        for (size_t i = 0; i < m_elfUndefined.size(); ++i) {
            const QByteArrayView name = m_elfUndefined.at(i).name;
            if (irStrong.contains(name) || (irWeak.contains(name) && !m_elfStrong.contains(name)))
                preserved.push_back(name);
        }
        for (size_t i = 0; i < m_elfWeak.size(); ++i) {
            const QByteArrayView name = m_elfWeak.at(i).name;
            if (irStrong.contains(name) || irWeak.contains(name))
                preserved.push_back(name);
        }
        for (size_t i = 0; i < irUndefined.size(); ++i) {
            const QByteArrayView name = irUndefined.at(i).name;
            if (m_elfStrong.contains(name) || m_elfWeak.contains(name))
                preserved.push_back(name);
            else
                changed |= pullFromArchives(name);
        }
    } while (changed);
    return preserved;
}
