#pragma once

#include <QByteArrayView>
#include <optional>
#include <span>

// LLVM's instruction decoder for one target, through the C interface of LLVM's library (llvm-c/Disassembler.h).
// The library is loaded when the first decoder is made and stays in the process.
class LlvmDecoder
{
public:
    // `triple` and `features` as LLVM's tools have them ("thumbv7m-none-eabi", "+mclass"). Throws HException when the
    // library isn't installed or has no such target.
    LlvmDecoder(const char *triple, const char *features);
    ~LlvmDecoder();
    LlvmDecoder(const LlvmDecoder &) = delete;
    LlvmDecoder &operator=(const LlvmDecoder &) = delete;

    // The bytes of the instruction that `bytes` begin with, 0 when that is none. What the calls below give holds for
    // the instruction decoded last.
    quint32 decode(quint32 address, std::span<const quint8> bytes);
    QByteArrayView mnemonic() const { return m_mnemonic; }
    QByteArrayView operands() const { return m_operands; }
    // Where a branch goes, if the target's decoder tells.
    std::optional<quint32> branchTarget() const { return m_branchTarget; }

private:
    static const char *lookUpSymbol(void *decoder, quint64 value, quint64 *referenceType, quint64 address,
                                    const char **referenceName);

    void *m_context;
    char m_text[256];
    QByteArrayView m_mnemonic, m_operands; // in m_text
    std::optional<quint32> m_branchTarget;
};
