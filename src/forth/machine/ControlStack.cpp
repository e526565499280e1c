#include "forth/machine/ControlStack.h"

#include "forth/machine/ForthException.h"

using namespace Qt::StringLiterals;

namespace {

// By CSEntry::Kind.
constexpr const char *missingEntries[] = {
    "no <orig> on control stack",
    "no <dest> on control stack",
    "no <colon-sys> on control stack; unterminated control structure?",
    "no <do-sys> on control stack",
    "no <of-sys> on control stack",
    "no <case-sys> on control stack",
};

} // namespace

void ControlStack::push(CSEntry entry)
{
    if (m_entries.size() == capacity) {
        const auto isColon = [](const CSEntry &open) { return open.kind == CSEntry::ColonSys; };
        const auto present = entry.kind == CSEntry::ColonSys
                                 ? m_entries.end()
                                 : std::find_if(m_entries.rbegin(), m_entries.rend(), isColon).base();
        if (present - m_entries.begin() <= 1)
            throw ForthException(ForthError::ControlMismatch, u"more than 100 open control structures"_s);
        m_entries.erase(m_entries.begin(), entry.kind == CSEntry::ColonSys ? present : present - 1);
    }
    m_entries.push_back(std::move(entry));
}

CSEntry ControlStack::pop(CSEntry::Kind kind)
{
    if (m_entries.empty())
        throw ForthException(ForthError::ControlMismatch, u"control stack underflow"_s);
    CSEntry entry = std::move(m_entries.back());
    m_entries.pop_back();
    if (entry.kind != kind)
        throw ForthException(ForthError::ControlMismatch, QString::fromLatin1(missingEntries[kind]));
    return entry;
}

CSEntry *ControlStack::loop(int index)
{
    for (auto entry = m_entries.rbegin(); entry != m_entries.rend() && entry->kind != CSEntry::ColonSys; ++entry) {
        if (entry->kind == CSEntry::DoSys && index-- == 0)
            return &*entry;
    }
    return nullptr;
}

int ControlStack::openLoops() const
{
    int count = 0;
    for (auto entry = m_entries.rbegin(); entry != m_entries.rend() && entry->kind != CSEntry::ColonSys; ++entry)
        count += entry->kind == CSEntry::DoSys;
    return count;
}
