#pragma once

#include <QByteArrayView>
#include <QString>
#include <elf.h>

class ElfFile;

// One row of an ELF file's ".symtab", read from the image when asked. The file owns it.
class ElfSymbol
{
public:
    ElfSymbol(const ElfFile &file, quint32 index) : m_file(&file), m_index(index) {}
    virtual ~ElfSymbol() = default;

    // The address or number that the symbol stands for; st_value unless the machine gives bits of it a meaning.
    virtual quint32 value() const { return rawValue(); }

    // The name in UTF-8, demangled if the file demangles.
    QString name() const;
    // The name's bytes as the file has them.
    QByteArrayView rawName() const;

    quint32 index() const { return m_index; }
    quint32 rawValue() const { return field(4, 4); }
    quint32 size() const { return field(8, 4); }
    quint8 info() const { return quint8(field(12, 1)); }
    quint8 other() const { return quint8(field(13, 1)); }
    quint16 sectionIndex() const { return quint16(field(14, 2)); }
    quint8 type() const { return info() & 0xF; }
    quint8 binding() const { return info() >> 4; }
    bool isFunction() const { return type() == STT_FUNC || type() == STT_ARM_TFUNC; }

private:
    // Elf32_Sym: st_name 4 bytes, st_value 4, st_size 4, st_info 1, st_other 1, st_shndx 2
    quint32 field(quint32 offset, quint32 size) const;

    const ElfFile *m_file;
    quint32 m_index;
};

// A symbol of an ARM file. The low bit of a function's value tells the instruction set and is no part of the
// address.
class ARMElfSymbol : public ElfSymbol
{
public:
    enum Mode : quint32 { Arm = 0, Thumb = 1, Data = 2 };

    ARMElfSymbol(ElfFile &file, quint32 index);

    quint32 value() const override { return m_value; }
    Mode mode() const { return m_mode; }

private:
    Mode m_mode = Data;
    quint32 m_value;
};
