#include "elf/ElfSymbol.h"

#include "base/ByteOrder.h"
#include "elf/ElfFile.h"

#include <cstdlib>
#define HAVE_DECL_BASENAME 1 // the C library has it; the header declares it otherwise than <cstring>
#include <libiberty/demangle.h>

namespace {

QString demangled(QByteArrayView name)
{
    struct Free
    {
        void operator()(char *text) const { std::free(text); }
    };
    const QByteArray terminated = name.toByteArray();
    const std::unique_ptr<char, Free> text(::cplus_demangle(terminated.constData(), DMGL_PARAMS | DMGL_AUTO));
    return text ? QString::fromUtf8(text.get()) : QString::fromUtf8(name);
}

} // namespace

quint32 ElfSymbol::field(quint32 offset, quint32 size) const
{
    const qsizetype start = qsizetype(m_index) * qsizetype(sizeof(Elf32_Sym)) + offset;
    return quint32(extractInteger(m_file->m_rawSymbols.data(), start, size, m_file->m_bigEndian));
}

QByteArrayView ElfSymbol::rawName() const
{
    return m_file->symbolNameAt(field(0, 4));
}

QString ElfSymbol::name() const
{
    const QByteArrayView raw = rawName();
    const bool isMangled = m_file->m_demangle && (raw.startsWith("_Z") || raw.startsWith("__Z"));
    return isMangled ? demangled(raw) : QString::fromUtf8(raw);
}

ARMElfSymbol::ARMElfSymbol(ElfFile &file, quint32 index) : ElfSymbol(file, index), m_value(rawValue())
{
    if (type() == STT_FUNC) {
        m_mode = m_value & 1 ? Thumb : Arm;
        m_value &= ~1u;
    } else if ((info() & 0xD) == 0xD) { // STT_ARM_TFUNC, and 15
        m_mode = Thumb;
    }
    m_value = file.mapAddress(m_value);
}
